#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/VirtualRuntime.h"

namespace zivora::test {

// A virtual-time runtime whose main queue writes down its delayed tasks, so
// a test can tell when a fire-and-forget task was due and whether it ran.
class DelayRecordingRuntime final : public dispatch::Runtime {
 public:
  explicit DelayRecordingRuntime(VirtualRuntime& inner);
  ~DelayRecordingRuntime() override;

  std::shared_ptr<dispatch::Queue> makeSerialQueue(std::string label) override {
    return inner_.makeSerialQueue(std::move(label));
  }
  dispatch::Queue& mainQueue() override;
  dispatch::Queue& globalQueue() override { return inner_.globalQueue(); }
  dispatch::Clock& clock() override { return inner_.clock(); }
  std::size_t pumpMainQueue() override { return inner_.pumpMainQueue(); }

  // The delays of the main queue's after() calls, in order, and whether
  // each task has run.
  std::vector<dispatch::Duration> delays;
  std::vector<bool> ran;

 private:
  class RecordingQueue;

  VirtualRuntime& inner_;
  std::unique_ptr<RecordingQueue> main_;
};

}  // namespace zivora::test
