// The ranged downloader against a scripted server on virtual time.
#include <gtest/gtest.h>

#include "resources/ResourceFixture.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVResourceLoader.h"
#include "util/ZVHash.h"
#include "zivora/ZVConstants.h"

namespace zivora::test {
namespace {

constexpr char kUrl[] = "https://cdn.example/ads/video.mp4";

class ZVResourceLoaderTest : public ResourceFixture {
 protected:
  std::string name() const { return ZVResourceManager::convertURLToFileName(kUrl); }
  std::filesystem::path file() const { return cache() / name(); }

  // Asks for the file and runs until the request is out.
  std::shared_ptr<FakeStreamingClient::Transfer> request() {
    manager()->loadURL(kUrl, listener_);
    runtime_->runUntilIdle();
    return client_->last();
  }
  void serve(const std::string& content, std::optional<std::size_t> stopAfter = std::nullopt) {
    client_->serve(client_->last(), content, 1000, stopAfter);
    runtime_->runUntilIdle();
  }
  std::string partialOf(const std::string& content, std::size_t size) {
    writeFile(file(), content.substr(0, size));
    return content;
  }

  std::shared_ptr<RecordingDownloadDelegate> listener_ =
      std::make_shared<RecordingDownloadDelegate>();
};

TEST_F(ZVResourceLoaderTest, DownloadsAWholeFileAndRecordsItAsComplete) {
  const std::string content = pattern(5000);
  auto transfer = request();
  ASSERT_TRUE(transfer);
  EXPECT_EQ(transfer->request.url, kUrl);
  EXPECT_FALSE(transfer->header("Range"));
  serve(content);

  EXPECT_EQ(readFile(file()), content);
  EXPECT_EQ(listener_->events, (std::vector<std::string>{"start " + name(), "finish " + name()}));
  EXPECT_EQ(listener_->received, 5000);
  EXPECT_TRUE(manager()->isLoaded(name()));
  EXPECT_EQ(manager()->fileSize(name()), 5000);
  EXPECT_TRUE(manager()->getLoadInfo(name())->isReady());
  EXPECT_TRUE(scope_.log().contains("[ZVResourceLoader] Start load file: " + name()));
}

TEST_F(ZVResourceLoaderTest, AnEmptyPartialFileIsAskedForWithoutARange) {
  writeFile(file(), "");
  EXPECT_FALSE(request()->header("Range"));
}

TEST_F(ZVResourceLoaderTest, ResumesAPartialFileFromItsSizeAndAppends) {
  const std::string content = partialOf(pattern(1000), 500);
  auto transfer = request();
  EXPECT_EQ(transfer->header("Range"), "bytes=500-");
  client_->respond(transfer, 206,
                   {{"content-range", "bytes 500-999/1000"}, {"CONTENT-LENGTH", "500"}});
  runtime_->runUntilIdle();
  auto info = manager()->getLoadInfo(name());
  EXPECT_EQ(info->loadedSize(), 500);
  EXPECT_EQ(info->fullSize(), 1000);
  client_->send(transfer, content.substr(500));
  client_->complete(transfer);
  runtime_->runUntilIdle();

  EXPECT_EQ(readFile(file()), content);
  // No start is sent on a resumed download.
  EXPECT_EQ(listener_->events, (std::vector<std::string>{"finish " + name()}));
  EXPECT_TRUE(manager()->isLoaded(name()));
}

TEST_F(ZVResourceLoaderTest, AnUnusablePartialAnswerRestartsTheWholeFile) {
  struct Case {
    const char* why;
    std::vector<std::pair<std::string, std::string>> headers;
  };
  for (const Case& bad : std::vector<Case>{
           {"no Content-Range", {{"Content-Length", "500"}}},
           {"unparsable", {{"Content-Range", "bytes */*"}, {"Content-Length", "500"}}},
           {"offset past the local size", {{"Content-Range", "bytes 700-999/1000"}}},
           {"unknown total", {{"Content-Range", "bytes 500-599/*"}}},
       }) {
    SCOPED_TRACE(bad.why);
    const std::string content = partialOf(pattern(1000), 500);
    auto first = request();
    client_->respond(first, 206, bad.headers);
    runtime_->runUntilIdle();
    EXPECT_TRUE(first->cancelled);
    EXPECT_FALSE(std::filesystem::exists(file()));
    auto restart = client_->last();
    ASSERT_NE(restart, first);
    EXPECT_FALSE(restart->header("Range"));
    // The cancelled answer's completion belongs to a superseded transfer.
    client_->complete(first, "cancelled");
    serve(content);
    EXPECT_EQ(readFile(file()), content);
    EXPECT_EQ(listener_->events.back(), "finish " + name());
    manager()->removeFile(name());
  }
  EXPECT_TRUE(scope_.log().contains(
      "[ZVResourceLoader][validateRange] Warning! Hasn't header Content-Range"));
  EXPECT_TRUE(scope_.log().contains(
      "[ZVResourceLoader][validateRange] Received offset bigger then file size."));
}

TEST_F(ZVResourceLoaderTest, RangeNotSatisfiableRestartsFromZeroAndGivesUpAfterThreeRestarts) {
  const std::string content = partialOf(pattern(1000), 1000);
  for (int restart = 0; restart <= ZVResourceLoader::kMaxRestartsWithoutBody; ++restart) {
    auto transfer = client_->transfers().empty() ? request() : client_->last();
    client_->respond(transfer, 416, {{"Content-Range", "bytes */1000"}});
    client_->complete(transfer);
    runtime_->runUntilIdle();
  }
  EXPECT_EQ(client_->transfers().size(), 4u);
  EXPECT_FALSE(client_->transfers()[1]->header("Range"));
  EXPECT_EQ(listener_->events, (std::vector<std::string>{"error " + name() + " 1"}));
  EXPECT_FALSE(manager()->loader()->isBusy());
}

TEST_F(ZVResourceLoaderTest, AWholeFileAnswerToARangedRequestEmptiesThePartialFile) {
  writeFile(file(), "stale bytes");
  const std::string content = pattern(3000);
  auto transfer = request();
  EXPECT_EQ(transfer->header("Range"), "bytes=11-");
  client_->respond(transfer, 200, {{"Content-Length", "3000"}});
  runtime_->runUntilIdle();
  EXPECT_EQ(std::filesystem::file_size(file()), 0u);
  EXPECT_EQ(manager()->getLoadInfo(name())->fullSize(), 3000);
  client_->send(transfer, content);
  client_->complete(transfer);
  runtime_->runUntilIdle();
  EXPECT_EQ(readFile(file()), content);
}

TEST_F(ZVResourceLoaderTest, OtherStatusesAndTransportErrorsFailWithCodeOneAndKeepThePartialFile) {
  auto transfer = request();
  client_->respond(transfer, 404, {{"Content-Length", "9"}});
  client_->send(transfer, "not found");
  client_->complete(transfer);
  runtime_->runUntilIdle();
  EXPECT_EQ(listener_->events, (std::vector<std::string>{"error " + name() + " 1"}));
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_TRUE(scope_.log().contains("Error download file: " + name()));

  // Cut mid-body, then resumed to the end.
  const std::string content = pattern(10000);
  request();
  serve(content, 4000);
  EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
  EXPECT_EQ(readFile(file()), content.substr(0, 4000));
  EXPECT_EQ(request()->header("Range"), "bytes=4000-");
  serve(content);
  EXPECT_EQ(ZVHash::md5Hex(readFile(file())), ZVHash::md5Hex(content));
  EXPECT_TRUE(manager()->isLoaded(name()));
}

TEST_F(ZVResourceLoaderTest, FreeSpaceAtOrBelowTheReserveFailsWithCodeTwoBeforeAnyRequest) {
  files_->freeBytes = 31457280;
  EXPECT_FALSE(manager()->hasFreeSpace());
  request();
  EXPECT_TRUE(client_->transfers().empty());
  EXPECT_EQ(listener_->events, (std::vector<std::string>{"error " + name() + " 2"}));

  files_->freeBytes = 31457281;
  EXPECT_TRUE(manager()->hasFreeSpace());
  EXPECT_TRUE(request());
}

TEST_F(ZVResourceLoaderTest, AnUnreadableFileSystemCountsAsRoomAndAThrowAsNone) {
  files_->spaceMode = FakeFileSystem::Space::Unreadable;
  EXPECT_EQ(manager()->getFreeDiskspace(), 314572800u);
  EXPECT_TRUE(manager()->hasFreeSpace());
  EXPECT_TRUE(scope_.log().contains(
      "[ZVResourceManager][getFreeDiskspace]Error Obtaining System Memory Info: Domain = POSIX, "
      "Code = 13"));

  files_->spaceMode = FakeFileSystem::Space::Throws;
  EXPECT_EQ(manager()->getFreeDiskspace(), 31457280u);
  EXPECT_FALSE(manager()->hasFreeSpace());
  ASSERT_FALSE(scope_.analytics().exceptions().empty());
  EXPECT_EQ(scope_.analytics().exceptions().back().method, "getFreeDiskspace");
}

TEST_F(ZVResourceLoaderTest, SpaceRunningOutDuringALongTransferFailsIt) {
  const std::string content = pattern(6 * 1024 * 1024);
  auto transfer = request();
  client_->respond(transfer, 200, {{"Content-Length", std::to_string(content.size())}});
  runtime_->runUntilIdle();
  files_->freeBytes = 1024;
  client_->send(transfer, content);
  runtime_->runUntilIdle();
  EXPECT_TRUE(transfer->cancelled);
  EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
}

// A file larger than the whole cache can never be cached, whatever the
// server says: an announced size above the cache fails before a byte is
// written, and a body without a size (or with a false one) stops at the
// cache size. Each ends with code 1 and no partial file.
TEST_F(ZVResourceLoaderTest, AFileLargerThanTheCacheFailsWithCodeOneAndLeavesNoPartialFile) {
  const std::string tooLarge = std::to_string(TS_MAX_CACHE_SIZE + 1);
  const std::string mebibyte(1024 * 1024, 'x');
  auto expectFailedWithoutFile = [&](const std::shared_ptr<FakeStreamingClient::Transfer>& t) {
    EXPECT_TRUE(t->cancelled);
    EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
    EXPECT_FALSE(std::filesystem::exists(file()));
    EXPECT_FALSE(manager()->loader()->isBusy());
  };
  auto sendEndlessly = [&](const std::shared_ptr<FakeStreamingClient::Transfer>& t) {
    for (int i = 0; i < 64 && !t->cancelled; ++i) {
      client_->send(t, mebibyte);
      runtime_->runUntilIdle();
    }
  };
  {
    SCOPED_TRACE("Content-Length above the cache");
    auto transfer = request();
    client_->respond(transfer, 200, {{"Content-Length", tooLarge}});
    runtime_->runUntilIdle();
    expectFailedWithoutFile(transfer);
  }
  {
    SCOPED_TRACE("a resumed range whose total is above the cache");
    partialOf(pattern(1000), 500);
    auto transfer = request();
    client_->respond(transfer, 206,
                     {{"Content-Range", "bytes 500-*/*"}, {"Content-Length", tooLarge}});
    runtime_->runUntilIdle();
    expectFailedWithoutFile(transfer);
  }
  for (const char* length : {"", "1000"}) {
    SCOPED_TRACE(std::string("an endless body, Content-Length \"") + length + "\"");
    auto transfer = request();
    std::vector<std::pair<std::string, std::string>> headers;
    if (*length) headers.emplace_back("Content-Length", length);
    client_->respond(transfer, 200, headers);
    sendEndlessly(transfer);
    expectFailedWithoutFile(transfer);
  }
  {
    SCOPED_TRACE("exactly the cache size still fits");
    auto transfer = request();
    client_->respond(transfer, 200, {{"Content-Length", std::to_string(TS_MAX_CACHE_SIZE)}});
    for (int i = 0; i < 40; ++i) client_->send(transfer, mebibyte);
    client_->complete(transfer);
    runtime_->runUntilIdle();
    EXPECT_FALSE(transfer->cancelled);
    EXPECT_EQ(listener_->events.back(), "finish " + name());
    EXPECT_EQ(std::filesystem::file_size(file()), static_cast<std::uintmax_t>(TS_MAX_CACHE_SIZE));
  }
}

// The disk fills half way through the third chunk: the bytes that made it
// stay as the resume point, and the next request asks for the rest.
TEST_F(ZVResourceLoaderTest, ADiskFullMidChunkFailsWithCodeOneAndLeavesAResumablePrefix) {
  const std::string content = pattern(5000);
  files_->diskFullAfter = 2500;
  request();
  serve(content);
  EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
  EXPECT_EQ(readFile(file()), content.substr(0, 2500));
  ASSERT_FALSE(scope_.analytics().exceptions().empty());
  EXPECT_EQ(scope_.analytics().exceptions().back().method, "didReceiveData2");

  files_->diskFullAfter.reset();
  EXPECT_EQ(request()->header("Range"), "bytes=2500-");
  serve(content);
  EXPECT_EQ(readFile(file()), content);
}

TEST_F(ZVResourceLoaderTest, ShortWritesAreContinuedAndLoseNoBytes) {
  const std::string content = pattern(5000);
  files_->shortWrites(333);
  request();
  serve(content);
  EXPECT_EQ(listener_->events.back(), "finish " + name());
  EXPECT_EQ(readFile(file()), content);
}

TEST_F(ZVResourceLoaderTest, AFileRemovedUnderTheTransferEndsItWithCodeOne) {
  writeFile(cache() / "other.png", "keep me");
  auto transfer = request();
  client_->respond(transfer, 200, {{"Content-Length", "3000"}});
  client_->send(transfer, pattern(1000));
  runtime_->runUntilIdle();
  std::filesystem::remove(file());
  client_->send(transfer, pattern(1000));
  runtime_->runUntilIdle();
  EXPECT_TRUE(transfer->cancelled);
  EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
  EXPECT_EQ(readFile(cache() / "other.png"), "keep me");
}

// The name goes while a chunk is being written: the bytes land in an
// orphaned inode, and the transfer must fail rather than finish as a file
// that is not on disk.
TEST_F(ZVResourceLoaderTest, AFileUnlinkedInTheMiddleOfAChunkFailsWithCodeOneAndIsNotLoaded) {
  auto transfer = request();
  client_->respond(transfer, 200, {{"Content-Length", "3000"}});
  bool unlinked = false;
  files_->beforeWrite = [&](int) {
    if (!unlinked) unlinked = std::filesystem::remove(file());
  };
  client_->send(transfer, pattern(3000));
  runtime_->runUntilIdle();
  EXPECT_TRUE(unlinked);
  EXPECT_TRUE(transfer->cancelled);
  EXPECT_EQ(listener_->events.back(), "error " + name() + " 1");
  EXPECT_FALSE(manager()->isLoaded(name()));
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
