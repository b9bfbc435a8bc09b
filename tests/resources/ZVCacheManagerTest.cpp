// Cache accounting: eviction of the oldest unreserved files, reservations,
// what the directory scan counts, and records checked against the files.
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/UserDefaults.h"
#include "resources/ResourceFixture.h"
#include "resources/ZVCacheManager.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVReserveManager.h"

namespace zivora::test {
namespace {

constexpr std::int64_t MiB = 1024 * 1024;

class ZVCacheManagerTest : public ResourceFixture {
 protected:
  // A cache file of `size` bytes last written `age` seconds into 2020.
  void cached(const std::string& name, std::int64_t size, std::int64_t age) {
    writeFile(cache() / name, "");
    std::filesystem::resize_file(cache() / name, static_cast<std::uintmax_t>(size));
    const timespec times[2] = {{1577836800 + age, 0}, {1577836800 + age, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (cache() / name).c_str(), times, 0), 0);
  }
  bool present(const std::string& name) { return std::filesystem::exists(cache() / name); }
};

TEST_F(ZVCacheManagerTest, EvictsTheOldestUnreservedFilesOnlyWhenTheBudgetIsExceeded) {
  cached("old.mp4", 10 * MiB, 1);
  cached("middle.mp4", 10 * MiB, 2);
  cached("new.mp4", 10 * MiB, 3);
  // Hidden entries and directories are never counted or evicted.
  cached(".hidden", 30 * MiB, 0);
  writeFile(cache() / "sub" / "inner", std::string(1000, 'x'));
  auto cacheManager = ZVCacheManager::defaultManager();
  EXPECT_EQ(cacheManager->usedSpace(), 30 * MiB);

  cacheManager->needSpace(10 * MiB);
  EXPECT_TRUE(present("old.mp4"));

  ZVReserveManager::defaultManager()->reserve("old.mp4");
  cacheManager->needSpace(10 * MiB + 1);
  EXPECT_TRUE(present("old.mp4"));
  EXPECT_FALSE(present("middle.mp4"));
  EXPECT_TRUE(present("new.mp4"));
  EXPECT_EQ(cacheManager->usedSpace(), 20 * MiB);

  // When everything left is reserved the cache grows past the budget.
  ZVReserveManager::defaultManager()->reserve("new.mp4");
  cacheManager->needSpace(40 * MiB);
  EXPECT_TRUE(present("old.mp4") && present("new.mp4"));
  EXPECT_TRUE(present(".hidden") && present("sub/inner"));
}

TEST_F(ZVCacheManagerTest, ReservationsAreCounted) {
  auto reserve = ZVReserveManager::defaultManager();
  reserve->unreserve("never.mp4");
  EXPECT_FALSE(reserve->isReserved("never.mp4"));
  for (int i = 0; i < 3; ++i) reserve->reserve("a.mp4");
  reserve->unreserve("a.mp4");
  reserve->unreserve("a.mp4");
  EXPECT_TRUE(reserve->isReserved("a.mp4"));
  reserve->unreserve("a.mp4");
  EXPECT_FALSE(reserve->isReserved("a.mp4"));
  for (int i = 0; i < 3; ++i) reserve->reserve("a.mp4");
  reserve->unreserveAll("a.mp4");
  EXPECT_FALSE(reserve->isReserved("a.mp4"));
  reserve->reserve("");
  EXPECT_FALSE(reserve->isReserved(""));
}

TEST_F(ZVCacheManagerTest, ARecordWhoseFileChangedSizeIsDroppedAfterARestart) {
  writeFile(cache() / "done.mp4", std::string(1000, 'x'));
  writeFile(cache() / "kept.mp4", std::string(1000, 'y'));
  auto validator = ZVFilesSavedValidator::defaultValidator();
  validator->setFullLoaded("done.mp4", 1000);
  validator->setFullLoaded("kept.mp4", 1000);
  validator->setFullLoaded("zero.mp4", 0);
  EXPECT_TRUE(validator->isLoaded("done.mp4"));

  std::filesystem::resize_file(cache() / "done.mp4", 600);
  // A new launch on the same data root.
  ScopedContext relaunch({.dataRoot = root_.path().string()},
                         {.runtime = std::make_shared<VirtualRuntime>()});
  auto fresh = ZVFilesSavedValidator::defaultValidator();
  EXPECT_FALSE(fresh->isLoaded("done.mp4"));
  EXPECT_FALSE(fresh->userSettings()->integerForKey("done.mp4"));
  EXPECT_TRUE(fresh->isLoaded("kept.mp4"));
  EXPECT_FALSE(fresh->isLoaded("zero.mp4"));
  EXPECT_FALSE(fresh->isLoaded("missing.mp4"));
}

}  // namespace
}  // namespace zivora::test
