// Identities in a real gnome-keyring on a private session bus that the test
// starts itself and stops by the pids it started.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

#include "analytics/ZVPDeviceInfoHelper.h"
#include "analytics/ZVPSaveKeychain.h"
#include "platform/linux/LibsecretSecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

// One environment variable set for the test's life and restored after.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) previous_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (previous_) {
      ::setenv(name_, previous_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> previous_;
};

// A session bus and an unlocked gnome-keyring serving secrets on it.
class PrivateKeyring {
 public:
  explicit PrivateKeyring(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / "runtime");
    ::chmod((home / "runtime").c_str(), 0700);
    home_.emplace("HOME", home.string());
    runtimeDir_.emplace("XDG_RUNTIME_DIR", (home / "runtime").string());
    if (!startBus()) {
      reason_ = "dbus-daemon --session did not start";
      return;
    }
    busAddress_.emplace("DBUS_SESSION_BUS_ADDRESS", address_);
    if (!startKeyring()) {
      reason_ = "gnome-keyring-daemon did not start";
      return;
    }
    // The daemon claims its name some time after it starts; a bounded wait
    // on a real process, not a timer under test.
    for (int i = 0; i < 200 && !platform::LibsecretSecretStore::available(); ++i)
      std::this_thread::sleep_for(50ms);
    if (!platform::LibsecretSecretStore::available())
      reason_ = "org.freedesktop.secrets has no owner or its default collection is locked";
  }

  ~PrivateKeyring() {
    stop(keyringPid_, true);
    stop(busPid_, false);
  }

  // Empty when the keyring answers.
  const std::string& unavailableReason() const { return reason_; }

 private:
  bool startBus() {
    FILE* out = ::popen("dbus-daemon --session --fork --print-address=1 --print-pid=1", "r");
    if (!out) return false;
    char line[512];
    if (std::fgets(line, sizeof line, out)) address_ = line;
    if (std::fgets(line, sizeof line, out)) busPid_ = std::atoi(line);
    ::pclose(out);
    while (!address_.empty() && (address_.back() == '\n')) address_.pop_back();
    return !address_.empty() && busPid_ > 0;
  }

  bool startKeyring() {
    int input[2];
    if (::pipe(input) != 0) return false;
    pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(input[0], STDIN_FILENO);
      ::close(input[0]);
      ::close(input[1]);
      ::execlp("gnome-keyring-daemon", "gnome-keyring-daemon", "--foreground", "--unlock",
               "--components=secrets", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(input[0]);
    if (pid > 0) {
      keyringPid_ = pid;
      [[maybe_unused]] auto written = ::write(input[1], "PASSWORD", 8);
    }
    ::close(input[1]);
    return pid > 0;
  }

  // Only the processes this object started, by their pids.
  // The bus daemon forked itself away, so only the keyring is reaped.
  static void stop(pid_t pid, bool child) {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    if (child) ::waitpid(pid, nullptr, 0);
  }

  std::optional<ScopedEnv> home_, runtimeDir_, busAddress_;
  std::string address_;
  pid_t busPid_ = -1;
  pid_t keyringPid_ = -1;
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
