#pragma once

#include <memory>

#include "platform/dispatch/Queue.h"

namespace zivora::dispatch {

// Code that owns state through a queue asserts it runs there instead of
// taking a lock:  ZV_ASSERT_ON(queue_);
// The check is always made and a miss is logged as a warning naming the
// queue and the place; builds without NDEBUG also abort.
void assertOn(const Queue& queue, const char* expression, const char* file, int line) noexcept;

inline const Queue& queueOf(const Queue& queue) { return queue; }
inline const Queue& queueOf(const Queue* queue) { return *queue; }
template <class Q>
const Queue& queueOf(const std::shared_ptr<Q>& queue) {
  return *queue;
}
template <class Q>
const Queue& queueOf(const std::unique_ptr<Q>& queue) {
  return *queue;
}

}  // namespace zivora::dispatch

#define ZV_ASSERT_ON(queue) \
  ::zivora::dispatch::assertOn(::zivora::dispatch::queueOf(queue), #queue, __FILE__, __LINE__)
