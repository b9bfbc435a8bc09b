#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "CertificateAuthority.h"
#include "FileResponder.h"
#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/TempDir.h"

namespace zivora::sandbox {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using platform::CurlHttpClient;
using platform::HttpRequest;
using platform::HttpResponse;

constexpr const char* kInitialization = R"({"getInitialization":{"appId":"app-1"}})";

class SandboxServerIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(files_.path() / "video.mp4", std::ios::binary) << fileContent_;
    server_.start();
  }

  platform::HttpClientOptions options(std::chrono::milliseconds lowSpeedTime = 1s) const {
    platform::HttpClientOptions options;
    options.caFile = server_.caFile();
    options.connectTimeout = 2s;
    options.lowSpeedTime = lowSpeedTime;
    return options;
  }

  HttpResponse send(const HttpRequest& request) {
    return CurlHttpClient(options()).perform(request);
  }

  HttpResponse postBody(std::string body) {
    HttpRequest request;
    request.url = server_.adEndpoint();
    request.body = std::move(body);
    return send(request);
  }

  HttpResponse post(const std::string& params = kInitialization) {
    return send(test::signedPost(server_.adEndpoint(), params));
  }

  HttpResponse control(const std::string& method, const std::string& pathAndQuery) {
    HttpRequest request;
    request.method = method;
    request.url = server_.baseUrl() + pathAndQuery;
    return send(request);
  }

  HttpResponse getFile(const std::string& name, const std::string& range = "") {
    HttpRequest request;
    request.method = "GET";
    request.url = server_.fileUrl(name);
    if (!range.empty()) request.headers = {{"Range", range}};
    return send(request);
  }

  test::TempDir files_;
  const std::string fileContent_ = std::string(3000, 'a') + std::string(3000, 'b');
  SandboxServer server_{
      {.certDirectory = test::sandboxCertDirectory(), .filesDirectory = files_.path()}};
};

TEST_F(SandboxServerIntegrationTest, RefusesWhatItCannotTrust) {
  struct Case {
    std::string body;
    const char* why;
  };
  const std::string params = R"({"getInitialization":{"appId":"a&b"}})";
  const Case cases[] = {
      {"Params=" + std::string(kInitialization) + "&md5=0123", "wrong md5"},
      // A raw '&' splits the value the way any form decoder would.
      {test::signedBody(params), "unencoded ampersand"},
      {test::signedBody("not json"), "not JSON"},
      {test::signedBody(R"({"a":{},"b":{}})"), "two requests"},
      {test::signedBody(R"({"getNothing":{}})"), "unknown request"},
  };
  for (const Case& refused : cases) {
    const HttpResponse response = postBody(refused.body);
    ASSERT_EQ(response.status, 200) << refused.why;
    EXPECT_EQ(json::parse(response.body).at("error"), 1) << refused.why;
  }
  const auto received = server_.received();
  EXPECT_FALSE(received[0].md5Valid);
  EXPECT_FALSE(received[1].md5Valid);
  EXPECT_TRUE(received[4].md5Valid);
  EXPECT_EQ(received[4].requestName, "getNothing");
}

TEST_F(SandboxServerIntegrationTest, PlusIsALiteralPlusAndEscapesAreDecoded) {
  const HttpResponse response = post(R"({"getInitialization":{"appId":"a+b%2Bc%26d"}})");
  ASSERT_EQ(response.status, 200);
  EXPECT_FALSE(json::parse(response.body).contains("error"));
  const auto received = server_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].md5Valid);
  EXPECT_EQ(received[0].params, R"({"getInitialization":{"appId":"a+b+c&d"}})");
}

TEST_F(SandboxServerIntegrationTest, MisbehavesForExactlyTheAskedNumberOfRequests) {
  ASSERT_EQ(control("POST", "/control/misbehave?kind=http-error&count=2").status, 200);
  server_.misbehave(Misbehaviour::Kind::ErrorReply, 1, 9);
  EXPECT_EQ(post().status, 500);
  EXPECT_EQ(post().status, 500);
  EXPECT_EQ(post().body, R"({"error":9})");
  EXPECT_FALSE(json::parse(post().body).contains("error"));

  EXPECT_EQ(control("POST", "/control/misbehave?kind=nonsense").status, 400);
}

TEST_F(SandboxServerIntegrationTest, ReportsWhatItReceivedOverHttp) {
  post();
  const HttpResponse listed = control("GET", "/control/received");
  ASSERT_EQ(listed.status, 200);
  const json list = json::parse(listed.body);
  ASSERT_EQ(list.size(), 1u);  // control requests are not recorded
  EXPECT_EQ(list[0].at("requestName"), "getInitialization");
  EXPECT_EQ(list[0].at("md5Valid"), true);
  EXPECT_EQ(list[0].at("headers").at("Content-Type"), "application/x-www-form-urlencoded");

  control("POST", "/control/clear");
  EXPECT_TRUE(server_.received().empty());
}

TEST_F(SandboxServerIntegrationTest, AStalledRequestAnswersWhenReleasedAndEndsWhenStopped) {
  for (const bool release : {true, false}) {
    server_.misbehave(Misbehaviour::Kind::Stall);
    HttpResponse response;
    std::thread client([&] {
      response = CurlHttpClient(options(30s))
                     .perform(test::signedPost(server_.adEndpoint(), kInitialization));
    });
    ASSERT_TRUE(server_.waitForReceived(1, 10s));
    if (release) {
      control("POST", "/control/release");
    } else {
      server_.stop();
    }
    client.join();
    EXPECT_EQ(response.status == 200, release) << response.error;
    server_.clearReceived();
  }
}

TEST_F(SandboxServerIntegrationTest, ServesFilesWithByteRanges) {
  const HttpResponse whole = getFile("video.mp4");
  EXPECT_EQ(whole.status, 200);
  EXPECT_EQ(whole.body, fileContent_);

  const HttpResponse tail = getFile("video.mp4", "bytes=2990-");
  EXPECT_EQ(tail.status, 206);
  EXPECT_EQ(tail.body, fileContent_.substr(2990));

  const HttpResponse middle = getFile("video.mp4", "bytes=2999-3000");
  EXPECT_EQ(middle.status, 206);
  EXPECT_EQ(middle.body, "ab");

  EXPECT_EQ(getFile("video.mp4", "bytes=6000-").status, 416);
  EXPECT_EQ(getFile("video.mp4", "bytes=5999-").body, "b");
  EXPECT_EQ(server_.received().back().header("Range"), "bytes=5999-");
}

TEST_F(SandboxServerIntegrationTest, ServesOnlyPlainNamesFromItsDirectory) {
  std::ofstream(files_.path().parent_path() / "outside.txt") << "secret";
  EXPECT_EQ(getFile("missing.mp4").status, 404);
  EXPECT_EQ(getFile("..%2Foutside.txt").status, 404);
  EXPECT_EQ(getFile("%2E%2E").status, 404);
  EXPECT_FALSE(FileResponder::isPlainName("a/b"));
  std::filesystem::remove(files_.path().parent_path() / "outside.txt");
}

TEST(CertificateAuthorityIntegrationTest, ConcurrentStartersAgreeOnOneSetAndKeepIt) {
  test::TempDir directory;
  std::vector<std::thread> starters;
  for (int i = 0; i < 4; ++i) {
    starters.emplace_back([&] { CertificateAuthority::ensure(directory.path() / "certs"); });
  }
  for (auto& starter : starters) starter.join();

  const auto paths = CertificateAuthority::pathsIn(directory.path() / "certs");
  const auto written = std::filesystem::last_write_time(paths.caFile);
  CertificateAuthority::ensure(directory.path() / "certs");
  EXPECT_EQ(std::filesystem::last_write_time(paths.caFile), written);
  EXPECT_EQ(
      std::filesystem::status(paths.serverKey).permissions() & std::filesystem::perms::others_read,
      std::filesystem::perms::none);

  // The server certificate chains to the CA on disk, whichever starter won.
  SandboxServer server({.certDirectory = directory.path() / "certs"});
  server.start();
  platform::HttpClientOptions options;
  options.caFile = server.caFile();
  EXPECT_EQ(CurlHttpClient(options)
                .perform(test::signedPost(server.adEndpoint(), kInitialization))
                .status,
            200);
}

}  // namespace
}  // namespace zivora::sandbox
