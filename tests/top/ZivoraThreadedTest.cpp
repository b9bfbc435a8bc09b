// Host threads call the facade while the start-up queue runs the handshake
// with its retries: the shared flags and the parked list must hold up
// (ThreadSanitizer checks the rest).
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "platform/linux/ThreadRuntime.h"
#include "support/FakeHttpClient.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

class CountingDelegate final : public ZivoraDelegate {
 public:
  void videoDidFailToLoad(const std::string&, std::uint64_t) override { ++failures; }
  std::atomic<int> failures{0};
};

// A server that stalls every request until the client is told to abort.
// It counts the handshakes apart: the analytics records the start-up queues
// may reach it too, or not, as the threads run.
class StallingHttpClient final : public platform::HttpClient {
 public:
  platform::HttpResponse perform(const platform::HttpRequest& request) override {
    std::unique_lock lock(mutex_);
    if (request.url == TS_HOST_URL) ++handshakes_;
    ++inFlight_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return aborted_; });
    --inFlight_;
    return platform::HttpResponse{.error = "aborted"};
  }
  void abortAll() override {
    std::lock_guard lock(mutex_);
    aborted_ = true;
    changed_.notify_all();
  }
  bool waitForHandshake() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 20s, [this] { return handshakes_ > 0; });
  }
  int inFlight() {
    std::lock_guard lock(mutex_);
    return inFlight_;
  }
  int handshakes() {
    std::lock_guard lock(mutex_);
    return handshakes_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int handshakes_ = 0;
  int inFlight_ = 0;
  bool aborted_ = false;
};

class ZivoraResetThreaded : public ::testing::Test {
 protected:
  ~ZivoraResetThreaded() override { ZivoraInstance::reset(); }

  void start() {
    ZivoraInstance::start("app", HostOptions{.dataRoot = root_.path().string()},
                          RuntimeOptions{.runtime = runtime_,
                                         .http = http_,
                                         .log = std::make_shared<test::RecordingLogSink>(),
                                         .adSide = std::make_shared<test::RecordingAdSide>(),
                                         .retryTimeUnit = 1ms});
  }

  test::TempDir root_;
  std::shared_ptr<dispatch::ThreadRuntime> runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  std::shared_ptr<StallingHttpClient> http_ = std::make_shared<StallingHttpClient>();
};

TEST_F(ZivoraResetThreaded, ResetAbortsAStalledHandshakeAndWaitsForItsTask) {
  start();
  ASSERT_TRUE(http_->waitForHandshake());
  ZivoraInstance::reset();
  // The aborted request's task has ended, and its failure scheduled no retry.
  EXPECT_EQ(http_->inFlight(), 0);
  EXPECT_EQ(http_->handshakes(), 1);
}

TEST_F(ZivoraResetThreaded, ResetFromAnSdkThreadDoesNotWaitForItself) {
  start();
  ASSERT_TRUE(http_->waitForHandshake());
  std::promise<void> done;
  runtime_->mainQueue().async([&done] {
    ZivoraInstance::reset();
    done.set_value();
  });
  auto future = done.get_future();
  ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(http_->inFlight(), 0);
  EXPECT_EQ(ZivoraInstance::current(), nullptr);
}

TEST(ZivoraThreaded, HostThreadsRaceTheHandshakeAndItsRetries) {
  test::TempDir root;
  auto http = std::make_shared<test::FakeHttpClient>();
  for (int i = 0; i < 3; ++i) http->enqueueFailure("refused");
  auto adSide = std::make_shared<test::RecordingAdSide>();
  auto delegate = std::make_shared<CountingDelegate>();
  ZivoraInstance::start("app", HostOptions{.dataRoot = root.path().string()},
                        RuntimeOptions{.runtime = std::make_shared<dispatch::ThreadRuntime>(),
                                       .http = http,
                                       .log = std::make_shared<test::RecordingLogSink>(),
                                       .adSide = adSide,
                                       .retryTimeUnit = 1ms});
  Zivora::setDelegate(delegate);
  Zivora::requestMotivatedRewards();

  std::vector<std::thread> hosts;
  std::atomic<int> calls{0};
  for (int t = 0; t < 4; ++t) {
    hosts.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        std::string placement = "p" + std::to_string(t);
        (i % 2 ? Zivora::showVideo : Zivora::cacheVideo)(placement);
        Zivora::isReadyVideo(placement);
        Zivora::purchaseEvent(1.0, "USD", "t");
        Zivora::setDelegate(delegate);
        ++calls;
      }
    });
  }
  for (auto& host : hosts) host.join();

  // The handshake ends in success whatever the host did meanwhile.
  ASSERT_TRUE(adSide->waitForCall("requestMotivatedRewards", 10s));
  Zivora::showVideo("after");
  EXPECT_EQ(adSide->calls().back(), "show:after");
  // Every video call ended exactly once: failed while failing, replayed
  // after success, or passed straight on.
  auto passedOn = adSide->calls("show:").size() + adSide->calls("cache:").size();
  EXPECT_EQ(passedOn + delegate->failures.load(), 801u);
  EXPECT_EQ(calls.load(), 800);
  ZivoraInstance::reset();
}

}  // namespace
}  // namespace zivora
