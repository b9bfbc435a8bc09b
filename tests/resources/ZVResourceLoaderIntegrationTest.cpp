// Real downloads with libcurl: resumes, restarts and failures against the
// sandbox's misbehaving file server, and plain ranged serving by nginx.
#include <gtest/gtest.h>

#include <chrono>

#include "SandboxServer.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "resources/ZVResourceManager.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/ScopedContext.h"
#include "support/WaitingDownloadDelegate.h"

namespace zivora::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Kind = sandbox::FileMisbehaviour::Kind;

constexpr auto kLowSpeedTime = 1s;

// Three and a bit MiB of noise: several chunks, nothing that compresses.
const std::string& source() {
  static const std::string text = [] {
    std::string bytes(3 * 1024 * 1024 + 123, '\0');
    std::uint32_t state = 12345;
    for (auto& c : bytes) c = static_cast<char>((state = state * 1103515245u + 12345u) >> 24);
    return bytes;
  }();
  return text;
}

// A data root on real threads with libcurl, downloading from `served`.
class Downloads {
 public:
  explicit Downloads(platform::StreamingClientOptions options) {
    auto runtime = std::make_shared<dispatch::ThreadRuntime>();
    scope_.emplace(HostOptions{.dataRoot = root_.path().string()},
                   RuntimeOptions{.runtime = runtime,
                                  .downloads = std::make_shared<platform::CurlStreamingClient>(
                                      std::move(options), runtime)});
  }
  void start(const std::string& url) {
    ZVResourceManager::defaultManager()->loadURL(url, listener_);
  }
  std::optional<std::int32_t> download(const std::string& url) {
    start(url);
    return listener_->wait(20s);
  }
  WaitingDownloadDelegate& listener() { return *listener_; }
  fs::path fileFor(const std::string& url) const {
    return root_.path() / "Caches" / "Zivora" / ZVResourceManager::convertURLToFileName(url);
  }
  bool holdsTheSource(const std::string& url) const { return readFile(fileFor(url)) == source(); }

 private:
  TempDir root_;
  std::optional<ScopedContext> scope_;
  std::shared_ptr<WaitingDownloadDelegate> listener_ = std::make_shared<WaitingDownloadDelegate>();
};

class DownloadIntegrationTest : public ::testing::Test {
 protected:
  DownloadIntegrationTest() {
    writeFile(served_.path() / "video.mp4", source());
    server_.start();
    url_ = server_.fileUrl("video.mp4");
    sdk_.emplace(platform::StreamingClientOptions{
        .caFile = server_.caFile(), .connectTimeout = 2s, .lowSpeedTime = kLowSpeedTime});
  }
  // The Range header of each request the server saw, "-" for none.
  std::vector<std::string> ranges() const {
    std::vector<std::string> seen;
    for (const auto& request : server_.received()) {
      const std::string range = request.header("Range");
      seen.push_back(range.empty() ? "-" : range);
    }
    return seen;
  }

  TempDir served_;
  sandbox::SandboxServer server_{
      {.certDirectory = sandboxCertDirectory(), .filesDirectory = served_.path()}};
  std::string url_;
  std::optional<Downloads> sdk_;
};

TEST_F(DownloadIntegrationTest, ADownloadCutAtSeveralPointsResumesToAnIdenticalFile) {
  for (std::size_t cut : {std::size_t{1}, std::size_t{65536}, std::size_t{1000000}}) {
    server_.misbehaveFiles({.kind = Kind::CutAfter, .bytes = cut});
    EXPECT_EQ(sdk_->download(url_), 1);
  }
  EXPECT_EQ(sdk_->download(url_), 0);
  EXPECT_TRUE(sdk_->holdsTheSource(url_));
  EXPECT_EQ(ranges(),
            (std::vector<std::string>{"-", "bytes=1-", "bytes=65537-", "bytes=1065537-"}));
}

TEST_F(DownloadIntegrationTest, BadPartialAnswersRestartTheFileFromTheStart) {
  for (Kind kind : {Kind::BadContentRange, Kind::RangeNotSatisfiable, Kind::IgnoreRange}) {
    SCOPED_TRACE(static_cast<int>(kind));
    server_.clearReceived();
    server_.misbehaveFiles({.kind = Kind::CutAfter, .bytes = 5000});
    EXPECT_EQ(sdk_->download(url_), 1);
    server_.misbehaveFiles({.kind = kind});
    EXPECT_EQ(sdk_->download(url_), 0);
    EXPECT_TRUE(sdk_->holdsTheSource(url_));
    const auto seen = ranges();
    EXPECT_EQ(seen.at(1), "bytes=5000-");
    // A 200 is taken as the whole file; the others are asked for again.
    EXPECT_TRUE(kind == Kind::IgnoreRange || seen.at(2) == "-");
    ZVResourceManager::defaultManager()->removeFile(sdk_->fileFor(url_).filename());
  }
}

TEST_F(DownloadIntegrationTest, AStalledServerFailsWithinTheLowSpeedTimeAndANotFoundFails) {
  server_.misbehaveFiles({.kind = Kind::StallAfter, .bytes = 100000});
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(sdk_->download(url_), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - started, kLowSpeedTime + 3s);
  server_.releaseStalled();
  EXPECT_EQ(fs::file_size(sdk_->fileFor(url_)), 100000u);

  server_.misbehaveFiles({.kind = Kind::NotFound});
  EXPECT_EQ(sdk_->download(url_), 1);
  EXPECT_EQ(fs::file_size(sdk_->fileFor(url_)), 100000u);
  EXPECT_EQ(sdk_->download(server_.fileUrl("missing.mp4")), 1);
  EXPECT_FALSE(fs::exists(sdk_->fileFor(server_.fileUrl("missing.mp4"))));
}

// The client gathers the body into large pieces; whatever has arrived when
// the server pauses must still reach the file at once, not wait for bytes
// that have not come yet (a player reading the partial file waits for it).
TEST_F(DownloadIntegrationTest, BytesBeforeAPauseReachTheFileWhileTheTransferWaits) {
  sdk_.reset();
  Downloads& patient = sdk_.emplace(platform::StreamingClientOptions{
      .caFile = server_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 60s});
  for (std::size_t pause : {std::size_t{1000}, std::size_t{300000}}) {
    SCOPED_TRACE(pause);
    server_.misbehaveFiles({.kind = Kind::StallAfter, .bytes = pause});
    patient.start(url_);
    EXPECT_TRUE(patient.listener().waitForBytes(static_cast<std::int64_t>(pause), 20s));
    EXPECT_EQ(fs::file_size(patient.fileFor(url_)), pause);
    server_.releaseStalled();
    EXPECT_EQ(patient.listener().wait(20s), 0);
    EXPECT_TRUE(patient.holdsTheSource(url_));
    ZVResourceManager::defaultManager()->removeFile(patient.fileFor(url_).filename());
  }
}

TEST(NginxDownloadIntegrationTest, ResumesAPartialFileAndReusesTheConnection) {
  TempDir served;
  writeFile(served.path() / "clip.mp4", source());
  NginxServer nginx(served.path());
  Downloads sdk({});
  // A partial file left by an earlier run is completed with a ranged request.
  writeFile(sdk.fileFor(nginx.url("clip.mp4")), source().substr(0, 777777));
  EXPECT_EQ(sdk.download(nginx.url("clip.mp4")), 0);
  EXPECT_TRUE(sdk.holdsTheSource(nginx.url("clip.mp4")));
  EXPECT_EQ(sdk.download(nginx.url("absent.mp4")), 1);
  EXPECT_EQ(nginx.connectionsUsed(), 1u) << "the second download reuses the open connection";
}

}  // namespace
}  // namespace zivora::test
