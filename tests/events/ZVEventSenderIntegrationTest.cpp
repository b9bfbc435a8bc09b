#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "SandboxServer.h"
#include "events/ZVEventSender.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/ZVConfiguration.h"
#include "support/ScopedContext.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

// The real queue against the sandbox over TLS, with the back-off's second
// shortened to 10 ms: refused events are retried and arrive in order.
TEST(ZVEventSenderIntegrationTest, EventsReachTheSandboxInOrderThroughRefusals) {
  test::TempDir root;
  sandbox::SandboxServer sandbox{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  sandbox.start();
  {
    test::ScopedContext scope(
        HostOptions{.dataRoot = root.path().string(), .adEndpoint = sandbox.adEndpoint()},
        RuntimeOptions{
            .runtime = std::make_shared<dispatch::ThreadRuntime>(),
            .http = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
                .caFile = sandbox.caFile(), .connectTimeout = 2s, .lowSpeedTime = 1s}),
            .retryTimeUnit = 10ms});
    ZVConfiguration::shared()->setAppId("app-1");
    auto sender = ZVEventSender::shared();
    ASSERT_TRUE(sender);
    sandbox.failEvents(3);
    sender->startWatchingAd("main", "42", 2);
    sender->watchedAdWithPlacement("main", "42", 2);
    sender->removeMotivatedRewards({"r1"});
    sender->serverConnected();

    ASSERT_TRUE(sandbox.waitForReceived(6, 10s));
    auto events = sandbox.events();
    ASSERT_EQ(events.size(), 6u);
    std::vector<std::string> names;
    for (const auto& event : events) {
      EXPECT_TRUE(event.md5Valid);
      names.push_back(event.requestName);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"startWatchingAd", "startWatchingAd", "startWatchingAd",
                                        "startWatchingAd", "watchedAd", "removeMotivatedRewards"}));
    EXPECT_EQ(nlohmann::json::parse(events[5].params)["removeMotivatedRewards"]["rewardIds"],
              nlohmann::json::array({"r1"}));
  }
  sandbox.stop();
}

}  // namespace
}  // namespace zivora
