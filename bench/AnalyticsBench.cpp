// What a diagnostic report costs the thread that makes it, beside the
// floor of doing the record's file work on that thread instead.
//
//  1. AnalyticsSendEvent: sendEvent(kind, class, method, message) on the
//     caller's thread with profiling on and the module open; the record is
//     built, appended and fdatasync'ed on the analytics queue meanwhile.
//     Counters: the median and 99th percentile of single calls.
//  2. PlainAppendFsync: write() + fdatasync() of the same record line per
//     call, the durable append that the caller is spared.
//
// A call should cost the caller far less than that append: the figures
// hold its mean and its 99th percentile to a tenth of one.
//
//   build/release/bench/zivora_bench_analytics
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchFigure.h"
#include "RecordingReporter.h"
#include "analytics/ZVPAnalitics.h"
#include "analytics/ZVPCustomParams.h"
#include "platform/HttpClient.h"
#include "platform/linux/FileSecretStore.h"
#include "platform/linux/ThreadRuntime.h"
#include "sdk/Context.h"
#include "util/LogSink.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kMessage[] = "Video did not start within 5 s; continuing after error";

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (fs::temp_directory_path() / "zivora-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

class SilentLog final : public zivora::LogSink {
 public:
  void write(zivora::LogLevel, std::string_view) override {}
};

// Accepts every record at once, so that sending costs no network time.
class AcceptingHttp final : public zivora::platform::HttpClient {
 public:
  zivora::platform::HttpResponse perform(const zivora::platform::HttpRequest&) override {
    return {200, R"({"Status":"Accepted"})", ""};
  }
};

// The line a diagnostic record of this benchmark is stored as.
std::string recordLine() {
  zivora::ZVPCustomParams params;
  params.put("ClassName", "ZVVideoView");
  params.put("MethodName", "show");
  params.put("Message", kMessage);
  params.put("bo_AppId", "tessaro-profiling");
  params.put("bo_Name", "info");
  params.put("bo_RandomUID", std::string(73, 'A'));
  params.put("bo_DeviceId", std::string(36, 'B'));
  params.put("bo_AdvertisingId", std::string(36, 'C'));
  params.put("bo_ClientVersion", "2.4.1");
  params.put("bo_PlatformId", 2);
  params.put("bo_Timestamp", std::int64_t{1767225600});
  params.put("bo_Order", 12345);
  return *params.toStr() + "\n";
}

double percentile(std::vector<double>& samples, double p) {
  if (samples.empty()) return 0;
  auto at = samples.begin() + static_cast<std::ptrdiff_t>(p * (samples.size() - 1));
  std::nth_element(samples.begin(), at, samples.end());
  return *at;
}

void AnalyticsSendEvent(benchmark::State& state) {
  ScratchDirectory dir;
  auto analytics = std::make_shared<zivora::ZVPAnalitics>();
  auto context = std::make_shared<zivora::Context>(
      zivora::HostOptions{.dataRoot = dir.path().string(),
                          .applicationName = "bench",
                          .applicationVersion = "2.4.1",
                          .screenWidth = 1280,
                          .screenHeight = 720},
      zivora::RuntimeOptions{
          .runtime = std::make_shared<zivora::dispatch::ThreadRuntime>(),
          .http = std::make_shared<AcceptingHttp>(),
          .log = std::make_shared<SilentLog>(),
          .analytics = analytics,
          .secretStore = std::make_shared<zivora::platform::FileSecretStore>(dir.path() / "s")});
  zivora::Context::install(context);
  zivora::ZVPAnalitics::sendProfilingEnable(true);
  analytics->appOpen();

  std::vector<double> samples;
  samples.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    auto start = Clock::now();
    analytics->sendEvent("info", "ZVVideoView", "show", kMessage);
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  state.counters["p50_us"] = percentile(samples, 0.5);
  state.counters["p99_us"] = percentile(samples, 0.99);
  state.SetItemsProcessed(state.iterations());

  // Records still waiting on the analytics queue are dropped with it.
  zivora::ZVPAnalitics::sendProfilingEnable(false);
  zivora::Context::install(nullptr);
  context.reset();
  analytics.reset();
}
// A fixed count per run bounds the backlog the analytics queue builds up.
BENCHMARK(AnalyticsSendEvent)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->Iterations(5000)
    ->Repetitions(5);

void PlainAppendFsync(benchmark::State& state) {
  ScratchDirectory dir;
  const std::string line = recordLine();
  int fd =
      ::open((dir.path() / "plain.dat").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return state.SkipWithError("cannot open the file");
  for (auto _ : state) {
    if (::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        ::fdatasync(fd) != 0) {
      ::close(fd);
      return state.SkipWithError("write failed");
    }
  }
  ::close(fd);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PlainAppendFsync)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->Iterations(500)
    ->Repetitions(5);

}  // namespace

int main(int argc, char** argv) {
  zivora::bench::RecordingReporter reporter;
  if (!zivora::bench::RecordingReporter::runBenchmarks(argc, argv, reporter)) return 1;

  using zivora::bench::BenchFigure;
  const double fsync = reporter.realTime("PlainAppendFsync");
  BenchFigure::withinRatio("analytics sendEvent on caller, mean",
                           reporter.realTime("AnalyticsSendEvent"), fsync, "us", 0.1)
      .print();
  BenchFigure::withinRatio("analytics sendEvent on caller, p99",
                           reporter.counter("AnalyticsSendEvent", "p99_us"), fsync, "us", 0.1)
      .print();
  return BenchFigure::exitStatus();
}
