#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <vector>

#include "platform/linux/GstMediaFactory.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/Files.h"
#include "support/RunOnQueue.h"
#include "support/TempDir.h"
#include "support/TestMedia.h"

namespace zivora::media {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 30s;

struct Counts {
  int readyCount = 0;
  int failedCount = 0;
  int endCount = 0;
  int failedToEndCount = 0;
  int stallCount = 0;
  MediaTime durationAtReady;
  MediaTime positionAtReady;
  int frames = 0;
  int width = 0, height = 0, stride = 0;
  std::size_t pixelBytes = 0;
  std::vector<MediaTime> framesAfterReady;
};

// What the item and the player report, recorded on the main queue and read
// by the test thread.
class Recorder final : public FrameSink, public Counts {
 public:
  void videoFrame(const VideoFrame& frame) override {
    std::lock_guard lock(mutex_);
    ++frames;
    width = frame.width;
    height = frame.height;
    stride = frame.stride;
    pixelBytes = frame.pixels.size();
    if (readyCount > 0) framesAfterReady.push_back(frame.presentationTime);
    changed_.notify_all();
  }

  template <class Predicate>
  bool waitFor(Predicate predicate) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return predicate(*this); });
  }

  template <class Change>
  void record(Change change) {
    std::lock_guard lock(mutex_);
    change(*this);
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
};

// Serves a file that grows on disk, as the progressive loader serves a
// download: the open read is answered as far as the bytes exist and is
// finished once complete.
class GrowingFileLoader final : public ResourceLoaderDelegate {
 public:
  GrowingFileLoader(std::filesystem::path file, std::int64_t fullSize)
      : file_(std::move(file)), fullSize_(fullSize) {}

  bool shouldWaitForLoadingOfRequestedResource(
      const std::shared_ptr<LoadingRequest>& request) override {
    auto& info = request->contentInformationRequest();
    info.setContentType("video/mp4");
    info.setByteRangeAccessSupported(true);
    info.setContentLength(fullSize_);
    readLengths.push_back(request->requestedLength());
    open_ = request;
    serve();
    return true;
  }

  // Main queue: after new bytes arrived.
  void serve() {
    if (!open_) return;
    const auto end = std::min(open_->requestedOffset() + open_->requestedLength(), fullSize_);
    const auto available = static_cast<std::int64_t>(std::filesystem::file_size(file_));
    std::ifstream in(file_, std::ios::binary);
    for (const auto& slice :
         LoadingRequest::slicesToAnswer(open_->currentOffset(), end, available)) {
      std::vector<std::uint8_t> bytes(static_cast<std::size_t>(slice.length));
      in.seekg(slice.offset);
      in.read(reinterpret_cast<char*>(bytes.data()), slice.length);
      open_->respond(bytes);
    }
    if (open_->currentOffset() >= end) {
      open_->finishLoading();
      open_.reset();
    }
  }

  std::vector<std::int64_t> readLengths;

 private:
  std::filesystem::path file_;
  std::int64_t fullSize_;
  std::shared_ptr<LoadingRequest> open_;
};

// Takes every read and never answers.
class SilentLoader final : public ResourceLoaderDelegate {
 public:
  bool shouldWaitForLoadingOfRequestedResource(const std::shared_ptr<LoadingRequest>&) override {
    reads.set_value();
    return true;
  }
  std::promise<void> reads;
};

class GstMediaPlayerIntegrationTest : public ::testing::Test {
 protected:
  ~GstMediaPlayerIntegrationTest() override {
    onMain([this] {
      player_.reset();
      item_.reset();
    });
  }

  // Items and players belong to the main queue.
  void onMain(std::function<void()> body) {
    ASSERT_TRUE(test::runOnQueue(runtime_.mainQueue(), std::move(body), kPatience));
  }

  void open(std::shared_ptr<MediaAsset> asset, bool playWhenReady,
            MediaTime startAt = MediaTime::zero(), bool watched = true) {
    onMain([&] {
      item_ = factory_.makeItem(std::move(asset));
      if (startAt > MediaTime::zero()) item_->seekTo(startAt);
      item_->setObserver(observer(playWhenReady));
      player_ = factory_.makePlayer(item_);
      if (watched) player_->setFrameSink(&recorder_);
    });
  }

  MediaItemObserver observer(bool playWhenReady) {
    MediaItemObserver observer;
    observer.statusChanged = [this, playWhenReady](MediaItemStatus status) {
      recorder_.record([&](Recorder& r) {
        if (status == MediaItemStatus::ReadyToPlay) {
          ++r.readyCount;
          r.durationAtReady = item_->duration();
          r.positionAtReady = player_->currentTime();
        } else {
          ++r.failedCount;
        }
      });
      if (status == MediaItemStatus::ReadyToPlay && playWhenReady) player_->play();
    };
    observer.playedToEnd = [this] { recorder_.record([](Recorder& r) { ++r.endCount; }); };
    observer.failedToPlayToEnd = [this] {
      recorder_.record([](Recorder& r) { ++r.failedToEndCount; });
    };
    observer.playbackStalled = [this] {
      recorder_.record([](Recorder& r) { ++r.stallCount; });
      if (onStall_) onStall_();
    };
    return observer;
  }

  std::filesystem::path writeFile(const char* name, const std::string& bytes) {
    auto path = dir_.path() / name;
    test::writeFile(path, bytes);
    return path;
  }

  dispatch::ThreadRuntime runtime_;
  platform::GstMediaFactory factory_{
      runtime_.mainQueue(),
      {.audio = platform::AudioOutput::Discard, .prerollTimeout = std::chrono::seconds(3)}};
  test::TempDir dir_;
  Recorder recorder_;
  std::function<void()> onStall_;
  std::shared_ptr<MediaItem> item_;
  std::shared_ptr<MediaPlayer> player_;
};

TEST_F(GstMediaPlayerIntegrationTest, AFilePlaysToTheEndDeliveringFrames) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), true);
  ASSERT_TRUE(recorder_.waitFor([](Recorder& r) { return r.endCount > 0 || r.failedCount > 0; }));
  onMain([] {});  // anything else the pipeline reported has arrived
  recorder_.record([](Recorder& r) {
    EXPECT_EQ(r.readyCount, 1);
    EXPECT_EQ(r.failedCount, 0);
    EXPECT_EQ(r.endCount, 1);
    EXPECT_NEAR(r.durationAtReady.seconds(), 2.0, 0.1);
    EXPECT_GT(r.frames, 30);
    EXPECT_EQ(r.width, 320);
    EXPECT_EQ(r.height, 240);
    EXPECT_GE(r.stride, 320 * 4);
    EXPECT_EQ(r.pixelBytes, static_cast<std::size_t>(r.stride) * 240);
  });
  onMain([this] {
    EXPECT_EQ(player_->rate(), 1.0f);
    EXPECT_NEAR(player_->currentTime().seconds(), 2.0, 0.1);
    EXPECT_TRUE(player_->error().empty());
  });
}

TEST_F(GstMediaPlayerIntegrationTest, AnItemSeekedBeforeItIsReadyStartsExactlyThere) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), true, MediaTime::fromSeconds(1.0));
  ASSERT_TRUE(recorder_.waitFor([](Recorder& r) { return r.endCount > 0 || r.failedCount > 0; }));
  recorder_.record([](Recorder& r) {
    EXPECT_EQ(r.readyCount, 1);
    EXPECT_NEAR(r.positionAtReady.seconds(), 1.0, 0.001);
    ASSERT_FALSE(r.framesAfterReady.empty());
    // Playback starts at 1.0 s: no earlier picture once ready.
    EXPECT_GE(r.framesAfterReady.front().seconds(), 0.999);
    EXPECT_LT(r.framesAfterReady.front().seconds(), 1.07);
  });
}

TEST_F(GstMediaPlayerIntegrationTest, BrokenFilesFailWithoutPlayingToTheEnd) {
  const auto clip = test::readFile(test::TestMedia::clip());
  for (const auto& path : {writeFile("truncated.mp4", clip.substr(0, clip.size() * 2 / 5)),
                           writeFile("text.mp4", std::string(5000, 'x')),
                           writeFile("moov-cut.mp4", clip.substr(0, 600))}) {
    SCOPED_TRACE(path.filename().string());
    recorder_.record([](Recorder& r) { static_cast<Counts&>(r) = Counts{}; });
    open(MediaAsset::fromFile(path), true);
    ASSERT_TRUE(recorder_.waitFor(
        [](Recorder& r) { return r.failedCount > 0 || r.failedToEndCount > 0 || r.endCount > 0; }));
    recorder_.record([](Recorder& r) { EXPECT_EQ(r.endCount, 0); });
    onMain([this] { EXPECT_FALSE(item_->error().empty()); });
  }
}

TEST_F(GstMediaPlayerIntegrationTest, WithoutASinkThePrerolledPictureWaitsForOneAndEndsStillCount) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), false, MediaTime::zero(), false);
  ASSERT_TRUE(recorder_.waitFor([](Recorder& r) { return r.readyCount > 0 || r.failedCount > 0; }));
  onMain([] {});
  recorder_.record([](Recorder& r) { EXPECT_EQ(r.frames, 0); });
  // A screen that comes later shows the first picture before playing.
  onMain([this] { player_->setFrameSink(&recorder_); });
  ASSERT_TRUE(recorder_.waitFor([](Recorder& r) { return r.frames > 0; }));
  recorder_.record([](Recorder& r) {
    EXPECT_EQ(r.frames, 1);
    EXPECT_EQ(r.width, 320);
    ASSERT_EQ(r.framesAfterReady.size(), 1u);
    EXPECT_EQ(r.framesAfterReady.front(), MediaTime::zero());
  });

  // Where the pictures stopped is known unwatched: a file cut short does
  // not pass for played to the end.
  const auto clip = test::readFile(test::TestMedia::clip());
  recorder_.record([](Recorder& r) { static_cast<Counts&>(r) = Counts{}; });
  open(MediaAsset::fromFile(writeFile("cut.mp4", clip.substr(0, clip.size() * 2 / 5))), true,
       MediaTime::zero(), false);
  ASSERT_TRUE(recorder_.waitFor(
      [](Recorder& r) { return r.failedCount > 0 || r.failedToEndCount > 0 || r.endCount > 0; }));
  recorder_.record([](Recorder& r) {
    EXPECT_EQ(r.endCount, 0);
    EXPECT_EQ(r.frames, 0);
  });
}

TEST_F(GstMediaPlayerIntegrationTest, ACustomLoaderItemStallsOnAGrowingFileAndCompletes) {
  const auto clip = test::readFile(test::TestMedia::clip());
  const auto growing = writeFile("growing.mp4", clip.substr(0, clip.size() * 35 / 100));
  auto loader =
      std::make_shared<GrowingFileLoader>(growing, static_cast<std::int64_t>(clip.size()));
  auto asset = std::make_shared<MediaAsset>("customLoader://growing.mp4");
  asset->setResourceLoaderDelegate(loader);
  // The rest of the file arrives in 16 KiB pieces once playback has stalled.
  dispatch::TaskHandle appending;
  onStall_ = [&] {
    if (appending.valid()) return;
    appending = runtime_.mainQueue().every(10ms, [&] {
      const auto size = std::filesystem::file_size(growing);
      if (size >= clip.size()) return;
      std::ofstream(growing, std::ios::binary | std::ios::app) << clip.substr(size, 16384);
      loader->serve();
    });
  };
  open(asset, true);
  ASSERT_TRUE(recorder_.waitFor([](Recorder& r) { return r.endCount > 0 || r.failedCount > 0; }));
  appending.cancel();
  recorder_.record([](Recorder& r) {
    EXPECT_EQ(r.readyCount, 1);
    EXPECT_GE(r.stallCount, 1);
    EXPECT_EQ(r.endCount, 1);
    EXPECT_EQ(r.failedToEndCount, 0);
    EXPECT_GT(r.frames, 30);
  });
  onMain([&] {
    ASSERT_FALSE(loader->readLengths.empty());
    // GStreamer never makes the 2-byte probe read of other platforms.
    EXPECT_NE(loader->readLengths.front(), 2);
  });
}

TEST_F(GstMediaPlayerIntegrationTest, StoppingAnItemWhoseReadWaitsReturnsPromptly) {
  auto loader = std::make_shared<SilentLoader>();
  auto asset = std::make_shared<MediaAsset>("customLoader://never.mp4");
  asset->setResourceLoaderDelegate(loader);
  open(asset, false);
  ASSERT_EQ(loader->reads.get_future().wait_for(kPatience), std::future_status::ready);
  onMain([&] {
    const auto started = std::chrono::steady_clock::now();
    player_->pause();
    asset->cancelLoading();
    player_.reset();
    item_.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
  });
}

}  // namespace
}  // namespace zivora::media
