#include "support/VirtualRuntime.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dispatch/TimerSchedule.h"
#include "util/Guard.h"

namespace zivora::test {

using dispatch::Duration;
using dispatch::Task;
using dispatch::TaskHandle;
using CancelFlag = std::shared_ptr<std::atomic<bool>>;

// The shared state of all the runtime's queues and its clock. Queues and the
// clock hold it, so a queue that outlives the runtime stays safe to use (its
// posts are then dropped).
class VirtualRuntime::Scheduler {
 public:
  using QueueId = std::uint64_t;

  // Which waiting tasks a run may take.
  struct Filter {
    std::optional<QueueId> only;
    std::uint64_t seqBelow = std::numeric_limits<std::uint64_t>::max();
  };

  QueueId addQueue(const std::string& label, bool serial) {
    std::lock_guard lock(mutex_);
    queues_.emplace(nextQueueId_, QueueInfo{label, serial});
    return nextQueueId_++;
  }

  void removeQueue(QueueId id) {
    std::vector<Entry> dropped;  // destroyed after the lock is released
    std::lock_guard lock(mutex_);
    queues_.erase(id);
    for (auto it = tasks_.begin(); it != tasks_.end();) {
      if (it->second.queue == id) {
        dropped.push_back(std::move(it->second));
        it = tasks_.erase(it);
      } else {
        ++it;
      }
    }
  }

  void close() {
    std::map<Key, Entry> dropped;
    std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(tasks_);
  }

  void post(QueueId queue, Duration delay, Task task, CancelFlag cancelled, Duration interval) {
    Entry entry{{}, 0, queue, std::move(task), std::move(cancelled), interval};
    std::lock_guard lock(mutex_);
    if (closed_ || !queues_.contains(queue)) return;
    entry.due = now_ + std::max(delay, Duration::zero());
    entry.seq = nextSeq_++;
    insert(std::move(entry));
  }

  bool isCurrent(QueueId queue) const {
    std::lock_guard lock(mutex_);
    return !running_.empty() && running_.back() == queue && runner_ == std::this_thread::get_id();
  }

  // Runs what the filter allows and falls due by `until` (by the moving
  // clock when not given), in time order.
  // Returns how many tasks ran, those run by a sleeping task's nested runs
  // included.
  std::size_t run(std::optional<SteadyTime> until, const Filter& filter) {
    const std::size_t before = tasksRun();
    std::size_t count = 0;
    while (auto entry = takeNext(until, filter)) {
      if (++count > kTaskLimit) {
        throw std::runtime_error(fmt::format(
            "VirtualRuntime: more than {} tasks in one run; a repeating timer or a task "
            "that keeps re-posting itself?",
            kTaskLimit));
      }
      runEntry(*entry);
    }
    return tasksRun() - before;
  }

  // Runs what falls due before now + d on queues that are not busy, then
  // leaves the clock at now + d: advanceBy() and a blocking sleep alike.
  std::size_t advance(Duration d) {
    const SteadyTime wake = now() + std::max(d, Duration::zero());
    const std::size_t count = run(wake, {});
    std::lock_guard lock(mutex_);
    now_ = std::max(now_, wake);
    return count;
  }

  std::size_t pumpQueue(QueueId queue) {
    SteadyTime dueBy;
    Filter filter{queue};
    {
      std::lock_guard lock(mutex_);
      dueBy = now_;
      filter.seqBelow = nextSeq_;
    }
    return run(dueBy, filter);
  }

  std::size_t pendingCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        tasks_.begin(), tasks_.end(), [](const auto& item) { return !item.second.isCancelled(); }));
  }

  std::optional<Duration> nextDelay() const {
    std::lock_guard lock(mutex_);
    for (const auto& [key, entry] : tasks_) {
      if (!entry.isCancelled()) return std::max(Duration::zero(), entry.due - now_);
    }
    return std::nullopt;
  }

  SteadyTime now() const {
    std::lock_guard lock(mutex_);
    return now_;
  }

  WallTime wallNow() const {
    std::lock_guard lock(mutex_);
    return kWallStart + std::chrono::duration_cast<WallTime::duration>(now_ - kSteadyStart);
  }

  std::size_t tasksRun() const {
    std::lock_guard lock(mutex_);
    return tasksRun_;
  }

 private:
  struct Entry {
    SteadyTime due;
    std::uint64_t seq = 0;
    QueueId queue = 0;
    Task task;
    CancelFlag cancelled;
    Duration interval = Duration::zero();  // zero for one-shot tasks

    bool isCancelled() const { return cancelled && cancelled->load(); }
    bool repeats() const { return interval > Duration::zero(); }
  };
  struct QueueInfo {
    std::string label;
    bool serial = true;
  };
  using Key = std::pair<SteadyTime, std::uint64_t>;

  void insert(Entry entry) {
    Key key{entry.due, entry.seq};
    tasks_.emplace(key, std::move(entry));
  }

  // A serial queue runs one task at a time, so while one of its tasks sleeps
  // its other tasks wait. The global queue is a pool and has no such limit.
  bool isBusy(QueueId queue) const {
    auto info = queues_.find(queue);
    return info != queues_.end() && info->second.serial &&
           std::find(running_.begin(), running_.end(), queue) != running_.end();
  }

  std::optional<Entry> takeNext(std::optional<SteadyTime> until, const Filter& filter) {
    std::vector<Entry> dropped;  // cancelled tasks die after the lock is released
    std::lock_guard lock(mutex_);
    const SteadyTime limit = until.value_or(now_);
    for (auto it = tasks_.begin(); it != tasks_.end() && it->first.first <= limit;) {
      Entry& entry = it->second;
      if (entry.isCancelled()) {
        dropped.push_back(std::move(entry));
        it = tasks_.erase(it);
        continue;
      }
      const bool wanted = (!filter.only || entry.queue == *filter.only) &&
                          entry.seq < filter.seqBelow && !isBusy(entry.queue);
      if (wanted) {
        Entry taken = std::move(entry);
        tasks_.erase(it);
        return taken;
      }
      ++it;
    }
    return std::nullopt;
  }

  void runEntry(Entry& entry) {
    std::string label;
    {
      std::lock_guard lock(mutex_);
      now_ = std::max(now_, entry.due);
      running_.push_back(entry.queue);
      runner_ = std::this_thread::get_id();
      ++tasksRun_;
      if (auto info = queues_.find(entry.queue); info != queues_.end()) label = info->second.label;
    }
    guarded(
        "Queue", label.c_str(), [&] { entry.task(); }, GuardReport::Backoffice);
    std::lock_guard lock(mutex_);
    running_.pop_back();
    if (entry.repeats() && !entry.isCancelled() && !closed_ && queues_.contains(entry.queue)) {
      entry.due = dispatch::nextFire(entry.due, entry.interval, now_);
      entry.seq = nextSeq_++;
      insert(std::move(entry));
    }
  }

  mutable std::mutex mutex_;
  std::map<Key, Entry> tasks_;
  std::map<QueueId, QueueInfo> queues_;
  std::vector<QueueId> running_;  // innermost last
  std::thread::id runner_;
  SteadyTime now_ = kSteadyStart;
  std::uint64_t nextSeq_ = 0;
  QueueId nextQueueId_ = 1;
  std::size_t tasksRun_ = 0;
  bool closed_ = false;
};

namespace {

class VirtualQueue final : public dispatch::Queue {
 public:
  VirtualQueue(std::string label, bool serial, std::shared_ptr<VirtualRuntime::Scheduler> scheduler)
      : label_(std::move(label)),
        scheduler_(std::move(scheduler)),
        id_(scheduler_->addQueue(label_, serial)) {}
  ~VirtualQueue() override { scheduler_->removeQueue(id_); }

  const std::string& label() const override { return label_; }

  void async(Task task) override {
    scheduler_->post(id_, Duration::zero(), std::move(task), nullptr, Duration::zero());
  }

  TaskHandle after(Duration delay, Task task) override {
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    scheduler_->post(id_, delay, std::move(task), cancelled, Duration::zero());
    return TaskHandle(std::move(cancelled));
  }

  TaskHandle every(Duration interval, Task task) override {
    interval = dispatch::timerInterval(interval);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    scheduler_->post(id_, interval, std::move(task), cancelled, interval);
    return TaskHandle(std::move(cancelled));
  }

  bool isCurrent() const override { return scheduler_->isCurrent(id_); }

  VirtualRuntime::Scheduler::QueueId id() const { return id_; }

 private:
  const std::string label_;
  const std::shared_ptr<VirtualRuntime::Scheduler> scheduler_;
  const VirtualRuntime::Scheduler::QueueId id_;
};

class VirtualClock final : public dispatch::Clock {
 public:
  explicit VirtualClock(std::shared_ptr<VirtualRuntime::Scheduler> scheduler)
      : scheduler_(std::move(scheduler)) {}

  WallTime wallNow() const override { return scheduler_->wallNow(); }
  SteadyTime steadyNow() const override { return scheduler_->now(); }
  void sleepFor(dispatch::Duration duration) override { scheduler_->advance(duration); }

 private:
  const std::shared_ptr<VirtualRuntime::Scheduler> scheduler_;
};

}  // namespace

VirtualRuntime::VirtualRuntime()
    : scheduler_(std::make_shared<Scheduler>()),
      main_(std::make_unique<VirtualQueue>("main", true, scheduler_)),
      global_(std::make_unique<VirtualQueue>("global", false, scheduler_)),
      clock_(std::make_unique<VirtualClock>(scheduler_)) {}

VirtualRuntime::~VirtualRuntime() { scheduler_->close(); }

std::shared_ptr<dispatch::Queue> VirtualRuntime::makeSerialQueue(std::string label) {
  return std::make_shared<VirtualQueue>(std::move(label), true, scheduler_);
}

dispatch::Queue& VirtualRuntime::mainQueue() { return *main_; }

dispatch::Queue& VirtualRuntime::globalQueue() { return *global_; }

dispatch::Clock& VirtualRuntime::clock() { return *clock_; }

std::size_t VirtualRuntime::pumpMainQueue() {
  auto& main = static_cast<VirtualQueue&>(*main_);
  return scheduler_->pumpQueue(main.id());
}

void VirtualRuntime::runOnMain(std::function<void()> body) {
  mainQueue().async(std::move(body));
  runUntilIdle();
}

std::size_t VirtualRuntime::runUntilIdle() { return scheduler_->run(std::nullopt, {}); }

std::size_t VirtualRuntime::advanceBy(Duration d) { return scheduler_->advance(d); }

std::size_t VirtualRuntime::advanceUntilNoTasks() { return scheduler_->run(SteadyTime::max(), {}); }

std::size_t VirtualRuntime::pendingTaskCount() const { return scheduler_->pendingCount(); }

std::optional<VirtualRuntime::Duration> VirtualRuntime::nextPendingDelay() const {
  return scheduler_->nextDelay();
}

VirtualRuntime::SteadyTime VirtualRuntime::now() const { return scheduler_->now(); }

}  // namespace zivora::test
