// From cacheVideo() to videoDidCache() for the sandbox's large ad (a video
// of more than 5 MiB, its picture and the three button images) on loopback,
// against curl doing the same requests and downloads in the same run: the
// signed "getVideo" POST, then every file, one process, one connection.
// Each SDK run starts on an empty data root, after its handshake.
//   zivora_bench_cache [runs, default 5] [--trace]
// --trace prints the SDK's log lines with the milliseconds since cacheVideo(),
// to see where a run spends its time.
// Beside the times it states the CPU each side spends: the process's own
// during an SDK run (the SDK and the sandbox serving it) against the
// process's and curl's during a curl run (the sandbox serving curl, and
// curl), so what the SDK adds on the two cores shows apart from the noise
// of the wall-clock figure.
#include <fmt/format.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "BenchFigure.h"
#include "SandboxServer.h"
#include "events/ZVSendRequest.h"
#include "sdk/ZVConfiguration.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "util/JsonConvert.h"
#include "util/LogSink.h"
#include "zivora/Zivora.h"

extern char** environ;

namespace {

using namespace zivora;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kPlacement[] = "large";
// curl does not sync what it downloads; the SDK must, so parity is the
// floor and a tenth above it the target.
constexpr double kMaxRatio = 1.1;

// Drops the SDK's log, or prints it stamped with the time since the mark.
class BenchLog final : public LogSink {
 public:
  explicit BenchLog(bool trace) : trace_(trace) {}
  void mark() { start_.store(Clock::now().time_since_epoch().count()); }
  void unmark() { start_.store(0); }
  void write(LogLevel, std::string_view text) override {
    if (!trace_ || start_.load() == 0) return;
    const auto since = Clock::now().time_since_epoch() - Clock::duration(start_.load());
    fmt::print(stderr, "{:8.1f} ms  {}\n", std::chrono::duration<double, std::milli>(since).count(),
               text.substr(0, 160));
  }

 private:
  const bool trace_;
  std::atomic<Clock::rep> start_{0};
};

// Waits for the placement's caching callback.
class CacheWaiter final : public ZivoraDelegate {
 public:
  void videoDidCache(const std::string&) override { finish(true); }
  void videoDidFailToLoad(const std::string&, std::uint64_t) override { finish(false); }
  bool wait() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(120), [&] { return done_; });
    return ok_;
  }

 private:
  void finish(bool ok) {
    std::lock_guard lock(mutex_);
    done_ = true;
    ok_ = ok;
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false, ok_ = false;
};

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double cpuSeconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  auto toSeconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

// CPU seconds of this process and of its waited-for children so far.
double cpuSoFar() { return cpuSeconds(RUSAGE_SELF) + cpuSeconds(RUSAGE_CHILDREN); }

// One run's wall-clock time and the CPU spent meanwhile.
struct RunCost {
  double seconds = 0;
  double cpu = 0;
};

void run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
    throw std::runtime_error("cannot run " + args[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(args[0] + " failed");
}

bool waitForHandshake() {
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (Clock::now() < deadline) {
    auto configuration = ZVConfiguration::shared();
    if (configuration && configuration->closeButtonURL()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

RunCost sdkRun(const sandbox::SandboxServer& server, const std::shared_ptr<BenchLog>& log) {
  zivora::test::TempDir root;
  ZivoraInstance::start("bench-app",
                        HostOptions{.dataRoot = root.path().string(),
                                    .applicationName = "zivora-bench",
                                    .adEndpoint = server.adEndpoint(),
                                    .analyticsEndpoint = server.analyticsEndpoint(),
                                    .caFile = server.caFile(),
                                    .screenWidth = 1280,
                                    .screenHeight = 720},
                        RuntimeOptions{.log = log});
  auto waiter = std::make_shared<CacheWaiter>();
  Zivora::setDelegate(waiter);
  if (!waitForHandshake()) throw std::runtime_error("no handshake");
  const double cpuStart = cpuSoFar();
  const auto start = Clock::now();
  log->mark();
  Zivora::cacheVideo(kPlacement);
  const bool cached = waiter->wait();
  const RunCost cost{seconds(Clock::now() - start), cpuSoFar() - cpuStart};
  log->unmark();
  ZivoraInstance::reset();
  if (!cached) throw std::runtime_error("the ad was not cached");
  return cost;
}

// The same exchange by curl: the signed request, then each file.
RunCost curlRun(const sandbox::SandboxServer& server, const nlohmann::json& initialization) {
  zivora::test::TempDir scratch;
  const std::string params = JsonConvert::serialize({{"getVideo",
                                                      {{"randomUID", "bench"},
                                                       {"appId", "bench-app"},
                                                       {"placementId", kPlacement},
                                                       {"orientation", 2},
                                                       {"isMobileNetwork", false}}}});
  const std::string body =
      "Params=" + *ZVSendRequest::urlEncode(params) + "&md5=" + ZVSendRequest::getMD5(params);
  const fs::path reply = scratch.path() / "ad.json";
  const double cpuStart = cpuSoFar();
  const auto start = Clock::now();
  run({"curl", "-s", "-f", "--cacert", server.caFile(), "-H",
       "Content-Type: application/x-www-form-urlencoded", "--data-binary", body, "-o",
       reply.string(), server.adEndpoint()});
  std::ifstream in(reply);
  const auto ad = nlohmann::json::parse(in);
  std::vector<std::string> args{"curl", "-s", "-f", "--cacert", server.caFile()};
  int index = 0;
  auto fetch = [&](const std::string& url) {
    args.insert(args.end(), {"-o", (scratch.path() / std::to_string(index++)).string(), url});
  };
  fetch(ad.at("imageURL"));
  for (const char* key : {"closeButtonURL", "soundOnButtonURL", "soundOffButtonURL"})
    fetch(initialization.at(key));
  fetch(ad.at("videoURL"));
  run(args);
  return {seconds(Clock::now() - start), cpuSoFar() - cpuStart};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  bool trace = false;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--trace") {
      trace = true;
    } else {
      runs = std::max(1, std::atoi(argv[i]));
    }
  }
  const auto log = std::make_shared<BenchLog>(trace);
  // Ad screens are never opened here; keep SDL away from any display.
  setenv("SDL_VIDEODRIVER", "dummy", 1);
  zivora::test::TempDir certs;
  sandbox::SandboxServer server({.certDirectory = certs.path()});
  server.start();
  const nlohmann::json initialization = {{"closeButtonURL", server.fileUrl("close.png")},
                                         {"soundOnButtonURL", server.fileUrl("sound_on.png")},
                                         {"soundOffButtonURL", server.fileUrl("sound_off.png")}};

  std::vector<double> sdk, curl, sdkCpu, curlCpu;
  curlRun(server, initialization);  // warms the sandbox's file cache
  for (int i = 0; i < runs; ++i) {
    const RunCost sdkCost = sdkRun(server, log);
    const RunCost curlCost = curlRun(server, initialization);
    sdk.push_back(sdkCost.seconds);
    sdkCpu.push_back(sdkCost.cpu);
    curl.push_back(curlCost.seconds);
    curlCpu.push_back(curlCost.cpu);
  }
  const double sdkMedian = median(sdk), curlMedian = median(curl);
  fmt::print("CPU while caching, median: SDK and sandbox {:.3f} s, curl and sandbox {:.3f} s\n",
             median(sdkCpu), median(curlCpu));
  fmt::print(
      "cacheVideo to videoDidCache, large ad, median of {}: SDK {:.3f} s, curl {:.3f} s, "
      "ratio {:.2f} (target: {} or less)\n",
      runs, sdkMedian, curlMedian, sdkMedian / curlMedian, kMaxRatio);
  bench::BenchFigure::withinRatio("cacheVideo to videoDidCache vs curl", sdkMedian, curlMedian, "s",
                                  kMaxRatio)
      .print();
  return bench::BenchFigure::exitStatus();
}
