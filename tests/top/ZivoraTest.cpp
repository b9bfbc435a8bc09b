// The facade's start-up handshake on virtual time: parking, retries,
// refusal, replay, and replies of odd shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "analytics/ZVPDeviceInfoHelper.h"
#include "resources/ZVResourceManager.h"
#include "sdk/ZVConfiguration.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingAnalytics.h"
#include "support/RecordingHost.h"
#include "support/RecordingLogSink.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/ZivoraInstance.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr char kDefaultEndpoint[] = "https://api.zivora.example/HandleRequestV3.php";

class ZivoraTest : public ::testing::Test {
 protected:
  ~ZivoraTest() override { ZivoraInstance::reset(); }

  void start(HostOptions host = HostOptions{.applicationVersion = "3.2"}) {
    host.dataRoot = root_.path().string();
    ZivoraInstance::start("app-1", host,
                          RuntimeOptions{.runtime = runtime_,
                                         .http = http_,
                                         .log = log_,
                                         .analytics = analytics_,
                                         .adSide = adSide_,
                                         .secretStore = secrets_});
    Zivora::setDelegate(delegate_);
  }

  void failNext(int count) {
    for (int i = 0; i < count; ++i) http_->enqueueFailure("Connection refused");
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  std::shared_ptr<test::RecordingLogSink> log_ = std::make_shared<test::RecordingLogSink>();
  std::shared_ptr<test::RecordingAnalytics> analytics_ =
      std::make_shared<test::RecordingAnalytics>();
  std::shared_ptr<test::RecordingAdSide> adSide_ = std::make_shared<test::RecordingAdSide>();
  std::shared_ptr<test::RecordingHost> delegate_ = std::make_shared<test::RecordingHost>();
  std::shared_ptr<test::MemorySecretStore> secrets_ = std::make_shared<test::MemorySecretStore>();
};

TEST(ZivoraBeforeInitialisation, EveryCallPrintsNotInitialisedAndTheDelegateIsDropped) {
  test::ScopedContext scope;
  Zivora::setDelegate(std::make_shared<test::RecordingHost>());
  Zivora::showVideo("p");
  Zivora::cacheVideo("p");
  EXPECT_FALSE(Zivora::isReadyVideo("p"));
  Zivora::setAppUserId("u");
  Zivora::requestMotivatedRewards();
  Zivora::removeMotivatedRewards({"r"});
  Zivora::purchaseEvent(1.0, "USD", "t-1");
  Zivora::purchaseEvent(-1.0, "USD", "t-1");
  Zivora::logEnable(true);
  EXPECT_EQ(Zivora::delegate(), nullptr);
  Lines expected(7, "[Zivora] Error: Zivora didn't initialized. \nPlease, Initialize Zivora!");
  expected.push_back("[Zivora][purchaseEvent] Error: Incorect arguments");
  EXPECT_EQ(scope.log().texts(), expected);
  EXPECT_EQ(Zivora::pump(), 0u);
}

// A second initialisation only warns: the handshake carries the first app id.
TEST_F(ZivoraTest, HandshakeBodyCarriesTheAppIdTheIdentityAndTheHostsSettings) {
  start(HostOptions{.applicationVersion = "3.2",
                    .limitAdTracking = true,
                    .screenWidth = 1280,
                    .screenHeight = 800,
                    .gpuType = "GPU X"});
  Zivora::initializeWithAppId("second");
  runtime_->runUntilIdle();
  EXPECT_TRUE(log_->contains("[Zivora] Warning: Zivora already initialzed!"));
  ASSERT_EQ(http_->requests().size(), 1u);
  auto params = http_->lastParams()["getInitialization"];
  EXPECT_EQ(params["appId"], "app-1");
  EXPECT_EQ(adSide_->calls().front(), "startUp");
  auto device = params["deviceInfo"];
  EXPECT_EQ(device["platformId"], 2);
  EXPECT_EQ(device["sdkVersion"], "0.2.1");
  EXPECT_EQ(device["clientVersion"], "3.2");
  EXPECT_EQ(device["randomUID"], *ZVConfiguration::shared()->randomUID());
  EXPECT_FALSE(device.contains("appUserId"));
  EXPECT_EQ(device["deviceId"], secrets_->valueOf("zvp_idfv"));
  EXPECT_EQ(device["deviceId"].get<std::string>().size(), 36u);
  EXPECT_EQ(device["limitAdTracking"], 1);
  EXPECT_FALSE(device.contains("advertisingId"));
  EXPECT_EQ(device["dimensionX"], 800);
  EXPECT_EQ(device["dimensionY"], 1280);
  EXPECT_EQ(device["gpuType"], "GPU X");
  EXPECT_GT(device["ramSize"].get<std::int64_t>(), 0);
  EXPECT_TRUE(device["osVersion"].get<std::string>().starts_with("Linux"));
  EXPECT_NE(device["deviceName"], "error");
  EXPECT_TRUE(device.contains("language") && device.contains("deviceUserName"));
  ZVPDeviceInfoHelper::setGPUType(std::nullopt);
}

TEST_F(ZivoraTest, RetriesAfterFiveTenFifteenSecondsUpToTwoMinutesForEver) {
  failNext(30);
  start();
  runtime_->runUntilIdle();
  for (int failure = 1; failure <= 28; ++failure) {
    auto expected = std::chrono::seconds(std::min(120, 5 * failure));
    ASSERT_EQ(runtime_->nextPendingDelay(), expected) << "after failure " << failure;
    runtime_->advanceBy(expected);
    ASSERT_EQ(http_->requests().size(), static_cast<std::size_t>(failure + 1));
  }
  EXPECT_TRUE(
      log_->contains("[Zivora][initializeRequest] Error request initialization, error = -2"));
}

// The first failure fails nobody; the second fails every parked video once
// and, while failing, a new one at once on the caller's thread. A reward
// request waits for the success after them; then calls pass straight on.
TEST_F(ZivoraTest, ParkedCallsFailOnTheSecondFailureAndRewardRequestsWaitForSuccess) {
  failNext(2);
  start();
  Zivora::showVideo("a");
  Zivora::cacheVideo("b");
  Zivora::requestMotivatedRewards();
  Zivora::removeMotivatedRewards({"ignored"});
  runtime_->runUntilIdle();
  EXPECT_TRUE(delegate_->calls.empty());

  runtime_->advanceBy(5s);
  EXPECT_EQ(delegate_->calls, (Lines{"videoDidFailToLoad a 3", "videoDidFailToLoad b 3"}));
  Zivora::showVideo("c");
  EXPECT_EQ(delegate_->calls.back(), "videoDidFailToLoad c 3");
  EXPECT_TRUE(adSide_->calls("requestMotivatedRewards").empty());

  runtime_->advanceBy(10s);
  EXPECT_EQ(delegate_->calls.size(), 3u);
  EXPECT_EQ(adSide_->calls("requestMotivatedRewards").size(), 1u);
  Zivora::showVideo("late");
  Zivora::removeMotivatedRewards({"r1", "r2"});
  EXPECT_EQ(adSide_->calls("show:"), Lines{"show:late"});
  EXPECT_EQ(adSide_->calls("removeMotivatedRewards"), Lines{"removeMotivatedRewards:r1,r2"});
  EXPECT_EQ(runtime_->pendingTaskCount(), 0u);
}

TEST_F(ZivoraTest, ParkedCallsReplayAsOneShowAndCachesAfterSuccess) {
  start();
  Zivora::showVideo("first");
  Zivora::showVideo("second");
  Zivora::cacheVideo("third");
  EXPECT_FALSE(Zivora::isReadyVideo("first"));
  runtime_->runUntilIdle();
  EXPECT_EQ(adSide_->calls("show:"), Lines{"show:first"});
  EXPECT_EQ(adSide_->calls("cache:"), (Lines{"cache:second", "cache:third"}));
  // Rewards owed from an earlier run go out first, once.
  const auto calls = adSide_->calls();
  const auto redelivery = std::find(calls.begin(), calls.end(), "redeliverRewards");
  EXPECT_EQ(adSide_->calls("redeliverRewards").size(), 1u);
  EXPECT_LT(redelivery, std::find(calls.begin(), calls.end(), "newVideoManager"));
  EXPECT_LT(redelivery, std::find(calls.begin(), calls.end(), "show:first"));

  adSide_->setReady(true);
  EXPECT_TRUE(Zivora::isReadyVideo("first"));
  // A show while an ad is already showing becomes a cache.
  adSide_->setShowing(true);
  Zivora::showVideo("fourth");
  EXPECT_EQ(adSide_->calls().back(), "cache:fourth");
  EXPECT_EQ(runtime_->pendingTaskCount(), 0u);
}

TEST_F(ZivoraTest, PurchasesAreCheckedThenQueuedEvenBeforeInitialisation) {
  failNext(1);
  start();
  Zivora::purchaseEvent(-0.01, "USD", "t");
  Zivora::purchaseEvent(1.0, "", "t");
  Zivora::purchaseEvent(1.0, "USD", std::nullopt);
  Zivora::purchaseEvent(NAN, "USD", "t");
  Zivora::purchaseEvent(0.99, "USD", "t-1");
  Zivora::purchaseEvent(2.5, "EUR", "t-2", "order-token");
  runtime_->runUntilIdle();
  const auto texts = log_->texts();
  EXPECT_EQ(
      std::count(texts.begin(), texts.end(), "[Zivora][purchaseEvent] Error: Incorect arguments"),
      4);
  EXPECT_EQ(adSide_->calls("purchase:"),
            (Lines{"purchase:0.99:USD:t-1", "purchase:2.5:EUR:t-2:order-token"}));
}

class ZivoraRefusalTest
    : public ZivoraTest,
      public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(ZivoraRefusalTest, AnErrorReplyRefusesEveryLaterCallAndStopsRetrying) {
  auto [reply, description] = GetParam();
  http_->enqueue(200, reply);
  start();
  Zivora::cacheVideo("parked");
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->calls, Lines{"videoDidFailToLoad parked 3"});
  EXPECT_EQ(runtime_->pendingTaskCount(), 0u);

  log_->clear();
  EXPECT_FALSE(Zivora::isReadyVideo("p"));
  Zivora::showVideo("p");
  Zivora::setAppUserId("u");
  Zivora::requestMotivatedRewards();
  Zivora::purchaseEvent(1, "USD", "t");
  runtime_->runUntilIdle();
  EXPECT_EQ(log_->texts(), Lines(5, std::string("[Zivora] Error! Description: ") + description));
  EXPECT_TRUE(adSide_->calls("show:").empty());
  EXPECT_TRUE(adSide_->calls("purchase:").empty());
  EXPECT_EQ(http_->requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(ErrorValues, ZivoraRefusalTest,
                         ::testing::Values(std::pair{R"({"error":"bad app"})", "bad app"},
                                           std::pair{R"({"error":17})", "17"},
                                           std::pair{R"({"error":null})", "<null>"}));

TEST_F(ZivoraTest, RepliesOfOddShapeKeepTheHandshakeGoing) {
  http_->enqueue(200, "[1,2,3]");
  http_->enqueue(200, "garbage");
  http_->enqueue(
      200,
      R"({"closeButtonURL": 12, "soundOnButtonURL": null, "soundOffButtonURL": "https://s/off.png",
                          "newURL": "http://plain.example/HandleRequestV3.php"})");
  start();
  runtime_->runUntilIdle();
  EXPECT_EQ(runtime_->nextPendingDelay(), 5s);
  runtime_->advanceBy(5s);
  EXPECT_EQ(runtime_->nextPendingDelay(), 10s);
  runtime_->advanceBy(10s);

  auto configuration = ZVConfiguration::shared();
  EXPECT_EQ(configuration->closeButtonURL(), "12");
  EXPECT_EQ(configuration->soundOnButtonURL(), std::nullopt);
  EXPECT_EQ(configuration->soundOffButtonURL(), "https://s/off.png");
  EXPECT_EQ(configuration->serverURL(), kDefaultEndpoint);
  auto reported = analytics_->exceptions();
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_EQ(reported[0].className, "ZVConfiguration");
  EXPECT_EQ(reported[0].method, "setSoundOnButtonURL");
  // The handshake still succeeded.
  Zivora::showVideo("p");
  EXPECT_EQ(adSide_->calls("show:"), Lines{"show:p"});
}

class ZivoraNewUrlTest : public ZivoraTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(ZivoraNewUrlTest, AnythingButAnAbsoluteHttpsUrlIsIgnored) {
  http_->enqueue(200, std::string(R"({"newURL": )") + GetParam() + "}");
  start();
  runtime_->runUntilIdle();
  EXPECT_EQ(ZVConfiguration::shared()->serverURL(), kDefaultEndpoint);
  Zivora::showVideo("p");
  EXPECT_EQ(adSide_->calls("show:"), Lines{"show:p"});
}

INSTANTIATE_TEST_SUITE_P(BadValues, ZivoraNewUrlTest,
                         ::testing::Values(R"("http://plain.example/x")", R"("relative/path")",
                                           R"("file:///etc/passwd")", R"("https://")",
                                           R"("https:///x")", R"x("javascript:alert(1)")x", "42",
                                           "null"));

TEST_F(ZivoraTest, RemoveFilesPassesNamesNeverPaths) {
  http_->enqueue(
      200,
      R"({"removeFiles": ["../x", "/etc/passwd", "https://cdn.example/v/ad.mp4?sig=1", "abc.png"]})");
  start();
  runtime_->runUntilIdle();
  std::string cached =
      ZVResourceManager::convertURLToFileName("https://cdn.example/v/ad.mp4?sig=1");
  EXPECT_EQ(adSide_->calls("removeFile:"), (Lines{"removeFile:../x", "removeFile:/etc/passwd",
                                                  "removeFile:" + cached, "removeFile:abc.png"}));
  EXPECT_EQ(adSide_->calls("unreserveAll:").size(), 4u);
  EXPECT_EQ(cached.substr(32), ".mp4");
}

}  // namespace
}  // namespace zivora
