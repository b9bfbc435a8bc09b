#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/ThreadRuntime.h"
#include "support/RunOnQueue.h"

namespace zivora::dispatch {
namespace {

using namespace std::chrono_literals;

// Generous: these waits end on an event; the limit only stops a hung test.
constexpr auto kTimeout = 20s;

template <class Future>
bool ready(Future& future) {
  return future.wait_for(kTimeout) == std::future_status::ready;
}

// Waits until everything the queue had before it has run.
bool drain(Queue& queue) {
  return test::runOnQueue(queue, [] {});
}

// Waits until a task posted `delay` from now has run.
bool waitPast(Queue& queue, Duration delay) {
  auto done = std::make_shared<std::promise<void>>();
  auto future = done->get_future();
  queue.after(delay, [done] { done->set_value(); });
  return ready(future);
}

// A task that holds its queue until the test opens the gate.
struct HeldTask {
  Task task() {
    return [this] {
      started.set_value();
      opened.wait_for(kTimeout);
      finished = true;
    };
  }
  bool hasStarted() {
    auto future = started.get_future();
    return ready(future);
  }
  void open() { gate.set_value(); }

  std::promise<void> gate, started;
  std::shared_future<void> opened = gate.get_future().share();
  std::atomic<bool> finished{false};
};

// Counts what runs after it should have been dropped, and shows that what it
// posted was released.
struct LateWork {
  std::atomic<int> runs{0};
  std::shared_ptr<int> capture = std::make_shared<int>(0);
  std::weak_ptr<int> watch = capture;
  Task task() {
    return [this, capture = capture] { ++runs; };
  }
  bool droppedAll() {
    capture.reset();
    return watch.expired() && runs == 0;
  }
};

TEST(ThreadRuntimeThreadedTest, SerialQueueKeepsEachPostersOrderAndNeverOverlaps) {
  ThreadRuntime runtime;
  auto queue = runtime.makeSerialQueue("serial");
  constexpr int kPosters = 4, kTasks = 500;
  std::vector<std::vector<int>> seen(kPosters);  // touched only on the queue
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p) {
    posters.emplace_back([&, p] {
      for (int i = 0; i < kTasks; ++i) {
        queue->async([&, p, i] {
          if (inside.fetch_add(1) != 0) overlapped = true;
          seen[p].push_back(i);
          inside.fetch_sub(1);
        });
      }
    });
  }
  for (auto& poster : posters) poster.join();
  ASSERT_TRUE(drain(*queue));
  EXPECT_FALSE(overlapped);
  std::vector<int> inOrder(kTasks);
  for (int i = 0; i < kTasks; ++i) inOrder[i] = i;
  for (const auto& perPoster : seen) EXPECT_EQ(perPoster, inOrder);
}

TEST(ThreadRuntimeThreadedTest, IsCurrentOnlyOnTheQueuesOwnThreadAndGlobalRunsTwoAtOnce) {
  ThreadRuntime runtime;
  auto a = runtime.makeSerialQueue("a");
  auto b = runtime.makeSerialQueue("b");
  std::promise<std::vector<bool>> seenOnA;
  a->async([&] {
    seenOnA.set_value({a->isCurrent(), b->isCurrent(), runtime.mainQueue().isCurrent(),
                       runtime.globalQueue().isCurrent()});
  });
  auto onA = seenOnA.get_future();
  ASSERT_TRUE(ready(onA));
  EXPECT_EQ(onA.get(), (std::vector<bool>{true, false, false, false}));
  EXPECT_FALSE(a->isCurrent() || runtime.mainQueue().isCurrent());

  // Two pool tasks that each wait for the other can only meet if both run.
  // What they share is theirs: the second may still be waking when the
  // test is done.
  struct Meeting {
    std::promise<void> first, second;
    std::promise<bool> bothCurrent;
  };
  auto meeting = std::make_shared<Meeting>();
  auto& global = runtime.globalQueue();
  global.async([meeting, &global] {
    meeting->first.set_value();
    const bool met = meeting->second.get_future().wait_for(kTimeout) == std::future_status::ready;
    meeting->bothCurrent.set_value(met && global.isCurrent());
  });
  global.async([meeting] {
    meeting->second.set_value();
    meeting->first.get_future().wait_for(kTimeout);
  });
  auto met = meeting->bothCurrent.get_future();
  ASSERT_TRUE(ready(met));
  EXPECT_TRUE(met.get());
  ASSERT_TRUE(drain(runtime.globalQueue()));
}

TEST(ThreadRuntimeThreadedTest, TasksCancelledBeforeTheyStartNeverRun) {
  ThreadRuntime runtime;
  auto queue = runtime.makeSerialQueue("cancel");
  HeldTask held;
  queue->async(held.task());  // holds the queue while handles are cancelled
  constexpr int kTasks = 200;
  std::vector<TaskHandle> handles;
  std::vector<std::atomic<bool>> ran(kTasks);
  for (int i = 0; i < kTasks; ++i)
    handles.push_back(queue->after(1ms, [&ran, i] { ran[i] = true; }));
  // Cancel the even ones from two threads at once, while the odd ones fall due.
  std::thread canceller([&] {
    for (int i = 0; i < kTasks; i += 2) handles[i].cancel();
  });
  for (int i = 0; i < kTasks; i += 2) handles[i].cancel();
  canceller.join();
  held.open();
  ASSERT_TRUE(waitPast(*queue, 2ms));
  for (int i = 0; i < kTasks; ++i) EXPECT_EQ(ran[i].load(), i % 2 == 1) << "task " << i;
  handles[1].cancel();  // cancelling after the run is harmless
}

TEST(ThreadRuntimeThreadedTest, RepeatingTimersStopWhenCancelledFromOutsideOrFromTheirOwnTask) {
  ThreadRuntime runtime;
  auto queue = runtime.makeSerialQueue("timer");
  std::atomic<int> fires{0};
  std::promise<void> fiveFires;
  TaskHandle timer = queue->every(1ms, [&] {
    if (++fires == 5) fiveFires.set_value();
  });
  auto five = fiveFires.get_future();
  ASSERT_TRUE(ready(five));
  timer.cancel();
  ASSERT_TRUE(drain(*queue));  // a fire already running when cancelled has finished
  const int afterCancel = fires;

  std::atomic<int> ownFires{0};
  std::promise<void> cancelled;
  std::mutex handleMutex;  // the timer may fire before `own` is assigned
  TaskHandle own;
  {
    std::lock_guard lock(handleMutex);
    own = runtime.mainQueue().every(1ms, [&] {
      std::lock_guard inner(handleMutex);
      if (++ownFires == 3) {
        own.cancel();
        cancelled.set_value();
      }
    });
  }
  auto three = cancelled.get_future();
  ASSERT_TRUE(ready(three));
  ASSERT_TRUE(waitPast(runtime.mainQueue(), 20ms));
  EXPECT_EQ(ownFires, 3);
  EXPECT_EQ(fires, afterCancel);
}

TEST(ThreadRuntimeThreadedTest, AHostPumpedMainQueueRunsOnlyOnThePumpingThread) {
  ThreadRuntime runtime(zivora::MainQueueMode::HostPumped);
  EXPECT_EQ(runtime.mainQueueMode(), MainQueueMode::HostPumped);
  std::vector<std::pair<std::thread::id, bool>> ranOn;  // written only while pumping
  for (int i = 0; i < 3; ++i) {
    runtime.mainQueue().async(
        [&] { ranOn.emplace_back(std::this_thread::get_id(), runtime.mainQueue().isCurrent()); });
  }
  runtime.mainQueue().async([&] { runtime.mainQueue().async([] {}); });
  runtime.mainQueue().after(1h, [] {});

  std::thread::id host;
  std::vector<std::size_t> pumped;
  std::thread([&] {
    host = std::this_thread::get_id();
    for (int i = 0; i < 3; ++i) pumped.push_back(runtime.pumpMainQueue());
  }).join();
  // Nothing ran before the first pump, and work posted during a pump waits
  // for the next frame.
  EXPECT_EQ(pumped, (std::vector<std::size_t>{4, 1, 0}));
  EXPECT_EQ(ranOn, (std::vector<std::pair<std::thread::id, bool>>(3, {host, true})));
  EXPECT_FALSE(runtime.mainQueue().isCurrent());

  // A main queue with its own thread is never pumped.
  ThreadRuntime own;
  std::promise<std::thread::id> ownThread;
  own.mainQueue().async([&] { ownThread.set_value(std::this_thread::get_id()); });
  auto future = ownThread.get_future();
  ASSERT_TRUE(ready(future));
  EXPECT_NE(future.get(), std::this_thread::get_id());
  EXPECT_EQ(own.pumpMainQueue(), 0u);
}

TEST(ThreadRuntimeThreadedTest, DestroyingAnIdleQueueDropsDelayedWorkAndJoins) {
  ThreadRuntime runtime;
  auto queue = runtime.makeSerialQueue("idle");
  LateWork late;
  queue->after(1h, late.task());
  queue->every(1h, late.task());
  ASSERT_TRUE(drain(*queue));
  queue.reset();  // wakes the worker from its hour-long wait and joins it
  EXPECT_TRUE(late.droppedAll());
}

TEST(ThreadRuntimeThreadedTest, DestroyingTheRuntimeLetsTheRunningTaskFinishAndDropsTheRest) {
  auto runtime = std::make_unique<ThreadRuntime>();
  auto survivor = runtime->makeSerialQueue("survivor");
  HeldTask held;
  LateWork late;
  survivor->async(held.task());
  survivor->after(1h, late.task());
  runtime->mainQueue().after(1h, late.task());
  runtime->globalQueue().after(1h, late.task());
  ASSERT_TRUE(held.hasStarted());

  std::thread destroyer([&] { runtime.reset(); });
  held.open();
  destroyer.join();
  EXPECT_TRUE(held.finished);
  // The queue outlives its runtime; posting to it is harmless and runs nothing.
  survivor->async(late.task());
  survivor->after(1ms, late.task());
  survivor.reset();
  EXPECT_TRUE(late.droppedAll());
}

TEST(ThreadRuntimeThreadedTest, ShutdownFromAQueuesOwnTaskWaitsForTheOthersOnly) {
  ThreadRuntime runtime;
  auto serial = runtime.makeSerialQueue("busy");
  HeldTask held;
  serial->async(held.task());
  ASSERT_TRUE(held.hasStarted());

  // The caller's own task is not waited for (that would be itself); the
  // busy serial queue's task is.
  std::promise<bool> shutDown;
  runtime.mainQueue().async([&] {
    std::thread opener([&] { held.open(); });
    runtime.shutdown();
    opener.join();
    shutDown.set_value(held.finished.load());
  });
  auto shutDownFuture = shutDown.get_future();
  ASSERT_TRUE(ready(shutDownFuture));
  EXPECT_TRUE(shutDownFuture.get());

  // Work that outlived the shutdown gets queues that drop what they are given.
  LateWork late;
  auto lateQueue = runtime.makeSerialQueue("late");
  lateQueue->async(late.task());
  runtime.globalQueue().async(late.task());
  EXPECT_TRUE(late.droppedAll());
}

TEST(ThreadRuntimeThreadedTest, ShutdownCutsATaskSleepingThroughABackOffShort) {
  auto runtime = std::make_shared<ThreadRuntime>();
  auto serial = runtime->makeSerialQueue("backing-off");
  std::promise<void> sleeping;
  serial->async([&] {
    sleeping.set_value();
    runtime->clock().sleepFor(1h);
  });
  auto sleepingFuture = sleeping.get_future();
  ASSERT_TRUE(ready(sleepingFuture));
  // On a thread of its own, so that a shutdown stuck behind the sleep fails
  // the test instead of hanging it.
  auto shutDown = std::make_shared<std::promise<void>>();
  auto shutDownFuture = shutDown->get_future();
  std::thread([runtime, shutDown] {
    runtime->shutdown();
    runtime->clock().sleepFor(1h);  // later sleeps return at once
    shutDown->set_value();
  }).detach();
  EXPECT_TRUE(ready(shutDownFuture));
}

TEST(ThreadRuntimeThreadedTest, AQueueMayDropItsLastReferenceFromItsOwnTask) {
  ThreadRuntime runtime;
  auto holder = std::make_shared<std::shared_ptr<Queue>>(runtime.makeSerialQueue("self"));
  std::weak_ptr<Queue> watch = *holder;
  std::promise<void> dropped;
  HeldTask held;
  LateWork late;
  (*holder)->async([holder, &dropped, &held] {
    held.task()();    // until the next task is queued behind this one
    holder->reset();  // the last reference: the queue detaches its own thread
    dropped.set_value();
  });
  (*holder)->async(late.task());
  held.open();
  auto future = dropped.get_future();
  ASSERT_TRUE(ready(future));
  EXPECT_TRUE(watch.expired());
  // The task after the drop was discarded; the global pool confirms the
  // runtime still works.
  ASSERT_TRUE(drain(runtime.globalQueue()));
  EXPECT_EQ(late.runs, 0);
}

}  // namespace
}  // namespace zivora::dispatch
