// Reachability from the default route and the kind of its interface, and
// listeners told of changes on their queue.
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
  const struct {
    std::uint32_t flags;
    R::NetworkStatus status;
  } rows[] = {
      {0, R::NotReachable},
      {R::kFlagIsWWAN, R::NotReachable},
      {R::kFlagReachable, R::ReachableViaWiFi},
      {R::kFlagReachable | R::kFlagConnectionRequired, R::NotReachable},
      {R::kFlagReachable | R::kFlagConnectionRequired | R::kFlagConnectionAutomatic,
       R::ReachableViaWiFi},
      {R::kFlagReachable | R::kFlagConnectionRequired | R::kFlagConnectionOnDemand |
           R::kFlagInterventionRequired,
       R::NotReachable},
      {R::kFlagReachable | R::kFlagConnectionRequired | R::kFlagInterventionRequired |
           R::kFlagIsWWAN,
       R::ReachableViaWWAN},
  };
  for (const auto& row : rows)
    EXPECT_EQ(R::networkStatusForFlags(row.flags), row.status) << row.flags;
}

// Routes from a script; "changed" is raised by the test.
class ScriptedRoutes final : public platform::RouteSource {
 public:
  struct Script {
    std::optional<std::string> defaultInterface;
    bool changed = false;
  };
  explicit ScriptedRoutes(std::shared_ptr<Script> script) : script_(std::move(script)) {}
  std::optional<std::string> defaultRouteInterface() override { return script_->defaultInterface; }
  bool waitForChange(std::chrono::milliseconds) override {
    return std::exchange(script_->changed, false);
  }
  void interrupt() override {}

 private:
  std::shared_ptr<Script> script_;
};

class ZVReachabilityTest : public ::testing::Test {
 protected:
  ZVReachabilityTest() {
    for (const auto& [name, uevent] : {std::pair{"eth0", "DEVTYPE=ethernet"},
                                       {"wwan0", "DEVTYPE=wwan"},
                                       {"usb0", "INTERFACE=usb0"}}) {
      std::filesystem::create_directories(sysfs_.path() / "class/net" / name);
      std::ofstream(sysfs_.path() / "class/net" / name / "uevent") << "INTERFACE=" << name << "\n"
                                                                   << uevent << "\nIFINDEX=3\n";
    }
  }
  void change(std::optional<std::string> interface) {
    script_->defaultInterface = std::move(interface);
    script_->changed = true;
    runtime_.advanceBy(1s);
  }

  test::VirtualRuntime runtime_;
  test::ScopedContext context_;
  test::TempDir sysfs_;
  std::shared_ptr<ScriptedRoutes::Script> script_ = std::make_shared<ScriptedRoutes::Script>();
  std::shared_ptr<R> reachability_ = R::reachabilityForInternetConnection(
      {.sysfsRoot = sysfs_.path(),
       .routeSource = [script = script_] { return std::make_unique<ScriptedRoutes>(script); }});
};

TEST_F(ZVReachabilityTest, TheDefaultRouteAndItsInterfaceKindDecide) {
  ASSERT_TRUE(reachability_);
  EXPECT_FALSE(reachability_->connectionRequired());
  // An interface that sysfs does not know, or a name that is not one, is
  // taken as a local network.
  for (const auto& [interface, status] :
       std::vector<std::pair<std::optional<std::string>, R::NetworkStatus>>{
           {std::nullopt, R::NotReachable},
           {"eth0", R::ReachableViaWiFi},
           {"usb0", R::ReachableViaWiFi},
           {"wwan0", R::ReachableViaWWAN},
           {"tun9", R::ReachableViaWiFi},
           {"../../wwan0", R::ReachableViaWiFi}}) {
    script_->defaultInterface = interface;
    EXPECT_EQ(reachability_->currentReachabilityStatus(), status) << interface.value_or("none");
  }
}

TEST_F(ZVReachabilityTest, ListenersHearChangesOfStatusOnTheirQueueUntilStopped) {
  auto queue = runtime_.makeSerialQueue("listener");
  std::vector<R::NetworkStatus> heard;
  reachability_->addListener([&](const std::string& name, R& object) {
    EXPECT_EQ(name, "kZVNetworkReachabilityChangedNotification");
    EXPECT_EQ(&object, reachability_.get());
    EXPECT_TRUE(queue->isCurrent());
    heard.push_back(object.currentReachabilityStatus());
  });
  ASSERT_TRUE(reachability_->startNotifier(queue));
  change("eth0");
  change("eth0");  // a change of routes that leaves the status as it was
  change("wwan0");
  change(std::nullopt);
  EXPECT_EQ(heard, (std::vector<R::NetworkStatus>{1, 2, 0}));

  reachability_->stopNotifier();
  change("eth0");
  EXPECT_EQ(heard.size(), 3u);
  EXPECT_FALSE(reachability_->startNotifier(nullptr));
  EXPECT_FALSE(R::reachabilityWithHostName(
      "example.com", {.routeSource = [] { return std::unique_ptr<platform::RouteSource>(); }}));
}

}  // namespace
}  // namespace zivora
