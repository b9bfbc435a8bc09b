// The player controller on virtual time: the resource cache on a scripted
// download server, scripted media items, the memory presenter. When a
// still-downloading video becomes playable, stalls and resumes, failures,
// the once-only end and the close button's deadline.
#include <gtest/gtest.h>

#include <map>

#include "resources/ResourceFixture.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVFileInfoStatus.h"
#include "resources/ZVFilesSavedValidator.h"
#include "support/DelayRecordingRuntime.h"
#include "support/FakeMediaFactory.h"
#include "support/MemoryPresenter.h"
#include "ui/ZVPlayerController.h"

namespace zivora::ui {
namespace {

using namespace std::chrono_literals;
using media::MediaItemStatus;
using media::MediaTime;

class RecordingDelegate final : public ZVPlayerControllerDelegate {
 public:
  void videoWindowWillDisplay() override { calls.push_back("videoWindowWillDisplay"); }
  void playerControllerPrepared() override { calls.push_back("playerControllerPrepared"); }
  void finishLoadingFile() override { calls.push_back("finishLoadingFile"); }
  void errorPlayingVideo(std::int32_t error) override {
    calls.push_back("errorPlayingVideo:" + std::to_string(error));
  }
  void tapCloseView() override { calls.push_back("tapCloseView"); }
  void didShowView() override { calls.push_back("didShowView"); }
  void didHideView() override { calls.push_back("didHideView"); }
  void finishedPlaying() override { calls.push_back("finishedPlaying"); }

  int count(const std::string& call) const {
    return static_cast<int>(std::count(calls.begin(), calls.end(), call));
  }
  std::vector<std::string> calls;
};

constexpr const char* kUrl = "https://cdn.example/ad.mp4";

class PlayerControllerTest : public ::testing::Test {
 protected:
  PlayerControllerTest() {
    test::useMemoryPresenter(*runtime_);
    // As the ad side's start-up sets it.
    manager()->setAssetLoaderFactory(
        [](const std::string& file) { return std::make_shared<ZVAssetLoaderDelegate>(file); });
    controller_->setDelegate(delegate_);
  }

  std::shared_ptr<ZVResourceManager> manager() { return ZVResourceManager::defaultManager(); }
  std::shared_ptr<ZVFileInfoStatus> record() { return manager()->getLoadInfo(name_); }
  test::FakeMediaItem& item() { return *media_->lastItem(); }
  std::shared_ptr<test::FakeStreamingClient::Transfer> transfer() { return client_->last(); }

  // The whole file is in the cache before the controller hears of it.
  void downloadCompletely(std::size_t size) {
    manager()->loadURL(kUrl, name_, std::make_shared<test::RecordingDownloadDelegate>());
    runtime_->runUntilIdle();
    client_->serve(transfer(), std::string(size, 'v'), 100000);
    runtime_->runUntilIdle();
    ASSERT_TRUE(manager()->isLoaded(name_));
  }
  // Prepares a video whose whole file is already in the cache.
  void prepareComplete() {
    downloadCompletely(50000);
    controller_->prepareFromURL(kUrl, name_);
    runtime_->runUntilIdle();
  }

  // Prepares a video still downloading whose server announces `size` bytes.
  void prepareAnnounced(std::size_t size) {
    controller_->prepareFromURL(kUrl, name_);
    runtime_->runUntilIdle();
    client_->respond(transfer(), 200, {{"Content-Length", std::to_string(size)}});
    runtime_->runUntilIdle();
  }
  void arrive(std::size_t bytes) {
    client_->send(transfer(), std::string(bytes, 'v'));
    runtime_->runUntilIdle();
  }

  // The prepared item becomes ready, the video slides in and plays.
  void readyAndPlay(double duration, double startedAt = 0) {
    item().setDuration(MediaTime::fromSeconds(duration));
    item().postStatus(MediaItemStatus::ReadyToPlay);
    runtime_->runUntilIdle();
    media_->lastPlayer()->setCurrentTime(MediaTime::fromSeconds(startedAt));
    runtime_->runOnMain([&] { controller_->play(); });
    runtime_->advanceBy(400ms);
  }
  void stall() {
    media_->lastPlayer()->advanceBy(MediaTime::fromSeconds(1));
    item().postStall();
    runtime_->runUntilIdle();
  }

  test::TempDir root_;
  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  std::shared_ptr<test::DelayRecordingRuntime> recording_ =
      std::make_shared<test::DelayRecordingRuntime>(*runtime_);
  std::shared_ptr<test::FakeStreamingClient> client_ =
      std::make_shared<test::FakeStreamingClient>(*runtime_);
  std::shared_ptr<test::FakeMediaFactory> media_ =
      std::make_shared<test::FakeMediaFactory>(runtime_->mainQueue());
  test::ScopedContext scope_{{.dataRoot = root_.path().string()},
                             {.runtime = recording_,
                              .downloads = client_,
                              .files = std::make_shared<test::FakeFileSystem>(),
                              .media = media_}};
  const std::string name_ = ZVResourceManager::convertURLToFileName(kUrl);
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<ZVPlayerController> controller_ = std::make_shared<ZVPlayerController>();
};

TEST_F(PlayerControllerTest, ACompleteFileIsPreparedAtOnceFromTheFile) {
  downloadCompletely(50000);
  const auto transfers = client_->transfers().size();
  controller_->prepareFromURL(kUrl, name_);
  runtime_->runUntilIdle();
  ASSERT_NE(controller_->view(), nullptr);
  ASSERT_EQ(media_->items().size(), 1u);
  EXPECT_EQ(item().asset()->url(), "file://" + manager()->pathToFile(name_));
  EXPECT_EQ(item().seeks(), std::vector<MediaTime>{MediaTime::zero()});
  EXPECT_EQ(client_->transfers().size(), transfers);
  EXPECT_TRUE(controller_->isPreparedFile());
  EXPECT_FALSE(controller_->isPrepared());
  item().postStatus(MediaItemStatus::ReadyToPlay);
  runtime_->runUntilIdle();
  EXPECT_TRUE(controller_->isPrepared());
  EXPECT_EQ(delegate_->calls, std::vector<std::string>{"playerControllerPrepared"});
}

TEST_F(PlayerControllerTest, TheBufferIsADefaultUntilTheSizeIsKnownThenThirtyPercent) {
  EXPECT_FALSE(controller_->isPreparedFile());  // no file yet
  controller_->prepareFromURL(kUrl, name_);
  runtime_->runUntilIdle();
  EXPECT_EQ(controller_->bufferSize(), 409600);
  record()->setLoadedSize(409600);
  EXPECT_FALSE(controller_->isPreparedFile());
  record()->setLoadedSize(409601);
  EXPECT_TRUE(controller_->isPreparedFile());
  record()->setLoadedSize(0);

  client_->respond(transfer(), 200, {{"Content-Length", "10000000"}});
  runtime_->runUntilIdle();
  EXPECT_EQ(controller_->bufferSize(), 3000000);
  EXPECT_TRUE(media_->items().empty());  // no byte yet
  // The item is made with the first bytes; being ready before the buffer is
  // on disk, it is not yet prepared for the delegate.
  arrive(1000);
  ASSERT_EQ(media_->items().size(), 1u);
  EXPECT_EQ(item().asset()->url(), "customLoader://" + name_);
  // The player's reads go to the progressive loader of this download.
  EXPECT_NE(
      std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(item().asset()->resourceLoaderDelegate()),
      nullptr);
  item().postStatus(MediaItemStatus::ReadyToPlay);
  runtime_->runUntilIdle();
  arrive(1000000);
  arrive(1999000);  // 3 MB on disk: exactly the buffer is not enough
  EXPECT_FALSE(controller_->isPreparedFile());
  EXPECT_FALSE(controller_->isPrepared());
  EXPECT_EQ(delegate_->count("playerControllerPrepared"), 0);
  arrive(1);
  EXPECT_TRUE(controller_->isPrepared());
  EXPECT_EQ(delegate_->count("playerControllerPrepared"), 1);
  arrive(1000);
  EXPECT_EQ(media_->items().size(), 1u);  // made once
  EXPECT_EQ(delegate_->count("playerControllerPrepared"), 1);
}

TEST_F(PlayerControllerTest, ASmallFileGetsABufferBelowTheDefault) {
  prepareAnnounced(1000000);
  EXPECT_EQ(controller_->bufferSize(), 300000);
  arrive(300001);
  EXPECT_EQ(media_->items().size(), 1u);
}

TEST_F(PlayerControllerTest, AStallResumesOnceABufferMoreHasArrived) {
  prepareAnnounced(10000000);
  arrive(3000001);
  arrive(999999);  // 4 MB on disk
  readyAndPlay(30);
  stall();
  EXPECT_EQ(media_->items().size(), 1u);
  arrive(3000000);  // 7 MB: exactly a buffer more is not enough
  EXPECT_EQ(media_->items().size(), 1u);
  arrive(1);
  ASSERT_EQ(media_->items().size(), 2u);
  // The new item starts where playback stopped.
  EXPECT_EQ(item().seeks(), std::vector<MediaTime>{MediaTime::fromSeconds(1)});
  arrive(100000);
  EXPECT_EQ(media_->items().size(), 2u);  // resumed once
}

TEST_F(PlayerControllerTest, ADownloadCutShortFailsPlayback) {
  const std::string video(2000000, 'v');
  controller_->prepareFromURL(kUrl, name_);
  runtime_->runUntilIdle();
  client_->serve(transfer(), video, 100000, 700000);  // cut after 700 KB
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->calls, std::vector<std::string>{"errorPlayingVideo:0"});
}

TEST_F(PlayerControllerTest, AStallAfterTheFileCompletedResumesAtOnce) {
  prepareAnnounced(1000000);
  arrive(600000);
  readyAndPlay(10);
  arrive(400000);
  client_->complete(transfer());
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->count("finishLoadingFile"), 1);
  stall();
  EXPECT_EQ(media_->items().size(), 2u);
  EXPECT_EQ(item().asset()->url(), "file://" + manager()->pathToFile(name_));
}

TEST_F(PlayerControllerTest, AStallResumesWhenTheDownloadCompletesBeforeABufferMore) {
  prepareAnnounced(2000000);  // a 600 KB buffer
  arrive(1500000);
  readyAndPlay(20);
  stall();
  arrive(500000);  // the whole file, but not yet complete
  EXPECT_EQ(media_->items().size(), 1u);
  client_->complete(transfer());
  runtime_->runUntilIdle();
  EXPECT_EQ(media_->items().size(), 2u);
}

TEST_F(PlayerControllerTest, ItemFailuresAlwaysFailPlaybackDownloadErrorsOnlyForAnIncompleteFile) {
  prepareComplete();
  controller_->errorLoadingResource(name_, 1);
  runtime_->runUntilIdle();
  EXPECT_TRUE(delegate_->calls.empty());
  item().postStatus(MediaItemStatus::Failed);
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->calls, std::vector<std::string>{"errorPlayingVideo:1"});
  delegate_->calls.clear();

  ZVFilesSavedValidator::defaultValidator()->remove(name_);
  ASSERT_FALSE(manager()->isLoaded(name_));
  // Off the main queue, as a transfer refused for want of space reports it.
  controller_->errorLoadingResource(name_, 1);
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->calls, std::vector<std::string>{"errorPlayingVideo:0"});
  EXPECT_TRUE(item().asset()->isLoadingCancelled());  // the view stopped
}

TEST_F(PlayerControllerTest, TheEndIsReportedOncePerPreparation) {
  prepareComplete();
  controller_->finishedPlaying();
  controller_->finishedPlaying();
  EXPECT_EQ(delegate_->count("finishedPlaying"), 1);
  controller_->prepareFromURL(kUrl, name_);
  runtime_->runUntilIdle();
  controller_->finishedPlaying();
  EXPECT_EQ(delegate_->count("finishedPlaying"), 2);
}

TEST_F(PlayerControllerTest, PlayHandsTheSettingsToTheViewAndShowsIt) {
  prepareComplete();
  controller_->setSoundEnable(false);
  controller_->setAllowSkipAfter(-1);
  readyAndPlay(15);
  auto view = controller_->view();
  EXPECT_FALSE(view->soundOn());
  EXPECT_TRUE(view->skipButton()->isHidden());
  EXPECT_TRUE(media_->lastPlayer()->isMuted());
  EXPECT_EQ(delegate_->calls, (std::vector<std::string>{"playerControllerPrepared",
                                                        "videoWindowWillDisplay", "didShowView"}));
  runtime_->runOnMain([&] { view->hide(); });
  runtime_->advanceBy(200ms);
  EXPECT_EQ(delegate_->calls.back(), "didHideView");
}

TEST_F(PlayerControllerTest, TheCloseButtonComesFiveSecondsAfterTheNominalEndEvenWhenStalled) {
  prepareAnnounced(10000000);
  arrive(3000001);
  const auto before = recording_->delays.size();
  // Started 1 s in, so that the view's own late-skip timer (remaining time
  // + 5 s) falls a second earlier than the close button.
  readyAndPlay(15, 1);
  std::optional<std::size_t> closeTask;
  for (std::size_t i = before; i < recording_->delays.size(); ++i) {
    if (recording_->delays[i] == 20s) closeTask = i;
  }
  ASSERT_TRUE(closeTask.has_value());
  stall();  // and no more data ever comes
  runtime_->advanceBy(20s - 1ms);
  EXPECT_FALSE(recording_->ran[*closeTask]);
  runtime_->advanceBy(1ms);
  EXPECT_TRUE(recording_->ran[*closeTask]);
  EXPECT_TRUE(scope_.analytics().exceptions().empty());
}

TEST_F(PlayerControllerTest, StopClearsTheStallAndStopsTheView) {
  prepareAnnounced(10000000);
  arrive(3000001);
  readyAndPlay(30);
  stall();
  runtime_->runOnMain([&] { controller_->stop(); });
  EXPECT_TRUE(item().asset()->isLoadingCancelled());
  arrive(5000000);
  EXPECT_EQ(media_->items().size(), 1u);  // no resume after stop
}

}  // namespace
}  // namespace zivora::ui
