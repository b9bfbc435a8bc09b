#include <gtest/gtest.h>

#include <chrono>
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
using dispatch::Queue;
using dispatch::TaskHandle;

class VirtualRuntimeTest : public ::testing::Test {
 protected:
  VirtualRuntime runtime_;
  std::shared_ptr<Queue> a_ = runtime_.makeSerialQueue("a");
  std::shared_ptr<Queue> b_ = runtime_.makeSerialQueue("b");
  std::vector<std::string> ran_;

  // A task that records its name and the virtual time it ran at.
  dispatch::Task record(std::string name) {
    return [this, name] {
      auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(runtime_.elapsed());
      ran_.push_back(name + "@" + std::to_string(ms.count()));
    };
  }
};

TEST_F(VirtualRuntimeTest, RunsTasksByDueTimeThenPostingOrderAcrossQueues) {
  a_->after(2s, record("a2"));
  a_->async(record("a0"));
  b_->after(1s, record("b1"));
  a_->after(1s, record("a1"));
  runtime_.mainQueue().async(record("m0"));
  b_->async(record("b0"));

  EXPECT_EQ(runtime_.runUntilIdle(), 3u);
  EXPECT_EQ(ran_, (std::vector<std::string>{"a0@0", "m0@0", "b0@0"}));
  EXPECT_EQ(runtime_.advanceBy(3s), 3u);
  EXPECT_EQ(ran_,
            (std::vector<std::string>{"a0@0", "m0@0", "b0@0", "b1@1000", "a1@1000", "a2@2000"}));
  EXPECT_EQ(runtime_.elapsed(), 3s);
}

TEST_F(VirtualRuntimeTest, AdvanceByRunsExactlyWhatFallsDueAndEndsAtTheTarget) {
  a_->after(500ms, record("x"));
  a_->after(1s, record("y"));
  a_->after(1001ms, record("z"));

  EXPECT_EQ(runtime_.advanceBy(1s), 2u);
  EXPECT_EQ(ran_, (std::vector<std::string>{"x@500", "y@1000"}));
  EXPECT_EQ(runtime_.elapsed(), 1s);
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);
  EXPECT_EQ(runtime_.nextPendingDelay(), 1ms);

  EXPECT_EQ(runtime_.advanceBy(0s), 0u);
  EXPECT_EQ(runtime_.runUntilIdle(), 0u);
  EXPECT_EQ(runtime_.elapsed(), 1s);
}

TEST_F(VirtualRuntimeTest, CancelledTasksNeverRunAndAreNotPending) {
  TaskHandle handle = a_->after(5s, record("cancelled"));
  a_->after(10s, record("kept"));
  EXPECT_EQ(runtime_.nextPendingDelay(), 5s);

  handle.cancel();
  handle.cancel();
  TaskHandle().cancel();
  EXPECT_TRUE(handle.isCancelled());
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);
  EXPECT_EQ(runtime_.nextPendingDelay(), 10s);

  runtime_.advanceBy(10s);
  EXPECT_EQ(ran_, (std::vector<std::string>{"kept@10000"}));
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
  EXPECT_EQ(runtime_.nextPendingDelay(), std::nullopt);
}

TEST_F(VirtualRuntimeTest, WorkPostedByATaskRunsInTheSameCallWhenDue) {
  a_->async([this] {
    ran_.push_back("outer");
    b_->async(record("posted"));
    a_->after(2s, [this] {
      ran_.push_back("delayed");
      a_->async(record("chained"));
    });
  });

  EXPECT_EQ(runtime_.runUntilIdle(), 2u);
  EXPECT_EQ(runtime_.nextPendingDelay(), 2s);
  EXPECT_EQ(runtime_.advanceBy(2s), 2u);
  EXPECT_EQ(ran_, (std::vector<std::string>{"outer", "posted@0", "delayed", "chained@2000"}));
}

TEST_F(VirtualRuntimeTest, RepeatingTimerFiresOncePerIntervalUntilCancelled) {
  int fires = 0;
  TaskHandle timer = runtime_.mainQueue().every(50ms, [&] { ++fires; });

  runtime_.advanceBy(49ms);
  EXPECT_EQ(fires, 0);
  runtime_.advanceBy(1ms);
  EXPECT_EQ(fires, 1);
  runtime_.advanceBy(950ms);
  EXPECT_EQ(fires, 20);
  EXPECT_EQ(runtime_.nextPendingDelay(), 50ms);

  timer.cancel();
  runtime_.advanceBy(1s);
  EXPECT_EQ(fires, 20);
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);

  // A timer may also cancel itself from inside its own task.
  timer = a_->every(1s, [&] {
    if (++fires == 23) timer.cancel();
  });
  runtime_.advanceBy(10s);
  EXPECT_EQ(fires, 23);
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
}

TEST_F(VirtualRuntimeTest, FiresMissedWhileTheQueueIsBusyMergeIntoOne) {
  std::vector<Duration> fireTimes;
  a_->every(50ms, [&] { fireTimes.push_back(runtime_.elapsed()); });
  // Keeps queue a busy from 10 ms to 1010 ms.
  a_->after(10ms, [&] { runtime_.clock().sleepFor(1s); });

  runtime_.advanceBy(1100ms);
  // One late fire when the queue frees up, then back on the 50 ms grid.
  EXPECT_EQ(fireTimes, (std::vector<Duration>{1010ms, 1050ms, 1100ms}));
}

TEST_F(VirtualRuntimeTest, SleepRunsOtherQueuesDueWorkButNotItsOwn) {
  bool aCurrentDuringNested = true;
  bool bCurrentDuringNested = false;
  a_->async([&] {
    ran_.push_back("sleep");
    runtime_.clock().sleepFor(5s);
    ran_.push_back("woke@" + std::to_string(runtime_.elapsed() / 1ms));
    EXPECT_TRUE(a_->isCurrent());
  });
  a_->after(1s, record("a-own"));
  b_->after(2s, [&] {
    aCurrentDuringNested = a_->isCurrent();
    bCurrentDuringNested = b_->isCurrent();
    ran_.push_back("b@" + std::to_string(runtime_.elapsed() / 1ms));
  });
  b_->after(6s, record("b-late"));

  EXPECT_EQ(runtime_.runUntilIdle(), 3u);
  EXPECT_EQ(ran_, (std::vector<std::string>{"sleep", "b@2000", "woke@5000", "a-own@5000"}));
  EXPECT_FALSE(aCurrentDuringNested);
  EXPECT_TRUE(bCurrentDuringNested);
  EXPECT_EQ(runtime_.elapsed(), 5s);
  EXPECT_EQ(runtime_.nextPendingDelay(), 1s);

  // Outside any task a sleep is an advance: everything due runs.
  runtime_.clock().sleepFor(4s);
  EXPECT_EQ(ran_.back(), "b-late@6000");
  EXPECT_EQ(runtime_.elapsed(), 9s);
}

TEST_F(VirtualRuntimeTest, IsCurrentOnlyInsideTheRunningQueuesTask) {
  std::vector<bool> seen;
  a_->async([&] {
    seen = {a_->isCurrent(), b_->isCurrent(), runtime_.mainQueue().isCurrent(),
            runtime_.globalQueue().isCurrent()};
  });
  runtime_.globalQueue().async([&] { seen.push_back(runtime_.globalQueue().isCurrent()); });

  EXPECT_FALSE(a_->isCurrent());
  runtime_.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<bool>{true, false, false, false, true}));
  EXPECT_FALSE(runtime_.globalQueue().isCurrent());
}

TEST_F(VirtualRuntimeTest, PumpRunsOnlyDueMainQueueWork) {
  Queue& main = runtime_.mainQueue();
  main.async([&] {
    ran_.push_back("m1");
    main.async(record("next-frame"));
  });
  main.async(record("m2"));
  main.after(1s, record("m-later"));
  a_->async(record("a"));

  EXPECT_EQ(runtime_.pumpMainQueue(), 2u);
  EXPECT_EQ(ran_, (std::vector<std::string>{"m1", "m2@0"}));
  EXPECT_EQ(runtime_.pumpMainQueue(), 1u);
  EXPECT_EQ(runtime_.pumpMainQueue(), 0u);
  runtime_.advanceBy(1s);
  EXPECT_EQ(ran_, (std::vector<std::string>{"m1", "m2@0", "next-frame@0", "a@0", "m-later@1000"}));
}

TEST_F(VirtualRuntimeTest, AdvanceUntilNoTasksFollowsDelayedChains) {
  int attempts = 0;
  std::function<void()> retry = [&] {
    if (++attempts < 4) a_->after(std::chrono::seconds(5 << attempts), retry);
  };
  a_->async(retry);

  EXPECT_EQ(runtime_.advanceUntilNoTasks(), 4u);
  EXPECT_EQ(attempts, 4);
  EXPECT_EQ(runtime_.elapsed(), 10s + 20s + 40s);
}

TEST_F(VirtualRuntimeTest, RunawayLoopsHitTheTaskLimit) {
  TaskHandle timer = b_->every(1s, [] {});
  EXPECT_THROW(runtime_.advanceUntilNoTasks(), std::runtime_error);
  timer.cancel();

  std::function<void()> repost = [&] { a_->async(repost); };
  a_->async(repost);
  EXPECT_THROW(runtime_.runUntilIdle(), std::runtime_error);
}

TEST_F(VirtualRuntimeTest, WallTimeIsTheStartEpochPlusVirtualTime) {
  using std::chrono::sys_days;
  EXPECT_EQ(runtime_.clock().wallNow(), sys_days(std::chrono::year(2026) / 1 / 1));
  runtime_.advanceBy(90s);
  EXPECT_EQ(runtime_.clock().wallNow(), sys_days(std::chrono::year(2026) / 1 / 1) + 90s);
  EXPECT_EQ(runtime_.clock().steadyNow() - VirtualRuntime::kSteadyStart, 90s);
}

TEST_F(VirtualRuntimeTest, DroppingASerialQueueDiscardsItsWork) {
  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> watch = owner;
  a_->after(1s, [owner] {});
  owner.reset();
  a_->async(record("never"));
  a_.reset();

  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
  runtime_.advanceBy(2s);
  EXPECT_TRUE(ran_.empty());
}

TEST_F(VirtualRuntimeTest, AQueueMayDropItsLastReferenceFromItsOwnTimer) {
  int fires = 0;
  a_->every(1s, [&] {
    ++fires;
    a_.reset();
  });
  a_->after(1500ms, record("dropped"));

  runtime_.advanceBy(5s);
  EXPECT_EQ(fires, 1);
  EXPECT_TRUE(ran_.empty());
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
}

TEST(VirtualRuntimeReportTest, AThrowingTaskIsReportedAndTheQueueGoesOn) {
  ScopedContext scope;
  VirtualRuntime runtime;
  auto queue = runtime.makeSerialQueue("com.zivora.resources");
  bool after = false;
  queue->async([] { throw std::runtime_error("boom"); });
  queue->async([&] { after = true; });

  EXPECT_EQ(runtime.runUntilIdle(), 2u);
  EXPECT_TRUE(after);
  ASSERT_EQ(scope.log().lines().size(), 1u);
  EXPECT_EQ(scope.log().lines()[0].text, "Backoffice [Queue][com.zivora.resources] Error!");
}

#ifdef NDEBUG
TEST(VirtualRuntimeReportTest, AssertOnWarnsOnlyOffTheQueue) {
  ScopedContext scope;
  VirtualRuntime runtime;
  auto queue = runtime.makeSerialQueue("owner");
  queue->async([&] { ZV_ASSERT_ON(queue); });
  runtime.runUntilIdle();
  EXPECT_TRUE(scope.log().lines().empty());

  ZV_ASSERT_ON(queue);
  ASSERT_EQ(scope.log().lines().size(), 1u);
  EXPECT_NE(scope.log().lines()[0].text.find("queue (owner) is not the current queue"),
            std::string::npos);
}
#endif

}  // namespace
}  // namespace zivora::test
