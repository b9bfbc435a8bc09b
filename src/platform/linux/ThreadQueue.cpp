#include "platform/linux/ThreadQueue.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dispatch/TimerSchedule.h"
#include "util/Guard.h"

namespace zivora::dispatch {
namespace {

using SteadyClock = std::chrono::steady_clock;
using CancelFlag = std::shared_ptr<std::atomic<bool>>;

// The core whose task the calling thread is running, for isCurrent().
thread_local const void* tlsRunning = nullptr;

struct Entry {
  SteadyClock::time_point due;
  std::uint64_t seq = 0;
  Task task;
  CancelFlag cancelled;
  Duration interval = Duration::zero();  // zero for one-shot tasks

  bool isCancelled() const { return cancelled && cancelled->load(); }
  bool repeats() const { return interval > Duration::zero(); }
};

// std::push_heap keeps the greatest element first; "greater" is "due later".
bool dueLater(const Entry& a, const Entry& b) {
  return a.due != b.due ? a.due > b.due : a.seq > b.seq;
}

}  // namespace

class ThreadQueue::Core {
 public:
  Core(std::string label, bool pumped) : label_(std::move(label)), pumped_(pumped) {}

  void post(Duration delay, Task task, CancelFlag cancelled, Duration interval) {
    Entry entry{{}, 0, std::move(task), std::move(cancelled), interval};
    {
      std::lock_guard lock(mutex_);
      if (stopped_) return;  // the entry dies after the lock is released
      // Reading the time under the lock keeps posting order and due order
      // consistent across posting threads.
      entry.due = SteadyClock::now() + std::max(delay, Duration::zero());
      entry.seq = nextSeq_++;
      push(std::move(entry));
    }
    wake_.notify_one();
  }

  void startWorkers(std::size_t count, const std::shared_ptr<Core>& self) {
    std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < count; ++i) {
      // The thread holds the core, so it may outlive a detached queue.
      workers_.emplace_back([self] { self->workerLoop(); });
      pthread_setname_np(workers_.back().native_handle(), label_.substr(0, 15).c_str());
    }
  }

  std::size_t runDue() {
    if (tlsRunning == this) return 0;  // a pump from inside a pumped task
    std::lock_guard pumping(pumpMutex_);
    pumpThread_ = std::this_thread::get_id();
    SteadyClock::time_point startNow;
    std::uint64_t startSeq;
    {
      std::lock_guard lock(mutex_);
      startNow = SteadyClock::now();
      startSeq = nextSeq_;
    }
    std::size_t count = 0;
    while (auto entry = takeDueBy(startNow, startSeq)) {
      runAndReschedule(*entry);
      ++count;
    }
    return count;
  }

  void close() {
    std::vector<Entry> dropped;
    {
      std::lock_guard lock(mutex_);
      stopped_ = true;
      dropped.swap(heap_);
    }
    wake_.notify_all();
  }

  void stop() {
    close();
    std::vector<std::thread> workers;
    {
      std::lock_guard lock(mutex_);
      workers.swap(workers_);
    }
    for (auto& worker : workers) {
      if (worker.get_id() == std::this_thread::get_id()) {
        worker.detach();  // the last reference went away inside one of our tasks
      } else {
        worker.join();
      }
    }
    // A pump under way on another thread finishes its task first; a pumped
    // task that stops its own queue is not waited for.
    if (tlsRunning != this) {
      std::lock_guard pumping(pumpMutex_);
    }
    // A pumped queue has no thread of its own: its last tasks run on the
    // caller, which is the host's pumping thread when the host follows the
    // rule of one pumping thread.
    if (pumped_) runEndTasks();
  }

  // A pumped queue belongs to the thread that pumps it: between two pumps
  // nothing else runs its tasks, so code on that thread is serial with them.
  bool isRunningOnCaller() const {
    return tlsRunning == this || (pumped_ && pumpThread_ == std::this_thread::get_id());
  }

  void atEnd(Task task) {
    std::lock_guard lock(mutex_);
    endTasks_.push_back(std::move(task));
  }

 private:
  void push(Entry entry) {
    heap_.push_back(std::move(entry));
    std::push_heap(heap_.begin(), heap_.end(), dueLater);
  }

  Entry popTop() {
    std::pop_heap(heap_.begin(), heap_.end(), dueLater);
    Entry top = std::move(heap_.back());
    heap_.pop_back();
    return top;
  }

  // Drops cancelled entries at the top of the heap. Their tasks are
  // destroyed with the lock released: a task's captures may own a queue
  // whose destructor needs this lock.
  void dropCancelledTop(std::unique_lock<std::mutex>& lock) {
    while (!heap_.empty() && heap_.front().isCancelled()) {
      Entry dead = popTop();
      lock.unlock();
      dead = Entry{};
      lock.lock();
    }
  }

  std::optional<Entry> waitForNext() {
    std::unique_lock lock(mutex_);
    for (;;) {
      dropCancelledTop(lock);
      if (stopped_) return std::nullopt;
      if (heap_.empty()) {
        wake_.wait(lock);
      } else if (heap_.front().due <= SteadyClock::now()) {
        return popTop();
      } else {
        // A copy: wait_until reads its deadline again after the wait, when
        // other threads may have moved the heap's storage.
        const SteadyClock::time_point deadline = heap_.front().due;
        wake_.wait_until(lock, deadline);
      }
    }
  }

  std::optional<Entry> takeDueBy(SteadyClock::time_point limit, std::uint64_t seqLimit) {
    std::unique_lock lock(mutex_);
    dropCancelledTop(lock);
    if (stopped_ || heap_.empty()) return std::nullopt;
    const Entry& top = heap_.front();
    if (top.due > limit || top.seq >= seqLimit) return std::nullopt;
    return popTop();
  }

  void workerLoop() {
    while (auto entry = waitForNext()) {
      runAndReschedule(*entry);
    }
    runEndTasks();
  }

  // Runs the end tasks once, as the queue's own (isCurrent() holds in them).
  void runEndTasks() {
    std::vector<Task> tasks;
    {
      std::lock_guard lock(mutex_);
      tasks.swap(endTasks_);
    }
    for (auto& task : tasks) {
      Entry entry{{}, 0, std::move(task), nullptr, Duration::zero()};
      runAndReschedule(entry);
    }
  }

  void runAndReschedule(Entry& entry) {
    if (entry.isCancelled()) return;
    const void* outer = tlsRunning;
    tlsRunning = this;
    guarded(
        "Queue", label_.c_str(), [&] { entry.task(); }, GuardReport::Backoffice);
    tlsRunning = outer;
    if (entry.repeats() && !entry.isCancelled()) reschedule(std::move(entry));
    // A one-shot task is destroyed by the caller, outside every lock.
  }

  void reschedule(Entry&& entry) {
    {
      std::lock_guard lock(mutex_);
      if (stopped_) return;
      entry.due = nextFire(entry.due, entry.interval, SteadyClock::now());
      entry.seq = nextSeq_++;
      push(std::move(entry));
    }
    wake_.notify_one();
  }

  const std::string label_;
  const bool pumped_;
  std::atomic<std::thread::id> pumpThread_{};
  std::vector<Task> endTasks_;
  std::mutex pumpMutex_;  // one pump at a time keeps a pumped queue serial
  std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<Entry> heap_;
  std::uint64_t nextSeq_ = 0;
  bool stopped_ = false;
  std::vector<std::thread> workers_;
};

ThreadQueue::ThreadQueue(std::string label, std::size_t workerCount)
    : label_(std::move(label)), core_(std::make_shared<Core>(label_, workerCount == 0)) {
  core_->startWorkers(workerCount, core_);
}

ThreadQueue::~ThreadQueue() { core_->stop(); }

void ThreadQueue::async(Task task) {
  core_->post(Duration::zero(), std::move(task), nullptr, Duration::zero());
}

TaskHandle ThreadQueue::after(Duration delay, Task task) {
  auto cancelled = std::make_shared<std::atomic<bool>>(false);
  core_->post(delay, std::move(task), cancelled, Duration::zero());
  return TaskHandle(std::move(cancelled));
}

TaskHandle ThreadQueue::every(Duration interval, Task task) {
  interval = timerInterval(interval);
  auto cancelled = std::make_shared<std::atomic<bool>>(false);
  core_->post(interval, std::move(task), cancelled, interval);
  return TaskHandle(std::move(cancelled));
}

bool ThreadQueue::isCurrent() const { return core_->isRunningOnCaller(); }

std::size_t ThreadQueue::runDue() { return core_->runDue(); }

void ThreadQueue::atEnd(Task task) { core_->atEnd(std::move(task)); }

void ThreadQueue::close() { core_->close(); }

void ThreadQueue::stop() { core_->stop(); }

}  // namespace zivora::dispatch
