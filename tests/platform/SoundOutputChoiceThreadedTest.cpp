#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/SoundOutputChoice.h"

namespace zivora::platform {
namespace {

// Items are made on the main queue while probes answer on their own
// threads, and a failing device is reported from wherever it failed: one
// probe runs at a time and every caller sees a whole answer.
TEST(SoundOutputChoiceThreadedTest, CallersOnManyThreadsShareOneProbeAtATime) {
  std::atomic<int> running{0}, mostAtOnce{0}, probes{0};
  std::mutex threadsMutex;
  std::vector<std::thread> probeThreads;
  std::atomic<std::int64_t> ticks{0};
  SoundOutputChoice choice(
      [&]() -> std::optional<std::string> {
        const int now = ++running;
        int seen = mostAtOnce.load();
        while (now > seen && !mostAtOnce.compare_exchange_weak(seen, now)) {
        }
        ++probes;
        for (int i = 0; i < 100; ++i) std::this_thread::yield();  // a window to overlap in
        --running;
        return std::string("pulsesink");
      },
      [&](std::function<void()> job) {
        std::lock_guard lock(threadsMutex);
        probeThreads.emplace_back(std::move(job));
      },
      // Every look at the clock moves it on, so answers keep going stale.
      [&] { return std::chrono::steady_clock::time_point(std::chrono::milliseconds(++ticks)); },
      std::chrono::milliseconds(50));

  std::vector<std::thread> callers;
  for (int t = 0; t < 4; ++t) {
    callers.emplace_back([&choice] {
      for (int i = 0; i < 500; ++i) {
        const auto output = choice.current();
        if (output.kind == SoundOutputChoice::Kind::Device) {
          EXPECT_EQ(output.factory, "pulsesink");
          if (i % 7 == 0) choice.deviceFailed(output.factory);
        } else {
          EXPECT_EQ(output.kind, SoundOutputChoice::Kind::Automatic);
          choice.prepare();
        }
      }
    });
  }
  for (auto& caller : callers) caller.join();
  // Probes launched by the last callers have all been started by now.
  std::vector<std::thread> launched;
  {
    std::lock_guard lock(threadsMutex);
    launched.swap(probeThreads);
  }
  for (auto& probe : launched) probe.join();
  EXPECT_EQ(mostAtOnce.load(), 1);
  EXPECT_GE(probes.load(), 1);
  EXPECT_EQ(static_cast<std::size_t>(probes.load()), launched.size());
}

}  // namespace
}  // namespace zivora::platform
