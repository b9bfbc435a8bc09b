// Real downloads with libcurl: resumes, restarts and failures against the
// sandbox's misbehaving file server, and plain ranged serving by nginx.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "SandboxServer.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "resources/ZVResourceManager.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/WaitingDownloadDelegate.h"
#include "util/ZVHash.h"

namespace zivora::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using sandbox::FileMisbehaviour;
using Kind = FileMisbehaviour::Kind;

constexpr std::size_t kFileSize = 3 * 1024 * 1024 + 123;
constexpr auto kLowSpeedTime = 1s;

std::string content() {
  std::string text(kFileSize, '\0');
  std::uint32_t state = 12345;
  for (auto& c : text) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>(state >> 24);
  }
  return text;
}

class DownloadIntegrationTest : public ::testing::Test {
 protected:
  DownloadIntegrationTest() {
    std::ofstream(served_.path() / "video.mp4", std::ios::binary) << source_;
    server_.start();
    auto runtime = std::make_shared<dispatch::ThreadRuntime>();
    auto client = std::make_shared<platform::CurlStreamingClient>(
        platform::StreamingClientOptions{
            .caFile = server_.caFile(), .connectTimeout = 2s, .lowSpeedTime = kLowSpeedTime},
        runtime);
    scope_ =
        std::make_unique<ScopedContext>(HostOptions{.dataRoot = root_.path().string()},
                                        RuntimeOptions{.runtime = runtime, .downloads = client});
  }
  ~DownloadIntegrationTest() override {
    if (HasFailure()) {
      for (const auto& line : scope_->log().texts())
        std::fprintf(stderr, "log: %s\n", line.c_str());
      for (const auto& range : ranges()) std::fprintf(stderr, "range: %s\n", range.c_str());
    }
    scope_.reset();
    server_.stop();
  }

  std::optional<std::int32_t> download(const std::string& url) {
    ZVResourceManager::defaultManager()->loadURL(url, listener_);
    return listener_->wait(20s);
  }
  fs::path fileFor(const std::string& url) const {
    return root_.path() / "Caches" / "Zivora" / ZVResourceManager::convertURLToFileName(url);
  }
  std::vector<std::string> ranges() const {
    std::vector<std::string> seen;
    for (const auto& request : server_.received()) {
      std::string range = "-";
      for (const auto& [name, value] : request.headers) {
        if (name == "Range") range = value;
      }
      seen.push_back(range);
    }
    return seen;
  }

  const std::string source_ = content();
  TempDir root_;
  TempDir served_;
  sandbox::SandboxServer server_{
      {.certDirectory = sandboxCertDirectory(), .filesDirectory = served_.path()}};
  std::unique_ptr<ScopedContext> scope_;
  std::shared_ptr<WaitingDownloadDelegate> listener_ = std::make_shared<WaitingDownloadDelegate>();
};

TEST_F(DownloadIntegrationTest, ADownloadCutAtSeveralPointsResumesToAnIdenticalFile) {
  const std::string url = server_.fileUrl("video.mp4");
  for (std::size_t cut : {std::size_t{1}, std::size_t{65536}, std::size_t{1000000}}) {
    server_.misbehaveFiles({.kind = Kind::CutAfter, .bytes = cut});
    EXPECT_EQ(download(url), 1);
  }
  EXPECT_EQ(download(url), 0);
  EXPECT_EQ(ZVHash::md5Hex(test::readFile(fileFor(url))), ZVHash::md5Hex(source_));
  const auto seen = ranges();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0], "-");
  EXPECT_EQ(seen[1], "bytes=1-");
  EXPECT_EQ(seen[2], "bytes=65537-");
  EXPECT_EQ(seen[3], "bytes=1065537-");
  EXPECT_TRUE(
      ZVResourceManager::defaultManager()->isLoaded(ZVResourceManager::convertURLToFileName(url)));
}

TEST_F(DownloadIntegrationTest, BadPartialAnswersRestartTheFileFromTheStart) {
  const std::string url = server_.fileUrl("video.mp4");
  for (Kind kind : {Kind::BadContentRange, Kind::RangeNotSatisfiable, Kind::IgnoreRange}) {
    SCOPED_TRACE(static_cast<int>(kind));
    server_.clearReceived();
    server_.misbehaveFiles({.kind = Kind::CutAfter, .bytes = 5000});
    EXPECT_EQ(download(url), 1);
    server_.misbehaveFiles({.kind = kind});
    EXPECT_EQ(download(url), 0);
    EXPECT_EQ(ZVHash::md5Hex(test::readFile(fileFor(url))), ZVHash::md5Hex(source_));
    const auto seen = ranges();
    EXPECT_EQ(seen.at(1), "bytes=5000-");
    // A 200 is taken as the whole file; the others are asked for again.
    if (kind != Kind::IgnoreRange) {
      EXPECT_EQ(seen.at(2), "-");
    }
    ZVResourceManager::defaultManager()->removeFile(ZVResourceManager::convertURLToFileName(url));
  }
}

TEST_F(DownloadIntegrationTest, AStalledServerFailsWithinTheLowSpeedTimeAndANotFoundFails) {
  const std::string url = server_.fileUrl("video.mp4");
  server_.misbehaveFiles({.kind = Kind::StallAfter, .bytes = 100000});
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(download(url), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - started, kLowSpeedTime + 3s);
  server_.releaseStalled();
  EXPECT_EQ(fs::file_size(fileFor(url)), 100000u);

  server_.misbehaveFiles({.kind = Kind::NotFound});
  EXPECT_EQ(download(url), 1);
  EXPECT_EQ(fs::file_size(fileFor(url)), 100000u);
  EXPECT_EQ(download(server_.fileUrl("missing.mp4")), 1);
  EXPECT_FALSE(fs::exists(fileFor(server_.fileUrl("missing.mp4"))));
}

TEST(NginxDownloadIntegrationTest, DownloadsAndResumesFromNginx) {
  TempDir served, root;
  const std::string source = content();
  std::ofstream(served.path() / "clip.mp4", std::ios::binary) << source;
  NginxServer nginx(served.path());
  auto runtime = std::make_shared<dispatch::ThreadRuntime>();
  auto client =
      std::make_shared<platform::CurlStreamingClient>(platform::StreamingClientOptions{}, runtime);
  ScopedContext scope({.dataRoot = root.path().string()},
                      {.runtime = runtime, .downloads = client});
  auto listener = std::make_shared<WaitingDownloadDelegate>();
  auto manager = ZVResourceManager::defaultManager();
  const std::string url = nginx.url("clip.mp4");
  const fs::path file =
      root.path() / "Caches" / "Zivora" / ZVResourceManager::convertURLToFileName(url);

  // A partial file left by an earlier run is completed with a ranged request.
  std::ofstream(file, std::ios::binary) << source.substr(0, 777777);
  manager->loadURL(url, listener);
  EXPECT_EQ(listener->wait(20s), 0);
  EXPECT_EQ(ZVHash::md5Hex(test::readFile(file)), ZVHash::md5Hex(source));
  EXPECT_TRUE(manager->isLoaded(ZVResourceManager::convertURLToFileName(url)));

  manager->loadURL(nginx.url("absent.mp4"), listener);
  EXPECT_EQ(listener->wait(20s), 1);
  EXPECT_EQ(nginx.connectionsUsed(), 1u) << "the second download reuses the open connection";
}

}  // namespace
}  // namespace zivora::test
