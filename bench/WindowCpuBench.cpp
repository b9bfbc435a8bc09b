// The CPU time (user and system, from the ended process) of the sample host
// playing the sandbox's large ad (ten seconds of 1280x720 at 30 fps) in the
// SDK's own window on an X server of its own, against gst-launch-1.0
// playing the same cached file into ximagesink on the same display. Runs
// alternate, so that a machine others load weighs on both sides alike; the
// medians are compared, with the load average beside them.
//   zivora_bench_window_cpu [runs, default 3]
// The sandbox runs in this process: only the host's own work is counted.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BenchFigure.h"
#include "SandboxServer.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/XServer.h"

namespace {

using namespace zivora;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr int kWidth = 1280, kHeight = 720;
constexpr double kMaxRatio = 1.3;
// The ad lasts ten seconds; a side that ended much sooner did not play it.
constexpr double kShortestPlay = 9.0;
constexpr auto kPatience = seconds(90);

struct Run {
  double cpu = 0;
  double wall = 0;
  // Why the run does not count; empty when it does.
  std::string failed;
};

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string loadAverage() {
  double load[3] = {0, 0, 0};
  if (getloadavg(load, 3) != 3) return "unknown";
  return fmt::format("{:.2f} {:.2f} {:.2f}", load[0], load[1], load[2]);
}

// The sample host from videoWindowDidDisplay to videoDidDismiss is the
// playback; Escape then closes the post-video screen and the host ends.
Run sdkRun(test::XServer& x, const sandbox::SandboxServer& server, const fs::path& data) {
  Run run;
  auto demo = test::ChildProcess::start(
      {"env", "-u", "SDL_VIDEODRIVER", "-u", "WAYLAND_DISPLAY", "DISPLAY=" + x.display(),
       ZIVORA_DEMO_EXECUTABLE, "--placement", "large", "--server", server.adEndpoint(),
       "--analytics-server", server.analyticsEndpoint(), "--ca", server.caFile(), "--data-dir",
       data.string(), "--out", (data / "out").string()},
      {.input = {}, .captureOutput = true});
  if (!demo) return {0, 0, "the sample host did not start"};
  std::optional<Clock::time_point> shown;
  bool dismissed = false;
  const auto deadline = Clock::now() + kPatience;
  while (!dismissed && Clock::now() < deadline) {
    const auto line = demo->readLine(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    if (!line) break;
    if (line->find("delegate: videoWindowDidDisplay") != std::string::npos) shown = Clock::now();
    dismissed = line->find("delegate: videoDidDismiss") != std::string::npos;
  }
  if (shown) run.wall = since(*shown);
  // The post-video screen closes on Escape; a press before its window
  // takes the keys is lost, so it is repeated until the host ends.
  while (dismissed && demo->running() && Clock::now() < deadline) {
    x.xdotool({"key", "Escape"});
    demo->waitFor(std::chrono::milliseconds(300));
  }
  if (!demo->waitFor(std::chrono::seconds(5))) demo->kill(SIGKILL), demo->waitFor(seconds(5));
  run.cpu = demo->cpuSeconds();
  if (!shown || !dismissed) {
    run.failed = "the sample host never showed and dismissed the video";
  } else if (demo->exitCode() != 0) {
    run.failed = "the sample host ended with " + demo->describe();
  } else if (run.wall < kShortestPlay) {
    run.failed = fmt::format("the video played {:.1f} s only", run.wall);
  }
  return run;
}

Run gstRun(const test::XServer& x, const fs::path& video) {
  Run run;
  const auto start = Clock::now();
  auto gst = test::ChildProcess::start({"env", "DISPLAY=" + x.display(), "gst-launch-1.0", "-q",
                                        "playbin", "uri=file://" + fs::absolute(video).string(),
                                        "video-sink=ximagesink", "audio-sink=fakesink"},
                                       {});
  if (!gst) return {0, 0, "gst-launch-1.0 did not start"};
  if (!gst->waitFor(kPatience)) gst->kill(SIGKILL), gst->waitFor(seconds(5));
  run.wall = since(start);
  run.cpu = gst->cpuSeconds();
  if (gst->exitCode() != 0) {
    run.failed = "gst-launch-1.0 ended with " + gst->describe() +
                 " (scripts/setup.sh installs gstreamer1.0-x and its plugins)";
  } else if (run.wall < kShortestPlay) {
    run.failed = fmt::format("gst-launch-1.0 played {:.1f} s only", run.wall);
  }
  return run;
}

// The largest video the host cached: the large ad's.
std::optional<fs::path> cachedVideo(const fs::path& data) {
  std::optional<fs::path> largest;
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(data, error)) {
    if (entry.path().extension() != ".mp4" || !entry.is_regular_file()) continue;
    if (!largest || entry.file_size() > fs::file_size(*largest)) largest = entry.path();
  }
  return largest;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  std::string why;
  auto x = test::XServer::start(kWidth, kHeight, why);
  if (!x) {
    fmt::print(stderr, "zivora_bench_window_cpu: {}\n", why);
    return 1;
  }
  test::TempDir work;
  sandbox::SandboxServer server({.certDirectory = work.path() / "certs"});
  server.start();

  std::vector<double> sdk, gst;
  std::vector<std::string> failures;
  for (int i = 0; i < runs; ++i) {
    const fs::path data = work.path() / fmt::format("run{}", i);
    const Run host = sdkRun(*x, server, data);
    const auto video = cachedVideo(data);
    const Run baseline = video ? gstRun(*x, *video) : Run{0, 0, "no cached video to play"};
    fmt::print("run {}: SDK {:.2f} s CPU ({:.1f} s shown), gst-launch {:.2f} s CPU, load {}\n",
               i + 1, host.cpu, host.wall, baseline.cpu, loadAverage());
    for (const Run* run : {&host, &baseline}) {
      if (!run->failed.empty()) failures.push_back(run->failed);
    }
    if (host.failed.empty() && baseline.failed.empty()) {
      sdk.push_back(host.cpu);
      gst.push_back(baseline.cpu);
    }
  }
  auto figure = sdk.empty() ? bench::BenchFigure::withinRatio(
                                  "CPU of 10 s 720p30 in the SDK's window vs "
                                  "gst-launch ximagesink",
                                  0, 0, "s", kMaxRatio)
                            : bench::BenchFigure::withinRatio(
                                  "CPU of 10 s 720p30 in the SDK's window vs "
                                  "gst-launch ximagesink",
                                  median(sdk), median(gst), "s", kMaxRatio);
  if (!failures.empty()) figure.invalid = failures.front();
  if (!sdk.empty()) {
    fmt::print(
        "CPU of the large ad in a window, median of {}: SDK {:.2f} s, gst-launch {:.2f} s, ratio "
        "{:.2f} (target: {} or less), load {}\n",
        sdk.size(), median(sdk), median(gst), median(sdk) / median(gst), kMaxRatio, loadAverage());
  }
  figure.print();
  return bench::BenchFigure::exitStatus();
}
