// Host threads call the facade while the start-up queue runs the handshake
// with its retries: the shared flags and the parked list must hold up
// (ThreadSanitizer checks the rest). A reset meets a handshake in flight.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "platform/linux/ThreadRuntime.h"
#include "support/AnswerLog.h"
#include "support/FakeHttpClient.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/StallingHttpClient.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

class ZivoraThreaded : public ::testing::Test {
 protected:
  ~ZivoraThreaded() override { ZivoraInstance::reset(); }

  void start(std::shared_ptr<platform::HttpClient> http) {
    ZivoraInstance::start("app", HostOptions{.dataRoot = root_.path().string()},
                          RuntimeOptions{.runtime = runtime_,
                                         .http = std::move(http),
                                         .log = std::make_shared<test::RecordingLogSink>(),
                                         .adSide = adSide_,
                                         .retryTimeUnit = 1ms});
  }

  test::TempDir root_;
  std::shared_ptr<dispatch::ThreadRuntime> runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  std::shared_ptr<test::RecordingAdSide> adSide_ = std::make_shared<test::RecordingAdSide>();
  std::shared_ptr<test::StallingHttpClient> stalling_ =
      std::make_shared<test::StallingHttpClient>(TS_HOST_URL);
};

TEST_F(ZivoraThreaded, ResetAbortsAStalledHandshakeAndWaitsForItsTask) {
  start(stalling_);
  ASSERT_TRUE(stalling_->waitForCounted(20s));
  ZivoraInstance::reset();
  // The aborted request's task has ended, and its failure scheduled no retry.
  EXPECT_EQ(stalling_->inFlight(), 0);
  EXPECT_EQ(stalling_->counted(), 1);
}

TEST_F(ZivoraThreaded, ResetFromAnSdkThreadDoesNotWaitForItself) {
  start(stalling_);
  ASSERT_TRUE(stalling_->waitForCounted(20s));
  std::promise<void> done;
  runtime_->mainQueue().async([&done] {
    ZivoraInstance::reset();
    done.set_value();
  });
  ASSERT_EQ(done.get_future().wait_for(20s), std::future_status::ready);
  EXPECT_EQ(stalling_->inFlight(), 0);
  EXPECT_EQ(ZivoraInstance::current(), nullptr);
}

TEST_F(ZivoraThreaded, HostThreadsRaceTheHandshakeAndItsRetries) {
  auto http = std::make_shared<test::FakeHttpClient>();
  for (int i = 0; i < 3; ++i) http->enqueueFailure("refused");
  auto host = std::make_shared<test::AnswerLog>();
  start(http);
  Zivora::setDelegate(host);
  Zivora::requestMotivatedRewards();

  std::vector<std::thread> hosts;
  for (int t = 0; t < 4; ++t) {
    hosts.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        std::string placement = "p" + std::to_string(t);
        (i % 2 ? Zivora::showVideo : Zivora::cacheVideo)(placement);
        Zivora::isReadyVideo(placement);
        Zivora::purchaseEvent(1.0, "USD", "t");
        Zivora::setDelegate(host);
      }
    });
  }
  for (auto& thread : hosts) thread.join();

  // The handshake ends in success whatever the host did meanwhile.
  ASSERT_TRUE(adSide_->waitForCall("requestMotivatedRewards", 10s));
  Zivora::showVideo("after");
  EXPECT_EQ(adSide_->calls().back(), "show:after");
  // Every video call ended exactly once: failed while failing, replayed
  // after success, or passed straight on.
  std::size_t failures = 0;
  for (const auto& [placement, answers] : host->answers()) failures += answers.size();
  EXPECT_EQ(adSide_->calls("show:").size() + adSide_->calls("cache:").size() + failures, 801u);
}

}  // namespace
}  // namespace zivora
