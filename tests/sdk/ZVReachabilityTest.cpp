#include <gtest/gtest.h>

#include <fstream>

#include "sdk/ZVReachability.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using R = ZVReachability;

TEST(ZVReachabilityFlagsTest, StatusFromFlags) {
  EXPECT_EQ(R::networkStatusForFlags(0), R::NotReachable);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagIsWWAN), R::NotReachable);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagReachable), R::ReachableViaWiFi);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagReachable | R::kFlagConnectionRequired),
            R::NotReachable);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagReachable | R::kFlagConnectionRequired |
                                     R::kFlagConnectionAutomatic),
            R::ReachableViaWiFi);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagReachable | R::kFlagConnectionRequired |
                                     R::kFlagConnectionOnDemand | R::kFlagInterventionRequired),
            R::NotReachable);
  EXPECT_EQ(R::networkStatusForFlags(R::kFlagReachable | R::kFlagConnectionRequired |
                                     R::kFlagInterventionRequired | R::kFlagIsWWAN),
            R::ReachableViaWWAN);
}

// Routes from a script; "changed" is raised by the test.
class ScriptedRoutes final : public platform::RouteSource {
 public:
  struct Script {
    std::optional<std::string> defaultInterface;
    bool changed = false;
    int waits = 0;
  };
  explicit ScriptedRoutes(std::shared_ptr<Script> script) : script_(std::move(script)) {}
  std::optional<std::string> defaultRouteInterface() override { return script_->defaultInterface; }
  bool waitForChange(std::chrono::milliseconds) override {
    ++script_->waits;
    return std::exchange(script_->changed, false);
  }
  void interrupt() override {}

 private:
  std::shared_ptr<Script> script_;
};

class ZVReachabilityTest : public ::testing::Test {
 protected:
  ZVReachabilityTest() {
    device("eth0", "DEVTYPE=ethernet");
    device("wwan0", "DEVTYPE=wwan");
    device("usb0", "INTERFACE=usb0");
  }

  void device(const std::string& name, const std::string& uevent) {
    auto dir = sysfs_.path() / "class" / "net" / name;
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "uevent") << "INTERFACE=" << name << "\n" << uevent << "\nIFINDEX=3\n";
  }

  std::shared_ptr<R> make() {
    auto script = script_;
    return R::reachabilityForInternetConnection(
        {.sysfsRoot = sysfs_.path(),
         .routeSource = [script] { return std::make_unique<ScriptedRoutes>(script); }});
  }

  void change(std::optional<std::string> interface) {
    script_->defaultInterface = std::move(interface);
    script_->changed = true;
  }

  test::VirtualRuntime runtime_;
  test::ScopedContext context_;
  test::TempDir sysfs_;
  std::shared_ptr<ScriptedRoutes::Script> script_ = std::make_shared<ScriptedRoutes::Script>();
};

TEST_F(ZVReachabilityTest, TheDefaultRouteAndItsInterfaceKindDecide) {
  auto reachability = make();
  ASSERT_TRUE(reachability);
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::NotReachable);
  script_->defaultInterface = "eth0";
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::ReachableViaWiFi);
  script_->defaultInterface = "usb0";
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::ReachableViaWiFi);
  script_->defaultInterface = "wwan0";
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::ReachableViaWWAN);
  EXPECT_FALSE(reachability->connectionRequired());
  // An interface that sysfs does not know, or a name that is not one.
  script_->defaultInterface = "tun9";
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::ReachableViaWiFi);
  script_->defaultInterface = "../../wwan0";
  EXPECT_EQ(reachability->currentReachabilityStatus(), R::ReachableViaWiFi);
}

TEST_F(ZVReachabilityTest, ListenersHearChangesOfStatusOnTheirQueueUntilStopped) {
  auto queue = runtime_.makeSerialQueue("listener");
  auto reachability = make();
  std::vector<R::NetworkStatus> heard;
  reachability->addListener([&](const std::string& name, R& object) {
    EXPECT_EQ(name, "kZVNetworkReachabilityChangedNotification");
    EXPECT_EQ(&object, reachability.get());
    EXPECT_TRUE(queue->isCurrent());
    heard.push_back(object.currentReachabilityStatus());
  });
  ASSERT_TRUE(reachability->startNotifier(queue));

  change("eth0");
  runtime_.advanceBy(1s);
  change("eth0");  // a change of routes that leaves the status as it was
  runtime_.advanceBy(1s);
  change("wwan0");
  runtime_.advanceBy(1s);
  change(std::nullopt);
  runtime_.advanceBy(1s);
  EXPECT_EQ(heard, (std::vector<R::NetworkStatus>{1, 2, 0}));

  reachability->stopNotifier();
  change("eth0");
  runtime_.advanceBy(5s);
  EXPECT_EQ(heard.size(), 3u);
  EXPECT_FALSE(reachability->startNotifier(nullptr));
}

TEST_F(ZVReachabilityTest, NoRouteSourceMeansNoObject) {
  auto none = R::reachabilityWithHostName(
      "example.com", {.routeSource = [] { return std::unique_ptr<platform::RouteSource>(); }});
  EXPECT_FALSE(none);
}

}  // namespace
}  // namespace zivora
