// Cache accounting: eviction of the oldest unreserved files, reservations,
// and what the directory scan counts.
#include <fcntl.h>
#include <gtest/gtest.h>
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
    std::filesystem::create_directories(cache());
    const auto path = cache() / name;
    writeFile(path, "");
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
    const timespec times[2] = {{1577836800 + age, 0}, {1577836800 + age, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  bool present(const std::string& name) { return std::filesystem::exists(cache() / name); }
};

TEST_F(ZVCacheManagerTest, EvictsTheOldestUnreservedFilesOnlyWhenTheBudgetIsExceeded) {
  cached("old.mp4", 10 * MiB, 1);
  cached("middle.mp4", 10 * MiB, 2);
  cached("new.mp4", 10 * MiB, 3);
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
  EXPECT_TRUE(scope_.log().contains("[ZVResourceManager][removeFile] file: middle.mp4"));
}

TEST_F(ZVCacheManagerTest, WhenEverythingIsReservedTheCacheGrowsPastTheBudget) {
  cached("a.mp4", 20 * MiB, 1);
  cached("b.mp4", 20 * MiB, 2);
  auto reserve = ZVReserveManager::defaultManager();
  reserve->reserve("a.mp4");
  reserve->reserve("b.mp4");
  ZVCacheManager::defaultManager()->needSpace(20 * MiB);
  EXPECT_TRUE(present("a.mp4"));
  EXPECT_TRUE(present("b.mp4"));
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
  EXPECT_TRUE(scope_.log().contains("[ZVReserveManager][reserve] Error! File name is empty."));
}

TEST_F(ZVCacheManagerTest, HiddenEntriesAndDirectoriesAreNeverCountedOrEvicted) {
  cached(".hidden", 30 * MiB, 1);
  std::filesystem::create_directories(cache() / "sub");
  writeFile(cache() / "sub" / "inner", std::string(1000, 'x'));
  cached("visible.mp4", 5 * MiB, 2);
  auto cacheManager = ZVCacheManager::defaultManager();
  EXPECT_EQ(cacheManager->usedSpace(), 5 * MiB);
  cacheManager->needSpace(40 * MiB);
  EXPECT_FALSE(present("visible.mp4"));
  EXPECT_TRUE(present(".hidden"));
  EXPECT_TRUE(present("sub/inner"));
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
  {
    // A new launch on the same data root.
    auto runtime = std::make_shared<VirtualRuntime>();
    ScopedContext relaunch({.dataRoot = root_.path().string()}, {.runtime = runtime});
    auto fresh = ZVFilesSavedValidator::defaultValidator();
    EXPECT_FALSE(fresh->isLoaded("done.mp4"));
    EXPECT_FALSE(fresh->userSettings()->integerForKey("done.mp4"));
    EXPECT_TRUE(fresh->isLoaded("kept.mp4"));
    EXPECT_FALSE(fresh->isLoaded("zero.mp4"));
    EXPECT_FALSE(fresh->isLoaded("missing.mp4"));
  }
}

}  // namespace
}  // namespace zivora::test
