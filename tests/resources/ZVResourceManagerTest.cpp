// Cached file names: MD5 of the whole URL plus a sanitised extension.
#include <gtest/gtest.h>

#include "resources/ResourceFixture.h"
#include "resources/ZVArrayLoaderHelper.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVResourceManager.h"
#include "util/ZVHash.h"

namespace zivora {
namespace {

TEST(ConvertURLToFileName, IsTheMd5OfTheWholeUrlAndItsExtension) {
  const std::string url = "https://cdn.example/ads/v1.mp4?token=a/b";
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://cdn.example/ads/v1.mp4"),
            ZVHash::md5Hex("https://cdn.example/ads/v1.mp4") + ".mp4");
  // The query is hashed with the URL; only the extension loses it. Here the
  // last path component is "b", which has no extension.
  EXPECT_EQ(ZVResourceManager::convertURLToFileName(url), ZVHash::md5Hex(url) + ".");
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://x/y.png?size=2").substr(32), ".png");
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://x/noext").substr(32), ".");
}

TEST(ConvertURLToFileName, NeverYieldsPathSeparatorsNulOrLongExtensions) {
  std::string hostile = std::string("https://x/a.m\0p4", 16);
  for (const std::string& url :
       {hostile, std::string("https://x/a.../../etc"), std::string("https://x/a.<script>"),
        std::string("https://x/a.") + std::string(500, 'e')}) {
    std::string name = ZVResourceManager::convertURLToFileName(url);
    EXPECT_EQ(name.find('/'), std::string::npos) << name;
    EXPECT_EQ(name.find('\0'), std::string::npos);
    EXPECT_LE(name.size(), 32u + 1u + 16u);
  }
}

}  // namespace
}  // namespace zivora

namespace zivora::test {
namespace {

class ZVResourceManagerQueueTest : public ResourceFixture {
 protected:
  std::shared_ptr<RecordingDownloadDelegate> first_ = std::make_shared<RecordingDownloadDelegate>();
  std::shared_ptr<RecordingDownloadDelegate> second_ =
      std::make_shared<RecordingDownloadDelegate>();
};

TEST_F(ZVResourceManagerQueueTest, ACompleteFileIsReportedAtOnceWithoutADownload) {
  const std::string url = "https://cdn.example/a.png";
  const std::string name = ZVResourceManager::convertURLToFileName(url);
  writeFile(cache() / name, "12345");
  ZVFilesSavedValidator::defaultValidator()->setFullLoaded(name, 5);
  manager()->loadURL(url, first_);
  // Before the queue ran: the answer came synchronously.
  EXPECT_EQ(first_->events, (std::vector<std::string>{"finish " + name}));
  runtime_->runUntilIdle();
  EXPECT_TRUE(client_->transfers().empty());
  EXPECT_EQ(manager()->fileSize(name), 5);
  EXPECT_EQ(manager()->assetForFile(name).url, "file://" + (cache() / name).string());
}

TEST_F(ZVResourceManagerQueueTest, DownloadsOneFileAtATimeInOrder) {
  const std::string a = "https://cdn.example/a.png", b = "https://cdn.example/b.png";
  manager()->loadURLs({a, b}, first_);
  runtime_->runUntilIdle();
  ASSERT_EQ(client_->transfers().size(), 1u);
  EXPECT_EQ(client_->last()->request.url, a);
  client_->serve(client_->last(), "aaaa");
  runtime_->runUntilIdle();
  ASSERT_EQ(client_->transfers().size(), 2u);
  EXPECT_EQ(client_->last()->request.url, b);
  client_->serve(client_->last(), "bbbbbb");
  runtime_->runUntilIdle();
  const auto na = ZVResourceManager::convertURLToFileName(a);
  const auto nb = ZVResourceManager::convertURLToFileName(b);
  EXPECT_EQ(first_->events, (std::vector<std::string>{"start " + na, "finish " + na, "start " + nb,
                                                      "finish " + nb}));
  EXPECT_TRUE(scope_.log().contains("[ZVResourceManager][finishLoading] file: " + na));
}

TEST_F(ZVResourceManagerQueueTest, ASecondRequestForTheSameFileCompletesRightAfterTheFirst) {
  const std::string url = "https://cdn.example/v.mp4";
  const std::string name = ZVResourceManager::convertURLToFileName(url);
  manager()->loadURL(url, first_);
  manager()->loadURL(url, second_);
  runtime_->runUntilIdle();
  EXPECT_EQ(manager()->fileSize(name), 0);
  EXPECT_EQ(manager()->fileSize("never.mp4"), -1);
  client_->serve(client_->last(), "0123456789");
  runtime_->runUntilIdle();
  EXPECT_EQ(client_->transfers().size(), 1u);
  EXPECT_EQ(first_->events, (std::vector<std::string>{"start " + name, "finish " + name}));
  EXPECT_EQ(second_->events, (std::vector<std::string>{"finish " + name}));
}

TEST_F(ZVResourceManagerQueueTest, ACompletionForAnotherFileChangesNothingButTheLog) {
  manager()->loadURL("https://cdn.example/a.png", first_);
  manager()->finishLoading("other.png");
  EXPECT_TRUE(
      scope_.log().contains("[ZVResourceManager][finishLoading] Error, diferrent object. First = " +
                            ZVResourceManager::convertURLToFileName("https://cdn.example/a.png")));
  EXPECT_TRUE(
      manager()->getLoadInfo(ZVResourceManager::convertURLToFileName("https://cdn.example/a.png")));
}

TEST_F(ZVResourceManagerQueueTest, AFailedFileIsForgottenAndTheNextOneStarts) {
  const std::string a = "https://cdn.example/a.png", b = "https://cdn.example/b.png";
  manager()->loadURLs({a, b}, first_);
  runtime_->runUntilIdle();
  client_->serve(client_->last(), "aaaaaaaaaa", 2, 4);
  runtime_->runUntilIdle();
  const auto na = ZVResourceManager::convertURLToFileName(a);
  EXPECT_FALSE(manager()->containFile(na));
  EXPECT_EQ(client_->last()->request.url, b);
  EXPECT_EQ(std::filesystem::file_size(cache() / na), 4u);
  EXPECT_TRUE(
      scope_.log().contains("[ZVResourceManager][errorLoadingResource] Errorloading file = " + na));
}

TEST_F(ZVResourceManagerQueueTest, TheBatchLoaderHearsOnceWhenAllAreCompleteOrOfEachFailure) {
  struct Batch final : ZVArrayLoaderHelperDelegate {
    void finishLoadingResources(const std::vector<ZVDownloadFileInfo>& files) override {
      finished.push_back(files.size());
    }
    void errorLoadingResourcesByHelper(std::int32_t error) override { errors.push_back(error); }
    std::vector<std::size_t> finished;
    std::vector<std::int32_t> errors;
  };
  auto batch = std::make_shared<Batch>();
  auto helper = std::make_shared<ZVArrayLoaderHelper>();
  helper->setDelegate(batch);
  helper->startLoad();
  EXPECT_EQ(batch->finished, (std::vector<std::size_t>{0}));

  helper = std::make_shared<ZVArrayLoaderHelper>();
  helper->setDelegate(batch);
  helper->addNewForLoad(std::nullopt, false);
  helper->addNewForLoad("https://cdn.example/x.png", false);
  helper->addNewForLoad("https://cdn.example/x.png", false);
  helper->addNewForLoad("https://cdn.example/y.png", false);
  helper->startLoad();
  runtime_->runUntilIdle();
  client_->serve(client_->last(), "xx");
  runtime_->runUntilIdle();
  client_->serve(client_->last(), "yy", 1, 1);
  runtime_->runUntilIdle();
  EXPECT_EQ(batch->errors, (std::vector<std::int32_t>{1}));
  EXPECT_EQ(batch->finished.size(), 1u);
  EXPECT_FALSE(helper->isLoaded());
  EXPECT_TRUE(scope_.log().contains("[ZVArrayLoaderHelper][addNewForLoad] url is nil"));
}

}  // namespace
}  // namespace zivora::test
