// The facade's start-up opens the analytics module: the opening record
// and the SDK's own diagnostics go to the analytics endpoint even while the
// handshake keeps failing.
#include <gtest/gtest.h>

#include "analytics/ZVPAnalitics.h"
#include "support/AnalyticsBody.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/ZivoraInstance.h"

namespace zivora {
namespace {

constexpr char kAds[] = "https://ads.test/HandleRequestV3.php";
constexpr char kAnalytics[] = "https://analytics.test/ProfilingEvent.php";

TEST(AnalyticsStartUpTest, InitialisationOpensAnalyticsBeforeTheHandshakeSucceeds) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  test::TempDir root;
  auto http = std::make_shared<test::FakeHttpClient>();
  auto adSide = std::make_shared<test::RecordingAdSide>();
  http->enqueue({0, "", "Connection refused"});  // the first handshake attempt
  ZivoraInstance::start(
      "app-1",
      HostOptions{
          .dataRoot = root.path().string(), .adEndpoint = kAds, .analyticsEndpoint = kAnalytics},
      RuntimeOptions{.runtime = runtime,
                     .http = http,
                     .log = std::make_shared<test::RecordingLogSink>(),
                     .adSide = adSide,
                     .secretStore = std::make_shared<test::MemorySecretStore>()});
  runtime->runUntilIdle();

  EXPECT_TRUE(ZVPAnalitics::profilingEnabled());
  EXPECT_TRUE(adSide->calls("newVideoManager").empty());
  auto records = test::AnalyticsBody::parseAll(http->requests(), kAnalytics);
  // The failed handshake is itself reported as a diagnostic record.
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].eventName(), "AppOpen");
  EXPECT_EQ(records[1].eventName(), "error");
  EXPECT_EQ(records[1].text("ClassName"), "ZVSendRequest");
  EXPECT_EQ(records[1].text("Message"), "Error getting, HTTP status code 0");

  ZivoraInstance::reset();
  ZVPAnalitics::sendProfilingEnable(false);
}

}  // namespace
}  // namespace zivora
