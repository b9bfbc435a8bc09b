#include "resources/ZVFileSyncQueue.h"

#include <cstring>

#include "platform/FileSystem.h"
#include "platform/UserDefaults.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {
constexpr char kClass[] = "ZVFileSyncQueue";
}

std::shared_ptr<ZVFileSyncQueue> ZVFileSyncQueue::defaultQueue() {
  auto context = Context::current();
  if (!context || !context->hasRuntime() || !context->runtimeOptions().files) return nullptr;
  return context->instance<ZVFileSyncQueue>([&] {
    return std::make_shared<ZVFileSyncQueue>(
        context->runtime().makeSerialQueue("com.zivora.resources.sync"),
        context->runtimeOptions().files);
  });
}

ZVFileSyncQueue::ZVFileSyncQueue(std::shared_ptr<dispatch::Queue> queue,
                                 std::shared_ptr<platform::FileSystem> files)
    : queue_(std::move(queue)), files_(std::move(files)) {}

ZVFileSyncQueue::~ZVFileSyncQueue() {
  while (runNext()) {
  }
}

void ZVFileSyncQueue::syncAndClose(int fd, const std::string& fileName) {
  if (fd < 0) return;
  post(Job{.fd = fd, .fileName = fileName, .size = 0, .generation = 0, .settings = nullptr});
}

void ZVFileSyncQueue::recordComplete(const std::string& fileName, std::int64_t size,
                                     std::shared_ptr<platform::UserDefaults> settings) {
  std::uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    generation = ++nextGeneration_;
    pending_[fileName] = Pending{.size = size, .generation = generation};
  }
  post(Job{.fd = -1,
           .fileName = fileName,
           .size = size,
           .generation = generation,
           .settings = std::move(settings)});
}

std::optional<std::int64_t> ZVFileSyncQueue::pendingSize(const std::string& fileName) const {
  std::lock_guard lock(mutex_);
  auto found = pending_.find(fileName);
  if (found == pending_.end()) return std::nullopt;
  return found->second.size;
}

void ZVFileSyncQueue::forget(const std::string& fileName,
                             const std::function<void()>& removeRecord) {
  std::lock_guard commitLock(commitMutex_);
  {
    std::lock_guard lock(mutex_);
    pending_.erase(fileName);
  }
  if (removeRecord) removeRecord();
}

void ZVFileSyncQueue::post(Job job) {
  {
    std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  // One task per job, each taking the oldest: the queue is serial, so jobs
  // run in the order they came. A job left when the queue drops its work
  // (a shutdown) is done by the destructor.
  dispatch::asyncWeak(*queue_, weak_from_this(), {kClass, "runNext"},
                      [](ZVFileSyncQueue& self) { self.runNext(); });
}

bool ZVFileSyncQueue::runNext() {
  Job job;
  {
    std::lock_guard lock(mutex_);
    if (jobs_.empty()) return false;
    job = std::move(jobs_.front());
    jobs_.pop_front();
  }
  if (job.fd >= 0) {
    sync(job);
  } else {
    commit(job);
  }
  return true;
}

void ZVFileSyncQueue::sync(const Job& job) {
  const int result = guarded(kClass, "sync", -1, [&] { return files_->fdatasync(job.fd); });
  const int error = errno;
  files_->close(job.fd);
  std::lock_guard lock(mutex_);
  if (result == 0) {
    unsynced_.erase(job.fileName);
    return;
  }
  unsynced_.insert(job.fileName);
  ZVLog::LogWarning("[ZVFileSyncQueue][sync] Warning! Can't sync file: {}: {}", job.fileName,
                    std::strerror(error));
}

void ZVFileSyncQueue::commit(const Job& job) {
  guarded(kClass, "commit", [&] {
    std::lock_guard commitLock(commitMutex_);
    {
      std::lock_guard lock(mutex_);
      auto found = pending_.find(job.fileName);
      // Forgotten, or completed again since: nothing to record here.
      if (found == pending_.end() || found->second.generation != job.generation) return;
      // Bytes that may not be on disk get no record; the file stays
      // complete for this run only.
      if (unsynced_.count(job.fileName) > 0) return;
    }
    if (job.settings) job.settings->setValue(job.fileName, job.size);
    std::lock_guard lock(mutex_);
    if (auto found = pending_.find(job.fileName);
        found != pending_.end() && found->second.generation == job.generation) {
      pending_.erase(found);
    }
  });
}

}  // namespace zivora
