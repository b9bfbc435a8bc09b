#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch/Runtime.h"

namespace zivora::test {

// The runtime on virtual time. Every queue (serial queues, main, global) is a
// logical queue whose tasks run on the thread that drives the runtime; one
// virtual clock is shared by all, and it moves only when the test moves it.
// Tasks run in (due time, posting order); the clock is set to a task's due
// time as it starts.
//
// Declare it as a test fixture's first member so it outlives what uses it:
//   runtime_.runUntilIdle();
//   EXPECT_EQ(runtime_.nextPendingDelay(), 5s);
//   runtime_.advanceBy(5s);
//
// A blocking clock().sleepFor(d) inside a task of queue A runs the other
// queues' work that falls due before the wake time (never A's: A is serial
// and busy), then sets the clock to the wake time and returns.
//
// Drive it from one thread. Posting from other threads is safe, running is
// not.
class VirtualRuntime final : public dispatch::Runtime {
 public:
  using Duration = dispatch::Duration;
  using SteadyTime = dispatch::Clock::SteadyTime;
  using WallTime = dispatch::Clock::WallTime;

  // Where the steady clock starts: not the epoch, so that code treating a
  // zero time point as "never" is not fooled.
  static constexpr SteadyTime kSteadyStart = SteadyTime(std::chrono::hours(1));
  // wallNow() is this start plus the elapsed virtual time: 2026-01-01T00:00:00Z.
  static constexpr WallTime kWallStart = WallTime(std::chrono::seconds(1767225600));
  // More tasks than this in one call of runUntilIdle(), advanceBy() or
  // advanceUntilNoTasks() is taken for a runaway loop (a repeating timer
  // under advanceUntilNoTasks(), a task that re-posts itself): the call
  // throws std::runtime_error.
  static constexpr std::size_t kTaskLimit = 100000;

  VirtualRuntime();
  ~VirtualRuntime() override;
  VirtualRuntime(const VirtualRuntime&) = delete;
  VirtualRuntime& operator=(const VirtualRuntime&) = delete;

  std::shared_ptr<dispatch::Queue> makeSerialQueue(std::string label) override;
  dispatch::Queue& mainQueue() override;
  dispatch::Queue& globalQueue() override;
  dispatch::Clock& clock() override;
  // Runs the main-queue tasks that are due now; main-queue work they post
  // waits for the next pump, as on a host's frame loop.
  std::size_t pumpMainQueue() override;

  // Runs `body` as a main-queue task, then everything else due now: for
  // code that must be called on the main queue (it asserts so).
  void runOnMain(std::function<void()> body);
  // Runs everything due now, including work posted while running; the clock
  // does not move (unless a task sleeps). Returns how many tasks ran.
  std::size_t runUntilIdle();
  // Runs the tasks due up to now + d in time order and ends with the clock
  // exactly at now + d. Returns how many tasks ran.
  std::size_t advanceBy(Duration d);
  // Runs tasks, moving the clock from one to the next, until none is left.
  // A repeating timer never lets that happen and ends in the task limit's
  // exception: stop the timer first, or use advanceBy().
  std::size_t advanceUntilNoTasks();

  // Tasks waiting to run; cancelled ones do not count.
  std::size_t pendingTaskCount() const;
  // From now until the earliest task that is not cancelled (zero when one is
  // overdue), or nothing when no task waits.
  std::optional<Duration> nextPendingDelay() const;

  SteadyTime now() const;
  // Virtual time elapsed since the runtime was made.
  Duration elapsed() const { return now() - kSteadyStart; }

  class Scheduler;

 private:
  std::shared_ptr<Scheduler> scheduler_;
  std::unique_ptr<dispatch::Queue> main_;
  std::unique_ptr<dispatch::Queue> global_;
  std::unique_ptr<dispatch::Clock> clock_;
};

}  // namespace zivora::test
