// The analytics delivery queue on virtual time with a scripted HTTP client.
#include <gtest/gtest.h>

#include <deque>
#include <numeric>

#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPEventController.h"
#include "support/AnalyticsBody.h"
#include "support/FakeHttpClient.h"
#include "support/Files.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Times = std::vector<dispatch::Duration>;
constexpr char kEndpoint[] = "https://analytics.test/ProfilingEvent.php";

ZVPCustomParams record(int seq) {
  ZVPCustomParams params;
  params.put("bo_AppId", "tessaro-profiling");
  params.put("bo_Name", "Queued");
  params.put("note", "r&=%");
  params.put("seq", seq);
  return params;
}

class ZVPEventControllerTest : public ::testing::Test {
 protected:
  // Every attempt's time is kept; while `down_` the transport gets no
  // response, else the scripted replies answer (status -1: the transport
  // throws), then 200.
  ZVPEventControllerTest() {
    http_->route(kEndpoint, [this](const nlohmann::json&) -> platform::HttpResponse {
      attempts_.push_back(runtime_->elapsed());
      if (down_) return {0, "", "connection refused"};
      if (replies_.empty()) return {200, "{}"};
      auto reply = replies_.front();
      replies_.pop_front();
      if (reply.status < 0) throw std::runtime_error("transport broke");
      return reply;
    });
  }

  std::vector<std::int64_t> sentSeqs(std::size_t from = 0) const {
    std::vector<std::int64_t> seqs;
    for (const auto& body : test::AnalyticsBody::parseAll(http_->requests()))
      seqs.push_back(body.integer("seq"));
    seqs.erase(seqs.begin(), seqs.begin() + static_cast<std::ptrdiff_t>(from));
    return seqs;
  }

  std::filesystem::path file() const {
    return scope_.context().paths().documentsDirectory() / "tsp_events_profiling.dat";
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  bool down_ = false;
  std::deque<platform::HttpResponse> replies_;
  Times attempts_;
  mutable test::ScopedContext scope_{
      HostOptions{.dataRoot = root_.path().string(), .analyticsEndpoint = kEndpoint},
      RuntimeOptions{.runtime = runtime_, .http = http_}};
  ZVPEventController controller_{runtime_, scope_.context().paths().documentsDirectory()};
};

TEST_F(ZVPEventControllerTest, RecordsAreStoredAsLinesAndSentWithoutWaitingForTheAdServer) {
  EXPECT_FALSE(controller_.sendEvent(ZVPCustomParams()));
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_TRUE(controller_.sendEvent(record(1)));
  EXPECT_EQ(test::readFile(file()), *record(1).toStr() + "\n");

  runtime_->runUntilIdle();
  auto bodies = test::AnalyticsBody::parseAll(http_->requests());
  ASSERT_EQ(bodies.size(), 1u);
  EXPECT_EQ(bodies[0].appId, "tessaro-profiling");
  EXPECT_EQ(bodies[0].text("note"), "r&=%");
  EXPECT_EQ(bodies[0].integer("bo_ClientTime"), 1767225600);
  EXPECT_FALSE(std::filesystem::exists(file()));
}

// The record stays through failures (a status, no response, a throwing
// transport); a 200 without the acknowledgement removes it all the same,
// and the next goes at once. Failures of the analytics classes never
// become analytics records.
TEST_F(ZVPEventControllerTest, FailedSendsBackOffAndKeepTheRecordTheAcknowledgementIsOnlyLogged) {
  replies_ = {{503, "busy"}, {0, ""}, {-1, ""}, {200, R"({"Status":"Rejected"})"}};
  controller_.sendEvent(record(1));
  controller_.sendEvent(record(2));
  runtime_->runUntilIdle();
  EXPECT_EQ(sentSeqs(), (std::vector<std::int64_t>{1, 1, 1, 1, 2}));
  EXPECT_EQ(attempts_, (Times{0s, 1s, 3s, 7s, 7s}));
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_TRUE(scope_.log().contains("Error getting, HTTP status code 503"));
  EXPECT_TRUE(scope_.log().contains("Backoffice [ZVPHttpRequest][sendPost] Error send request!"));
  EXPECT_TRUE(scope_.analytics().exceptions().empty());
  EXPECT_TRUE(scope_.log().contains(
      "[TSHttpRequest][validateResponse] Warning! Fail save event on the server, response = "
      "{\"Status\":\"Rejected\"}"));
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_FALSE(controller_.loop().hasThread());
}

TEST_F(ZVPEventControllerTest, ALineThatCannotConvertIsConsumedWithALogLineAndTheQueueGoesOn) {
  test::writeFile(file(), "not a record\np1name=bo_Name&p1type=String&p1value=no-application-id\n" +
                              *record(7).toStr() + "\n");
  controller_.trySendEvent();
  runtime_->runUntilIdle();
  EXPECT_EQ(sentSeqs(), (std::vector<std::int64_t>{7}));
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_TRUE(scope_.log().contains(
      "[ZVPEventController][trySendEventDispatch] Discarded a record that cannot be converted: "
      "not a record"));
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(ZVPEventControllerTest, RecordsQueuedWhileTheServerIsDownAllArriveInOrderOnce) {
  down_ = true;
  constexpr int kRecords = 60;
  for (int i = 0; i < kRecords; ++i) ASSERT_TRUE(controller_.sendEvent(record(i)));
  runtime_->advanceBy(10min);
  const auto refused = attempts_.size();
  EXPECT_GE(refused, 8u);
  EXPECT_EQ(controller_.loop().delayResendOffline(), 100);

  down_ = false;
  runtime_->advanceBy(100s);
  runtime_->runUntilIdle();
  std::vector<std::int64_t> expected(kRecords);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(sentSeqs(refused), expected);
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_FALSE(std::filesystem::exists(file()));
}

}  // namespace
}  // namespace zivora
