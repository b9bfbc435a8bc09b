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
  ZVAssetLoaderDelegateTest() { request(); }

  // The download has written the first `size` bytes of the video.
  void downloaded(std::size_t size) {
    writeFile(file(), video_.substr(0, size));
    manager()->getLoadInfo(name())->setLoadedSize(static_cast<std::int64_t>(size));
  }
  std::shared_ptr<LoadingRequest> read(std::int64_t offset, std::int64_t length) {
    auto request = std::make_shared<LoadingRequest>(offset, length);
    EXPECT_TRUE(loader_->shouldWaitForLoadingOfRequestedResource(request));
    return request;
  }
  static std::string bytesOf(LoadingRequest& request) {
    auto answer = request.waitForPart(request.requestedOffset(), request.requestedLength());
    return std::string(answer.bytes.begin(), answer.bytes.end());
  }

  std::string video_ = pattern(10000);
  std::shared_ptr<ZVAssetLoaderDelegate> loader_ = std::make_shared<ZVAssetLoaderDelegate>(name());
};

TEST_F(ZVAssetLoaderDelegateTest, ARangeOnDiskIsAnsweredAtOnceAndOnePastItWhenTheBytesArrive) {
  downloaded(4000);
  auto onDisk = read(100, 900);
  EXPECT_TRUE(onDisk->isFinished());
  EXPECT_EQ(bytesOf(*onDisk), video_.substr(100, 900));
  EXPECT_FALSE(loader_->hasOpenRequest());
  EXPECT_EQ(onDisk->contentInformationRequest().contentType(), "video/mp4");
  EXPECT_TRUE(onDisk->contentInformationRequest().isByteRangeAccessSupported());

  auto arriving = read(1000, 5000);
  EXPECT_EQ(arriving->currentOffset(), 4000);
  downloaded(4500);
  loader_->receiveData(500);
  EXPECT_EQ(arriving->currentOffset(), 4500);
  EXPECT_FALSE(arriving->isFinished());
  downloaded(6000);
  loader_->receiveData(1500);
  EXPECT_TRUE(arriving->isFinished());
  EXPECT_EQ(bytesOf(*arriving), video_.substr(1000, 5000));
  EXPECT_FALSE(loader_->hasOpenRequest());
}

TEST_F(ZVAssetLoaderDelegateTest, ReadsOfMoreThanAMegabyteAreAnsweredByteForByte) {
  // Answers go out piece by piece: ranges that start, end and cross piece
  // and slice boundaries off their edges, from disk and as bytes arrive.
  constexpr std::int64_t kLength = LoadingRequest::kMaxSliceBytes + 100 * 1024 + 7;
  video_ = pattern(3 * 1024 * 1024);
  downloaded(video_.size());
  EXPECT_EQ(bytesOf(*read(1000, kLength)), video_.substr(1000, kLength));

  manager()->getLoadInfo(name())->setLoadedSize(70000);
  auto arriving = read(65000, kLength);
  downloaded(video_.size());
  loader_->receiveData(static_cast<std::int64_t>(video_.size()) - 70000);
  EXPECT_TRUE(arriving->isFinished());
  EXPECT_EQ(bytesOf(*arriving), video_.substr(65000, kLength));
}

TEST_F(ZVAssetLoaderDelegateTest, TheTwoByteProbeIsAnsweredWithoutTheFile) {
  auto probe = read(0, 2);
  EXPECT_FALSE(probe->isFinished());
  runtime_->advanceBy(std::chrono::microseconds(100));
  EXPECT_TRUE(probe->isFinished());
  EXPECT_EQ(bytesOf(*probe), std::string("\x01\x02"));
}

TEST_F(ZVAssetLoaderDelegateTest, ASecondOpenReadReplacesTheFirstAndAnUnknownFileIsRefused) {
  downloaded(1000);
  auto first = read(2000, 1000);
  auto second = read(5000, 1000);
  downloaded(10000);
  loader_->receiveData(9000);
  EXPECT_TRUE(second->isFinished());
  EXPECT_FALSE(first->isFinished());

  ZVAssetLoaderDelegate unknown("never-queued.mp4");
  EXPECT_FALSE(
      unknown.shouldWaitForLoadingOfRequestedResource(std::make_shared<LoadingRequest>(0, 100)));
}

// The progress of the playback download is always in the system log.
TEST_F(ZVAssetLoaderDelegateTest, StartAndFinishOfTheDownloadAreSystemLines) {
  loader_->startLoading(name());
  loader_->finishLoading(name());
  std::vector<std::pair<LogLevel, std::string>> lines;
  for (const auto& line : scope_.log().lines()) {
    if (line.text.starts_with("[ZVAssetLoaderDelegate]")) lines.emplace_back(line.level, line.text);
  }
  EXPECT_EQ(lines, (std::vector<std::pair<LogLevel, std::string>>{
                       {LogLevel::System, "[ZVAssetLoaderDelegate] Start Loading file"},
                       {LogLevel::System, "[ZVAssetLoaderDelegate] Finish loading All File"}}));
}

TEST_F(ZVAssetLoaderDelegateTest, ANewAssetOfAFileStopsThePreviousOneEvenOnceTheFileIsComplete) {
  manager()->setAssetLoaderFactory(
      [](const std::string& name) { return std::make_shared<ZVAssetLoaderDelegate>(name); });
  // What playback does with the manager's answer.
  auto asset = [&] {
    const ZVAsset found = manager()->assetForFile(name());
    auto made = std::make_shared<media::MediaAsset>(found.url);
    if (auto loader = std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(found.loaderDelegate))
      loader->setAsset(made);
    return made;
  };
  auto first = asset();
  EXPECT_TRUE(first->isCustomLoader());
  auto second = asset();
  EXPECT_TRUE(first->isLoadingCancelled());
  EXPECT_FALSE(second->isLoadingCancelled());

  downloaded(video_.size());
  manager()->getLoadInfo(name())->setIsReady(true);
  ZVFilesSavedValidator::defaultValidator()->setFullLoaded(name(), video_.size());
  auto complete = asset();
  EXPECT_TRUE(second->isLoadingCancelled());
  EXPECT_FALSE(complete->isCustomLoader());
}

}  // namespace
}  // namespace zivora::test
