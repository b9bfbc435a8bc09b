// The analytics facade end to end on virtual time: records built on its
// queue, stored, and posted through a scripted HTTP client.
#include <gtest/gtest.h>

#include "analytics/ZVPAnalitics.h"
#include "events/ZVSendRequest.h"
#include "resources/ZVResourceManager.h"
#include "sdk/InvokeDelegateHelper.h"
#include "support/AnalyticsBody.h"
#include "support/FakeFileSystem.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "util/Guard.h"
#include "util/ZVHash.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {

// Runs work on the facade's own queue, as the module's classes do.
class ZVPAnaliticsTestPeer {
 public:
  static void onQueue(ZVPAnalitics& analytics, std::function<void()> task) {
    std::lock_guard lock(analytics.mutex_);
    analytics.serial_->async(std::move(task));
  }
};

namespace {

using namespace std::chrono_literals;
constexpr std::int64_t kStart = 1767225600;

class ZVPAnaliticsTest : public ::testing::Test {
 protected:
  ZVPAnaliticsTest() { start(); }
  ~ZVPAnaliticsTest() override {
    ZVPAnalitics::sendProfilingEnable(false);
    scope_.reset();
  }

  // A new process on the same data root and keychain.
  void start(bool limitAdTracking = false, bool profiling = true) {
    scope_.reset();
    analytics_ = std::make_shared<ZVPAnalitics>();
    scope_ = std::make_unique<test::ScopedContext>(
        HostOptions{.dataRoot = root_.path().string(),
                    .applicationName = "host-game",
                    .applicationVersion = "2.4.1",
                    .analyticsEndpoint = "https://analytics.test/ProfilingEvent.php",
                    .limitAdTracking = limitAdTracking,
                    .screenWidth = 1920,
                    .screenHeight = 1080},
        RuntimeOptions{.runtime = runtime_,
                       .http = http_,
                       .files = files_,
                       .analytics = analytics_,
                       .secretStore = secrets_});
    ZVPAnalitics::sendProfilingEnable(profiling);
  }

  std::vector<test::AnalyticsBody> records() const {
    return test::AnalyticsBody::parseAll(http_->requests());
  }
  // Records other than the opening one.
  std::vector<test::AnalyticsBody> laterRecords() const {
    auto all = records();
    if (!all.empty() && all.front().eventName() == "AppOpen") all.erase(all.begin());
    return all;
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  std::shared_ptr<test::FakeFileSystem> files_ = std::make_shared<test::FakeFileSystem>();
  std::shared_ptr<test::MemorySecretStore> secrets_ = std::make_shared<test::MemorySecretStore>();
  std::shared_ptr<ZVPAnalitics> analytics_;
  std::unique_ptr<test::ScopedContext> scope_;
};

TEST_F(ZVPAnaliticsTest, WithProfilingOffNothingIsRecordedNotEvenErrorReports) {
  start(false, false);
  analytics_->appOpen();
  analytics_->sendEvent("info", "ZVVideoView", "show", "shown");
  guarded("ZVResourceManager", "removeFile", [] { throw std::runtime_error("disk"); });
  runtime_->advanceBy(1min);
  EXPECT_FALSE(analytics_->initialized());
  EXPECT_TRUE(http_->requests().empty());
  EXPECT_FALSE(std::filesystem::exists(root_.path() / "Documents" / "tsp_events_profiling.dat"));
}

TEST_F(ZVPAnaliticsTest, AppOpenSendsTheDeviceRecordOnceAndASecondCallChangesNothing) {
  analytics_->appOpen();
  analytics_->appOpen();
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[ZVPAnalitics][appOpen] Error: already invoked appOpen"));
  auto all = records();
  ASSERT_EQ(all.size(), 1u);
  const auto& open = all[0];
  EXPECT_EQ(http_->requests()[0].url, "https://analytics.test/ProfilingEvent.php");
  EXPECT_EQ(open.appId, "tessaro-profiling");
  for (const auto& [name, text] :
       std::vector<std::pair<std::string, std::string>>{{"bo_Name", "AppOpen"},
                                                        {"bo_ClientVersion", "2.4.1"},
                                                        {"bo_BundleId", "host-game"},
                                                        {"bo_SDKVersion", "1.1.2"}})
    EXPECT_EQ(open.text(name), text) << name;
  for (const auto& [name, number] :
       std::vector<std::pair<std::string, std::int64_t>>{{"bo_PlatformId", 2},
                                                         {"bo_DimensionX", 1080},
                                                         {"bo_DimensionY", 1920},
                                                         {"bo_LimitAdTracking", 0},
                                                         {"bo_Order", 1},
                                                         {"bo_Timestamp", kStart},
                                                         {"bo_ClientTime", kStart}})
    EXPECT_EQ(open.integer(name), number) << name;
  EXPECT_EQ(open.text("bo_RandomUID").size(), 73u);
  EXPECT_EQ(open.text("bo_DeviceId").size(), 36u);
  EXPECT_EQ(open.text("bo_AdvertisingId").size(), 36u);
  EXPECT_TRUE(open.text("bo_OSVersion").starts_with("Linux"));
  EXPECT_FALSE(open.text("bo_Language").empty());
  EXPECT_GT(open.integer("bo_RamSize"), 0);
}

TEST_F(ZVPAnaliticsTest, LimitedTrackingSendsTheFlagAndNoAdvertisingId) {
  start(true);
  analytics_->appOpen();
  analytics_->sendEvent("Custom");
  runtime_->runUntilIdle();
  auto all = records();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].integer("bo_LimitAdTracking"), 1);
  for (const auto& record : all) EXPECT_TRUE(record.value("s", "bo_AdvertisingId").is_null());
}

TEST_F(ZVPAnaliticsTest, RecordsBeforeAppOpenAreDroppedLaterOnesCarryTheShortBlockInOrder) {
  analytics_->sendEvent("TooEarly");
  runtime_->runUntilIdle();
  analytics_->appOpen();
  ZVPCustomParams params;
  params.put("level", 12);
  params.put("bo_Order", 999);  // a fixed field wins over a custom one
  params.put("score", 0.5);
  analytics_->sendEvent("LevelUp", params);
  analytics_->sendPurchase(4.99, "EUR", "gems.50", "t-1");
  // No game user id was ever sent: a nil one counts as a change.
  analytics_->sendUpdateSetting();
  runtime_->runUntilIdle();

  auto all = records();
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[3].eventName(), "UpdateSetting");
  const auto &level = all[1], &purchase = all[2];
  EXPECT_EQ(level.eventName(), "LevelUp");
  EXPECT_EQ(level.integer("level"), 12);
  EXPECT_EQ(level.value("d", "score"), 0.5);
  EXPECT_EQ(level.integer("bo_Order"), 2);
  EXPECT_EQ(level.integer("bo_PlatformId"), 2);
  EXPECT_EQ(level.text("bo_ClientVersion"), "2.4.1");
  EXPECT_TRUE(level.value("s", "bo_OSVersion").is_null());  // only AppOpen has the full block
  EXPECT_EQ(purchase.eventName(), "Purchase");
  EXPECT_EQ(purchase.value("d", "Amount"), 4.99);
  EXPECT_EQ(purchase.text("Currency") + purchase.text("ProductId") + purchase.text("TransactionId"),
            "EURgems.50t-1");
  EXPECT_EQ(purchase.integer("bo_Order"), 3);
}

TEST_F(ZVPAnaliticsTest, DiagnosticEventsAndExceptionsBecomeRecordsAndALogLine) {
  analytics_->appOpen();
  analytics_->sendEvent("info", "ZVVideoView", "show", "say \"hi\" & a=b 100%");
  analytics_->sendException(ZVException("Invalid color value", "#fffff"), "ZVPostVideoView",
                            "setMotivatedView");
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[Zivora][ZVPostVideoView][setMotivatedView] Error! #fffff"));
  auto later = laterRecords();
  ASSERT_EQ(later.size(), 2u);
  EXPECT_EQ(later[0].eventName(), "info");
  EXPECT_EQ(later[0].text("ClassName"), "ZVVideoView");
  EXPECT_EQ(later[0].text("MethodName"), "show");
  EXPECT_EQ(later[0].text("Message"), "say \"hi\" & a=b 100%");
  EXPECT_EQ(later[1].eventName(), "Exception");
  EXPECT_EQ(later[1].text("exceptionName"), "Invalid color value");
  EXPECT_EQ(later[1].text("reason"), "#fffff");
  EXPECT_TRUE(later[1].value("s", "stack").is_null());
}

class ThrowingDelegate final : public ZivoraDelegate {
 public:
  void videoDidDismiss(const std::string&) override { throw std::runtime_error("host bug"); }
};

// A failure in each subsystem becomes one record; one raised on the
// module's own queue is only logged, or reporting it could loop.
TEST_F(ZVPAnaliticsTest, GuardedFailuresBecomeRecordsExceptOnTheModulesOwnQueue) {
  analytics_->appOpen();
  ZVHash::hashMD5(std::nullopt);
  ZVSendRequest::getMD5(std::nullopt);
  InvokeDelegateHelper helper;
  helper.setDelegate(std::make_shared<ThrowingDelegate>());
  helper.videoDidDismiss("rewarded");
  files_->spaceMode = test::FakeFileSystem::Space::Throws;
  ZVResourceManager::defaultManager()->getFreeDiskspace();
  ZVPAnaliticsTestPeer::onQueue(*analytics_, [] {
    guarded("JsonEscape", "escape", [] { throw std::runtime_error("inside"); });
  });
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[Zivora][JsonEscape][escape] Error! inside"));

  std::vector<std::string> reported;
  for (const auto& record : laterRecords()) {
    EXPECT_EQ(record.eventName(), "Exception");
    reported.push_back(record.text("ClassName") + "." + record.text("MethodName"));
  }
  EXPECT_EQ(reported, (std::vector<std::string>{"ZVHash.hashMD5", "ZVSendRequest.getMD5",
                                                "InvokeDelegateHelper.videoDidDismiss",
                                                "ZVResourceManager.getFreeDiskspace"}));
  EXPECT_EQ(laterRecords()[2].text("reason"), "host bug");
}

// Sessions are reported as they end (the session manager's own tests follow
// the trips to the background); numbering and identity go on across launches.
TEST_F(ZVPAnaliticsTest, AProcessKilledInTheForegroundReportsItsSessionAtTheNextStart) {
  analytics_->appOpen();
  runtime_->advanceBy(31s);  // the last tick that saw it running was at 30 s
  start();
  runtime_->advanceBy(1min);
  analytics_->appOpen();
  runtime_->runUntilIdle();
  auto all = records();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].eventName(), "AppOpen");
  EXPECT_EQ(all[2].eventName(), "SessionFinished");
  EXPECT_EQ(all[2].integer("Start"), kStart);
  EXPECT_EQ(all[2].integer("Duration"), 30);
  EXPECT_EQ(all[2].integer("bo_Order"), 3);
  EXPECT_EQ(all[2].text("bo_DeviceId"), all[0].text("bo_DeviceId"));
}

}  // namespace
}  // namespace zivora
