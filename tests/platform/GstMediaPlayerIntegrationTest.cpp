#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/linux/GstMediaFactory.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/Files.h"
#include "support/HoldingLoader.h"
#include "support/RunOnQueue.h"
#include "support/StuckAudioSink.h"
#include "support/TempDir.h"
#include "support/TestMedia.h"

namespace zivora::media {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 30s;

struct Counts {
  int ready = 0, failed = 0, ended = 0, failedToEnd = 0, stalls = 0, frames = 0;
  MediaTime durationAtReady, positionAtReady;
  int width = 0, height = 0, stride = 0;
  std::size_t pixelBytes = 0;
  std::vector<MediaTime> framesAfterReady;

  bool settled() const { return ended + failed + failedToEnd > 0; }
};

// What the item and the player report, recorded on the main queue and read
// by the test thread.
class Recorder final : public FrameSink {
 public:
  void videoFrame(const VideoFrame& frame) override {
    record([&](Counts& c) {
      ++c.frames;
      c.width = frame.width;
      c.height = frame.height;
      c.stride = frame.stride;
      c.pixelBytes = frame.pixels.size();
      if (c.ready > 0) c.framesAfterReady.push_back(frame.presentationTime);
    });
  }

  bool waitFor(const std::function<bool(const Counts&)>& predicate) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return predicate(counts_); });
  }

  void record(const std::function<void(Counts&)>& change) {
    std::lock_guard lock(mutex_);
    change(counts_);
    changed_.notify_all();
  }

  Counts counts() {
    std::lock_guard lock(mutex_);
    return counts_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Counts counts_;
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

  // Opens a fresh item (with the counts reset); `watched` gives the player
  // the recorder as its screen.
  void open(std::shared_ptr<MediaAsset> asset, bool playWhenReady,
            MediaTime startAt = MediaTime::zero(), bool watched = true) {
    recorder_.record([](Counts& c) { c = {}; });
    onMain([&] {
      item_ = factoryInUse_->makeItem(std::move(asset));
      if (startAt > MediaTime::zero()) item_->seekTo(startAt);
      item_->setObserver(observer(playWhenReady));
      player_ = factoryInUse_->makePlayer(item_);
      if (watched) player_->setFrameSink(&recorder_);
    });
  }

  MediaItemObserver observer(bool playWhenReady) {
    MediaItemObserver observer;
    observer.statusChanged = [this, playWhenReady](MediaItemStatus status) {
      const bool ready = status == MediaItemStatus::ReadyToPlay;
      recorder_.record([&](Counts& c) {
        ++(ready ? c.ready : c.failed);
        if (ready) c.durationAtReady = item_->duration();
        if (ready) c.positionAtReady = player_->currentTime();
      });
      if (ready && playWhenReady) player_->play();
    };
    observer.playedToEnd = [this] { recorder_.record([](Counts& c) { ++c.ended; }); };
    observer.failedToPlayToEnd = [this] { recorder_.record([](Counts& c) { ++c.failedToEnd; }); };
    observer.playbackStalled = [this] {
      recorder_.record([](Counts& c) { ++c.stalls; });
      if (onStall_) onStall_();
    };
    return observer;
  }

  // Waits for the end, a failure or a failed end; anything else the
  // pipeline reported has arrived then.
  Counts settle() {
    EXPECT_TRUE(recorder_.waitFor([](const Counts& c) { return c.settled(); }));
    onMain([] {});
    return recorder_.counts();
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
  platform::GstMediaFactory* factoryInUse_ = &factory_;
  test::TempDir dir_;
  const std::string clip_ = test::readFile(test::TestMedia::clip());
  Recorder recorder_;
  std::function<void()> onStall_;
  std::shared_ptr<MediaItem> item_;
  std::shared_ptr<MediaPlayer> player_;
};

TEST_F(GstMediaPlayerIntegrationTest, AFilePlaysToTheEndDeliveringFrames) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), true);
  const Counts c = settle();
  EXPECT_EQ(c.ready, 1);
  EXPECT_EQ(c.failed, 0);
  EXPECT_EQ(c.ended, 1);
  EXPECT_NEAR(c.durationAtReady.seconds(), 2.0, 0.1);
  EXPECT_GT(c.frames, 30);
  EXPECT_EQ(c.width, 320);
  EXPECT_EQ(c.height, 240);
  EXPECT_GE(c.stride, 320 * 4);
  EXPECT_EQ(c.pixelBytes, static_cast<std::size_t>(c.stride) * 240);
  onMain([this] {
    EXPECT_EQ(player_->rate(), 1.0f);
    EXPECT_NEAR(player_->currentTime().seconds(), 2.0, 0.1);
    EXPECT_TRUE(player_->error().empty());
  });
}

// The machine's sound output, behind an output that blocks as it opens
// (JACK on a locked database): the first item waits for the choice a
// moment and plays, heard or silent; the second does not try the stuck
// output again. The sound switch and the start (a resumed ad's) set
// before the pipeline starts hold.
TEST_F(GstMediaPlayerIntegrationTest, ItemsPlayPastASoundOutputThatBlocksAsItOpens) {
  auto choice = platform::SoundOutputChoice::ofGstreamer({.openLimit = 300ms});
  test::StuckAudioSink stuck;
  platform::GstMediaFactory machineSound{runtime_.mainQueue(),
                                         {.prerollTimeout = 30s, .sound = choice}};
  factoryInUse_ = &machineSound;
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    const auto startAt = MediaTime::fromSeconds(round == 0 ? 1.0 : 0.0);
    open(MediaAsset::fromFile(test::TestMedia::clip()), true, startAt);
    onMain([this] { player_->setMuted(true); });
    const Counts c = settle();
    EXPECT_EQ(c.ready, 1);
    EXPECT_EQ(c.failed, 0);
    EXPECT_EQ(c.ended, 1);
    EXPECT_NEAR(c.positionAtReady.seconds(), startAt.seconds(), 0.05);
    onMain([this] {
      EXPECT_TRUE(player_->isMuted());
      player_.reset();
      item_.reset();
    });
  }
  EXPECT_EQ(stuck.attempts(), 1);
}

// An output that opened for the choice and then blocks as an item opens it
// (a sound server that hangs): the item plays silently after the choice's
// time limit, and the choice no longer gives that output.
TEST_F(GstMediaPlayerIntegrationTest, AnItemPlaysSilentlyPastADeviceThatBlocksOnlyForIt) {
  auto choice = platform::SoundOutputChoice::ofGstreamer({.openLimit = 300ms});
  test::StuckAudioSink stuck(1);
  platform::GstMediaFactory machineSound{runtime_.mainQueue(),
                                         {.prerollTimeout = 30s, .sound = choice}};
  factoryInUse_ = &machineSound;
  open(MediaAsset::fromFile(test::TestMedia::clip()), true);
  const Counts c = settle();
  EXPECT_EQ(c.ready, 1);
  EXPECT_EQ(c.failed, 0);
  EXPECT_EQ(c.ended, 1);
  EXPECT_GE(stuck.attempts(), 2);  // the choice's open, then the item's
  ASSERT_TRUE(choice->awaitProbe(10s));
  const auto answer = choice->known();
  EXPECT_TRUE(!answer || answer->factory != test::StuckAudioSink::kName);
  onMain([this] {
    player_.reset();
    item_.reset();
  });
}

TEST_F(GstMediaPlayerIntegrationTest, AnItemSeekedBeforeItIsReadyStartsExactlyThere) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), true, MediaTime::fromSeconds(1.0));
  const Counts c = settle();
  EXPECT_EQ(c.ready, 1);
  EXPECT_NEAR(c.positionAtReady.seconds(), 1.0, 0.001);
  ASSERT_FALSE(c.framesAfterReady.empty());
  // Playback starts at 1.0 s: no earlier picture once ready.
  EXPECT_GE(c.framesAfterReady.front().seconds(), 0.999);
  EXPECT_LT(c.framesAfterReady.front().seconds(), 1.07);
}

TEST_F(GstMediaPlayerIntegrationTest, BrokenFilesFailWithoutPlayingToTheEnd) {
  struct Broken {
    const char* name;
    std::string bytes;
    bool watched;
  };
  // Unwatched, where the pictures stopped is still known: a file cut short
  // does not pass for played to the end.
  for (const Broken& file : {Broken{"truncated.mp4", clip_.substr(0, clip_.size() * 2 / 5), true},
                             Broken{"text.mp4", std::string(5000, 'x'), true},
                             Broken{"moov-cut.mp4", clip_.substr(0, 600), true},
                             Broken{"cut.mp4", clip_.substr(0, clip_.size() * 2 / 5), false}}) {
    SCOPED_TRACE(file.name);
    open(MediaAsset::fromFile(writeFile(file.name, file.bytes)), true, MediaTime::zero(),
         file.watched);
    const Counts c = settle();
    EXPECT_EQ(c.ended, 0);
    if (file.watched) {
      onMain([this] { EXPECT_FALSE(item_->error().empty()); });
    } else {
      EXPECT_EQ(c.frames, 0);
    }
  }
}

TEST_F(GstMediaPlayerIntegrationTest, WithoutASinkThePrerolledPictureWaitsForOne) {
  open(MediaAsset::fromFile(test::TestMedia::clip()), false, MediaTime::zero(), false);
  ASSERT_TRUE(recorder_.waitFor([](const Counts& c) { return c.ready + c.failed > 0; }));
  onMain([] {});
  EXPECT_EQ(recorder_.counts().frames, 0);
  // A screen that comes later shows the first picture before playing.
  onMain([this] { player_->setFrameSink(&recorder_); });
  ASSERT_TRUE(recorder_.waitFor([](const Counts& c) { return c.frames > 0; }));
  const Counts c = recorder_.counts();
  EXPECT_EQ(c.frames, 1);
  EXPECT_EQ(c.width, 320);
  EXPECT_EQ(c.framesAfterReady, std::vector<MediaTime>{MediaTime::zero()});
}

TEST_F(GstMediaPlayerIntegrationTest, ACustomLoaderItemStallsOnAGrowingFileAndCompletes) {
  const auto growing = writeFile("growing.mp4", clip_.substr(0, clip_.size() * 35 / 100));
  auto loader =
      std::make_shared<GrowingFileLoader>(growing, static_cast<std::int64_t>(clip_.size()));
  auto asset = std::make_shared<MediaAsset>("customLoader://growing.mp4");
  asset->setResourceLoaderDelegate(loader);
  // The rest of the file arrives in 16 KiB pieces once playback has stalled.
  dispatch::TaskHandle appending;
  onStall_ = [&] {
    if (appending.valid()) return;
    appending = runtime_.mainQueue().every(10ms, [&] {
      const auto size = std::filesystem::file_size(growing);
      if (size >= clip_.size()) return;
      std::ofstream(growing, std::ios::binary | std::ios::app) << clip_.substr(size, 16384);
      loader->serve();
    });
  };
  open(asset, true);
  const Counts c = settle();
  appending.cancel();
  EXPECT_EQ(c.ready, 1);
  EXPECT_GE(c.stalls, 1);
  EXPECT_EQ(c.ended, 1);
  EXPECT_EQ(c.failedToEnd, 0);
  EXPECT_GT(c.frames, 30);
  onMain([&] {
    ASSERT_FALSE(loader->readLengths.empty());
    // GStreamer never makes the 2-byte probe read of other platforms.
    EXPECT_NE(loader->readLengths.front(), 2);
  });
}

TEST_F(GstMediaPlayerIntegrationTest, StoppingAnItemWhoseReadWaitsReturnsPromptly) {
  auto loader = std::make_shared<test::HoldingLoader>();
  auto asset = std::make_shared<MediaAsset>("customLoader://never.mp4");
  asset->setResourceLoaderDelegate(loader);
  open(asset, false);
  ASSERT_TRUE(loader->waitForRequest(0, kPatience));
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
