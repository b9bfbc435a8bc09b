// The SDK's own window on an X server of the benchmark's own, against
// gst-launch-1.0 playing the same cached file into ximagesink on the same
// display:
// - CPU: the time (user and system, all threads, read from /proc) the
//   sample host used from its showVideo call to videoDidDismiss while the
//   sandbox's large ad (ten seconds of 1280x720 at 30 fps) played, against
//   gst-launch-1.0's whole run (its start, preroll and playback). The
//   host's whole run, which also holds its start-up, handshake and the
//   download over TLS, is stated beside it without a pass mark.
// - First frame: from the host's showVideo call (its "showVideo" line) to
//   the first screenshot (xwd) that shows the video's picture, against
//   gst-launch-1.0 from its start to the same. Both sides are seen through
//   the same screenshots, so the polling's granularity weighs on both.
// Runs alternate, so that a machine others load weighs on both sides alike;
// the medians are compared, with the load average beside them.
//   zivora_bench_window [runs, default 3]
// The sandbox runs in this process: only the host's own work is counted.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
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
constexpr double kMaxFirstFrameRatio = 1.2;
// A screen showing this many colours (sampled on a grid) shows the test
// pattern of the sandbox's videos; before it, the screen is one or two.
constexpr std::size_t kPictureColours = 6;
constexpr int kSampleStep = 8;
// The ad lasts ten seconds; a side that ended much sooner did not play it.
constexpr double kShortestPlay = 9.0;
constexpr auto kPatience = seconds(90);

struct Run {
  // The SDK's side: from showVideo to videoDidDismiss; gst-launch's: its
  // whole run.
  double cpu = 0;
  double wall = 0;
  // Why the run does not count; empty when it does.
  std::string failed;
  // The sample host's whole run: start-up, handshake, the download over
  // TLS, the playback and the post-video screen.
  double wholeCpu = 0;
};

// The CPU time (user and system, all threads) a running process has used.
std::optional<double> cpuSoFar(pid_t pid) {
  std::ifstream in(fmt::format("/proc/{}/stat", pid));
  std::string stat((std::istreambuf_iterator<char>(in)), {});
  // The command name may hold blanks; the fields after it are numbers.
  const auto end = stat.rfind(')');
  if (end == std::string::npos) return std::nullopt;
  std::istringstream fields(stat.substr(end + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  // Fields 3 to 13 come before utime (14) and stime (15).
  for (int i = 3; i <= 13 && fields >> field; ++i) {
  }
  if (!(fields >> utime >> stime)) return std::nullopt;
  return double(utime + stime) / double(sysconf(_SC_CLK_TCK));
}

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

// The sample host showing the large ad in its own window on `x`, its output
// captured.
std::unique_ptr<test::ChildProcess> startHost(test::XServer& x,
                                              const sandbox::SandboxServer& server,
                                              const fs::path& data) {
  return test::ChildProcess::start(
      {"env", "-u", "SDL_VIDEODRIVER", "-u", "WAYLAND_DISPLAY", "DISPLAY=" + x.display(),
       ZIVORA_DEMO_EXECUTABLE, "--placement", "large", "--server", server.adEndpoint(),
       "--analytics-server", server.analyticsEndpoint(), "--ca", server.caFile(), "--data-dir",
       data.string(), "--out", (data / "out").string()},
      {.input = {}, .captureOutput = true});
}

// The sample host from videoWindowDidDisplay to videoDidDismiss is the
// playback; Escape then closes the post-video screen and the host ends.
Run sdkRun(test::XServer& x, const sandbox::SandboxServer& server, const fs::path& data) {
  Run run;
  auto demo = startHost(x, server, data);
  if (!demo) return {0, 0, "the sample host did not start"};
  std::optional<Clock::time_point> shown;
  std::optional<double> showCpu, dismissCpu;
  bool dismissed = false;
  const auto deadline = Clock::now() + kPatience;
  while (!dismissed && Clock::now() < deadline) {
    const auto line = demo->readLine(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    if (!line) break;
    if (line->find("] showVideo ") != std::string::npos) showCpu = cpuSoFar(demo->pid());
    if (line->find("delegate: videoWindowDidDisplay") != std::string::npos) shown = Clock::now();
    dismissed = line->find("delegate: videoDidDismiss") != std::string::npos;
    if (dismissed) dismissCpu = cpuSoFar(demo->pid());
  }
  if (shown) run.wall = since(*shown);
  // The post-video screen closes on Escape; a press before its window
  // takes the keys is lost, so it is repeated until the host ends.
  while (dismissed && demo->running() && Clock::now() < deadline) {
    x.xdotool({"key", "Escape"});
    demo->waitFor(std::chrono::milliseconds(300));
  }
  if (!demo->waitFor(std::chrono::seconds(5))) demo->kill(SIGKILL), demo->waitFor(seconds(5));
  run.wholeCpu = demo->cpuSeconds();
  if (showCpu && dismissCpu) run.cpu = *dismissCpu - *showCpu;
  if (!shown || !dismissed || !showCpu || !dismissCpu) {
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
  // gst-launch does nothing but play: its whole run is its playback.
  run.cpu = run.wholeCpu = gst->cpuSeconds();
  if (gst->exitCode() != 0) {
    run.failed = "gst-launch-1.0 ended with " + gst->describe() +
                 " (scripts/setup.sh installs gstreamer1.0-x and its plugins)";
  } else if (run.wall < kShortestPlay) {
    run.failed = fmt::format("gst-launch-1.0 played {:.1f} s only", run.wall);
  }
  return run;
}

bool showsPicture(const test::Screenshot& shot) {
  std::vector<std::uint32_t> seen;
  for (int y = 0; y < shot.height; y += kSampleStep) {
    for (int x = 0; x < shot.width; x += kSampleStep) {
      const std::uint32_t pixel = shot.at(x, y);
      if (std::find(seen.begin(), seen.end(), pixel) != seen.end()) continue;
      seen.push_back(pixel);
      if (seen.size() >= kPictureColours) return true;
    }
  }
  return false;
}

// Seconds from `start` to the first screenshot that shows the picture.
std::optional<double> firstPicture(test::XServer& x, Clock::time_point start,
                                   test::ChildProcess& process) {
  const auto deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline && process.running()) {
    if (showsPicture(x.screenshot())) return since(start);
  }
  return std::nullopt;
}

void stop(test::ChildProcess& process) {
  process.kill(SIGKILL);
  process.waitFor(seconds(5));
}

// The sample host with the cache `data` already holds: its showVideo comes
// as soon as the handshake and the ad request are done.
Run sdkFirstFrame(test::XServer& x, const sandbox::SandboxServer& server, const fs::path& data) {
  auto demo = startHost(x, server, data);
  if (!demo) return {0, 0, "the sample host did not start"};
  std::optional<double> first;
  const auto deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline) {
    const auto line = demo->readLine(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    if (!line) break;
    if (line->find("] showVideo ") == std::string::npos) continue;
    first = firstPicture(x, Clock::now(), *demo);
    break;
  }
  stop(*demo);
  if (!first) return {0, 0, "the sample host's window never showed the video"};
  return {0, *first, ""};
}

Run gstFirstFrame(test::XServer& x, const fs::path& video) {
  const auto start = Clock::now();
  auto gst = test::ChildProcess::start({"env", "DISPLAY=" + x.display(), "gst-launch-1.0", "-q",
                                        "playbin", "uri=file://" + fs::absolute(video).string(),
                                        "video-sink=ximagesink", "audio-sink=fakesink"},
                                       {});
  if (!gst) return {0, 0, "gst-launch-1.0 did not start"};
  const auto first = firstPicture(x, start, *gst);
  stop(*gst);
  if (!first) return {0, 0, "gst-launch-1.0 never showed the video"};
  return {0, *first, ""};
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

// Both sides' figures of the runs that counted, and why the others did not.
struct Sides {
  std::vector<double> sdk, gst;
  std::vector<std::string> failures;

  void add(const Run& host, const Run& baseline, double Run::*value) {
    for (const Run* run : {&host, &baseline}) {
      if (!run->failed.empty()) failures.push_back(run->failed);
    }
    if (host.failed.empty() && baseline.failed.empty()) {
      sdk.push_back(host.*value);
      gst.push_back(baseline.*value);
    }
  }

  // Shown for the reader, with no pass mark.
  void state(const std::string& figure, const std::string& unit) const {
    auto line =
        bench::BenchFigure::stated(figure, sdk.empty() ? 0 : median(sdk),
                                   gst.empty() ? std::nullopt : std::optional(median(gst)), unit);
    if (!failures.empty()) line.invalid = failures.front();
    line.print();
  }

  void report(const std::string& figure, const std::string& unit, double maxRatio) const {
    auto line = bench::BenchFigure::withinRatio(figure, sdk.empty() ? 0 : median(sdk),
                                                gst.empty() ? 0 : median(gst), unit, maxRatio);
    if (!failures.empty()) line.invalid = failures.front();
    if (!sdk.empty()) {
      fmt::print(
          "{}, median of {}: SDK {:.3f} {}, gst-launch {:.3f} {}, ratio {:.2f} (target: {} "
          "or less), load {}\n",
          figure, sdk.size(), median(sdk), unit, median(gst), unit, median(sdk) / median(gst),
          maxRatio, loadAverage());
    }
    line.print();
  }
};

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  std::string why;
  auto x = test::XServer::start(kWidth, kHeight, why);
  if (!x) {
    fmt::print(stderr, "zivora_bench_window: {}\n", why);
    return 1;
  }
  test::TempDir work;
  sandbox::SandboxServer server({.certDirectory = work.path() / "certs"});
  server.start();

  Sides cpu, wholeCpu, firstFrame;
  for (int i = 0; i < runs; ++i) {
    const fs::path data = work.path() / fmt::format("run{}", i);
    const Run host = sdkRun(*x, server, data);
    const auto video = cachedVideo(data);
    const Run baseline = video ? gstRun(*x, *video) : Run{0, 0, "no cached video to play"};
    fmt::print(
        "run {}: SDK {:.2f} s CPU from showVideo to videoDidDismiss ({:.1f} s shown; {:.2f} s the "
        "whole sample host), gst-launch {:.2f} s CPU, load {}\n",
        i + 1, host.cpu, host.wall, host.wholeCpu, baseline.cpu, loadAverage());
    cpu.add(host, baseline, &Run::cpu);
    wholeCpu.add(host, baseline, &Run::wholeCpu);
    // The same cache again: the ad is there, so showVideo follows at once.
    const Run hostFirst = sdkFirstFrame(*x, server, data);
    const Run gstFirst = video ? gstFirstFrame(*x, *video) : Run{0, 0, "no cached video to play"};
    fmt::print("run {}: first frame SDK {:.0f} ms after showVideo, gst-launch {:.0f} ms\n", i + 1,
               hostFirst.wall * 1000, gstFirst.wall * 1000);
    firstFrame.add(hostFirst, gstFirst, &Run::wall);
  }
  cpu.report("CPU of 10 s 720p30 in the SDK's window vs gst-launch ximagesink", "s", kMaxRatio);
  wholeCpu.state("CPU of the whole sample host (start-up, download, playback) vs gst-launch", "s");
  firstFrame.report("first frame in the SDK's window vs gst-launch ximagesink", "s",
                    kMaxFirstFrameRatio);
  return bench::BenchFigure::exitStatus();
}
