// The progressive loader: the player's reads answered from a partial cache
// file and completed as the download brings more bytes.
#include "resources/ResourceFixture.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVFileInfoStatus.h"
#include "resources/ZVFilesSavedValidator.h"

namespace zivora::test {
namespace {

using media::LoadingRequest;

class ZVAssetLoaderDelegateTest : public ResourceFixture {
 protected:
  ZVAssetLoaderDelegateTest() {
    manager()->loadURL(kUrl, std::make_shared<RecordingDownloadDelegate>());
    runtime_->runUntilIdle();
  }

  // The download has written the first `size` bytes of the video.
  void downloaded(std::size_t size) {
    writeFile(cache() / name_, video_.substr(0, size));
    manager()->getLoadInfo(name_)->setLoadedSize(static_cast<std::int64_t>(size));
  }

  std::string bytesOf(LoadingRequest& request) {
    auto answer = request.waitForPart(request.requestedOffset(), request.requestedLength());
    return std::string(answer.bytes.begin(), answer.bytes.end());
  }

  static constexpr const char* kUrl = "https://cdn.example/v.mp4";
  const std::string name_ = ZVResourceManager::convertURLToFileName(kUrl);
  const std::string video_ = pattern(10000);
  std::shared_ptr<ZVAssetLoaderDelegate> loader_ = std::make_shared<ZVAssetLoaderDelegate>(name_);
};

TEST_F(ZVAssetLoaderDelegateTest, ARangeOnDiskIsAnsweredAndFinishedAtOnce) {
  downloaded(4000);
  auto read = std::make_shared<LoadingRequest>(100, 900);
  EXPECT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(read));
  EXPECT_TRUE(read->isFinished());
  EXPECT_EQ(bytesOf(*read), video_.substr(100, 900));
  EXPECT_FALSE(loader_->hasOpenRequest());
  EXPECT_EQ(read->contentInformationRequest().contentType(), "video/mp4");
  EXPECT_TRUE(read->contentInformationRequest().isByteRangeAccessSupported());
}

TEST_F(ZVAssetLoaderDelegateTest, AReadPastTheDownloadStaysOpenUntilTheBytesArrive) {
  downloaded(3000);
  auto read = std::make_shared<LoadingRequest>(1000, 5000);
  ASSERT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(read));
  EXPECT_EQ(read->currentOffset(), 3000);
  EXPECT_FALSE(read->isFinished());
  downloaded(4500);
  loader_->receiveData(1500);
  EXPECT_EQ(read->currentOffset(), 4500);
  downloaded(6000);
  loader_->receiveData(1500);
  EXPECT_TRUE(read->isFinished());
  EXPECT_EQ(bytesOf(*read), video_.substr(1000, 5000));
  EXPECT_FALSE(loader_->hasOpenRequest());
}

TEST_F(ZVAssetLoaderDelegateTest, ReadsOfMoreThanAMegabyteAreAnsweredByteForByte) {
  // Answers go out piece by piece: ranges that start, end and cross piece
  // and slice boundaries off their edges, from disk and as bytes arrive.
  constexpr std::int64_t kLength = LoadingRequest::kMaxSliceBytes + 100 * 1024 + 7;
  const std::string video = pattern(3 * 1024 * 1024);
  writeFile(cache() / name_, video);
  auto info = manager()->getLoadInfo(name_);
  info->setLoadedSize(static_cast<std::int64_t>(video.size()));
  auto onDisk = std::make_shared<LoadingRequest>(1000, kLength);
  ASSERT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(onDisk));
  EXPECT_EQ(bytesOf(*onDisk), video.substr(1000, kLength));

  info->setLoadedSize(70000);
  auto arriving = std::make_shared<LoadingRequest>(65000, kLength);
  ASSERT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(arriving));
  info->setLoadedSize(static_cast<std::int64_t>(video.size()));
  loader_->receiveData(static_cast<std::int64_t>(video.size()) - 70000);
  EXPECT_TRUE(arriving->isFinished());
  EXPECT_EQ(bytesOf(*arriving), video.substr(65000, kLength));
}

TEST_F(ZVAssetLoaderDelegateTest, TheTwoByteProbeIsAnsweredWithoutTheFile) {
  auto probe = std::make_shared<LoadingRequest>(0, 2);
  ASSERT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(probe));
  EXPECT_FALSE(probe->isFinished());
  runtime_->advanceBy(std::chrono::microseconds(100));
  EXPECT_TRUE(probe->isFinished());
  EXPECT_EQ(bytesOf(*probe), std::string("\x01\x02"));
}

TEST_F(ZVAssetLoaderDelegateTest, ASecondOpenReadReplacesTheFirst) {
  downloaded(1000);
  auto first = std::make_shared<LoadingRequest>(2000, 1000);
  auto second = std::make_shared<LoadingRequest>(5000, 1000);
  loader_->shouldWaitForLoadingOfRequestedResource(first);
  loader_->shouldWaitForLoadingOfRequestedResource(second);
  downloaded(10000);
  loader_->receiveData(9000);
  EXPECT_TRUE(second->isFinished());
  EXPECT_FALSE(first->isFinished());
}

TEST_F(ZVAssetLoaderDelegateTest, AFileWithoutARecordIsRefused) {
  ZVAssetLoaderDelegate unknown("never-queued.mp4");
  auto read = std::make_shared<LoadingRequest>(0, 100);
  EXPECT_FALSE(unknown.shouldWaitForLoadingOfRequestedResource(read));
  EXPECT_TRUE(scope_.log().contains(
      "[ZVAssetLoaderDelegate][shouldWaitForLoadingOfRequestedResource] Can't find info fo file: "
      "never-queued.mp4"));
}

}  // namespace
}  // namespace zivora::test

namespace zivora::test {
namespace {

class AssetForFileTest : public ZVAssetLoaderDelegateTest {
 protected:
  AssetForFileTest() {
    manager()->setAssetLoaderFactory(
        [](const std::string& name) { return std::make_shared<ZVAssetLoaderDelegate>(name); });
  }
  // What playback does with the manager's answer.
  std::shared_ptr<media::MediaAsset> asset() {
    const ZVAsset found = manager()->assetForFile(name_);
    auto made = std::make_shared<media::MediaAsset>(found.url);
    auto loader = std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(found.loaderDelegate);
    if (loader) loader->setAsset(made);
    return made;
  }
};

TEST_F(AssetForFileTest, ANewAssetOfAFileStopsThePreviousOneEvenOnceTheFileIsComplete) {
  auto first = asset();
  EXPECT_TRUE(first->isCustomLoader());
  auto second = asset();
  EXPECT_TRUE(first->isLoadingCancelled());
  EXPECT_FALSE(second->isLoadingCancelled());

  downloaded(video_.size());
  manager()->getLoadInfo(name_)->setIsReady(true);
  ZVFilesSavedValidator::defaultValidator()->setFullLoaded(name_, video_.size());
  auto complete = asset();
  EXPECT_TRUE(second->isLoadingCancelled());
  EXPECT_FALSE(complete->isCustomLoader());
}

// The progress of the playback download is always in the system log.
TEST_F(ZVAssetLoaderDelegateTest, StartAndFinishOfTheDownloadAreSystemLines) {
  loader_->startLoading(name_);
  loader_->finishLoading(name_);
  std::vector<std::pair<LogLevel, std::string>> lines;
  for (const auto& line : scope_.log().lines()) {
    if (line.text.starts_with("[ZVAssetLoaderDelegate]")) lines.emplace_back(line.level, line.text);
  }
  EXPECT_EQ(lines, (std::vector<std::pair<LogLevel, std::string>>{
                       {LogLevel::System, "[ZVAssetLoaderDelegate] Start Loading file"},
                       {LogLevel::System, "[ZVAssetLoaderDelegate] Finish loading All File"}}));
}

}  // namespace
}  // namespace zivora::test
