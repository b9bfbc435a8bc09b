// The redirect probe against the sandbox's tracker over TLS: the first
// answer comes back as it is, with its "Location" when there is one.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "SandboxServer.h"
#include "ads/ZVRedirectRequest.h"
#include "platform/dispatch/Runtime.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

struct Outcome {
  platform::HttpResponse response;
  bool onGlobalQueue = false;
};

class ZVRedirectRequestIntegrationTest : public ::testing::Test {
 protected:
  ZVRedirectRequestIntegrationTest() { sandbox_.start(); }

  Outcome probe(const std::string& url) {
    std::promise<Outcome> done;
    ZVRedirectRequest(url).start([&](const platform::HttpResponse& response) {
      done.set_value({response, runtime_->globalQueue().isCurrent()});
    });
    auto future = done.get_future();
    if (future.wait_for(10s) != std::future_status::ready) {
      ADD_FAILURE() << "no completion for " << url;
      return {};
    }
    return future.get();
  }

  std::string tracker(const std::string& query = "") const {
    return sandbox_.catalogue().trackerUrl("ad-7") + query;
  }

  sandbox::SandboxServer sandbox_{{.certDirectory = test::sandboxCertDirectory()}};
  test::TempDir root_;
  std::shared_ptr<dispatch::ThreadRuntime> runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  test::ScopedContext scope_{
      {.dataRoot = root_.path().string()},
      {.runtime = runtime_,
       .http = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
           .caFile = sandbox_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 2s})}};
};

TEST_F(ZVRedirectRequestIntegrationTest, TheTrackersRedirectIsNotFollowed) {
  ASSERT_NE(tracker().find(ZVRedirectRequest::kTrackerHost), std::string::npos);
  const Outcome outcome = probe(tracker());
  EXPECT_TRUE(outcome.onGlobalQueue);
  EXPECT_EQ(outcome.response.status, 302);
  ASSERT_NE(outcome.response.header("location"), nullptr);
  EXPECT_EQ(*outcome.response.header("Location"), sandbox_.catalogue().landingUrl("ad-7"));
  EXPECT_TRUE(outcome.response.body.empty()) << "the page is discarded";

  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 1u) << "the landing page was not asked";
  EXPECT_EQ(received[0].method, "GET");
}

TEST_F(ZVRedirectRequestIntegrationTest, OddTrackerAnswersComeBackAsTheyAre) {
  const Outcome withoutLocation = probe(tracker("?location=none"));
  EXPECT_EQ(withoutLocation.response.status, 302);
  EXPECT_EQ(withoutLocation.response.header("Location"), nullptr);

  const Outcome notModified = probe(tracker("?status=304"));
  EXPECT_EQ(notModified.response.status, 304);
  EXPECT_NE(notModified.response.header("Location"), nullptr);

  const Outcome plain = probe(sandbox_.catalogue().landingUrl("ad-7"));
  EXPECT_EQ(plain.response.status, 200);
  EXPECT_EQ(plain.response.header("Location"), nullptr);
  EXPECT_TRUE(plain.response.body.empty());
}

TEST_F(ZVRedirectRequestIntegrationTest, NoServerGivesStatusZeroWithAReason) {
  const std::string url = tracker();
  sandbox_.stop();
  const Outcome outcome = probe(url);
  EXPECT_TRUE(outcome.onGlobalQueue);
  EXPECT_EQ(outcome.response.status, 0);
  EXPECT_FALSE(outcome.response.error.empty());
  EXPECT_TRUE(outcome.response.headers.empty());
}

}  // namespace
}  // namespace zivora
