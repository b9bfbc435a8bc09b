// A server-listed name can only ever remove a regular file in the cache.
#include <gtest/gtest.h>

#include <fstream>

#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVResourceManager.h"
#include "sdk/InvokeDelegateHelper.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/DefaultAdSide.h"

namespace zivora {
namespace {

namespace fs = std::filesystem;

void touch(const fs::path& path) { std::ofstream(path) << "x"; }

class DefaultAdSideTest : public ::testing::Test {
 protected:
  DefaultAdSideTest() { side_.startUp(); }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  test::ScopedContext scope_{{.dataRoot = root_.path().string()}, {.runtime = runtime_}};
  DefaultAdSide side_{std::make_shared<InvokeDelegateHelper>()};
};

TEST_F(DefaultAdSideTest, RemovesOnlyRegularFilesDirectlyInTheCache) {
  fs::path cache = root_.path() / "Caches" / "Zivora";
  ASSERT_TRUE(fs::is_directory(cache));
  touch(cache / "abc.mp4");
  touch(root_.path() / "outside");
  touch(root_.path() / "target");
  fs::create_symlink(root_.path() / "target", cache / "link");
  fs::create_directory(cache / "sub");
  touch(cache / "sub" / "inner");

  for (const char* name :
       {"abc.mp4", "../outside", "/etc/hostname", "link", "sub", ".", "..", ""}) {
    side_.removeFile(name);
  }

  EXPECT_FALSE(fs::exists(cache / "abc.mp4"));
  EXPECT_TRUE(fs::exists(root_.path() / "outside"));
  EXPECT_TRUE(fs::exists(root_.path() / "target"));
  EXPECT_TRUE(fs::is_symlink(cache / "link"));
  EXPECT_TRUE(fs::exists(cache / "sub" / "inner"));
  EXPECT_TRUE(scope_.log().contains("[ZVResourceManager][removeFile] file: ../outside"));
  EXPECT_TRUE(scope_.log().contains(
      "[ZVResourceManager][removeFile] Warning! Can't remove file: ../outside"));
  EXPECT_FALSE(
      scope_.log().contains("[ZVResourceManager][removeFile] Warning! Can't remove file: abc.mp4"));
}

TEST_F(DefaultAdSideTest, AVideoStillDownloadingIsReadThroughTheProgressiveLoader) {
  auto asset = ZVResourceManager::defaultManager()->assetForFile("abc.mp4");
  EXPECT_EQ(asset.url, "customLoader://abc.mp4");
  EXPECT_NE(std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(asset.loaderDelegate), nullptr);
}

}  // namespace
}  // namespace zivora
