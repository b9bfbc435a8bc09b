// Analytics lines through libcurl to the sandbox's analytics endpoint, which
// reads the body by position and checks the exact bytes against the md5.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "SandboxServer.h"
#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPHttpRequest.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

struct Sent {
  long code = 0;
  std::optional<std::string> reply;
};

class ZVPHttpRequestIntegrationTest : public ::testing::Test {
 protected:
  ZVPHttpRequestIntegrationTest() {
    sandbox_.start();
    scope_ = std::make_unique<test::ScopedContext>(
        HostOptions{.dataRoot = root_.path().string(),
                    .analyticsEndpoint = sandbox_.analyticsEndpoint()},
        RuntimeOptions{
            .http = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
                .caFile = sandbox_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 1s})});
  }

  Sent send(const std::string& line) {
    Sent sent;
    ZVPHttpRequest::sendPost(line, [&](const std::string* reply, long code) {
      sent.code = code;
      if (reply) sent.reply = *reply;
    });
    return sent;
  }

  static std::string record() {
    ZVPCustomParams params;
    params.put("bo_AppId", "app-1");
    params.put("bo_Name", "Purchase");
    params.put("ProductId", "gems+50 & more=\"best\" caf\xC3\xA9");
    params.put("Amount", 4.99);
    params.put("bo_Order", 3);
    return *params.toStr();
  }

  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::unique_ptr<test::ScopedContext> scope_;
};

TEST_F(ZVPHttpRequestIntegrationTest, TheServerReadsTheRecordByPositionAndItsMd5Holds) {
  Sent sent = send(record());
  EXPECT_EQ(sent.code, 200);
  EXPECT_TRUE(ZVPHttpRequest::validateResponse(sent.reply));
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].requestName, "analytics");
  EXPECT_TRUE(received[0].md5Valid);
  auto params = nlohmann::json::parse(received[0].params);
  EXPECT_EQ(params.at("s")[0].at("ProductId"), "gems+50 & more=\"best\" caf\xC3\xA9");
  EXPECT_EQ(params.at("d")[0].at("Amount"), 4.99);
  EXPECT_TRUE(params.at("i")[0].contains("bo_ClientTime"));
}

TEST_F(ZVPHttpRequestIntegrationTest, TheStatusDecidesAndTheAcknowledgementIsOnlyLogged) {
  sandbox_.setAnalyticsReply(200, R"({"Status":"Rejected"})");
  EXPECT_EQ(send(record()).code, 200);
  EXPECT_TRUE(scope_->log().contains(
      "[TSHttpRequest][validateResponse] Warning! Fail save event on the server, response = "
      "{\"Status\":\"Rejected\"}"));
  sandbox_.setAnalyticsReply(503, "busy");
  EXPECT_EQ(send(record()).code, 503);
}

TEST_F(ZVPHttpRequestIntegrationTest, LinesThatDoNotConvertAreNeverSent) {
  EXPECT_EQ(send("not a record").code, -2);
  EXPECT_EQ(send("p1name=x&p1type=String&p1value=no-app-id").code, -2);
  EXPECT_TRUE(sandbox_.received().empty());
  EXPECT_TRUE(scope_->log().contains("[TSHttpRequest][sendPost] Error parse saved event."));
}

TEST_F(ZVPHttpRequestIntegrationTest, NoServerIsAFailedSend) {
  sandbox_.stop();
  EXPECT_EQ(send(record()).code, -2);
}

TEST(ZVPHttpRequestTest, OlderFieldsAreAppendedAfterTheHighestNumber) {
  test::ScopedContext scope;
  const std::string line = "p1name=a&p1type=String&p1value=x&p12name=b&p12type=Integer&p12value=1";
  auto extended = ZVPHttpRequest::addAdditionParams(line);
  ASSERT_TRUE(extended);
  EXPECT_EQ(extended->rfind(line + "&p13name=bo_ClientTime&p13type=Integer&p13value=", 0), 0u);
  EXPECT_NE(extended->find("&p14name=bo_HashSum&p14type=String&p14value=" +
                           ZVPHttpRequest::hashMD5(line)),
            std::string::npos);
  EXPECT_FALSE(ZVPHttpRequest::validateResponse(std::nullopt));
  EXPECT_TRUE(ZVPHttpRequest::validateResponse(R"({ "Status" : "Accepted" })"));
}

TEST(ZVPHttpRequestTest, FieldNumbersAtTheLimitOfAnIntStillGetTheirSuccessors) {
  test::ScopedContext scope;
  const std::string line = "AppId=a&p2147483647name=b&p2147483647type=String&p2147483647value=x";
  auto extended = ZVPHttpRequest::addAdditionParams(line);
  ASSERT_TRUE(extended);
  EXPECT_NE(extended->find("&p2147483648name=bo_ClientTime"), std::string::npos);
  EXPECT_NE(extended->find("&p2147483649name=bo_HashSum"), std::string::npos);
  // A number past any int is refused as a whole, never wrapped.
  EXPECT_FALSE(ZVPHttpRequest::addAdditionParams("p99999999999name=b"));
}

}  // namespace
}  // namespace zivora
