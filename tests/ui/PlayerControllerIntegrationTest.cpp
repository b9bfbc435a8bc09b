// The player controller on real components: a video downloaded by libcurl
// from an nginx that sends it slower than it plays, read by GStreamer
// through the progressive loader while the download runs, drawn by the
// memory presenter. Playback starts early, overtakes the download, stalls,
// resumes and reaches the end.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/GstMediaFactory.h"
#include "platform/linux/ThreadRuntime.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVResourceManager.h"
#include "support/MemoryPresenter.h"
#include "support/NginxServer.h"
#include "support/RunOnQueue.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/TestMedia.h"
#include "ui/ZVPlayerController.h"

namespace zivora::ui {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
constexpr auto kPatience = 60s;
// How long the download of the whole clip takes: three times its length.
constexpr double kDownloadSeconds = 6;

// Counts the items made: the first one, then one per resume after a stall.
class CountingFactory final : public media::MediaFactory {
 public:
  explicit CountingFactory(std::shared_ptr<media::MediaFactory> inner) : inner_(std::move(inner)) {}
  std::shared_ptr<media::MediaItem> makeItem(std::shared_ptr<media::MediaAsset> asset) override {
    std::lock_guard lock(mutex_);
    urls_.push_back(asset->url());
    return inner_->makeItem(std::move(asset));
  }
  std::shared_ptr<media::MediaPlayer> makePlayer(std::shared_ptr<media::MediaItem> item) override {
    return inner_->makePlayer(std::move(item));
  }
  std::vector<std::string> urls() const {
    std::lock_guard lock(mutex_);
    return urls_;
  }

 private:
  std::shared_ptr<media::MediaFactory> inner_;
  mutable std::mutex mutex_;
  std::vector<std::string> urls_;
};

// Plays the video as soon as it is prepared, and lets the test wait for
// what the controller reports.
class PlayingDelegate final : public ZVPlayerControllerDelegate {
 public:
  void playerControllerPrepared() override {
    record("prepared");
    if (auto controller = controller_.lock()) controller->play();
  }
  void didShowView() override { record("didShowView"); }
  void finishLoadingFile() override { record("finishLoadingFile"); }
  void errorPlayingVideo(std::int32_t error) override {
    record("errorPlayingVideo:" + std::to_string(error));
  }
  void finishedPlaying() override { record("finishedPlaying"); }

  void setController(std::weak_ptr<ZVPlayerController> controller) {
    controller_ = std::move(controller);
  }
  bool waitFor(const std::string& call) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] {
      return std::find(calls_.begin(), calls_.end(), call) != calls_.end() ||
             std::any_of(calls_.begin(), calls_.end(),
                         [](const std::string& c) { return c.rfind("error", 0) == 0; });
    });
  }
  std::vector<std::string> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }

 private:
  void record(std::string call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    changed_.notify_all();
  }
  std::weak_ptr<ZVPlayerController> controller_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> calls_;
};

class PlayerControllerIntegrationTest : public ::testing::Test {
 protected:
  PlayerControllerIntegrationTest() {
    fs::copy_file(test::TestMedia::clip(), served_.path() / "clip.mp4");
    clipSize_ = static_cast<std::int64_t>(fs::file_size(served_.path() / "clip.mp4"));
    nginx_ = std::make_unique<test::NginxServer>(
        served_.path(),
        static_cast<std::int64_t>(static_cast<double>(clipSize_) / kDownloadSeconds));
    auto client = std::make_shared<platform::CurlStreamingClient>(
        platform::StreamingClientOptions{.caFile = "", .connectTimeout = 2s, .lowSpeedTime = 10s},
        runtime_);
    scope_ = std::make_unique<test::ScopedContext>(
        HostOptions{.dataRoot = root_.path().string()},
        RuntimeOptions{.runtime = runtime_, .downloads = client, .media = factory_});
    test::useMemoryPresenter(*runtime_);
    ZVResourceManager::defaultManager()->setAssetLoaderFactory(
        [](const std::string& file) { return std::make_shared<ZVAssetLoaderDelegate>(file); });
  }
  ~PlayerControllerIntegrationTest() override {
    if (HasFailure()) {
      for (const auto& line : scope_->log().texts())
        std::fprintf(stderr, "log: %s\n", line.c_str());
      for (const auto& call : delegate_->calls()) std::fprintf(stderr, "call: %s\n", call.c_str());
    }
    // The view, its items and players belong to the main queue.
    test::runOnQueue(runtime_->mainQueue(), [this] {
      if (controller_) controller_->stop();
      controller_.reset();
    });
    scope_.reset();
  }

  test::TempDir root_;
  test::TempDir served_;
  std::int64_t clipSize_ = 0;
  std::unique_ptr<test::NginxServer> nginx_;
  std::shared_ptr<dispatch::ThreadRuntime> runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  std::shared_ptr<CountingFactory> factory_ =
      std::make_shared<CountingFactory>(std::make_shared<platform::GstMediaFactory>(
          runtime_->mainQueue(),
          platform::GstPlaybackOptions{.audio = platform::AudioOutput::Discard,
                                       .prerollTimeout = 5s}));
  std::unique_ptr<test::ScopedContext> scope_;
  std::shared_ptr<PlayingDelegate> delegate_ = std::make_shared<PlayingDelegate>();
  std::shared_ptr<ZVPlayerController> controller_ = std::make_shared<ZVPlayerController>();
};

TEST_F(PlayerControllerIntegrationTest, PlaysWhileDownloadingStallsResumesAndEnds) {
  const std::string url = nginx_->url("clip.mp4");
  const std::string name = ZVResourceManager::convertURLToFileName(url);
  controller_->setDelegate(delegate_);
  delegate_->setController(controller_);
  const auto started = std::chrono::steady_clock::now();
  controller_->prepareFromURL(url, name);

  ASSERT_TRUE(delegate_->waitFor("prepared"));
  // Playback starts long before the download ends.
  EXPECT_LT(std::chrono::steady_clock::now() - started,
            std::chrono::duration<double>(kDownloadSeconds * 0.7));
  ASSERT_TRUE(delegate_->waitFor("finishedPlaying"));

  const auto calls = delegate_->calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "finishedPlaying"), 1);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "finishLoadingFile"), 1);
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const std::string& c) { return c.rfind("error", 0) == 0; }),
            0);
  // It started on the download in progress and was made again at least once
  // to resume after overtaking it.
  const auto urls = factory_->urls();
  ASSERT_GE(urls.size(), 2u);
  EXPECT_EQ(urls.front(), "customLoader://" + name);
  EXPECT_TRUE(ZVResourceManager::defaultManager()->isLoaded(name));
}

}  // namespace
}  // namespace zivora::ui
