// Identities in a real gnome-keyring on a private session bus that the test
// starts itself as its own children.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <string>

#include "analytics/ZVPDeviceInfoHelper.h"
#include "analytics/ZVPSaveKeychain.h"
#include "platform/linux/LibsecretSecretStore.h"
#include "support/ChildProcess.h"
#include "support/ScopedContext.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

// A session bus and an unlocked gnome-keyring serving secrets on it, both
// children of the test.
class PrivateKeyring {
 public:
  explicit PrivateKeyring(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / "runtime");
    ::chmod((home / "runtime").c_str(), 0700);
    home_.emplace("HOME", home.string());
    runtimeDir_.emplace("XDG_RUNTIME_DIR", (home / "runtime").string());
    // The bus prints its address once it accepts connections.
    bus_ = test::ChildProcess::start({"dbus-daemon", "--session", "--nofork", "--print-address=1"},
                                     {.input = {}, .captureOutput = true});
    auto address = bus_ ? bus_->readLine(10s) : std::nullopt;
    if (!address || address->empty()) {
      reason_ = "dbus-daemon --session did not start";
      return;
    }
    busAddress_.emplace("DBUS_SESSION_BUS_ADDRESS", *address);
    keyring_ = test::ChildProcess::start(
        {"gnome-keyring-daemon", "--foreground", "--unlock", "--components=secrets"},
        {.input = "PASSWORD"});
    if (!keyring_) {
      reason_ = "gnome-keyring-daemon did not start";
      return;
    }
    // The daemon claims its name some time after it starts; gdbus returns
    // as soon as the name has an owner.
    auto wait = test::ChildProcess::start(
        {"gdbus", "wait", "--session", "--timeout", "30", "org.freedesktop.secrets"}, {});
    if (wait) wait->waitFor(40s);
    if (!platform::LibsecretSecretStore::available())
      reason_ = "org.freedesktop.secrets has no owner or its default collection is locked";
  }

  // Empty when the keyring answers.
  const std::string& unavailableReason() const { return reason_; }

 private:
  std::optional<test::ScopedEnv> home_, runtimeDir_, busAddress_;
  // The keyring stops before the bus it is on.
  std::unique_ptr<test::ChildProcess> bus_, keyring_;
  std::string reason_;
};

class SecretServiceIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!keyring_.unavailableReason().empty())
      GTEST_SKIP() << "no Secret Service: " << keyring_.unavailableReason();
  }

  std::unique_ptr<test::ScopedContext> open() {
    return std::make_unique<test::ScopedContext>(HostOptions{
        .dataRoot = (home_.path() / "data").string(), .applicationName = "keyring-test"});
  }

  test::TempDir home_;
  PrivateKeyring keyring_{home_.path()};
};

TEST_F(SecretServiceIntegrationTest, StoresItemsAndIdentitiesOutliveTheDataRoot) {
  std::string deviceId, randomUID;
  {
    auto scope = open();
    ZVPKeychainError error;
    EXPECT_TRUE(ZVPSaveKeychain::saveItem("one", "item", "svc", &error)) << error.description;
    EXPECT_TRUE(scope->log().contains("[ZVPSaveKeychain] Secrets are kept in the Secret Service"));
    EXPECT_EQ(ZVPSaveKeychain::itemForKey("item", "svc"), "one");
    EXPECT_TRUE(ZVPSaveKeychain::saveItem("two ✓", "item", "svc"));
    EXPECT_EQ(ZVPSaveKeychain::itemForKey("item", "svc"), "two ✓");
    EXPECT_TRUE(ZVPSaveKeychain::deleteItemForKey("item", "svc"));
    EXPECT_EQ(ZVPSaveKeychain::itemForKey("item", "svc", &error), std::nullopt);
    EXPECT_EQ(error.description,
              "Item with key 'item' for service 'svc' could not be found in the keychain.");
    EXPECT_FALSE(ZVPSaveKeychain::deleteItemForKey("item", "svc", &error));
    EXPECT_EQ(error.code, -25300);

    ZVPDeviceInfoHelper device("app", std::nullopt);
    deviceId = device.deviceId();
    randomUID = device.randomUID();
    EXPECT_EQ(deviceId.size(), 36u);
    EXPECT_EQ(randomUID.size(), 73u);
  }
  // A restart, then a wiped cache, then a reinstall that loses the whole
  // data root: the identities stay.
  for (auto wiped :
       {std::filesystem::path(), home_.path() / "data" / "Caches", home_.path() / "data"}) {
    if (!wiped.empty()) std::filesystem::remove_all(wiped);
    auto scope = open();
    ZVPDeviceInfoHelper device("app", std::nullopt);
    EXPECT_EQ(device.deviceId(), deviceId) << wiped;
    EXPECT_EQ(device.randomUID(), randomUID) << wiped;
  }
}

}  // namespace
}  // namespace zivora
