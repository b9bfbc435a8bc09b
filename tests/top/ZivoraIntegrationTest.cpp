// The facade's handshake on real threads, through libcurl, against the
// sandbox over TLS. Retry delays are shortened through the runtime options.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/ZVConfiguration.h"
#include "support/AnswerLog.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using sandbox::Misbehaviour;

class ZivoraIntegrationTest : public ::testing::Test {
 protected:
  ZivoraIntegrationTest() { sandbox_.start(); }
  ~ZivoraIntegrationTest() override { ZivoraInstance::reset(); }

  void start() {
    ZivoraInstance::start(
        "app-1",
        HostOptions{.dataRoot = root_.path().string(), .adEndpoint = sandbox_.adEndpoint()},
        RuntimeOptions{
            .runtime = std::make_shared<dispatch::ThreadRuntime>(),
            .http = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
                .caFile = sandbox_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 2s}),
            .log = std::make_shared<test::RecordingLogSink>(),
            .adSide = adSide_,
            .retryTimeUnit = 10ms});
    Zivora::setDelegate(host_);
  }

  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::shared_ptr<test::RecordingAdSide> adSide_ = std::make_shared<test::RecordingAdSide>();
  std::shared_ptr<test::AnswerLog> host_ = std::make_shared<test::AnswerLog>();
};

TEST_F(ZivoraIntegrationTest, HandshakeSucceedsAndReplaysTheParkedCall) {
  start();
  Zivora::cacheVideo("rewarded");
  ASSERT_TRUE(adSide_->waitForCall("cache:rewarded", 10s));
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].md5Valid);
  auto params = nlohmann::json::parse(received[0].params);
  EXPECT_EQ(params["getInitialization"]["appId"], "app-1");
  EXPECT_TRUE(host_->answers().empty());
}

TEST_F(ZivoraIntegrationTest, TwoFailuresThenSuccessAtTheThirdAttempt) {
  sandbox_.misbehave(Misbehaviour::Kind::HttpError, 1);
  sandbox_.misbehave(Misbehaviour::Kind::CloseMidBody, 1);
  start();
  Zivora::cacheVideo("early");
  // A reward request waits for success and is made once it is complete.
  Zivora::requestMotivatedRewards();
  // The second failure fails the parked call with error 3 ...
  EXPECT_EQ(host_->waitForAnswer("early", 10s), "videoDidFailToLoad 3");
  // ... and the third attempt succeeds, after which calls reach the ad side.
  ASSERT_TRUE(adSide_->waitForCall("requestMotivatedRewards", 10s));
  EXPECT_EQ(sandbox_.received().size(), 3u);
  Zivora::showVideo("late");
  EXPECT_TRUE(adSide_->waitForCall("show:late", 1s));
  EXPECT_EQ(host_->answers().size(), 1u);
}

TEST_F(ZivoraIntegrationTest, NewUrlMovesLaterRequestsAndSurvivesARestart) {
  sandbox::SandboxServer moved{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  moved.start();
  sandbox_.setHandler("getInitialization", [&](const nlohmann::json&) {
    return nlohmann::json{{"newURL", moved.adEndpoint()}};
  });
  start();
  ASSERT_TRUE(adSide_->waitForCall("newVideoManager", 10s));
  EXPECT_EQ(ZVConfiguration::shared()->serverURL(), moved.adEndpoint());

  // A new process on the same data root starts its handshake at the new endpoint.
  ZivoraInstance::reset();
  adSide_ = std::make_shared<test::RecordingAdSide>();
  start();
  ASSERT_TRUE(moved.waitForReceived(1, 10s));
  EXPECT_EQ(sandbox_.received().size(), 1u);
}

}  // namespace
}  // namespace zivora
