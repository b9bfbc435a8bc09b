// A finished download is synced and then recorded, off the main queue; the
// record must never get ahead of the bytes it vouches for.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "platform/UserDefaults.h"
#include "resources/ResourceFixture.h"
#include "resources/ZVFileSyncQueue.h"
#include "resources/ZVFilesSavedValidator.h"

namespace zivora::test {
namespace {

constexpr char kUrl[] = "https://cdn.example/ads/video.mp4";

class ZVFileSyncQueueTest : public ResourceFixture {
 protected:
  std::string name() const { return ZVResourceManager::convertURLToFileName(kUrl); }
  std::optional<std::int64_t> durableRecord() {
    return ZVFilesSavedValidator::defaultValidator()->userSettings()->integerForKey(name());
  }
  void download(const std::string& content) {
    manager()->loadURL(kUrl, listener_);
    runtime_->runUntilIdle();
    client_->serve(client_->last(), content, 1000);
    runtime_->runUntilIdle();
  }
  // Whether a new launch on the same data root takes the file as complete,
  // and whether it asks the server for it again.
  std::pair<bool, bool> afterRelaunch() {
    auto runtime = std::make_shared<VirtualRuntime>();
    auto client = std::make_shared<FakeStreamingClient>(*runtime);
    ScopedContext relaunch({.dataRoot = root_.path().string()},
                           {.runtime = runtime, .downloads = client, .files = files_});
    const bool loaded = ZVResourceManager::defaultManager()->isLoaded(name());
    ZVResourceManager::defaultManager()->loadURL(kUrl, listener_);
    runtime->runUntilIdle();
    return {loaded, !client->transfers().empty()};
  }

  std::shared_ptr<RecordingDownloadDelegate> listener_ =
      std::make_shared<RecordingDownloadDelegate>();
};

TEST_F(ZVFileSyncQueueTest, TheDataIsSyncedBeforeTheRecordAndTheCallbacksDoNotWaitForEither) {
  std::vector<std::string> seen;
  files_->onSync = [&](int) {
    seen.push_back(durableRecord() ? "record before sync" : "sync");
    seen.push_back(manager()->isLoaded(name()) ? "complete in memory" : "not complete");
    seen.push_back(listener_->events.empty() ? "not told" : listener_->events.back());
    return 0;
  };
  download(pattern(5000));

  EXPECT_EQ(seen, (std::vector<std::string>{"sync", "complete in memory", "finish " + name()}));
  EXPECT_EQ(files_->syncs, 1);
  EXPECT_EQ(durableRecord(), 5000);
  EXPECT_TRUE(manager()->isLoaded(name()));
  EXPECT_EQ(afterRelaunch(), std::make_pair(true, false));
}

TEST_F(ZVFileSyncQueueTest, ADeathInTheSyncOrAFailedSyncLeavesNoRecordAndTheNextLaunchDownloads) {
  for (bool dies : {true, false}) {
    SCOPED_TRACE(dies ? "dies in the sync" : "the sync fails");
    files_->onSync = [dies](int) -> int {
      if (dies) throw std::runtime_error("the process is gone");
      errno = EIO;
      return -1;
    };
    download(pattern(5000));
    files_->onSync = nullptr;

    EXPECT_FALSE(durableRecord());
    // This run has the bytes in hand and keeps them.
    EXPECT_TRUE(manager()->isLoaded(name()));
    EXPECT_EQ(afterRelaunch(), std::make_pair(false, true));
    manager()->removeFile(name());
  }
  EXPECT_TRUE(scope_.log().contains("[ZVFileSyncQueue][sync] Warning! Can't sync file: " + name() +
                                    ": Input/output error"));
}

TEST_F(ZVFileSyncQueueTest, AFileRemovedBeforeItsRecordIsCommittedGetsNoRecord) {
  files_->onSync = [&](int) {
    manager()->removeFile(name());
    return 0;
  };
  download(pattern(5000));
  EXPECT_FALSE(durableRecord());
  EXPECT_FALSE(manager()->isLoaded(name()));
}

TEST_F(ZVFileSyncQueueTest, WorkLeftWhenTheQueueStopsIsFinishedByItsOwner) {
  auto settings = ZVFilesSavedValidator::defaultValidator()->userSettings();
  const auto path = cache() / "left.mp4";
  writeFile(path, "bytes");
  const int fd = ::open(path.c_str(), O_RDONLY);
  {
    // The queue's tasks never run here, as after a shutdown.
    auto syncs = std::make_shared<ZVFileSyncQueue>(runtime_->makeSerialQueue("stopped"), files_);
    syncs->syncAndClose(fd, "left.mp4");
    syncs->recordComplete("left.mp4", 5, settings);
    EXPECT_EQ(syncs->pendingSize("left.mp4"), 5);
    EXPECT_FALSE(settings->integerForKey("left.mp4"));
  }
  EXPECT_EQ(files_->syncs, 1);
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(settings->integerForKey("left.mp4"), 5);
}

}  // namespace
}  // namespace zivora::test
