// The analytics delivery queue on virtual time with a scripted HTTP client.
#include <gtest/gtest.h>

#include <fstream>

#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPEventController.h"
#include "support/AnalyticsBody.h"
#include "support/FakeHttpClient.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

// Fails while `down` is set, then answers as the fake does; can also throw
// once, as a transport that breaks inside the request would.
class SwitchableHttp final : public platform::HttpClient {
 public:
  explicit SwitchableHttp(std::shared_ptr<test::VirtualRuntime> runtime)
      : runtime_(std::move(runtime)) {}

  platform::HttpResponse perform(const platform::HttpRequest& request) override {
    attempts.push_back(runtime_->elapsed());
    if (throwNext) {
      throwNext = false;
      throw std::runtime_error("transport broke");
    }
    if (down) {
      ++refused;
      return {0, "", "connection refused"};
    }
    return fake.perform(request);
  }
  bool down = false;
  bool throwNext = false;
  int refused = 0;
  test::FakeHttpClient fake;
  std::vector<dispatch::Duration> attempts;

 private:
  std::shared_ptr<test::VirtualRuntime> runtime_;
};

ZVPCustomParams record(int seq, const std::string& note = "n") {
  ZVPCustomParams params;
  params.put("bo_AppId", "tessaro-profiling");
  params.put("bo_Name", "Queued");
  params.put("note", note);
  params.put("seq", seq);
  return params;
}

class ZVPEventControllerTest : public ::testing::Test {
 protected:
  std::vector<test::AnalyticsBody> sent() const {
    std::vector<test::AnalyticsBody> bodies;
    for (const auto& request : http_->fake.requests()) {
      auto body = test::AnalyticsBody::parse(request.body);
      EXPECT_TRUE(body) << request.body;
      if (body) bodies.push_back(*body);
    }
    return bodies;
  }

  std::vector<std::int64_t> sentSeqs() const {
    std::vector<std::int64_t> seqs;
    for (const auto& body : sent()) seqs.push_back(body.integer("seq"));
    return seqs;
  }

  std::filesystem::path file() const {
    return scope_.context().paths().documentsDirectory() / "tsp_events_profiling.dat";
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<SwitchableHttp> http_ = std::make_shared<SwitchableHttp>(runtime_);
  mutable test::ScopedContext scope_{
      HostOptions{.dataRoot = root_.path().string(),
                  .analyticsEndpoint = "https://analytics.test/ProfilingEvent.php"},
      RuntimeOptions{.runtime = runtime_, .http = http_}};
  ZVPEventController controller_{runtime_, scope_.context().paths().documentsDirectory()};
};

TEST_F(ZVPEventControllerTest, RecordsAreStoredAsLinesAndSentWithoutWaitingForTheAdServer) {
  ZVPCustomParams empty;
  EXPECT_FALSE(controller_.sendEvent(empty));
  EXPECT_FALSE(std::filesystem::exists(file()));

  EXPECT_TRUE(controller_.sendEvent(record(1)));
  std::ifstream in(file());
  std::string line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, *record(1).toStr());

  runtime_->runUntilIdle();
  auto bodies = sent();
  ASSERT_EQ(bodies.size(), 1u);
  EXPECT_EQ(http_->fake.requests()[0].url, "https://analytics.test/ProfilingEvent.php");
  EXPECT_EQ(bodies[0].appId, "tessaro-profiling");
  EXPECT_TRUE(bodies[0].md5Valid);
  EXPECT_EQ(bodies[0].integer("bo_ClientTime"), 1767225600);
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(ZVPEventControllerTest, FailedSendsBackOffAndKeepTheRecordTheAcknowledgementIsOnlyLogged) {
  http_->fake.enqueue(503, "busy");
  http_->fake.enqueue(0, "");
  http_->fake.enqueue(200, R"({"Status":"Rejected"})");
  controller_.sendEvent(record(1));
  controller_.sendEvent(record(2));
  runtime_->runUntilIdle();
  // The record stays through both failures; a 200 without the
  // acknowledgement removes it all the same, and the next goes at once.
  EXPECT_EQ(sentSeqs(), (std::vector<std::int64_t>{1, 1, 1, 2}));
  EXPECT_EQ(http_->attempts, (std::vector<dispatch::Duration>{0s, 1s, 3s, 3s}));
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_TRUE(scope_.log().contains("Error getting, HTTP status code 503"));
  EXPECT_TRUE(scope_.log().contains(
      "[TSHttpRequest][validateResponse] Warning! Fail save event on the server, response = "
      "{\"Status\":\"Rejected\"}"));
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(ZVPEventControllerTest, ALineThatCannotConvertIsConsumedWithALogLineAndTheQueueGoesOn) {
  std::filesystem::create_directories(file().parent_path());
  {
    std::ofstream out(file());
    out << "not a record\n"
        << "p1name=bo_Name&p1type=String&p1value=no-application-id\n"
        << *record(7).toStr() << "\n";
  }
  controller_.trySendEvent();
  runtime_->runUntilIdle();
  EXPECT_EQ(sentSeqs(), (std::vector<std::int64_t>{7}));
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_TRUE(scope_.log().contains(
      "[ZVPEventController][trySendEventDispatch] Discarded a record that cannot be converted: "
      "not a record"));
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(ZVPEventControllerTest, AnExceptionInsideThePostIsAFailedSendAndTheLoopGoesOn) {
  http_->throwNext = true;
  controller_.sendEvent(record(1));
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_.log().contains("Backoffice [ZVPHttpRequest][sendPost] Error send request!"));
  // Failures of the analytics classes never become analytics records.
  EXPECT_TRUE(scope_.analytics().exceptions().empty());
  EXPECT_EQ(http_->attempts, (std::vector<dispatch::Duration>{0s, 1s}));
  EXPECT_EQ(sentSeqs(), (std::vector<std::int64_t>{1}));
  EXPECT_FALSE(controller_.loop().hasThread());
}

TEST_F(ZVPEventControllerTest, RecordsQueuedWhileTheServerIsDownAllArriveInOrderOnce) {
  http_->down = true;
  constexpr int kRecords = 60;
  for (int i = 0; i < kRecords; ++i) ASSERT_TRUE(controller_.sendEvent(record(i, "r&=%")));
  runtime_->advanceBy(10min);
  EXPECT_GE(http_->refused, 8);
  EXPECT_EQ(controller_.loop().delayResendOffline(), 100);
  EXPECT_TRUE(sent().empty());

  http_->down = false;
  runtime_->advanceBy(100s);
  runtime_->runUntilIdle();
  std::vector<std::int64_t> expected(kRecords);
  for (int i = 0; i < kRecords; ++i) expected[i] = i;
  EXPECT_EQ(sentSeqs(), expected);
  EXPECT_EQ(controller_.loop().delayResendOffline(), 1);
  EXPECT_FALSE(std::filesystem::exists(file()));
}

}  // namespace
}  // namespace zivora
