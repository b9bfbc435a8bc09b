// Time from the player controller's prepare and play of a complete 720p30
// H.264 file (10 s, made by the test support on first use) to its first
// video frame drawn by the headless memory presenter, against
// gst-launch-1.0 playing the same file into fakesinks.
//
// Ours: prepareFromURL() → prepared → play() → the view slides in (0.4 s,
// left out of the figure) → the player starts → the first picture reaches
// the player view and is drawn into the presenter's canvas. The first run
// of the process includes GStreamer's initialisation (cold); the median of
// the others is the warm figure.
//
// Baseline: `gst-launch-1.0 -v playbin uri=file://... video-sink="fakesink
// silent=false" audio-sink=fakesink`, from the fork to the first buffer that
// the video fakesink reports (its last-message line), then stopped. That
// includes starting the process and GStreamer, which a host application
// pays once: compare it with both figures. Target: at most 1.2 times it.
//
//   zivora_bench_first_frame [runs, default 7]

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "BenchFigure.h"
#include "CachedVideoScene.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/GstMediaFactory.h"
#include "platform/linux/ThreadRuntime.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVResourceManager.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/TestMedia.h"
#include "ui/Display.h"
#include "ui/ZVPlayerController.h"

namespace {

using namespace std::chrono;
using namespace zivora;
using Clock = steady_clock;

constexpr int kDefaultRuns = 7;

double ms(Clock::duration d) { return duration<double, std::milli>(d).count(); }

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Plays as soon as the controller is prepared and notes the moments that
// make up the figure. Main queue only.
class Timing final : public ui::ZVPlayerControllerDelegate {
 public:
  void playerControllerPrepared() override {
    prepared = Clock::now();
    if (auto player = controller.lock()) player->play();
  }
  void didShowView() override {
    shown = Clock::now();
    if (onShown) onShown();
  }
  void errorPlayingVideo(std::int32_t error) override {
    std::fprintf(stderr, "playback failed: %d\n", error);
    failed = true;
  }
  std::weak_ptr<ui::ZVPlayerController> controller;
  std::function<void()> onShown;
  std::optional<Clock::time_point> prepared, shown;
  bool failed = false;
};

[[noreturn]] void implausible(const char* what) {
  std::fprintf(stderr, "first frame: %s; no figure\n", what);
  std::exit(bench::BenchFigure::kImplausible);
}

// Milliseconds from prepareFromURL() to prepared, plus from the end of the
// slide-in (when the player starts) to the first picture drawn after it.
// A picture that the player view held before the slide-in ended does not
// count earlier: the frame is looked for only once the view is shown.
double controllerFirstFrame(dispatch::ThreadRuntime& runtime, ui::Presenter& presenter,
                            const std::string& url, const std::string& name) {
  auto controller = std::make_shared<ui::ZVPlayerController>();
  auto timing = std::make_shared<Timing>();
  timing->controller = controller;
  controller->setDelegate(timing);
  std::promise<Clock::time_point> drawn;
  dispatch::TaskHandle watch;
  std::shared_ptr<ui::Window> window;
  // The memory presenter draws when asked: ask as soon as the shown player
  // view holds a picture.
  timing->onShown = [&] {
    watch = runtime.mainQueue().every(microseconds(500), [&] {
      auto picture = controller->view() ? controller->view()->getPlayerView() : nullptr;
      if (timing->failed || !picture || !picture->hasPicture()) return;
      watch.cancel();
      presenter.renderFrame(true);
      drawn.set_value(Clock::now());
    });
  };

  const auto start = Clock::now();
  controller->prepareFromURL(url, name);
  runtime.mainQueue().async([&] {
    window = std::make_shared<ui::Window>(presenter.screen().bounds());
    window->addSubview(controller->view());
    presenter.present(window);
  });
  auto future = drawn.get_future();
  if (future.wait_for(30s) != std::future_status::ready) {
    std::fprintf(stderr, "no frame within 30 s\n");
    std::exit(1);
  }
  const auto firstFrame = future.get();
  std::promise<void> gone;
  std::optional<Clock::time_point> prepared, shown;
  runtime.mainQueue().async([&] {
    watch.cancel();
    timing->onShown = nullptr;
    prepared = timing->prepared;
    shown = timing->shown;
    controller->stop();
    presenter.dismiss(*window);
    window.reset();
    controller.reset();
    gone.set_value();
  });
  gone.get_future().wait();
  // Each moment must have happened, in this order.
  if (!prepared || !shown) implausible("the player was drawn without being prepared and shown");
  if (*prepared < start || *shown < *prepared || firstFrame < *shown)
    implausible("the moments of a run are out of order");
  return ms((*prepared - start) + (firstFrame - *shown));
}

// Milliseconds from starting gst-launch-1.0 to the first buffer at its video
// fakesink.
double launchFirstFrame(const std::string& file) {
  int out[2];
  if (::pipe(out) != 0) return -1;
  const auto start = Clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::close(out[0]);
    ::close(out[1]);
    const std::string uri = "uri=file://" + file;
    execlp("gst-launch-1.0", "gst-launch-1.0", "-v", "playbin", uri.c_str(),
           "video-sink=fakesink silent=false", "audio-sink=fakesink", nullptr);
    _exit(127);
  }
  ::close(out[1]);
  double result = -1;
  std::string seen;
  char buffer[4096];
  pollfd wait{out[0], POLLIN, 0};
  while (result < 0 && ::poll(&wait, 1, 30000) == 1) {
    const ssize_t n = ::read(out[0], buffer, sizeof buffer);
    if (n <= 0) break;
    seen.append(buffer, static_cast<std::size_t>(n));
    // The video fakesink's first "chain" line: a decoded frame arrived.
    if (seen.find("last-message = chain") != std::string::npos) result = ms(Clock::now() - start);
  }
  ::close(out[0]);
  if (pid > 0) {
    ::kill(pid, SIGTERM);
    int status = 0;
    ::waitpid(pid, &status, 0);
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultRuns;
  const std::string file = test::TestMedia::hd().string();
  std::printf("file: %s (1280x720, 30 fps, 10 s, H.264)\n\n", file.c_str());

  bench::CachedVideoScene scene(file);
  std::vector<double> ours;
  for (int i = 0; i < runs + 1; ++i) {
    ours.push_back(
        controllerFirstFrame(scene.runtime(), scene.presenter(), scene.url(), scene.name()));
  }
  const double cold = ours.front();
  ours.erase(ours.begin());
  std::vector<double> launch;
  for (int i = 0; i < runs; ++i) {
    launch.push_back(launchFirstFrame(file));
    if (launch.back() < 0) {
      std::fprintf(stderr, "first frame: gst-launch-1.0 showed no frame; no figure\n");
      return 1;
    }
  }

  const double warm = median(ours);
  const double baseline = median(launch);
  std::printf(
      "player controller, prepare + play -> first frame drawn (slide-in excluded):\n"
      "  cold %.1f ms, warm median %.1f ms (min %.1f, max %.1f, %d runs)\n",
      cold, warm, *std::min_element(ours.begin(), ours.end()),
      *std::max_element(ours.begin(), ours.end()), runs);
  std::printf(
      "gst-launch-1.0 playbin -> first buffer at the video fakesink (whole process):\n"
      "  median %.1f ms (min %.1f, max %.1f, %d runs)\n",
      baseline, *std::min_element(launch.begin(), launch.end()),
      *std::max_element(launch.begin(), launch.end()), runs);
  std::printf("ratio warm / gst-launch: %.2f, cold / gst-launch: %.2f (target: at most 1.2)\n",
              warm / baseline, cold / baseline);

  using bench::BenchFigure;
  BenchFigure::withinRatio("first frame, warm vs gst-launch", warm, baseline, "ms", 1.2).print();
  BenchFigure::withinRatio("first frame, cold vs gst-launch", cold, baseline, "ms", 1.2).print();
  return BenchFigure::exitStatus();
}
