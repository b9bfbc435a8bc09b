// The ranged downloader against a scripted server on virtual time.
#include "resources/ResourceFixture.h"
#include "resources/ZVResourceLoader.h"
#include "zivora/ZVConstants.h"

namespace zivora::test {
namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;
using Events = std::vector<std::string>;

class ZVResourceLoaderTest : public ResourceFixture {
 protected:
  void answer(const TransferPtr& transfer, long status, Headers headers) {
    client_->respond(transfer, status, std::move(headers));
    runtime_->runUntilIdle();
  }
  void send(const TransferPtr& transfer, const std::string& bytes) {
    client_->send(transfer, bytes);
    runtime_->runUntilIdle();
  }
  void sendEndlessly(const TransferPtr& transfer) {
    for (int i = 0; i < 64 && !transfer->cancelled; ++i) send(transfer, std::string(1 << 20, 'x'));
  }
  void finish(const TransferPtr& transfer, const std::string& body) {
    client_->send(transfer, body);
    client_->complete(transfer);
    runtime_->runUntilIdle();
  }
  std::string failed() const { return "error " + name() + " 1"; }
};

TEST_F(ZVResourceLoaderTest, DownloadsAWholeFileAndRecordsItAsComplete) {
  // An empty partial file is nothing to resume from.
  writeFile(file(), "");
  const std::string content = pattern(5000);
  auto transfer = request();
  ASSERT_TRUE(transfer);
  EXPECT_EQ(transfer->request.url, kUrl);
  EXPECT_FALSE(transfer->header("Range"));
  serve(content);

  EXPECT_EQ(readFile(file()), content);
  EXPECT_EQ(listener_->events, (Events{"start " + name(), "finish " + name()}));
  EXPECT_EQ(listener_->received, 5000);
  EXPECT_EQ(manager()->fileSize(name()), 5000);
  EXPECT_TRUE(manager()->getLoadInfo(name())->isReady());
}

TEST_F(ZVResourceLoaderTest, ResumesAPartialFileFromItsSizeAndAppends) {
  const std::string content = pattern(1000);
  writeFile(file(), content.substr(0, 500));
  auto transfer = request();
  EXPECT_EQ(transfer->header("Range"), "bytes=500-");
  answer(transfer, 206, {{"content-range", "bytes 500-999/1000"}, {"CONTENT-LENGTH", "500"}});
  EXPECT_EQ(manager()->getLoadInfo(name())->loadedSize(), 500);
  EXPECT_EQ(manager()->getLoadInfo(name())->fullSize(), 1000);
  finish(transfer, content.substr(500));

  EXPECT_EQ(readFile(file()), content);
  // No start is sent on a resumed download.
  EXPECT_EQ(listener_->events, (Events{"finish " + name()}));
  EXPECT_TRUE(manager()->isLoaded(name()));
}

TEST_F(ZVResourceLoaderTest, AnUnusablePartialAnswerRestartsTheWholeFile) {
  const std::string content = pattern(1000);
  for (const auto& [why, headers] : std::vector<std::pair<const char*, Headers>>{
           {"no Content-Range", {{"Content-Length", "500"}}},
           {"unparsable", {{"Content-Range", "bytes */*"}, {"Content-Length", "500"}}},
           {"offset past the local size", {{"Content-Range", "bytes 700-999/1000"}}},
           {"unknown total", {{"Content-Range", "bytes 500-599/*"}}},
       }) {
    SCOPED_TRACE(why);
    writeFile(file(), content.substr(0, 500));
    auto first = request();
    answer(first, 206, headers);
    EXPECT_TRUE(first->cancelled);
    EXPECT_FALSE(std::filesystem::exists(file()));
    auto restart = client_->last();
    ASSERT_NE(restart, first);
    EXPECT_FALSE(restart->header("Range"));
    // The cancelled answer's completion belongs to a superseded transfer.
    client_->complete(first, "cancelled");
    serve(content);
    EXPECT_EQ(readFile(file()), content);
    EXPECT_EQ(lastEvent(), "finish " + name());
    manager()->removeFile(name());
  }
}

TEST_F(ZVResourceLoaderTest, RangeNotSatisfiableRestartsFromZeroAndGivesUpAfterThreeRestarts) {
  writeFile(file(), pattern(1000));
  request();
  for (int restart = 0; restart <= ZVResourceLoader::kMaxRestartsWithoutBody; ++restart) {
    client_->respond(client_->last(), 416, {{"Content-Range", "bytes */1000"}});
    client_->complete(client_->last());
    runtime_->runUntilIdle();
  }
  EXPECT_EQ(client_->transfers().size(), 4u);
  EXPECT_FALSE(client_->transfers()[1]->header("Range"));
  EXPECT_EQ(listener_->events, (Events{failed()}));
  EXPECT_FALSE(manager()->loader()->isBusy());
}

TEST_F(ZVResourceLoaderTest, AWholeFileAnswerToARangedRequestEmptiesThePartialFile) {
  writeFile(file(), "stale bytes");
  const std::string content = pattern(3000);
  auto transfer = request();
  EXPECT_EQ(transfer->header("Range"), "bytes=11-");
  answer(transfer, 200, {{"Content-Length", "3000"}});
  EXPECT_EQ(std::filesystem::file_size(file()), 0u);
  EXPECT_EQ(manager()->getLoadInfo(name())->fullSize(), 3000);
  finish(transfer, content);
  EXPECT_EQ(readFile(file()), content);
}

TEST_F(ZVResourceLoaderTest, OtherStatusesAndTransportErrorsFailWithCodeOneAndKeepThePartialFile) {
  auto transfer = request();
  answer(transfer, 404, {{"Content-Length", "9"}});
  finish(transfer, "not found");
  EXPECT_EQ(listener_->events, (Events{failed()}));
  EXPECT_FALSE(std::filesystem::exists(file()));

  // Cut mid-body, then resumed to the end.
  const std::string content = pattern(10000);
  request();
  serve(content, 4000);
  EXPECT_EQ(lastEvent(), failed());
  EXPECT_EQ(readFile(file()), content.substr(0, 4000));
  EXPECT_EQ(request()->header("Range"), "bytes=4000-");
  serve(content);
  EXPECT_EQ(readFile(file()), content);
  EXPECT_TRUE(manager()->isLoaded(name()));
}

// The disk fills half way through the third chunk, or takes a few bytes at
// a time: what made it stays as the resume point, and nothing is lost.
TEST_F(ZVResourceLoaderTest, ADiskFullMidChunkLeavesAResumablePrefixAndShortWritesLoseNothing) {
  const std::string content = pattern(5000);
  files_->diskFullAfter = 2500;
  request();
  serve(content);
  EXPECT_EQ(lastEvent(), failed());
  EXPECT_EQ(readFile(file()), content.substr(0, 2500));
  ASSERT_FALSE(scope_.analytics().exceptions().empty());
  EXPECT_EQ(scope_.analytics().exceptions().back().method, "didReceiveData2");

  files_->diskFullAfter.reset();
  files_->shortWrites(333);
  EXPECT_EQ(request()->header("Range"), "bytes=2500-");
  serve(content);
  EXPECT_EQ(lastEvent(), "finish " + name());
  EXPECT_EQ(readFile(file()), content);
}

TEST_F(ZVResourceLoaderTest, FreeSpaceAtOrBelowTheReserveFailsWithCodeTwoBeforeAnyRequest) {
  files_->freeBytes = 31457280;
  EXPECT_FALSE(manager()->hasFreeSpace());
  request();
  EXPECT_TRUE(client_->transfers().empty());
  EXPECT_EQ(listener_->events, (Events{"error " + name() + " 2"}));

  files_->freeBytes = 31457281;
  EXPECT_TRUE(manager()->hasFreeSpace());
  EXPECT_TRUE(request());

  // An unreadable file system counts as room, a throw as none.
  files_->spaceMode = FakeFileSystem::Space::Unreadable;
  EXPECT_EQ(manager()->getFreeDiskspace(), 314572800u);
  files_->spaceMode = FakeFileSystem::Space::Throws;
  EXPECT_EQ(manager()->getFreeDiskspace(), 31457280u);
  EXPECT_FALSE(manager()->hasFreeSpace());
  EXPECT_EQ(scope_.analytics().exceptions().back().method, "getFreeDiskspace");
}

// Faults in the middle of a transfer: each cancels it and ends with code 1,
// touching no other file. A file larger than the whole cache can never be
// cached, whatever the server says, so those leave no partial file either.
class TransferFaultTest : public ZVResourceLoaderTest {
 protected:
  TransferFaultTest() { writeFile(cache() / "other.png", "keep me"); }
  void expectFailed(bool leavesNoFile) {
    EXPECT_TRUE(transfer_->cancelled);
    EXPECT_EQ(lastEvent(), failed());
    EXPECT_FALSE(manager()->isLoaded(name()));
    EXPECT_FALSE(manager()->loader()->isBusy());
    EXPECT_EQ(readFile(cache() / "other.png"), "keep me");
    EXPECT_TRUE(!leavesNoFile || !std::filesystem::exists(file()));
  }
  TransferPtr transfer_;
  const std::string tooLarge_ = std::to_string(TS_MAX_CACHE_SIZE + 1);
};

TEST_F(TransferFaultTest, ContentLengthAboveTheCache) {
  transfer_ = request();
  answer(transfer_, 200, {{"Content-Length", tooLarge_}});
  expectFailed(true);
}

TEST_F(TransferFaultTest, ResumedRangeWithATotalAboveTheCache) {
  writeFile(file(), pattern(500));
  transfer_ = request();
  answer(transfer_, 206, {{"Content-Range", "bytes 500-*/*"}, {"Content-Length", tooLarge_}});
  expectFailed(true);
}

TEST_F(TransferFaultTest, EndlessBodyWithoutALengthOrPastAFalseOne) {
  transfer_ = request();
  answer(transfer_, 200, {});
  sendEndlessly(transfer_);
  expectFailed(true);
  transfer_ = request();
  answer(transfer_, 200, {{"Content-Length", "1000"}});
  sendEndlessly(transfer_);
  expectFailed(true);
}

TEST_F(TransferFaultTest, SpaceRunsOut) {
  transfer_ = request();
  answer(transfer_, 200, {{"Content-Length", "6291456"}});
  files_->freeBytes = 1024;
  send(transfer_, std::string(6291456, 'x'));
  expectFailed(false);
}

TEST_F(TransferFaultTest, FileRemovedBetweenChunks) {
  transfer_ = request();
  answer(transfer_, 200, {{"Content-Length", "3000"}});
  send(transfer_, std::string(1000, 'x'));
  std::filesystem::remove(file());
  send(transfer_, std::string(1000, 'x'));
  expectFailed(false);
}

// The bytes land in an orphaned inode: the transfer must fail rather than
// finish as a file that is not on disk.
TEST_F(TransferFaultTest, FileUnlinkedInTheMiddleOfAChunk) {
  transfer_ = request();
  answer(transfer_, 200, {{"Content-Length", "3000"}});
  files_->beforeWrite = [this](int) { std::filesystem::remove(file()); };
  send(transfer_, std::string(3000, 'x'));
  expectFailed(false);
}

TEST_F(ZVResourceLoaderTest, AFileOfExactlyTheCacheSizeStillFits) {
  auto transfer = request();
  client_->respond(transfer, 200, {{"Content-Length", std::to_string(TS_MAX_CACHE_SIZE)}});
  for (int i = 0; i < 40; ++i) client_->send(transfer, std::string(1024 * 1024, 'x'));
  client_->complete(transfer);
  runtime_->runUntilIdle();
  EXPECT_EQ(lastEvent(), "finish " + name());
  EXPECT_EQ(std::filesystem::file_size(file()), static_cast<std::uintmax_t>(TS_MAX_CACHE_SIZE));
}

TEST_F(ZVResourceLoaderTest, LoadWhileBusyIsIgnoredAndACancelledCompletionIsNot) {
  auto loader = manager()->loader();
  auto transfer = request();
  ASSERT_TRUE(loader->isBusy());
  loader->load(std::make_shared<ZVFileStatusEntity>(std::make_shared<ZVFileInfoStatus>(
      "b.png", (cache() / "b.png").string(), "https://x/b.png")));
  EXPECT_EQ(client_->transfers().size(), 1u);
  loader->cancel();
  EXPECT_FALSE(loader->isBusy());
  EXPECT_TRUE(transfer->cancelled);
  client_->complete(transfer);
  runtime_->runUntilIdle();
  EXPECT_TRUE(listener_->events.empty());
}

TEST(ContentRange, ParsesTheFirstNumberAndTheTotal) {
  using L = ZVResourceLoader;
  EXPECT_EQ(L::parseRange("bytes 1000-4999/5000"), 1000);
  EXPECT_EQ(L::parseRange("bytes=0-1/2"), 0);
  EXPECT_EQ(L::parseRange("x12y34"), 12);
  EXPECT_EQ(L::parseRange("bytes */5000"), 5000);
  EXPECT_EQ(L::parseRange("bytes"), -1);
  EXPECT_EQ(L::parseRange(""), -1);
  EXPECT_EQ(L::parseRange(std::nullopt), -1);
  EXPECT_EQ(L::parseRange("bytes 99999999999999999999999-1/2"), INT32_MAX);

  EXPECT_EQ(L::parseRangeForSize("bytes 1000-4999/5000"), 5000);
  EXPECT_EQ(L::parseRangeForSize("bytes 0-99/*"), 0);
  EXPECT_EQ(L::parseRangeForSize("a/b/ 42"), 42);
  EXPECT_EQ(L::parseRangeForSize("bytes 0-99/"), -1);
  EXPECT_EQ(L::parseRangeForSize("bytes 0-99"), -1);
  EXPECT_EQ(L::parseRangeForSize(std::nullopt), -1);

  EXPECT_EQ(L::integerValue("  -12abc"), -12);
  EXPECT_EQ(L::integerValue("+7"), 7);
  EXPECT_EQ(L::integerValue("abc"), 0);
  EXPECT_EQ(L::integerValue("99999999999999999999999"), INT64_MAX);

  // The full size of a resumed download: offset plus length, saturated.
  EXPECT_EQ(L::rangeFullSize(500, "500"), 1000);
  EXPECT_EQ(L::rangeFullSize(500, "99999999999999999999999"), INT32_MAX);
  EXPECT_EQ(L::rangeFullSize(INT32_MAX, "99999999999999999999999"), INT32_MAX);
  EXPECT_EQ(L::rangeFullSize(500, "-99999999999999999999999"), INT32_MIN + 500);
}

}  // namespace
}  // namespace zivora::test
