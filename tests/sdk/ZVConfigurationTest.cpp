#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>

#include "platform/UserDefaults.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/ZVConfiguration.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using OptionalString = std::optional<std::string>;

// A runtime that only tells the time; ZVConfiguration needs nothing else.
class ClockOnlyRuntime final : public dispatch::Runtime, public dispatch::Clock {
 public:
  explicit ClockOnlyRuntime(WallTime now) : now_(now) {}

  std::shared_ptr<dispatch::Queue> makeSerialQueue(std::string) override { throw unused(); }
  dispatch::Queue& mainQueue() override { throw unused(); }
  dispatch::Queue& globalQueue() override { throw unused(); }
  dispatch::Clock& clock() override { return *this; }
  std::size_t pumpMainQueue() override { return 0; }

  WallTime wallNow() const override {
    if (failing) throw std::runtime_error("clock unavailable");
    return now_;
  }
  SteadyTime steadyNow() const override { return {}; }
  void sleepFor(dispatch::Duration) override {}

  bool failing = false;

 private:
  static std::logic_error unused() { return std::logic_error("not used by ZVConfiguration"); }
  WallTime now_;
};

class ZVConfigurationTest : public ::testing::Test {
 protected:
  HostOptions host() const { return hostAt(dir_.path()); }

  static HostOptions hostAt(const std::filesystem::path& dataRoot) {
    HostOptions options;
    options.dataRoot = dataRoot.string();
    return options;
  }

  // Drops the context and installs a fresh one on the same data root, as a
  // restarted host would.
  void restart(HostOptions options, RuntimeOptions runtime = {}) {
    scope_.reset();
    scope_.emplace(std::move(options), std::move(runtime));
  }

  ZVConfiguration& configuration() { return *ZVConfiguration::shared(); }

  std::size_t linesSaying(const std::string& text) {
    std::size_t count = 0;
    for (const auto& line : scope_->log().texts()) count += line == text;
    return count;
  }

  test::TempDir dir_;
  std::optional<test::ScopedContext> scope_{std::in_place, host()};
};

const std::regex kUidForm(
    "^-?\\d+-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");

TEST_F(ZVConfigurationTest, RandomUIDIsCreatedOnceAndSurvivesARestart) {
  auto first = configuration().randomUID();
  ASSERT_TRUE(first);
  EXPECT_TRUE(std::regex_match(*first, kUidForm)) << *first;
  EXPECT_EQ(configuration().randomUID(), first);
  EXPECT_EQ(linesSaying("Create new UID"), 1u);

  restart(host());
  EXPECT_EQ(configuration().randomUID(), first);
  EXPECT_EQ(linesSaying("Create new UID"), 0u);
}

TEST_F(ZVConfigurationTest, NewUIDsTakeTheContextsClockAsA32BitSecondCount) {
  auto runtime = std::make_shared<ClockOnlyRuntime>(dispatch::Clock::WallTime(1700000000s));
  restart(host(), RuntimeOptions{.runtime = runtime});
  auto uid = configuration().generateNewUID();
  ASSERT_TRUE(uid);
  EXPECT_TRUE(uid->starts_with("1700000000-")) << *uid;
  EXPECT_NE(configuration().generateNewUID(), uid);

  // Past 2038 the count wraps to a negative number, as a 32-bit field does.
  runtime = std::make_shared<ClockOnlyRuntime>(dispatch::Clock::WallTime(2147483653s));
  restart(host(), RuntimeOptions{.runtime = runtime});
  uid = configuration().generateNewUID();
  ASSERT_TRUE(uid);
  EXPECT_TRUE(uid->starts_with("-2147483643-")) << *uid;
  EXPECT_TRUE(std::regex_match(*uid, kUidForm)) << *uid;
}

TEST_F(ZVConfigurationTest, WithoutARuntimeNewUIDsTakeTheSystemClock) {
  auto before = std::chrono::system_clock::now();
  auto uid = configuration().generateNewUID();
  auto after = std::chrono::system_clock::now();
  ASSERT_TRUE(uid);
  auto seconds = std::stoll(uid->substr(0, uid->find('-')));
  EXPECT_GE(seconds, std::chrono::floor<std::chrono::seconds>(before).time_since_epoch().count());
  EXPECT_LE(seconds, std::chrono::floor<std::chrono::seconds>(after).time_since_epoch().count());
}

TEST_F(ZVConfigurationTest, AFailingClockIsReportedUnderGenerateNewUIDAndNothingIsStored) {
  auto runtime = std::make_shared<ClockOnlyRuntime>(dispatch::Clock::WallTime(1700000000s));
  runtime->failing = true;
  restart(host(), RuntimeOptions{.runtime = runtime});

  EXPECT_EQ(configuration().randomUID(), std::nullopt);
  auto reported = scope_->analytics().exceptions();
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_EQ(reported[0].className, "ZVConfiguration");
  EXPECT_EQ(reported[0].method, "generateNewUID");
  EXPECT_EQ(reported[0].reason, "clock unavailable");

  runtime->failing = false;
  auto uid = configuration().randomUID();
  ASSERT_TRUE(uid);
  EXPECT_TRUE(uid->starts_with("1700000000-"));
  EXPECT_EQ(linesSaying("Create new UID"), 2u);
}

TEST_F(ZVConfigurationTest, AStoredServerURLOverridesTheDefaultOrTheHostsEndpointAcrossRestarts) {
  EXPECT_EQ(configuration().serverURL(), TS_HOST_URL);
  configuration().setServerURL("https://moved.example/HandleRequestV3.php");
  restart(host());
  EXPECT_EQ(configuration().serverURL(), "https://moved.example/HandleRequestV3.php");
  configuration().setServerURL(std::nullopt);
  EXPECT_EQ(configuration().serverURL(), TS_HOST_URL);

  auto options = host();
  options.adEndpoint = "https://ads.host.example/HandleRequestV3.php";
  restart(options);
  EXPECT_EQ(configuration().serverURL(), options.adEndpoint);
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
  for (const auto& setting : settings) {
    std::string value = std::string("value of ") + setting.storeKey;
    (config.*setting.set)(value);
  }
  auto suite = scope_->context().userDefaults(TS_COMMON_CONFIGURATION_PLIST);
  ASSERT_NE(suite, nullptr);
  for (const auto& setting : settings) {
    SCOPED_TRACE(setting.storeKey);
    std::string value = std::string("value of ") + setting.storeKey;
    EXPECT_EQ(suite->stringForKey(setting.storeKey), value);
    EXPECT_EQ((config.*setting.get)(), value);
    // An empty string is a value, not nil.
    (config.*setting.set)(std::string());
    EXPECT_EQ((config.*setting.get)(), "");
    (config.*setting.set)(std::nullopt);
    EXPECT_EQ(suite->objectForKey(setting.storeKey), std::nullopt);
  }
  // The JSON spellings that fill three of them are not store keys.
  for (const char* jsonKey :
       {TS_API_CLOSE_BUTTON, TS_API_SOUND_ON_BUTTON, TS_API_SOUND_OFF_BUTTON}) {
    EXPECT_EQ(suite->objectForKey(jsonKey), std::nullopt) << jsonKey;
  }
  EXPECT_EQ(config.appId(), std::nullopt);
  EXPECT_TRUE(scope_->analytics().exceptions().empty());
}

TEST_F(ZVConfigurationTest, AnAbsentStoreAnswersNilAndIsReportedOnce) {
  // A regular file where the data root should be: nothing can be created.
  std::ofstream(dir_.path() / "root") << "not a directory";
  restart(hostAt(dir_.path() / "root"));

  auto& config = configuration();
  EXPECT_EQ(config.configuration(), nullptr);
  config.setAppId("app");
  EXPECT_EQ(config.appId(), std::nullopt);
  EXPECT_EQ(config.closeButtonURL(), std::nullopt);
  EXPECT_EQ(config.serverURL(), TS_HOST_URL);
  // Without a store the id cannot persist, but callers still get one.
  auto uid = config.randomUID();
  ASSERT_TRUE(uid);
  EXPECT_TRUE(std::regex_match(*uid, kUidForm));

  auto events = scope_->analytics().events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].eventName, "error");
  EXPECT_EQ(events[0].className, "ZVConfiguration");
  EXPECT_EQ(events[0].method, "configuration");
  EXPECT_NE(events[0].message.find("configuration"), std::string::npos) << events[0].message;
  EXPECT_TRUE(scope_->analytics().exceptions().empty());
}

TEST_F(ZVConfigurationTest, SharedBelongsToTheInstalledContext) {
  auto first = ZVConfiguration::shared();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(ZVConfiguration::shared(), first);
  restart(host());
  EXPECT_NE(ZVConfiguration::shared(), first);
  scope_.reset();
  EXPECT_EQ(ZVConfiguration::shared(), nullptr);
}

TEST_F(ZVConfigurationTest, AppUserIdIsSeenAtOnceAndWrittenLaterInCallOrder) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  restart(host(), RuntimeOptions{.runtime = runtime});
  auto suite = scope_->context().userDefaults(TS_COMMON_CONFIGURATION_PLIST);
  ASSERT_NE(suite, nullptr);
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
