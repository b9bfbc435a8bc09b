// Host threads call the facade while the start-up queue runs the handshake
// with its retries: the shared flags and the parked list must hold up
// (ThreadSanitizer checks the rest).
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "core/ZivoraInstance.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/FakeHttpClient.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

class CountingDelegate final : public ZivoraDelegate {
 public:
  void videoDidFailToLoad(const std::string&, std::uint64_t) override { ++failures; }
  std::atomic<int> failures{0};
};

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
