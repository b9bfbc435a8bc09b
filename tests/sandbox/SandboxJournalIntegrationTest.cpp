#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "RequestJournal.h"
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

constexpr const char* kWatched = R"({"watchedAd":{"appId":"app-1","adId":"ad-1"}})";

// The journal and the delaying faults, which a soak that kills and restarts
// the server relies on.
class SandboxJournalIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(files_.path() / "video.mp4", std::ios::binary) << content_;
  }

  SandboxOptions options() const {
    return {.certDirectory = test::sandboxCertDirectory(),
            .filesDirectory = files_.path(),
            .stateDirectory = state_.path()};
  }

  static HttpResponse send(const SandboxServer& server, HttpRequest request,
                           std::chrono::milliseconds idle = 5s) {
    return CurlHttpClient({.caFile = server.caFile(), .connectTimeout = 2s, .lowSpeedTime = idle})
        .perform(request);
  }

  static HttpResponse postEvent(const SandboxServer& server, std::chrono::milliseconds idle = 5s) {
    return send(server, test::signedPost(server.adEndpoint(), kWatched), idle);
  }

  static HttpResponse control(const SandboxServer& server, const std::string& pathAndQuery) {
    return send(server, HttpRequest::formPost(server.baseUrl() + pathAndQuery, ""));
  }

  std::vector<json> journal() const {
    return RequestJournal::read(state_.path() / RequestJournal::kFileName);
  }

  test::TempDir files_, state_;
  const std::string content_ = std::string(40000, 'x') + std::string(40000, 'y');
};

TEST_F(SandboxJournalIntegrationTest, EventsAnsweredByEveryIncarnationStayInTheJournal) {
  {
    SandboxServer first(options());
    first.start();
    first.failEvents(1);
    EXPECT_EQ(postEvent(first).status, 500);
    EXPECT_EQ(postEvent(first).status, 200);
    // Requests that are not events are not journalled.
    send(first, test::signedPost(first.adEndpoint(), R"({"getInitialization":{}})"));
  }
  SandboxServer second(options());
  second.start();
  EXPECT_EQ(postEvent(second).status, 200);

  const auto records = journal();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].at("status"), 500);
  EXPECT_EQ(records[0].at("fault"), "fail-events");
  for (std::size_t i = 1; i < 3; ++i) {
    EXPECT_EQ(records[i].at("status"), 200);
    EXPECT_EQ(records[i].at("name"), "watchedAd");
    EXPECT_EQ(records[i].at("params"), kWatched);
  }
}

TEST_F(SandboxJournalIntegrationTest, ATornLastLineIsSkipped) {
  {
    std::ofstream out(state_.path() / RequestJournal::kFileName, std::ios::binary);
    out << R"({"kind":"event","status":200})"
        << "\n"
        << R"({"kind":"ev)";
  }
  const auto records = journal();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].at("status"), 200);
}

TEST_F(SandboxJournalIntegrationTest, ADelayedReplyOutlastsTheClientThenTheServerAnswers) {
  SandboxServer server(options());
  server.start();
  ASSERT_EQ(control(server, "/control/misbehave?kind=delay&ms=1500&request=watchedAd").status, 200);
  // The client's idle limit is shorter than the delay: it gives up.
  EXPECT_EQ(postEvent(server, 500ms).status, 0);
  // The next one is answered at once.
  EXPECT_EQ(postEvent(server, 500ms).status, 200);
  server.stop();
  // Each is journalled when it is answered, so the delayed one may come last.
  const auto records = journal();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_NE(records[0].at("fault"), records[1].at("fault"));
  for (const json& record : records) {
    if (record.at("fault") == "") {
      EXPECT_EQ(record.at("status"), 200);
    }
  }
}

TEST_F(SandboxJournalIntegrationTest, FileFaultsComeThroughTheControlRoute) {
  SandboxServer server(options());
  server.start();
  HttpRequest get;
  get.method = "GET";
  get.url = server.fileUrl("video.mp4");

  ASSERT_EQ(control(server, "/control/misbehave-files?kind=cut-after&bytes=1000").status, 200);
  EXPECT_EQ(send(server, get).status, 0);  // announced 80000 bytes, sent 1000

  ASSERT_EQ(control(server, "/control/misbehave-files?kind=delay-after&bytes=1000&ms=1500").status,
            200);
  EXPECT_EQ(send(server, get, 500ms).status, 0);  // silent past the idle limit

  ASSERT_EQ(control(server, "/control/misbehave-files?kind=delay-after&bytes=1000&ms=300").status,
            200);
  get.headers = {{"Range", "bytes=100-"}};
  const HttpResponse slow = send(server, get, 5s);  // a short pause, then the rest
  EXPECT_EQ(slow.status, 206);
  EXPECT_EQ(slow.body, content_.substr(100));

  EXPECT_EQ(control(server, "/control/misbehave-files?kind=nonsense").status, 400);
  const auto records = journal();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[2].at("kind"), "file");
  EXPECT_EQ(records[2].at("from"), 100);
  EXPECT_EQ(records[2].at("faulted"), true);
}

}  // namespace
}  // namespace zivora::sandbox
