#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "analytics/ZVPDeviceInfoHelper.h"
#include "analytics/ZVPOrderId.h"
#include "platform/UserDefaults.h"
#include "platform/linux/DeviceFacts.h"
#include "support/MemorySecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

class DeviceIdentityTest : public ::testing::Test {
 protected:
  // A fresh context over the same data root and secret store: a restart.
  void restart(HostOptions host = {}) {
    scope_.reset();
    scope_ = open(std::move(host));
  }

  std::unique_ptr<test::ScopedContext> open(HostOptions host = {}) {
    host.dataRoot = root_.path().string();
    if (host.applicationName.empty()) host.applicationName = "host-app";
    return std::make_unique<test::ScopedContext>(
        host, RuntimeOptions{.runtime = runtime_, .secretStore = secrets_});
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  std::shared_ptr<test::MemorySecretStore> secrets_ = std::make_shared<test::MemorySecretStore>();
  test::TempDir root_;
  std::unique_ptr<test::ScopedContext> scope_ = open();
};

// Order numbers start at one, go on after a restart, wrap after the
// largest 32-bit value and are zero without a context.
TEST_F(DeviceIdentityTest, OrderNumbersContinueAfterARestartAndWrap) {
  EXPECT_EQ(ZVPOrderId::currentOrder(), 0);
  EXPECT_EQ(ZVPOrderId::nextOrder(), 1);
  EXPECT_EQ(ZVPOrderId::nextOrder(), 2);
  restart();
  EXPECT_EQ(ZVPOrderId::currentOrder(), 2);
  EXPECT_EQ(ZVPOrderId::nextOrder(), 3);
  restart();
  scope_->context().userDefaults("standard")->setValue("tsp-profiling-order", 2147483647);
  EXPECT_EQ(ZVPOrderId::nextOrder(), 0);
  EXPECT_EQ(ZVPOrderId::nextOrder(), 1);
  scope_.reset();
  EXPECT_EQ(ZVPOrderId::nextOrder(), 0);
}

// --- identities ------------------------------------------------------------

TEST_F(DeviceIdentityTest, IdentitiesAreMadeOnceAndKeptInTheSecretStore) {
  ZVPDeviceInfoHelper device("app", std::nullopt);
  std::string deviceId = device.deviceId();
  std::string randomUID = device.randomUID();
  EXPECT_EQ(deviceId.size(), 36u);
  EXPECT_EQ(deviceId, secrets_->valueOf(ZVP_IDFV_KEY));
  EXPECT_EQ(randomUID.size(), 73u);
  EXPECT_EQ(randomUID[36], '-');
  EXPECT_EQ(randomUID, secrets_->valueOf(ZVP_RANDOM_KEY));
  for (char c : deviceId) EXPECT_FALSE(c >= 'a' && c <= 'z') << deviceId;

  restart();
  ZVPDeviceInfoHelper again("app", std::nullopt);
  EXPECT_EQ(again.deviceId(), deviceId);
  EXPECT_EQ(again.randomUID(), randomUID);
  EXPECT_EQ(secrets_->writes(), 2);
}

TEST_F(DeviceIdentityTest, ALockedStoreGivesTheFallbackAndMintsNothing) {
  secrets_->failWith(platform::kSecretInteractionNotAllowed);
  ZVPDeviceInfoHelper device("app", std::nullopt);
  EXPECT_EQ(device.deviceId(), "error");
  EXPECT_EQ(device.randomUID(), "error");
  EXPECT_EQ(device.advertisingId(), "error");
  EXPECT_EQ(secrets_->writes(), 0);
  for (const char* method : {"deviceId", "randomUID", "advertisingId"})
    EXPECT_TRUE(scope_->log().contains(std::string("Backoffice [ZVPDeviceInfoHelper][") + method +
                                       "] Error!"));
}

// The advertising id is kept until reset, and there is none with limited
// tracking.
TEST_F(DeviceIdentityTest, TheAdvertisingIdIsStableUntilResetAndAbsentWhenLimited) {
  ZVPDeviceInfoHelper device("app", std::nullopt);
  EXPECT_EQ(device.limitAdTracking(), 0);
  auto first = device.advertisingId();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size(), 36u);
  EXPECT_EQ(device.advertisingId(), first);
  EXPECT_NE(device.advertisingId(), device.deviceId());
  EXPECT_TRUE(ZVPDeviceInfoHelper::resetAdvertisingId());
  EXPECT_NE(device.advertisingId(), first);

  const int writes = secrets_->writes();
  restart(HostOptions{.limitAdTracking = true});
  ZVPDeviceInfoHelper limited("app", std::nullopt);
  EXPECT_EQ(limited.limitAdTracking(), 1);
  EXPECT_EQ(limited.advertisingId(), std::nullopt);
  EXPECT_EQ(secrets_->writes(), writes);
}

TEST_F(DeviceIdentityTest, GameUserIdIsWrittenOnlyWhenItChanges) {
  ZVPDeviceInfoHelper device("app", std::string("player-1"));
  EXPECT_FALSE(device.setGameUserId(std::string("player-1")));
  EXPECT_FALSE(device.setGameUserId(std::nullopt));
  EXPECT_EQ(secrets_->writes(), 0);
  EXPECT_TRUE(device.setGameUserId(std::string("player-2")));
  EXPECT_EQ(secrets_->writes(), 1);
  EXPECT_EQ(device.getGameUserId(), "player-2");

  ZVPDeviceInfoHelper restored("app", std::nullopt);
  EXPECT_EQ(restored.getGameUserId(), "player-2");
  EXPECT_EQ(restored.appId(), "app");
}

// --- facts -----------------------------------------------------------------

TEST_F(DeviceIdentityTest, ScreenSidesDoNotDependOnOrientation) {
  for (auto screen : {ScreenMetrics{375, 667, 2}, ScreenMetrics{667, 375, 2}}) {
    EXPECT_EQ(ZVPDeviceInfoHelper::shorterSide(screen), 750);
    EXPECT_EQ(ZVPDeviceInfoHelper::longerSide(screen), 1334);
  }
  EXPECT_EQ(ZVPDeviceInfoHelper::shorterSide(ScreenMetrics{100.7, 300, 1}), 100);
}

// The client's name and version come from the host options (the opening
// record checks them); a host that gives no version sends an empty one.
TEST_F(DeviceIdentityTest, AMissingClientVersionIsQuietlyEmpty) {
  EXPECT_EQ(ZVPDeviceInfoHelper("app", std::nullopt).clientVersion(), "");
  EXPECT_FALSE(scope_->log().contains("Backoffice [ZVPDeviceInfoHelper][clientVersion] Error!"));
}

TEST(DeviceFactsTest, LanguageFollowsTheLocaleVariablesInOrder) {
  const std::vector<std::pair<std::map<std::string, std::string>, std::string>> cases = {
      {{{"LC_ALL", "de_DE.UTF-8"}, {"LANG", "fr_FR.UTF-8"}}, "de"},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", "pt_BR"}, {"LANG", "fr_FR"}}, "pt"},
      {{{"LANG", "sr_RS@latin"}}, "sr"},
      {{{"LANG", "C.UTF-8"}}, "en"},
      {{{"LC_ALL", "POSIX"}}, "en"},
      {{}, "en"},
  };
  for (const auto& testCase : cases) {
    const auto& variables = testCase.first;
    auto lookup = [&](const char* name) -> const char* {
      auto found = variables.find(name);
      return found == variables.end() ? nullptr : found->second.c_str();
    };
    EXPECT_EQ(platform::DeviceFacts::language(lookup), testCase.second);
  }
}

TEST(DeviceFactsTest, OsVersionComesFromOsReleaseOrTheKernel) {
  test::TempDir dir;
  auto write = [&](const char* name, const char* text) {
    std::ofstream(dir.path() / name) << text;
    return dir.path() / name;
  };
  EXPECT_EQ(
      platform::DeviceFacts::osVersion(write(
          "pretty", "NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n")),
      "Linux Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(
      platform::DeviceFacts::osVersion(write("plain", "# comment\nNAME=Alpine\nVERSION_ID=3.19\n")),
      "Linux Alpine 3.19");
  auto kernel = platform::DeviceFacts::osVersion(dir.path() / "missing");
  EXPECT_TRUE(kernel.starts_with("Linux ")) << kernel;
  EXPECT_GT(kernel.size(), 6u);
}

}  // namespace
}  // namespace zivora
