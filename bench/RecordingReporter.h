// The console reporter of Google Benchmark that also keeps what each
// benchmark measured, so that main() can print its figures afterwards.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace zivora::bench {

class RecordingReporter final : public benchmark::ConsoleReporter {
 public:
  RecordingReporter();

  // Runs the registered benchmarks with the command line's options through
  // `reporter`; false when the command line is not understood.
  static bool runBenchmarks(int argc, char** argv, RecordingReporter& reporter);

  void ReportRuns(const std::vector<Run>& runs) override;

  // Median over the repetitions of the real time per iteration, in the
  // benchmark's own time unit; NaN when the benchmark did not run.
  double realTime(const std::string& benchmark) const;
  // Median over the repetitions of a user counter; NaN when absent.
  double counter(const std::string& benchmark, const std::string& name) const;

 private:
  std::map<std::string, std::vector<Run>> runs_;
};

}  // namespace zivora::bench
