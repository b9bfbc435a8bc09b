#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "CertificateAuthority.h"
#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/TempDir.h"

namespace zivora::platform {
namespace {

using namespace std::chrono_literals;
using sandbox::Misbehaviour;
using Kind = sandbox::Misbehaviour::Kind;

constexpr const char* kInitialization =
    R"({"getInitialization":{"appId":"app-1","deviceName":"Anna%27s%20Phone+2"}})";

class CurlHttpClientIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override { server_.start(); }

  HttpClientOptions options() const {
    HttpClientOptions options;
    options.caFile = server_.caFile();
    options.connectTimeout = 2s;
    options.lowSpeedTime = 1s;
    options.maxBodyBytes = 64 * 1024;
    return options;
  }

  HttpResponse post(const std::string& params = kInitialization) {
    return CurlHttpClient(options()).perform(test::signedPost(server_.adEndpoint(), params));
  }

  sandbox::SandboxServer server_{{.certDirectory = test::sandboxCertDirectory()}};
};

TEST_F(CurlHttpClientIntegrationTest, RoundTripOverVerifiedTlsArrivesByteForByte) {
  const HttpRequest request = test::signedPost(server_.adEndpoint(), kInitialization);
  const HttpResponse response = CurlHttpClient(options()).perform(request);

  ASSERT_EQ(response.status, 200) << response.error;
  const auto reply = nlohmann::json::parse(response.body);
  EXPECT_EQ(reply.at("closeButtonURL"), server_.fileUrl("close.png"));
  EXPECT_FALSE(reply.contains("error"));

  const auto received = server_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].body, request.body);
  EXPECT_TRUE(received[0].md5Valid);
  EXPECT_EQ(received[0].params,
            R"({"getInitialization":{"appId":"app-1","deviceName":"Anna's Phone+2"}})");
  EXPECT_EQ(received[0].header("Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(received[0].header("Content-Length"), std::to_string(request.body.size()));
  EXPECT_EQ(received[0].header("Expect"), "");
  EXPECT_EQ(received[0].header("Accept-Encoding"), "");

  // The certificate names localhost as well as the address.
  EXPECT_EQ(CurlHttpClient(options())
                .perform(test::signedPost(
                    "https://localhost:" + std::to_string(server_.port()) + "/HandleRequestV3.php",
                    kInitialization))
                .status,
            200);
}

TEST_F(CurlHttpClientIntegrationTest, AnUntrustedServerGetsNoRequest) {
  test::TempDir otherCa;
  HttpClientOptions wrongCa = options();
  wrongCa.caFile = sandbox::CertificateAuthority::ensure(otherCa.path()).caFile.string();
  HttpClientOptions systemStore = options();
  systemStore.caFile.clear();

  for (const HttpClientOptions& untrusting : {wrongCa, systemStore}) {
    const HttpResponse response =
        CurlHttpClient(untrusting).perform(test::signedPost(server_.adEndpoint(), kInitialization));
    EXPECT_EQ(response.status, 0);
    EXPECT_FALSE(response.error.empty());
  }
  EXPECT_TRUE(server_.received().empty());
}

// Complete replies arrive as they are, whatever they say; one cut short is
// no response at all.
TEST_F(CurlHttpClientIntegrationTest, CompleteRepliesArriveUnjudgedIncompleteOnesNot) {
  struct Case {
    Kind kind;
    long status;
    std::string body;
  };
  const Case cases[] = {
      {Kind::Garbage, 200, "<b>Warning</b>: this is not JSON {"},
      {Kind::EmptyBody, 200, ""},
      {Kind::JsonArray, 200, R"([{"error":0},1,"two"])"},
      {Kind::JsonScalar, 200, "42"},
      {Kind::ErrorReply, 200, R"({"error":7})"},
      {Kind::CloseMidBody, 0, ""},
  };
  for (const Case& expected : cases) {
    SCOPED_TRACE(Misbehaviour::nameOf(expected.kind));
    server_.misbehave(expected.kind, 1, 7);
    const HttpResponse response = post();
    EXPECT_EQ(response.status, expected.status);
    EXPECT_EQ(response.body, expected.body);
    EXPECT_TRUE(response.status != 0 || !response.error.empty());
  }
  server_.misbehave(Kind::HttpError);
  const HttpResponse failed = post();
  EXPECT_EQ(failed.status, 500);
  EXPECT_NE(failed.body.find("<html>"), std::string::npos);

  server_.misbehave(Kind::Stall);
  const auto started = std::chrono::steady_clock::now();
  const HttpResponse stalled = post();
  EXPECT_EQ(stalled.status, 0);
  EXPECT_FALSE(stalled.error.empty());
  // Given up by the 1 s inactivity limit, not by some longer timeout.
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

TEST_F(CurlHttpClientIntegrationTest, BodiesAreCappedAtExactlyTheLimit) {
  const std::string big = nlohmann::json{{"padding", std::string(5000, 'p')}}.dump();
  server_.setHandler("big", [&big](const nlohmann::json&) { return nlohmann::json::parse(big); });
  const auto request = test::signedPost(server_.adEndpoint(), R"({"big":{}})");

  HttpClientOptions exact = options();
  exact.maxBodyBytes = big.size();
  EXPECT_EQ(CurlHttpClient(exact).perform(request).body, big);

  HttpClientOptions smaller = options();
  smaller.maxBodyBytes = big.size() - 1;
  const HttpResponse capped = CurlHttpClient(smaller).perform(request);
  EXPECT_EQ(capped.status, 0);
  EXPECT_TRUE(capped.body.empty());
  EXPECT_NE(capped.error.find("limit"), std::string::npos) << capped.error;
}

// A plain-HTTP server that redirects, to check which redirects are followed.
class Redirector {
 public:
  explicit Redirector(const std::string& httpsTarget) {
    server_.Post("/to-https", [httpsTarget](const httplib::Request&, httplib::Response& response) {
      response.set_redirect(httpsTarget, 307);
      response.set_content("redirect body", "text/plain");
    });
    server_.Post("/to-http", [this](const httplib::Request&, httplib::Response& response) {
      response.set_redirect(url("/final"), 307);
    });
    server_.Post("/final", [](const httplib::Request&, httplib::Response& response) {
      response.set_content("reached over plain http", "text/plain");
    });
    // The socket listens once bound: a client that connects before the
    // thread accepts waits in the backlog, so there is nothing to wait for.
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  ~Redirector() {
    server_.stop();
    thread_.join();
  }

  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

TEST_F(CurlHttpClientIntegrationTest, SpeaksOnlyHttpsAfterARedirectAndKeepsTheFinalBody) {
  Redirector redirector(server_.adEndpoint());
  CurlHttpClient client(options());

  const HttpResponse followed =
      client.perform(test::signedPost(redirector.url("/to-https"), kInitialization));
  ASSERT_EQ(followed.status, 200) << followed.error;
  EXPECT_TRUE(nlohmann::json::parse(followed.body).contains("closeButtonURL")) << followed.body;
  ASSERT_EQ(server_.received().size(), 1u);
  EXPECT_TRUE(server_.received()[0].md5Valid);

  // Neither a redirect to plain http nor any other scheme is spoken.
  HttpRequest file;
  file.method = "GET";
  file.url = "file:///etc/passwd";
  for (const HttpRequest& refused :
       {test::signedPost(redirector.url("/to-http"), kInitialization), file}) {
    const HttpResponse response = client.perform(refused);
    EXPECT_EQ(response.status, 0) << refused.url;
    EXPECT_TRUE(response.body.empty()) << refused.url;
  }
}

TEST_F(CurlHttpClientIntegrationTest, SeveralThreadsSendAtOnce) {
  CurlHttpClient client(options());
  constexpr int kThreads = 4;
  long statuses[kThreads] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      statuses[i] = client.perform(test::signedPost(server_.adEndpoint(), kInitialization)).status;
    });
  }
  for (auto& thread : threads) thread.join();
  for (long status : statuses) EXPECT_EQ(status, 200);
  EXPECT_EQ(server_.received().size(), static_cast<size_t>(kThreads));
}

}  // namespace
}  // namespace zivora::platform
