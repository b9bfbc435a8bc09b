// What the SDK's fault tests and the soak take on trust from the sandbox:
// that it refuses what it cannot verify, that its faults happen as aimed
// and are used up, that it serves byte ranges, and that its journal
// outlives a restart. (Its ads, media and rewards are exercised end to end
// by the SDK's own integration tests.)
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "CertificateAuthority.h"
#include "RequestJournal.h"
#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"

namespace zivora::sandbox {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using platform::CurlHttpClient;
using platform::HttpRequest;
using platform::HttpResponse;

constexpr const char* kInitialization = R"({"getInitialization":{"appId":"app-1"}})";
constexpr const char* kWatched = R"({"watchedAd":{"appId":"app-1","adId":"ad-1"}})";

class SandboxServerIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(files_.path() / "video.mp4", std::ios::binary) << content_;
    server_.start();
  }
  SandboxOptions options() const {
    return {.certDirectory = test::sandboxCertDirectory(),
            .filesDirectory = files_.path(),
            .stateDirectory = state_.path()};
  }
  HttpResponse send(HttpRequest request, std::chrono::milliseconds idle = 5s) {
    return CurlHttpClient({.caFile = server_.caFile(), .connectTimeout = 2s, .lowSpeedTime = idle})
        .perform(request);
  }
  HttpResponse post(const std::string& params = kInitialization,
                    std::chrono::milliseconds idle = 5s) {
    return send(test::signedPost(server_.adEndpoint(), params), idle);
  }
  json ask(const std::string& name, json arguments) {
    const HttpResponse response = post(json{{name, std::move(arguments)}}.dump());
    EXPECT_EQ(response.status, 200) << response.error;
    return json::parse(response.body, nullptr, false);
  }
  json getVideo(const std::string& placement) {
    return ask("getVideo",
               {{"randomUID", "uid-1"}, {"appId", "app-1"}, {"placementId", placement}});
  }
  HttpResponse get(const std::string& url, std::string range = "",
                   std::chrono::milliseconds idle = 5s) {
    HttpRequest request{.method = "GET", .url = url, .headers = {}, .body = {}};
    if (!range.empty()) request.headers = {{"Range", range}};
    return send(request, idle);
  }
  int control(const std::string& pathAndQuery) {
    return send(HttpRequest::formPost(server_.baseUrl() + "/control/" + pathAndQuery, "")).status;
  }
  std::vector<json> journal() const {
    return RequestJournal::read(state_.path() / RequestJournal::kFileName);
  }

  test::TempDir files_, state_;
  const std::string content_ = std::string(3000, 'a') + std::string(3000, 'b');
  SandboxServer server_{options()};
};

TEST_F(SandboxServerIntegrationTest, RefusesWhatItCannotTrustAndDecodesWhatItCan) {
  const std::pair<std::string, const char*> refused[] = {
      {"Params=" + std::string(kInitialization) + "&md5=0123", "wrong md5"},
      // A raw '&' splits the value the way any form decoder would.
      {test::signedBody(R"({"getInitialization":{"appId":"a&b"}})"), "unencoded ampersand"},
      {test::signedBody("not json"), "not JSON"},
      {test::signedBody(R"({"a":{},"b":{}})"), "two requests"},
      {test::signedBody(R"({"getNothing":{}})"), "unknown request"},
  };
  for (const auto& [body, why] : refused) {
    const HttpResponse response =
        send({.method = "POST", .url = server_.adEndpoint(), .headers = {}, .body = body});
    EXPECT_EQ(json::parse(response.body, nullptr, false).value("error", 0), 1) << why;
  }
  auto received = server_.received();
  EXPECT_FALSE(received[0].md5Valid || received[1].md5Valid);
  EXPECT_TRUE(received[4].md5Valid);
  EXPECT_EQ(received[4].requestName, "getNothing");

  // A plus is a literal plus; escapes are decoded before the md5 is checked.
  server_.clearReceived();
  EXPECT_FALSE(
      json::parse(post(R"({"getInitialization":{"appId":"a+b%2Bc%26d"}})").body).contains("error"));
  received = server_.received();
  EXPECT_TRUE(received[0].md5Valid);
  EXPECT_EQ(received[0].params, R"({"getInitialization":{"appId":"a+b+c&d"}})");
  EXPECT_EQ(received[0].header("Content-Type"), "application/x-www-form-urlencoded");
}

TEST_F(SandboxServerIntegrationTest, FaultsAreAimedAndUsedUpRequestByRequest) {
  ASSERT_EQ(control("misbehave?kind=http-error&count=2"), 200);
  server_.misbehave(Misbehaviour::Kind::ErrorReply, 1, 9);
  EXPECT_EQ(post().status, 500);
  EXPECT_EQ(post().status, 500);
  EXPECT_EQ(post().body, R"({"error":9})");
  EXPECT_FALSE(json::parse(post().body).contains("error"));
  EXPECT_EQ(control("misbehave?kind=nonsense"), 400);

  // A fault aimed at one request waits for it; other requests pass.
  EXPECT_EQ(control("misbehave?kind=error-reply&error=4&request=getVideo"), 200);
  EXPECT_EQ(ask("clickAd", json::object()), json::object());
  EXPECT_EQ(getVideo("short"), (json{{"error", 4}}));
  EXPECT_EQ(getVideo("short")["adId"], "sandbox-short") << "used up";

  // The sample host grants rewards through the control route.
  EXPECT_EQ(control("grant-reward?appName=Quest&reward=25&count=2"), 200);
  EXPECT_EQ(server_.rewards().rewards().size(), 2u);
}

TEST_F(SandboxServerIntegrationTest, AStalledRequestAnswersWhenReleasedAndEndsWhenStopped) {
  for (const bool release : {true, false}) {
    server_.misbehave(Misbehaviour::Kind::Stall);
    HttpResponse response;
    std::thread client([&] { response = post(kInitialization, 30s); });
    ASSERT_TRUE(server_.waitForReceived(1, 10s));
    if (release)
      control("release");
    else
      server_.stop();
    client.join();
    EXPECT_EQ(response.status == 200, release) << response.error;
    server_.clearReceived();
  }
}

TEST_F(SandboxServerIntegrationTest, ServesPlainNamesWithByteRangesAndFileFaults) {
  const std::string url = server_.fileUrl("video.mp4");
  EXPECT_EQ(get(url).body, content_);
  const HttpResponse middle = get(url, "bytes=2999-3000");
  EXPECT_EQ(middle.status, 206);
  EXPECT_EQ(middle.body, "ab");
  EXPECT_EQ(get(url, "bytes=5999-").body, "b");
  EXPECT_EQ(get(url, "bytes=6000-").status, 416);
  std::ofstream(files_.path().parent_path() / "outside.txt") << "secret";
  for (const char* name : {"missing.mp4", "..%2Foutside.txt", "%2E%2E"})
    EXPECT_EQ(get(server_.fileUrl(name)).status, 404) << name;
  std::filesystem::remove(files_.path().parent_path() / "outside.txt");

  ASSERT_EQ(control("misbehave-files?kind=cut-after&bytes=1000"), 200);
  EXPECT_EQ(get(url).status, 0);  // announced 6000 bytes, sent 1000
  ASSERT_EQ(control("misbehave-files?kind=delay-after&bytes=1000&ms=1500"), 200);
  EXPECT_EQ(get(url, "", 500ms).status, 0);  // silent past the idle limit
  ASSERT_EQ(control("misbehave-files?kind=delay-after&bytes=1000&ms=300"), 200);
  EXPECT_EQ(get(url, "bytes=100-").body, content_.substr(100));  // a short pause, then the rest
  EXPECT_EQ(control("misbehave-files?kind=nonsense"), 400);
  EXPECT_EQ(journal().back().at("from"), 100);
  EXPECT_EQ(journal().back().at("faulted"), true);
}

TEST_F(SandboxServerIntegrationTest, EventsAnsweredByEveryIncarnationStayInTheJournal) {
  ASSERT_EQ(control("fail-events?count=1"), 200);
  EXPECT_EQ(post(kWatched).status, 500);
  // The client gives up on a delayed reply; the server journals it when it answers.
  ASSERT_EQ(control("misbehave?kind=delay&ms=1500&request=watchedAd"), 200);
  EXPECT_EQ(post(kWatched, 500ms).status, 0);
  post();  // not an event: not journalled
  server_.stop();
  SandboxServer second(options());
  second.start();
  EXPECT_EQ(send(test::signedPost(second.adEndpoint(), kWatched)).status, 200);

  const auto records = journal();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].at("status"), 500);
  EXPECT_EQ(records[0].at("fault"), "fail-events");
  EXPECT_NE(records[1].at("fault"), "");
  EXPECT_EQ(records[2].at("status"), 200);
  EXPECT_EQ(records[2].at("name"), "watchedAd");
  EXPECT_EQ(records[2].at("params"), kWatched);

  // A torn last line is skipped.
  std::ofstream(state_.path() / RequestJournal::kFileName, std::ios::app) << R"({"kind":"ev)";
  EXPECT_EQ(journal().size(), 3u);
}

TEST(CertificateAuthorityIntegrationTest, ConcurrentStartersAgreeOnOneSetAndKeepIt) {
  test::TempDir directory;
  std::vector<std::thread> starters;
  for (int i = 0; i < 4; ++i)
    starters.emplace_back([&] { CertificateAuthority::ensure(directory.path() / "certs"); });
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
  EXPECT_EQ(CurlHttpClient({.caFile = server.caFile()})
                .perform(test::signedPost(server.adEndpoint(), kInitialization))
                .status,
            200);
}

}  // namespace
}  // namespace zivora::sandbox
