// A finished download is synced and then recorded, off the main queue; the
// record must never get ahead of the bytes it vouches for.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "platform/UserDefaults.h"
#include "resources/ResourceFixture.h"
#include "resources/ZVFileSyncQueue.h"
#include "resources/ZVFilesSavedValidator.h"

namespace zivora::test {
namespace {

class ZVFileSyncQueueTest : public ResourceFixture {
 protected:
  std::optional<std::int64_t> durableRecord() {
    return ZVFilesSavedValidator::defaultValidator()->userSettings()->integerForKey(name());
  }
  void download() {
    request();
    serve(pattern(5000));
  }
  // Whether a new launch on the same data root takes the file as complete,
  // and whether it asks the server for it again.
  std::pair<bool, bool> afterRelaunch() {
    auto runtime = std::make_shared<VirtualRuntime>();
    auto client = std::make_shared<FakeStreamingClient>(*runtime);
    ScopedContext relaunch({.dataRoot = root_.path().string()},
                           {.runtime = runtime, .downloads = client, .files = files_});
    const bool loaded = manager()->isLoaded(name());
    manager()->loadURL(kUrl, listener_);
    runtime->runUntilIdle();
    return {loaded, !client->transfers().empty()};
  }
};

TEST_F(ZVFileSyncQueueTest, TheDataIsSyncedBeforeTheRecordAndTheCallbacksDoNotWaitForEither) {
  std::vector<std::string> seen;
  files_->onSync = [&](int) {
    seen = {durableRecord() ? "record before sync" : "sync",
            manager()->isLoaded(name()) ? "complete in memory" : "not complete", lastEvent()};
    return 0;
  };
  download();
  EXPECT_EQ(seen, (std::vector<std::string>{"sync", "complete in memory", "finish " + name()}));
  EXPECT_EQ(files_->syncs, 1);
  EXPECT_EQ(durableRecord(), 5000);
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
    download();
    files_->onSync = nullptr;
    EXPECT_FALSE(durableRecord());
    // This run has the bytes in hand and keeps them.
    EXPECT_TRUE(manager()->isLoaded(name()));
    EXPECT_EQ(afterRelaunch(), std::make_pair(false, true));
    manager()->removeFile(name());
  }
}

TEST_F(ZVFileSyncQueueTest, AFileRemovedBeforeItsRecordIsCommittedGetsNoRecord) {
  files_->onSync = [&](int) {
    manager()->removeFile(name());
    return 0;
  };
  download();
  EXPECT_FALSE(durableRecord());
  EXPECT_FALSE(manager()->isLoaded(name()));
}

TEST_F(ZVFileSyncQueueTest, WorkLeftWhenTheQueueStopsIsFinishedByItsOwner) {
  auto settings = ZVFilesSavedValidator::defaultValidator()->userSettings();
  writeFile(cache() / "left.mp4", "bytes");
  const int fd = ::open((cache() / "left.mp4").c_str(), O_RDONLY);
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
