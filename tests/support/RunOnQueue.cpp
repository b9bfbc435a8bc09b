#include "support/RunOnQueue.h"

#include <future>
#include <memory>

namespace zivora::test {

bool runOnQueue(dispatch::Queue& queue, std::function<void()> body, std::chrono::seconds limit) {
  // Shared with the task, so a run that comes after a timeout still has
  // somewhere to report to.
  auto done = std::make_shared<std::promise<void>>();
  auto finished = done->get_future();
  queue.async([done, body = std::move(body)] {
    body();
    done->set_value();
  });
  return finished.wait_for(limit) == std::future_status::ready;
}

}  // namespace zivora::test
