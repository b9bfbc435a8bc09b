// The analytics facade end to end on virtual time: records built on its
// queue, stored, and posted through a scripted HTTP client.
#include <gtest/gtest.h>

#include "analytics/ZVPAnalitics.h"
#include "events/ZVSendRequest.h"
#include "platform/dispatch/Runtime.h"
#include "resources/ZVResourceManager.h"
#include "sdk/InvokeDelegateHelper.h"
#include "support/AnalyticsBody.h"
#include "support/FakeFileSystem.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "ui/Display.h"
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
    std::vector<test::AnalyticsBody> bodies;
    for (const auto& request : http_->requests()) {
      auto body = test::AnalyticsBody::parse(request.body);
      EXPECT_TRUE(body && body->md5Valid) << request.body;
      if (body) bodies.push_back(*body);
    }
    return bodies;
  }

  std::vector<std::string> eventNames() const {
    std::vector<std::string> names;
    for (const auto& body : records()) names.push_back(body.eventName());
    return names;
  }

  // Records other than the opening one.
  std::vector<test::AnalyticsBody> laterRecords() const {
    auto all = records();
    if (!all.empty() && all.front().eventName() == "AppOpen") all.erase(all.begin());
    return all;
  }

  ui::AppLifecycle& lifecycle() { return ui::Display::of(Context::current())->lifecycle(); }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  std::shared_ptr<test::FakeFileSystem> files_ = std::make_shared<test::FakeFileSystem>();
  // Outlives a context, as the keychain outlives a process.
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
  runtime_->runUntilIdle();
  analytics_->appOpen();
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[ZVPAnalitics][appOpen] Error: already invoked appOpen"));

  auto all = records();
  ASSERT_EQ(all.size(), 1u);
  const auto& open = all[0];
  EXPECT_EQ(http_->requests()[0].url, "https://analytics.test/ProfilingEvent.php");
  EXPECT_EQ(open.appId, "tessaro-profiling");
  EXPECT_EQ(open.eventName(), "AppOpen");
  EXPECT_EQ(open.text("bo_ClientVersion"), "2.4.1");
  EXPECT_EQ(open.text("bo_BundleId"), "host-game");
  EXPECT_EQ(open.text("bo_SDKVersion"), "1.1.2");
  EXPECT_EQ(open.text("bo_RandomUID").size(), 73u);
  EXPECT_EQ(open.text("bo_DeviceId").size(), 36u);
  EXPECT_EQ(open.text("bo_AdvertisingId").size(), 36u);
  EXPECT_EQ(open.text("bo_OSVersion").rfind("Linux", 0), 0u);
  EXPECT_FALSE(open.text("bo_Language").empty());
  EXPECT_EQ(open.integer("bo_PlatformId"), 2);
  EXPECT_EQ(open.integer("bo_DimensionX"), 1080);
  EXPECT_EQ(open.integer("bo_DimensionY"), 1920);
  EXPECT_EQ(open.integer("bo_LimitAdTracking"), 0);
  EXPECT_EQ(open.integer("bo_Order"), 1);
  EXPECT_EQ(open.integer("bo_Timestamp"), kStart);
  EXPECT_EQ(open.integer("bo_ClientTime"), kStart);
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

  EXPECT_EQ(eventNames(),
            (std::vector<std::string>{"AppOpen", "LevelUp", "Purchase", "UpdateSetting"}));
  auto level = records()[1];
  EXPECT_EQ(level.integer("level"), 12);
  EXPECT_EQ(level.value("d", "score"), 0.5);
  EXPECT_EQ(level.integer("bo_Order"), 2);
  EXPECT_EQ(level.integer("bo_PlatformId"), 2);
  EXPECT_EQ(level.text("bo_ClientVersion"), "2.4.1");
  EXPECT_TRUE(level.value("s", "bo_OSVersion").is_null());  // only AppOpen has the full block
  auto purchase = records()[2];
  EXPECT_EQ(purchase.value("d", "Amount"), 4.99);
  EXPECT_EQ(purchase.text("Currency"), "EUR");
  EXPECT_EQ(purchase.text("ProductId"), "gems.50");
  EXPECT_EQ(purchase.text("TransactionId"), "t-1");
  EXPECT_EQ(purchase.integer("bo_Order"), 3);
}

TEST_F(ZVPAnaliticsTest, DiagnosticEventsAndExceptionsBecomeRecordsAndALogLine) {
  analytics_->appOpen();
  analytics_->sendEvent("info", "ZVVideoView", "show", "say \"hi\" & a=b 100%");
  analytics_->sendEvent("error", "EventSender", "purchaseEvent", "Receipt is nil!");
  analytics_->sendException(ZVException("Invalid color value", "#fffff"), "ZVPostVideoView",
                            "setMotivatedView");
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[Zivora][ZVPostVideoView][setMotivatedView] Error! #fffff"));

  auto later = laterRecords();
  ASSERT_EQ(later.size(), 3u);
  EXPECT_EQ(later[0].eventName(), "info");
  EXPECT_EQ(later[0].text("ClassName"), "ZVVideoView");
  EXPECT_EQ(later[0].text("MethodName"), "show");
  EXPECT_EQ(later[0].text("Message"), "say \"hi\" & a=b 100%");
  EXPECT_EQ(later[1].eventName(), "error");
  EXPECT_EQ(later[2].eventName(), "Exception");
  EXPECT_EQ(later[2].text("exceptionName"), "Invalid color value");
  EXPECT_EQ(later[2].text("reason"), "#fffff");
  EXPECT_TRUE(later[2].value("s", "stack").is_null());
}

class ThrowingDelegate final : public ZivoraDelegate {
 public:
  void videoDidDismiss(const std::string&) override { throw std::runtime_error("host bug"); }
};

TEST_F(ZVPAnaliticsTest, AGuardedFailureInEachSubsystemBecomesOneRecordWithItsNames) {
  analytics_->appOpen();
  runtime_->runUntilIdle();

  ZVHash::hashMD5(std::nullopt);
  ZVSendRequest::getMD5(std::nullopt);
  InvokeDelegateHelper helper;
  helper.setDelegate(std::make_shared<ThrowingDelegate>());
  helper.videoDidDismiss("rewarded");
  files_->spaceMode = test::FakeFileSystem::Space::Throws;
  ZVResourceManager::defaultManager()->getFreeDiskspace();
  runtime_->runUntilIdle();

  std::vector<std::pair<std::string, std::string>> reported;
  for (const auto& record : laterRecords()) {
    EXPECT_EQ(record.eventName(), "Exception");
    reported.emplace_back(record.text("ClassName"), record.text("MethodName"));
  }
  EXPECT_EQ(reported, (std::vector<std::pair<std::string, std::string>>{
                          {"ZVHash", "hashMD5"},
                          {"ZVSendRequest", "getMD5"},
                          {"InvokeDelegateHelper", "videoDidDismiss"},
                          {"ZVResourceManager", "getFreeDiskspace"}}));
  EXPECT_EQ(laterRecords()[2].text("reason"), "host bug");
}

TEST_F(ZVPAnaliticsTest, AFailureRaisedOnTheModulesOwnQueueIsLoggedNotRecorded) {
  analytics_->appOpen();
  runtime_->runUntilIdle();
  ZVPAnaliticsTestPeer::onQueue(*analytics_, [] {
    guarded("JsonEscape", "escape", [] { throw std::runtime_error("inside"); });
  });
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_->log().contains("[Zivora][JsonEscape][escape] Error! inside"));
  EXPECT_TRUE(laterRecords().empty());
}

TEST_F(ZVPAnaliticsTest, SessionsFollowTheApplicationsTripsToTheBackground) {
  analytics_->appOpen();
  runtime_->advanceBy(10s);  // ticks at 3, 6, 9
  lifecycle().post(ui::AppLifecycle::Event::DidEnterBackground);
  runtime_->advanceBy(20s);
  lifecycle().post(ui::AppLifecycle::Event::WillEnterForeground);
  runtime_->advanceBy(5s);  // ticks at 33, 36: the same session goes on
  EXPECT_TRUE(laterRecords().empty());

  lifecycle().post(ui::AppLifecycle::Event::DidEnterBackground);
  runtime_->advanceBy(40s);
  lifecycle().post(ui::AppLifecycle::Event::WillEnterForeground);
  runtime_->runUntilIdle();
  auto later = laterRecords();
  ASSERT_EQ(later.size(), 1u);
  EXPECT_EQ(later[0].eventName(), "SessionFinished");
  EXPECT_EQ(later[0].integer("Start"), kStart);
  EXPECT_EQ(later[0].integer("Duration"), 33);
}

TEST_F(ZVPAnaliticsTest, AProcessKilledInTheForegroundReportsItsSessionAtTheNextStart) {
  analytics_->appOpen();
  runtime_->advanceBy(31s);  // the last tick that saw it running was at 30 s
  start();                   // a new process on the same data root
  runtime_->advanceBy(1min);
  analytics_->appOpen();
  runtime_->runUntilIdle();

  auto all = records();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].eventName(), "AppOpen");
  EXPECT_EQ(all[2].eventName(), "SessionFinished");
  EXPECT_EQ(all[2].integer("Start"), kStart);
  EXPECT_EQ(all[2].integer("Duration"), 30);
  // Numbering and identity go on across launches.
  EXPECT_EQ(all[2].integer("bo_Order"), 3);
  EXPECT_EQ(all[2].text("bo_DeviceId"), all[0].text("bo_DeviceId"));
}

}  // namespace
}  // namespace zivora
