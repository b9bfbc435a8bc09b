// Host threads set the application user id while the configuration queue
// commits it: every read after a call sees a value, and the store ends with
// the value set last (ThreadSanitizer checks the rest).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/UserDefaults.h"
#include "sdk/ZVConfiguration.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/WatchedRuntime.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

TEST(ZVConfigurationThreaded, HostThreadsSetTheUserIdWhileTheQueueCommitsIt) {
  test::TempDir root;
  auto runtime = std::make_shared<test::WatchedRuntime>();
  test::ScopedContext scope(HostOptions{.dataRoot = root.path().string()},
                            RuntimeOptions{.runtime = runtime});
  auto configuration = ZVConfiguration::shared();
  ASSERT_NE(configuration, nullptr);

  std::vector<std::thread> hosts;
  for (int host = 0; host < 2; ++host) {
    hosts.emplace_back([&, host] {
      for (int i = 0; i < 200; ++i) {
        const std::string id = "host" + std::to_string(host) + "-" + std::to_string(i);
        configuration->setAppUserId(id);
        // The other thread may have set its own since, never nothing.
        EXPECT_TRUE(configuration->appUserId().has_value());
      }
    });
  }
  for (auto& host : hosts) host.join();
  configuration->setAppUserId("last");
  EXPECT_EQ(configuration->appUserId(), "last");

  auto suite = scope.context().userDefaults(TS_COMMON_CONFIGURATION_PLIST);
  ASSERT_NE(suite, nullptr);
  // The commit is a task on the configuration queue: checked after each task.
  EXPECT_TRUE(runtime->waitUntil([&] { return suite->stringForKey("appUserId") == "last"; }));
  EXPECT_EQ(suite->stringForKey("appUserId"), "last");
  runtime->shutdown();
}

}  // namespace
}  // namespace zivora
