// Analytics records through the real queue, libcurl and the sandbox's
// analytics endpoint, which reads each body by position and checks its md5.
#include <gtest/gtest.h>

#include "SandboxServer.h"
#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPEventController.h"
#include "analytics/ZVPHttpRequest.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/AnalyticsBody.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "support/WatchedRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kStart = 1767225600;

std::shared_ptr<platform::HttpClient> curlFor(const sandbox::SandboxServer& server) {
  return std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
      .caFile = server.caFile(), .connectTimeout = 2s, .lowSpeedTime = 2s});
}

// Texts that every layer of the encoding has to carry through unchanged.
const std::vector<std::pair<std::string, std::string>> kTexts = {
    {"quotes", "say \"hi\" and 'bye'"},
    {"form", "a&b=c&&==d"},
    {"plus", "1+1 = 2"},
    {"percent", "100% of %41 and %zz"},
    {"lines", "first\nsecond\r\nthird\ttab"},
    {"unicode", "caf\xC3\xA9 \xE2\x9C\x93 \xF0\x9F\x8E\xAE"},
    {"slashes", "C:\\dir/file"},
    {"with space", "spaced name"},
};

TEST(AnalyticsWireFormIntegrationTest, EveryTypeArrivesByteForByteAndReadsBackByPosition) {
  test::TempDir root;
  sandbox::SandboxServer server(
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()});
  server.start();
  // Virtual time only fixes the send time; the request is real.
  test::ScopedContext scope(
      HostOptions{.dataRoot = root.path().string(),
                  .analyticsEndpoint = server.analyticsEndpoint()},
      RuntimeOptions{.runtime = std::make_shared<test::VirtualRuntime>(), .http = curlFor(server)});

  ZVPCustomParams params;
  params.put("bo_AppId", "tessaro-profiling");
  for (const auto& [name, text] : kTexts) params.put(name, text);
  params.put("big", std::int64_t{5000000000});
  params.put("negative", -7);
  params.put("flag", true);
  params.put("price", 4.99);
  params.put("tiny", -0.000125);
  params.put("huge", 1e20);
  const std::string line = *params.toStr();

  // The line form: names with the query set, texts with the URL-legal set,
  // so '&', '=' and '+' stay as they are; strings, integers, doubles.
  for (const char* fragment :
       {"&p2value=a&b=c&&==d&", "name=with%20space&", "value=first%0Asecond%0D%0Athird%09tab&",
        "value=100%25%20of%20%2541%20and%20%25zz&", "value=caf%C3%A9%20%E2%9C%93%20%F0%9F%8E%AE&",
        "type=Integer&p", "name=huge&p13type=Double&p13value=1e+20&",
        "name=tiny&p15type=Double&p15value=-0.000125"})
    EXPECT_NE(line.find(fragment), std::string::npos) << fragment << " in " << line;
  EXPECT_EQ(line.find('\n'), std::string::npos);

  long code = 0;
  ZVPHttpRequest::sendPost(line, [&](const std::string*, long status) { code = status; });
  EXPECT_EQ(code, 200);

  auto received = server.received();
  ASSERT_EQ(received.size(), 1u);
  const auto expected = ZVPConvertSavedEventForSend(line, kStart).getEvent();
  ASSERT_TRUE(expected);
  EXPECT_EQ(received[0].body, *expected);
  EXPECT_EQ(received[0].header("Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(received[0].header("Content-Length"), std::to_string(expected->size()));
  EXPECT_TRUE(received[0].md5Valid);

  auto body = test::AnalyticsBody::parse(received[0].body);
  ASSERT_TRUE(body) << received[0].body;
  EXPECT_EQ(body->appId, "tessaro-profiling");
  for (const auto& [name, text] : kTexts) EXPECT_EQ(body->text(name), text) << name;
  EXPECT_EQ(body->integer("big"), 5000000000);
  EXPECT_EQ(body->integer("negative"), -7);
  EXPECT_EQ(body->integer("flag"), 1);
  EXPECT_EQ(body->integer("bo_ClientTime"), kStart);
  EXPECT_EQ(body->value("d", "price"), 4.99);
  EXPECT_EQ(body->value("d", "tiny"), -0.000125);
  EXPECT_EQ(body->value("d", "huge"), 1e20);
}

class AnalyticsQueueIntegrationTest : public ::testing::Test {
 protected:
  AnalyticsQueueIntegrationTest() {
    port_ = server_->start();
    scope_ = std::make_unique<test::ScopedContext>(
        HostOptions{.dataRoot = root_.path().string(),
                    .analyticsEndpoint = server_->analyticsEndpoint()},
        RuntimeOptions{.runtime = runtime_, .http = curlFor(*server_)});
    // Back-off seconds last a millisecond here.
    controller_ = std::make_unique<ZVPEventController>(
        runtime_, scope_->context().paths().documentsDirectory(), 1ms);
  }
  ~AnalyticsQueueIntegrationTest() override {
    controller_.reset();
    scope_.reset();
  }

  static ZVPCustomParams record(int seq) {
    ZVPCustomParams params;
    params.put("bo_AppId", "tessaro-profiling");
    params.put("bo_Name", "Queued");
    params.put("note", "r&=+% \"\xC3\xA9\"");
    params.put("seq", seq);
    return params;
  }

  std::vector<std::int64_t> receivedSeqs() const {
    std::vector<std::int64_t> seqs;
    for (const auto& request : server_->received()) {
      auto body = test::AnalyticsBody::parse(request.body);
      EXPECT_TRUE(body && request.md5Valid && body->text("note") == "r&=+% \"\xC3\xA9\"");
      seqs.push_back(body ? body->integer("seq") : -1);
    }
    return seqs;
  }

  test::TempDir root_;
  std::unique_ptr<sandbox::SandboxServer> server_ = std::make_unique<sandbox::SandboxServer>(
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()});
  int port_ = 0;
  std::shared_ptr<test::WatchedRuntime> runtime_ = std::make_shared<test::WatchedRuntime>();
  std::unique_ptr<test::ScopedContext> scope_;
  std::unique_ptr<ZVPEventController> controller_;
};

TEST_F(AnalyticsQueueIntegrationTest, AThousandRecordsQueuedWhileTheServerIsDownArriveInOrder) {
  server_.reset();  // the endpoint's port now refuses connections
  constexpr int kRecords = 1000;
  // The records go straight into the queue file and the last one through
  // the controller, which starts the loop: a record sent while a failed
  // result waits for its back-off parks the loop by design (until the next
  // launch), which is not what this test is about.
  for (int i = 0; i + 1 < kRecords; ++i) ASSERT_TRUE(controller_->saver().save(*record(i).toStr()));
  ASSERT_TRUE(controller_->sendEvent(record(kRecords - 1)));
  // Several attempts have failed and the loop is backing off.
  ASSERT_TRUE(runtime_->waitUntil([&] { return controller_->loop().delayResendOffline() >= 8; }));

  server_ = std::make_unique<sandbox::SandboxServer>(
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory(), .port = port_});
  server_->start();
  ASSERT_TRUE(server_->waitForReceived(kRecords, 100s));
  ASSERT_TRUE(runtime_->waitUntil([&] { return !controller_->saver().hasSavedEvents(); }));
  std::vector<std::int64_t> expected(kRecords);
  for (int i = 0; i < kRecords; ++i) expected[i] = i;
  EXPECT_EQ(receivedSeqs(), expected);
}

}  // namespace
}  // namespace zivora
