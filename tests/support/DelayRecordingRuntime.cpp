#include "support/DelayRecordingRuntime.h"

namespace zivora::test {

class DelayRecordingRuntime::RecordingQueue final : public dispatch::Queue {
 public:
  RecordingQueue(DelayRecordingRuntime& owner, dispatch::Queue& inner)
      : owner_(owner), inner_(inner) {}

  const std::string& label() const override { return inner_.label(); }
  void async(dispatch::Task task) override { inner_.async(std::move(task)); }
  dispatch::TaskHandle after(dispatch::Duration delay, dispatch::Task task) override {
    const std::size_t index = owner_.delays.size();
    owner_.delays.push_back(delay);
    owner_.ran.push_back(false);
    return inner_.after(delay, [this, index, task = std::move(task)] {
      owner_.ran[index] = true;
      task();
    });
  }
  dispatch::TaskHandle every(dispatch::Duration interval, dispatch::Task task) override {
    return inner_.every(interval, std::move(task));
  }
  bool isCurrent() const override { return inner_.isCurrent(); }

 private:
  DelayRecordingRuntime& owner_;
  dispatch::Queue& inner_;
};

DelayRecordingRuntime::DelayRecordingRuntime(VirtualRuntime& inner)
    : inner_(inner), main_(std::make_unique<RecordingQueue>(*this, inner.mainQueue())) {}

DelayRecordingRuntime::~DelayRecordingRuntime() = default;

dispatch::Queue& DelayRecordingRuntime::mainQueue() { return *main_; }

}  // namespace zivora::test
