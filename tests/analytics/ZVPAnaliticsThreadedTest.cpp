// Reports from many host threads at once, on real queues: every record
// arrives once, and each thread's records keep the order it made them in.
#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <thread>

#include "analytics/ZVPAnalitics.h"
#include "support/AnalyticsBody.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/WatchedRuntime.h"

namespace zivora {
namespace {

TEST(ZVPAnaliticsThreaded, ConcurrentReportsAllArriveInEachThreadsOrder) {
  test::TempDir root;
  auto http = std::make_shared<test::FakeHttpClient>();
  auto analytics = std::make_shared<ZVPAnalitics>();
  auto runtime = std::make_shared<test::WatchedRuntime>();
  auto scope = std::make_unique<test::ScopedContext>(
      HostOptions{.dataRoot = root.path().string(),
                  .analyticsEndpoint = "https://analytics.test/ProfilingEvent.php",
                  .screenWidth = 800,
                  .screenHeight = 600},
      RuntimeOptions{.runtime = runtime,
                     .http = http,
                     .analytics = analytics,
                     .secretStore = std::make_shared<test::MemorySecretStore>()});
  ZVPAnalitics::sendProfilingEnable(true);
  analytics->appOpen();

  constexpr int kThreads = 4, kEach = 40;
  std::vector<std::thread> hosts;
  for (int t = 0; t < kThreads; ++t) {
    hosts.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        if (i % 2) {
          analytics->sendEvent("info", "Thread" + std::to_string(t), std::to_string(i), "m");
        } else {
          analytics->sendException(ZVException("E", "r"), "Thread" + std::to_string(t),
                                   std::to_string(i));
        }
      }
    });
  }
  for (auto& host : hosts) host.join();

  const std::size_t expected = 1 + kThreads * kEach;
  runtime->waitUntil([&] { return http->requests().size() >= expected; });
  auto requests = http->requests();
  ASSERT_EQ(requests.size(), expected);

  std::map<std::string, std::vector<int>> perThread;
  std::vector<std::int64_t> orders;
  for (const auto& body : test::AnalyticsBody::parseAll(requests)) {
    orders.push_back(body.integer("bo_Order"));
    if (body.eventName() != "AppOpen")
      perThread[body.text("ClassName")].push_back(std::stoi(body.text("MethodName")));
  }
  ASSERT_EQ(perThread.size(), static_cast<std::size_t>(kThreads));
  std::vector<int> inOrder(kEach);
  std::iota(inOrder.begin(), inOrder.end(), 0);
  for (const auto& [thread, methods] : perThread) EXPECT_EQ(methods, inOrder) << thread;
  for (std::size_t i = 0; i < orders.size(); ++i) EXPECT_EQ(orders[i], static_cast<int>(i) + 1);

  ZVPAnalitics::sendProfilingEnable(false);
  scope.reset();
}

}  // namespace
}  // namespace zivora
