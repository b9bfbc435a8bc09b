// A server-listed name can only ever remove a regular file in the cache.
#include <gtest/gtest.h>

#include <fstream>

#include "core/DefaultAdSide.h"
#include "core/InvokeDelegateHelper.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVReserveManager.h"
#include "resources/ZVResourceManager.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

namespace fs = std::filesystem;

void touch(const fs::path& path) { std::ofstream(path) << "x"; }

TEST(DefaultAdSide, RemovesOnlyRegularFilesDirectlyInTheCache) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  test::TempDir root;
  test::ScopedContext scope({.dataRoot = root.path().string()}, {.runtime = runtime});
  fs::path cache = root.path() / "Caches" / "Zivora";
  DefaultAdSide side(std::make_shared<InvokeDelegateHelper>());
  side.startUp();
  ASSERT_TRUE(fs::is_directory(cache));
  touch(cache / "abc.mp4");
  touch(root.path() / "outside");
  touch(root.path() / "target");
  fs::create_symlink(root.path() / "target", cache / "link");
  fs::create_directory(cache / "sub");
  touch(cache / "sub" / "inner");

  for (const char* name :
       {"abc.mp4", "../outside", "/etc/hostname", "link", "sub", ".", "..", ""}) {
    side.removeFile(name);
  }

  EXPECT_FALSE(fs::exists(cache / "abc.mp4"));
  EXPECT_TRUE(fs::exists(root.path() / "outside"));
  EXPECT_TRUE(fs::exists(root.path() / "target"));
  EXPECT_TRUE(fs::is_symlink(cache / "link"));
  EXPECT_TRUE(fs::exists(cache / "sub" / "inner"));
  EXPECT_TRUE(scope.log().contains("[ZVResourceManager][removeFile] file: ../outside"));
  EXPECT_TRUE(scope.log().contains(
      "[ZVResourceManager][removeFile] Warning! Can't remove file: ../outside"));
  EXPECT_FALSE(
      scope.log().contains("[ZVResourceManager][removeFile] Warning! Can't remove file: abc.mp4"));
}

TEST(DefaultAdSide, UnreserveAllDropsEveryReservation) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  test::TempDir root;
  test::ScopedContext scope({.dataRoot = root.path().string()}, {.runtime = runtime});
  DefaultAdSide side(std::make_shared<InvokeDelegateHelper>());
  side.startUp();
  auto reserve = ZVReserveManager::defaultManager();
  reserve->reserve("a.mp4");
  reserve->reserve("a.mp4");
  side.unreserveAll("a.mp4");
  EXPECT_FALSE(reserve->isReserved("a.mp4"));
}

TEST(DefaultAdSide, AVideoStillDownloadingIsReadThroughTheProgressiveLoader) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  test::TempDir root;
  test::ScopedContext scope({.dataRoot = root.path().string()}, {.runtime = runtime});
  DefaultAdSide side(std::make_shared<InvokeDelegateHelper>());
  side.startUp();
  auto asset = ZVResourceManager::defaultManager()->assetForFile("abc.mp4");
  EXPECT_EQ(asset.url, "customLoader://abc.mp4");
  EXPECT_NE(std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(asset.loaderDelegate), nullptr);
}

}  // namespace
}  // namespace zivora
