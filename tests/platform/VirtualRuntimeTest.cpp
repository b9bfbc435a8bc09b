#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/dispatch/QueueAssert.h"
#include "support/ScopedContext.h"
#include "support/VirtualRuntime.h"

namespace zivora::test {
namespace {

using namespace std::chrono_literals;
using dispatch::Duration;
using dispatch::TaskHandle;
using Names = std::vector<std::string>;

class VirtualRuntimeTest : public ::testing::Test {
 protected:
  // A task that records its name and the virtual time (ms) it ran at.
  dispatch::Task record(std::string name) {
    return [this, name] { ran_.push_back(name + "@" + std::to_string(runtime_.elapsed() / 1ms)); };
  }

  ScopedContext scope_;
  VirtualRuntime runtime_;
  std::shared_ptr<dispatch::Queue> a_ = runtime_.makeSerialQueue("a");
  std::shared_ptr<dispatch::Queue> b_ = runtime_.makeSerialQueue("b");
  Names ran_;
};

TEST_F(VirtualRuntimeTest, RunsByDueTimeThenPostingOrderAndEndsExactlyAtTheTarget) {
  a_->after(2s, record("a2"));
  a_->async([this] {
    record("a0")();
    a_->after(2001ms, record("chained"));  // posted by a task: runs in the same call once due
  });
  b_->after(1s, record("b1"));
  a_->after(1s, record("a1"));
  runtime_.mainQueue().async(record("m0"));
  b_->async(record("b0"));

  EXPECT_EQ(runtime_.runUntilIdle(), 3u);
  EXPECT_EQ(runtime_.advanceBy(2s), 3u);
  EXPECT_EQ(ran_, (Names{"a0@0", "m0@0", "b0@0", "b1@1000", "a1@1000", "a2@2000"}));
  EXPECT_EQ(runtime_.elapsed(), 2s);
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);
  EXPECT_EQ(runtime_.nextPendingDelay(), 1ms);
  EXPECT_EQ(runtime_.advanceBy(0s) + runtime_.runUntilIdle(), 0u);

  // A chain of delayed retries is followed to its end.
  int attempts = 0;
  std::function<void()> retry = [&] {
    if (++attempts < 4) a_->after(std::chrono::seconds(5 << attempts), retry);
  };
  a_->async(retry);
  EXPECT_EQ(runtime_.advanceUntilNoTasks(), 5u);
  EXPECT_EQ(runtime_.elapsed(), 2s + 10s + 20s + 40s);
  EXPECT_EQ(runtime_.nextPendingDelay(), std::nullopt);
}

TEST_F(VirtualRuntimeTest, CancelledWorkAndADroppedQueuesWorkNeverRunAndAreNotPending) {
  TaskHandle handle = a_->after(5s, record("cancelled"));
  b_->after(10s, record("kept"));
  EXPECT_EQ(runtime_.nextPendingDelay(), 5s);
  handle.cancel();
  handle.cancel();
  TaskHandle().cancel();
  EXPECT_TRUE(handle.isCancelled());
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);
  EXPECT_EQ(runtime_.nextPendingDelay(), 10s);

  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> watch = owner;
  a_->after(1s, [owner] {});
  owner.reset();
  a_->async(record("never"));
  a_.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);

  runtime_.advanceBy(10s);
  EXPECT_EQ(ran_, (Names{"kept@10000"}));
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
}

TEST_F(VirtualRuntimeTest, RepeatingTimersKeepTheirGridUntilCancelled) {
  int fires = 0;
  TaskHandle timer = runtime_.mainQueue().every(50ms, [&] { ++fires; });
  runtime_.advanceBy(49ms);
  EXPECT_EQ(fires, 0);
  runtime_.advanceBy(951ms);
  EXPECT_EQ(fires, 20);
  EXPECT_EQ(runtime_.nextPendingDelay(), 50ms);
  timer.cancel();
  runtime_.advanceBy(1s);
  EXPECT_EQ(fires, 20);

  // A timer may cancel itself, or drop its queue's last reference, from its
  // own task.
  timer = a_->every(1s, [&] {
    if (++fires == 23) timer.cancel();
  });
  b_->every(1s, [&] { b_.reset(); });
  b_->after(1500ms, record("dropped"));
  runtime_.advanceBy(10s);
  EXPECT_EQ(fires, 23);
  EXPECT_TRUE(ran_.empty());
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);

  // Fires missed while the queue is busy merge into one late fire, then the
  // grid resumes.
  std::vector<Duration> fireTimes;
  const Duration start = runtime_.elapsed();
  a_->every(50ms, [&] { fireTimes.push_back(runtime_.elapsed() - start); });
  a_->after(10ms, [&] { runtime_.clock().sleepFor(1s); });
  runtime_.advanceBy(1100ms);
  EXPECT_EQ(fireTimes, (std::vector<Duration>{1010ms, 1050ms, 1100ms}));
}

TEST_F(VirtualRuntimeTest, ASleepRunsOtherQueuesDueWorkButNotItsOwn) {
  std::vector<bool> current;
  a_->async([&] {
    ran_.push_back("sleep");
    runtime_.clock().sleepFor(5s);
    record("woke")();
    current.push_back(a_->isCurrent());
  });
  a_->after(1s, record("a-own"));
  b_->after(2s, [&] {
    current.insert(current.end(),
                   {a_->isCurrent(), b_->isCurrent(), runtime_.mainQueue().isCurrent()});
    record("b")();
  });
  b_->after(6s, record("b-late"));
  runtime_.globalQueue().async([&] { current.push_back(runtime_.globalQueue().isCurrent()); });

  EXPECT_EQ(runtime_.runUntilIdle(), 4u);
  EXPECT_EQ(ran_, (Names{"sleep", "b@2000", "woke@5000", "a-own@5000"}));
  EXPECT_EQ(current, (std::vector<bool>{true, false, true, false, true}));
  EXPECT_FALSE(a_->isCurrent() || runtime_.globalQueue().isCurrent());
  EXPECT_EQ(runtime_.nextPendingDelay(), 1s);

  // Outside any task a sleep is an advance.
  runtime_.clock().sleepFor(4s);
  EXPECT_EQ(ran_.back(), "b-late@6000");
  EXPECT_EQ(runtime_.elapsed(), 9s);
  using std::chrono::sys_days;
  EXPECT_EQ(runtime_.clock().wallNow(), sys_days(std::chrono::year(2026) / 1 / 1) + 9s);
  EXPECT_EQ(runtime_.clock().steadyNow() - VirtualRuntime::kSteadyStart, 9s);
}

TEST_F(VirtualRuntimeTest, APumpRunsOnlyMainQueueWorkDueBeforeIt) {
  dispatch::Queue& main = runtime_.mainQueue();
  main.async([&] {
    ran_.push_back("m1");
    main.async(record("next-frame"));
  });
  main.async(record("m2"));
  main.after(1s, record("m-later"));
  a_->async(record("a"));

  EXPECT_EQ(runtime_.pumpMainQueue(), 2u);
  EXPECT_EQ(ran_, (Names{"m1", "m2@0"}));
  EXPECT_EQ(runtime_.pumpMainQueue(), 1u);
  EXPECT_EQ(runtime_.pumpMainQueue(), 0u);
  runtime_.advanceBy(1s);
  EXPECT_EQ(ran_, (Names{"m1", "m2@0", "next-frame@0", "a@0", "m-later@1000"}));
}

TEST_F(VirtualRuntimeTest, RunawayLoopsHitTheTaskLimitAndThrowingTasksAreReported) {
  TaskHandle timer = b_->every(1s, [] {});
  EXPECT_THROW(runtime_.advanceUntilNoTasks(), std::runtime_error);
  timer.cancel();
  std::function<void()> repost = [&] { a_->async(repost); };
  a_->async(repost);
  EXPECT_THROW(runtime_.runUntilIdle(), std::runtime_error);
  a_.reset();

  auto queue = runtime_.makeSerialQueue("com.zivora.resources");
  queue->async([] { throw std::runtime_error("boom"); });
  queue->async(record("after"));
  EXPECT_EQ(runtime_.runUntilIdle(), 2u);
  EXPECT_EQ(ran_.size(), 1u);
  ASSERT_EQ(scope_.log().lines().size(), 1u);
  EXPECT_EQ(scope_.log().lines()[0].text, "Backoffice [Queue][com.zivora.resources] Error!");
}

#ifdef NDEBUG
TEST_F(VirtualRuntimeTest, AssertOnWarnsOnlyOffTheQueue) {
  auto queue = runtime_.makeSerialQueue("owner");
  queue->async([&] { ZV_ASSERT_ON(queue); });
  runtime_.runUntilIdle();
  EXPECT_TRUE(scope_.log().lines().empty());
  ZV_ASSERT_ON(queue);
  ASSERT_EQ(scope_.log().lines().size(), 1u);
  EXPECT_NE(scope_.log().lines()[0].text.find("queue (owner) is not the current queue"),
            std::string::npos);
}
#endif

}  // namespace
}  // namespace zivora::test
