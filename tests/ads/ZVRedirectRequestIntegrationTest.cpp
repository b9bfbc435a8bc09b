// The redirect probe against the sandbox's tracker over TLS: the first
// answer comes back as it is, with its "Location" when there is one, on the
// global queue; the page itself is discarded.
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

class ZVRedirectRequestIntegrationTest : public ::testing::Test {
 protected:
  ZVRedirectRequestIntegrationTest() { sandbox_.start(); }

  platform::HttpResponse probe(const std::string& url) {
    std::promise<platform::HttpResponse> done;
    ZVRedirectRequest(url).start([&](const platform::HttpResponse& response) {
      EXPECT_TRUE(runtime_->globalQueue().isCurrent());
      done.set_value(response);
    });
    auto future = done.get_future();
    if (future.wait_for(10s) != std::future_status::ready) {
      ADD_FAILURE() << "no completion for " << url;
      return {};
    }
    return future.get();
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

TEST_F(ZVRedirectRequestIntegrationTest, TheFirstAnswerComesBackAsItIs) {
  const std::string tracker = sandbox_.catalogue().trackerUrl("ad-7");
  const std::string landing = sandbox_.catalogue().landingUrl("ad-7");
  ASSERT_NE(tracker.find(ZVRedirectRequest::kTrackerHost), std::string::npos);
  struct Case {
    std::string url;
    long status;
    bool location;
  };
  const Case cases[] = {{tracker, 302, true},
                        {tracker + "?location=none", 302, false},
                        {tracker + "?status=304", 304, true},
                        {landing, 200, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    const auto response = probe(c.url);
    EXPECT_EQ(response.status, c.status);
    EXPECT_EQ(response.header("Location") != nullptr, c.location);
    EXPECT_TRUE(response.body.empty());
  }
  EXPECT_EQ(*probe(tracker).header("location"), landing);
  // The redirect was not followed: the landing page was asked only when
  // probed itself.
  std::size_t landings = 0;
  for (const auto& request : sandbox_.received()) {
    EXPECT_EQ(request.method, "GET");
    landings += request.path.find("/landing/") != std::string::npos;
  }
  EXPECT_EQ(landings, 1u);
}

TEST_F(ZVRedirectRequestIntegrationTest, NoServerGivesStatusZeroWithAReason) {
  const std::string url = sandbox_.catalogue().trackerUrl("ad-7");
  sandbox_.stop();
  const auto response = probe(url);
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.error.empty());
  EXPECT_TRUE(response.headers.empty());
}

}  // namespace
}  // namespace zivora
