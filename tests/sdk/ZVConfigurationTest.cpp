// The configuration store: the device's random id, the server address and
// the host's settings, kept per data root.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "platform/UserDefaults.h"
#include "sdk/ZVConfiguration.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using OptionalString = std::optional<std::string>;

// A runtime whose clock fails on demand; ZVConfiguration needs nothing else.
class FailingClockRuntime final : public dispatch::Runtime, public dispatch::Clock {
 public:
  std::shared_ptr<dispatch::Queue> makeSerialQueue(std::string) override { throw unused(); }
  dispatch::Queue& mainQueue() override { throw unused(); }
  dispatch::Queue& globalQueue() override { throw unused(); }
  dispatch::Clock& clock() override { return *this; }
  std::size_t pumpMainQueue() override { return 0; }
  WallTime wallNow() const override {
    if (failing) throw std::runtime_error("clock unavailable");
    return WallTime(1700000000s);
  }
  SteadyTime steadyNow() const override { return {}; }
  void sleepFor(dispatch::Duration) override {}
  bool failing = true;

 private:
  static std::logic_error unused() { return std::logic_error("not used by ZVConfiguration"); }
};

const std::regex kUidForm(
    "^-?\\d+-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");

class ZVConfigurationTest : public ::testing::Test {
 protected:
  HostOptions host(std::string endpoint = {}) const {
    return {.dataRoot = dir_.path().string(), .adEndpoint = std::move(endpoint)};
  }
  // Drops the context and installs a fresh one on the same data root, as a
  // restarted host would.
  void restart(HostOptions options, RuntimeOptions runtime = {}) {
    scope_.reset();
    scope_.emplace(std::move(options), std::move(runtime));
  }
  ZVConfiguration& configuration() { return *ZVConfiguration::shared(); }
  std::size_t linesSaying(const std::string& text) {
    return std::ranges::count(scope_->log().texts(), text);
  }

  test::TempDir dir_;
  std::optional<test::ScopedContext> scope_{std::in_place, host()};
};

TEST_F(ZVConfigurationTest, RandomUIDIsCreatedOnceAndSurvivesARestart) {
  auto shared = ZVConfiguration::shared();
  auto first = configuration().randomUID();
  ASSERT_TRUE(first);
  EXPECT_TRUE(std::regex_match(*first, kUidForm)) << *first;
  EXPECT_EQ(configuration().randomUID(), first);
  EXPECT_EQ(linesSaying("Create new UID"), 1u);

  // The shared object belongs to the installed context.
  restart(host());
  EXPECT_NE(ZVConfiguration::shared(), shared);
  EXPECT_EQ(configuration().randomUID(), first);
  EXPECT_EQ(linesSaying("Create new UID"), 0u);
  scope_.reset();
  EXPECT_EQ(ZVConfiguration::shared(), nullptr);
}

TEST_F(ZVConfigurationTest, NewUIDsTakeTheClockAsA32BitSecondCount) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  restart(host(), RuntimeOptions{.runtime = runtime});
  auto uid = configuration().generateNewUID();
  EXPECT_EQ(uid.value_or("").substr(0, 11), "1767225600-");
  EXPECT_NE(configuration().generateNewUID(), uid);
  // Past 2038 the count wraps to a negative number, as a 32-bit field does.
  runtime->advanceBy(std::chrono::seconds(2147483653 - 1767225600));
  uid = configuration().generateNewUID();
  EXPECT_EQ(uid.value_or("").substr(0, 12), "-2147483643-");
  EXPECT_TRUE(std::regex_match(uid.value_or(""), kUidForm)) << uid.value_or("");

  // Without a runtime, the system clock.
  restart(host());
  const auto before = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const auto seconds = std::stoll(configuration().generateNewUID().value_or("0"));
  EXPECT_GE(seconds, before.time_since_epoch().count());
  EXPECT_LE(seconds, before.time_since_epoch().count() + 60);
}

TEST_F(ZVConfigurationTest, AFailingClockIsReportedUnderGenerateNewUIDAndNothingIsStored) {
  auto runtime = std::make_shared<FailingClockRuntime>();
  restart(host(), RuntimeOptions{.runtime = runtime});
  EXPECT_EQ(configuration().randomUID(), std::nullopt);
  auto reported = scope_->analytics().exceptions();
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_EQ(reported[0].className, "ZVConfiguration");
  EXPECT_EQ(reported[0].method, "generateNewUID");
  EXPECT_EQ(reported[0].reason, "clock unavailable");

  runtime->failing = false;
  EXPECT_EQ(configuration().randomUID().value_or("").substr(0, 11), "1700000000-");
  EXPECT_EQ(linesSaying("Create new UID"), 2u);
}

TEST_F(ZVConfigurationTest, AStoredServerURLOverridesTheDefaultOrTheHostsEndpointAcrossRestarts) {
  EXPECT_EQ(configuration().serverURL(), TS_HOST_URL);
  configuration().setServerURL("https://moved.example/HandleRequestV3.php");
  restart(host());
  EXPECT_EQ(configuration().serverURL(), "https://moved.example/HandleRequestV3.php");
  configuration().setServerURL(std::nullopt);
  EXPECT_EQ(configuration().serverURL(), TS_HOST_URL);

  restart(host("https://ads.host.example/HandleRequestV3.php"));
  EXPECT_EQ(configuration().serverURL(), "https://ads.host.example/HandleRequestV3.php");
  configuration().setServerURL("https://moved.example/x");
  EXPECT_EQ(configuration().serverURL(), "https://moved.example/x");
}

struct StoredString {
  const char* storeKey;
  OptionalString (ZVConfiguration::*get)() noexcept;
  void (ZVConfiguration::*set)(OptionalString) noexcept;
};

TEST_F(ZVConfigurationTest, EachSettingLivesUnderItsOwnStoreKeyAndNilRemovesIt) {
  const StoredString settings[] = {
      {"appId", &ZVConfiguration::appId, &ZVConfiguration::setAppId},
      {"appUserId", &ZVConfiguration::appUserId, &ZVConfiguration::setAppUserId},
      {"closeButton", &ZVConfiguration::closeButtonURL, &ZVConfiguration::setCloseButtonURL},
      {"soundOnURL", &ZVConfiguration::soundOnButtonURL, &ZVConfiguration::setSoundOnButtonURL},
      {"soundOffURL", &ZVConfiguration::soundOffButtonURL, &ZVConfiguration::setSoundOffButtonURL},
      {"serverURL", &ZVConfiguration::serverURL, &ZVConfiguration::setServerURL},
  };
  auto& config = configuration();
  for (const auto& setting : settings)
    (config.*setting.set)(std::string("value of ") + setting.storeKey);
  auto suite = scope_->context().userDefaults(TS_COMMON_CONFIGURATION_PLIST);
  ASSERT_NE(suite, nullptr);
  for (const auto& setting : settings) {
    SCOPED_TRACE(setting.storeKey);
    EXPECT_EQ(suite->stringForKey(setting.storeKey), std::string("value of ") + setting.storeKey);
    // An empty string is a value, not nil.
    (config.*setting.set)(std::string());
    EXPECT_EQ((config.*setting.get)(), "");
    (config.*setting.set)(std::nullopt);
    EXPECT_EQ(suite->objectForKey(setting.storeKey), std::nullopt);
  }
  // The JSON spellings that fill three of them are not store keys.
  for (const char* jsonKey : {TS_API_CLOSE_BUTTON, TS_API_SOUND_ON_BUTTON, TS_API_SOUND_OFF_BUTTON})
    EXPECT_EQ(suite->objectForKey(jsonKey), std::nullopt) << jsonKey;
  EXPECT_EQ(config.appId(), std::nullopt);
}

TEST_F(ZVConfigurationTest, AnAbsentStoreAnswersNilAndIsReportedOnce) {
  // A regular file where the data root should be: nothing can be created.
  std::ofstream(dir_.path() / "root") << "not a directory";
  restart({.dataRoot = (dir_.path() / "root").string()});
  auto& config = configuration();
  EXPECT_EQ(config.configuration(), nullptr);
  config.setAppId("app");
  EXPECT_EQ(config.appId(), std::nullopt);
  EXPECT_EQ(config.serverURL(), TS_HOST_URL);
  // Without a store the id cannot persist, but callers still get one.
  EXPECT_TRUE(std::regex_match(config.randomUID().value_or(""), kUidForm));

  auto events = scope_->analytics().events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].eventName, "error");
  EXPECT_EQ(events[0].className, "ZVConfiguration");
  EXPECT_EQ(events[0].method, "configuration");
  EXPECT_TRUE(scope_->analytics().exceptions().empty());
}

TEST_F(ZVConfigurationTest, AppUserIdIsSeenAtOnceAndWrittenLaterInCallOrder) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  restart(host(), RuntimeOptions{.runtime = runtime});
  auto suite = scope_->context().userDefaults(TS_COMMON_CONFIGURATION_PLIST);
  configuration().setAppUserId("first");
  configuration().setAppUserId("second");
  // Every read after the call has the value; the store waits for the queue.
  EXPECT_EQ(configuration().appUserId(), "second");
  EXPECT_EQ(suite->stringForKey("appUserId"), std::nullopt);
  runtime->runUntilIdle();
  EXPECT_EQ(suite->stringForKey("appUserId"), "second");

  configuration().setAppUserId(std::nullopt);
  EXPECT_EQ(configuration().appUserId(), std::nullopt);
  configuration().setAppUserId("third");
  runtime->runUntilIdle();
  restart(host(), RuntimeOptions{.runtime = runtime});
  EXPECT_EQ(configuration().appUserId(), "third");
}

}  // namespace
}  // namespace zivora
