// The download queue, the batch loader and the names of cached files.
#include "resources/ResourceFixture.h"
#include "resources/ZVArrayLoaderHelper.h"
#include "resources/ZVFilesSavedValidator.h"
#include "util/ZVHash.h"

namespace zivora::test {
namespace {

using Events = std::vector<std::string>;
std::string nameOf(const std::string& url) { return ZVResourceManager::convertURLToFileName(url); }

TEST(ConvertURLToFileName, IsTheMd5OfTheWholeUrlAndItsExtension) {
  const std::string url = "https://cdn.example/ads/v1.mp4?token=a/b";
  EXPECT_EQ(nameOf("https://cdn.example/ads/v1.mp4"),
            ZVHash::md5Hex("https://cdn.example/ads/v1.mp4") + ".mp4");
  // The query is hashed with the URL; only the extension loses it. Here the
  // last path component is "b", which has no extension.
  EXPECT_EQ(nameOf(url), ZVHash::md5Hex(url) + ".");
  EXPECT_EQ(nameOf("https://x/y.png?size=2").substr(32), ".png");
}

using ZVResourceManagerQueueTest = ResourceFixture;

TEST_F(ZVResourceManagerQueueTest, DownloadsOneFileAtATimeAndAnswersRepeatedAndCompleteOnes) {
  const std::string a = "https://cdn.example/a.png", b = "https://cdn.example/b.png";
  const std::string done = "https://cdn.example/done.png";
  writeFile(cache() / nameOf(done), "12345");
  ZVFilesSavedValidator::defaultValidator()->setFullLoaded(nameOf(done), 5);
  auto second = std::make_shared<RecordingDownloadDelegate>();
  // A complete file is answered at once, before the queue runs.
  manager()->loadURL(done, listener_);
  EXPECT_EQ(listener_->events, (Events{"finish " + nameOf(done)}));
  EXPECT_EQ(manager()->assetForFile(nameOf(done)).url,
            "file://" + (cache() / nameOf(done)).string());

  manager()->loadURLs({a, b}, listener_);
  manager()->loadURL(a, second);
  runtime_->runUntilIdle();
  ASSERT_EQ(client_->transfers().size(), 1u);
  EXPECT_EQ(client_->last()->request.url, a);
  EXPECT_EQ(manager()->fileSize(nameOf(a)), 0);
  EXPECT_EQ(manager()->fileSize("never.mp4"), -1);
  // A completion for another file changes nothing.
  manager()->finishLoading("other.png");
  serve("aaaa");
  ASSERT_EQ(client_->transfers().size(), 2u);
  EXPECT_EQ(client_->last()->request.url, b);
  // A failed file is forgotten, its bytes kept for a resume.
  client_->serve(client_->last(), "bbbbbbbbbb", 2, 4);
  runtime_->runUntilIdle();
  EXPECT_EQ(listener_->events,
            (Events{"finish " + nameOf(done), "start " + nameOf(a), "finish " + nameOf(a),
                    "start " + nameOf(b), "error " + nameOf(b) + " 1"}));
  // The second request for a file already fetched is answered in its turn.
  EXPECT_EQ(second->events, (Events{"finish " + nameOf(a)}));
  EXPECT_EQ(client_->transfers().size(), 2u);
  EXPECT_FALSE(manager()->containFile(nameOf(b)));
  EXPECT_EQ(std::filesystem::file_size(cache() / nameOf(b)), 4u);
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
  for (const auto& url : std::vector<std::optional<std::string>>{
           std::nullopt, "https://cdn.example/x.png", "https://cdn.example/x.png",
           "https://cdn.example/y.png"})
    helper->addNewForLoad(url, false);
  helper->startLoad();
  runtime_->runUntilIdle();
  serve("xx");
  client_->serve(client_->last(), "yy", 1, 1);
  runtime_->runUntilIdle();
  EXPECT_EQ(batch->errors, (std::vector<std::int32_t>{1}));
  EXPECT_EQ(batch->finished.size(), 1u);
  EXPECT_FALSE(helper->isLoaded());
  EXPECT_TRUE(scope_.log().contains("[ZVArrayLoaderHelper][addNewForLoad] url is nil"));
}

}  // namespace
}  // namespace zivora::test
