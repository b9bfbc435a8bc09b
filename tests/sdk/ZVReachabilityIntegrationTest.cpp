#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "platform/linux/NetlinkRouteSource.h"
#include "sdk/ZVReachability.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

constexpr int kSkip = 77;

bool run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

// Runs in a child inside a network namespace of its own: brings a veth pair
// and a default route up and down and checks what the real route source and
// the classification make of it. Returns the number of failed checks, or
// kSkip when the namespace or the tools are not available.
int checkInNamespace(const std::filesystem::path& sysfs) {
  if (::unshare(CLONE_NEWNET) != 0) return kSkip;
  if (!run("ip link add zv0 type veth peer name zv1")) return kSkip;
  int failures = 0;
  auto check = [&](bool ok, const char* what) {
    if (!ok) {
      std::fprintf(stderr, "failed: %s\n", what);
      ++failures;
    }
  };
  auto routes = platform::NetlinkRouteSource::open();
  if (!routes) return kSkip;
  auto watch = platform::NetlinkRouteSource::open();
  ZVReachability::Options options{.sysfsRoot = "/sys"};
  auto reachability = ZVReachability::reachabilityForInternetConnection(options);
  if (!reachability) return kSkip;

  check(!routes->defaultRouteInterface(), "no default route at first");
  check(reachability->currentReachabilityStatus() == 0, "not reachable at first");
  watch->waitForChange(0ms);  // drop the notices of the set-up

  check(run("ip addr add 10.77.0.1/24 dev zv0") && run("ip link set zv0 up") &&
            run("ip link set zv1 up") && run("ip route add default via 10.77.0.2 dev zv0"),
        "bring the link and the route up");
  check(watch->waitForChange(2000ms), "the route's arrival is noticed");
  check(routes->defaultRouteInterface() == "zv0", "the default route is on zv0");
  check(reachability->currentReachabilityStatus() == 1, "reachable over the local network");

  // The same route on an interface that sysfs calls a WWAN device.
  std::filesystem::create_directories(sysfs / "class/net/zv0");
  std::ofstream(sysfs / "class/net/zv0/uevent") << "DEVTYPE=wwan\nINTERFACE=zv0\n";
  auto mobile = ZVReachability::reachabilityForInternetConnection({.sysfsRoot = sysfs});
  check(mobile && mobile->currentReachabilityStatus() == 2, "mobile network on a WWAN interface");

  check(run("ip route del default"), "take the route down");
  check(watch->waitForChange(2000ms), "the route's removal is noticed");
  check(reachability->currentReachabilityStatus() == 0, "not reachable without the route");

  check(run("ip route add default via 10.77.0.2 dev zv0") && run("ip link set zv0 down"),
        "route back, then the link down");
  check(watch->waitForChange(2000ms), "the link going down is noticed");
  check(reachability->currentReachabilityStatus() == 0, "a link that is down carries no route");
  return failures;
}

TEST(ZVReachabilityIntegrationTest, FollowsAVethAndADefaultRouteInANamespace) {
  test::TempDir sysfs;
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(checkInNamespace(sysfs.path()));
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kSkip)
    GTEST_SKIP() << "no network namespace (needs CAP_SYS_ADMIN and iproute2)";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failed checks; see the child's output";
}

}  // namespace
}  // namespace zivora
