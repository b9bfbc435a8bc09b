#include "RecordingReporter.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

namespace zivora::bench {

namespace {

double median(std::vector<double> values) {
  if (values.empty()) return std::nan("");
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double medianOf(
    const std::vector<benchmark::BenchmarkReporter::Run>& runs,
    const std::function<std::optional<double>(const benchmark::BenchmarkReporter::Run&)>& value) {
  std::vector<double> values;
  for (const auto& run : runs) {
    if (auto v = value(run)) values.push_back(*v);
  }
  return median(std::move(values));
}

}  // namespace

bool RecordingReporter::runBenchmarks(int argc, char** argv, RecordingReporter& reporter) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return false;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return true;
}

// Colour only on a terminal, as the library's default reporter does, so
// the human output of a piped run stays plain text.
RecordingReporter::RecordingReporter()
    : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}

void RecordingReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  // Aggregates (mean, median, stddev) are recomputed here from the single
  // repetitions; failed runs carry no figure.
  for (const auto& run : runs) {
    if (run.run_type == Run::RT_Iteration && !run.error_occurred)
      runs_[run.run_name.function_name].push_back(run);
  }
}

double RecordingReporter::realTime(const std::string& benchmark) const {
  auto found = runs_.find(benchmark);
  if (found == runs_.end()) return std::nan("");
  return medianOf(found->second, [](const Run& run) { return run.GetAdjustedRealTime(); });
}

double RecordingReporter::counter(const std::string& benchmark, const std::string& name) const {
  auto found = runs_.find(benchmark);
  if (found == runs_.end()) return std::nan("");
  return medianOf(found->second, [&](const Run& run) -> std::optional<double> {
    auto it = run.counters.find(name);
    if (it == run.counters.end()) return std::nullopt;
    return it->second.value;
  });
}

}  // namespace zivora::bench
