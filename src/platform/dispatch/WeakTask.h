#pragma once

#include <memory>
#include <utility>

#include "platform/dispatch/Queue.h"
#include "util/Guard.h"

namespace zivora::dispatch {

// Where a posted task comes from: the names its exception guard reports
// under, and to whom.
struct TaskSite {
  const char* className;
  const char* method;
  GuardReport report = GuardReport::Analytics;
};

// A task for an object that may be gone by the time it runs: it holds its
// owner weakly, does nothing once the owner is released, and runs `body`
// with the owner under the exception guard, so that a throw is reported
// instead of reaching the queue.
//   asyncWeak(*queue_, weak_from_this(), {kClass, "pump"}, [](Manager& self) { self.pump(); });
template <class Owner, class Body>
Task weakTask(std::weak_ptr<Owner> owner, TaskSite site, Body body) {
  return [owner = std::move(owner), site, body = std::move(body)]() mutable {
    auto self = owner.lock();
    if (!self) return;
    guarded(
        site.className, site.method, [&] { body(*self); }, site.report);
  };
}

template <class Owner, class Body>
void asyncWeak(Queue& queue, std::weak_ptr<Owner> owner, TaskSite site, Body body) {
  queue.async(weakTask(std::move(owner), site, std::move(body)));
}

template <class Owner, class Body>
TaskHandle afterWeak(Queue& queue, Duration delay, std::weak_ptr<Owner> owner, TaskSite site,
                     Body body) {
  return queue.after(delay, weakTask(std::move(owner), site, std::move(body)));
}

template <class Owner, class Body>
TaskHandle everyWeak(Queue& queue, Duration interval, std::weak_ptr<Owner> owner, TaskSite site,
                     Body body) {
  return queue.every(interval, weakTask(std::move(owner), site, std::move(body)));
}

}  // namespace zivora::dispatch
