#pragma once

#include <chrono>
#include <functional>

#include "platform/dispatch/Queue.h"

namespace zivora::test {

// Runs `body` on `queue` (a real thread's) and waits until it has run;
// false if it had not after `limit`, which only bounds a failing run.
bool runOnQueue(dispatch::Queue& queue, std::function<void()> body,
                std::chrono::seconds limit = std::chrono::seconds(30));

}  // namespace zivora::test
