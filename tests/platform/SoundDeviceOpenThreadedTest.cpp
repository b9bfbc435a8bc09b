#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/GstreamerInit.h"
#include "platform/linux/SoundDeviceOpen.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/StuckAudioSink.h"

namespace zivora::platform {
namespace {

using namespace std::chrono_literals;

// What the item heard, in order, on the main queue.
// Destroyed with the answer it is captured in.
struct Gone {
  ~Gone() { destroyed.set_value(); }
  std::promise<void> destroyed;
};

struct Heard {
  std::mutex mutex;
  std::vector<bool> answers;  // true: a sink at READY
  std::promise<void> first;
};

class SoundDeviceOpenThreadedTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(ensureGstreamer()); }

  // Starts an open on the main queue; `cancelAtOnce` cancels it in the
  // same task, as an item that goes at once would. The future is ready
  // once the opening is destroyed (its answer goes with it): its thread and
  // the queue's tasks have let it go, and nothing of it runs any more.
  std::future<void> start(const std::string& factory, dispatch::Duration limit,
                          bool cancelAtOnce = false) {
    auto sentinel = std::make_shared<Gone>();
    std::future<void> destroyed = sentinel->destroyed.get_future();
    std::promise<void> started;
    runtime_.mainQueue().async([&, sentinel = std::move(sentinel)]() mutable {
      auto opening = SoundDeviceOpen::start(
          factory, runtime_.mainQueue(), limit,
          [this, sentinel = std::move(sentinel)](GstElement* sink) { hear(sink); });
      if (cancelAtOnce) opening->cancel();
      started.set_value();
    });
    started.get_future().wait();
    return destroyed;
  }

  // Bounded: an opening whose thread never returns fails the test.
  static bool gone(std::future<void>& destroyed) {
    return destroyed.wait_for(20s) == std::future_status::ready;
  }

  void hear(GstElement* sink) {
    if (sink) {
      GstState state = GST_STATE_NULL;
      gst_element_get_state(sink, &state, nullptr, 0);
      EXPECT_EQ(state, GST_STATE_READY);
      gst_element_set_state(sink, GST_STATE_NULL);
      gst_object_unref(sink);
    }
    std::lock_guard lock(heard_->mutex);
    heard_->answers.push_back(sink != nullptr);
    if (heard_->answers.size() == 1) heard_->first.set_value();
  }

  std::vector<bool> firstAnswer() {
    EXPECT_EQ(heard_->first.get_future().wait_for(20s), std::future_status::ready);
    return answers();
  }

  std::vector<bool> answers() {
    std::lock_guard lock(heard_->mutex);
    return heard_->answers;
  }

  // Everything queued on the main queue so far has run.
  void drainMain() {
    std::promise<void> drained;
    runtime_.mainQueue().async([&] { drained.set_value(); });
    drained.get_future().wait();
  }

  dispatch::ThreadRuntime runtime_;
  std::shared_ptr<Heard> heard_ = std::make_shared<Heard>();
};

TEST_F(SoundDeviceOpenThreadedTest, TheItemHearsOnceWhetherTheDeviceOpensRefusesOrIsTooSlow) {
  struct Case {
    const char* name;
    const char* factory;
    int stuckOpensFirst;  // < 0: no stuck sink
    dispatch::Duration limit;
    bool opened;
  };
  for (const Case& c : {
           Case{"opens", "fakesink", -1, 30s, true},
           // Well before the limit: a refusal is heard as it comes.
           Case{"refused", "zivoranosuchsink", -1, 30s, false},
           Case{"too slow, then refused late", test::StuckAudioSink::kName, 0, 200ms, false},
       }) {
    SCOPED_TRACE(c.name);
    heard_ = std::make_shared<Heard>();
    std::unique_ptr<test::StuckAudioSink> stuck;
    if (c.stuckOpensFirst >= 0) stuck = std::make_unique<test::StuckAudioSink>(c.stuckOpensFirst);
    auto opening = start(c.factory, c.limit);
    EXPECT_EQ(firstAnswer(), std::vector<bool>{c.opened});
    if (stuck) stuck->release();
    EXPECT_TRUE(gone(opening));
    // Nothing after the first answer, a late open's included.
    drainMain();
    EXPECT_EQ(answers(), std::vector<bool>{c.opened});
  }
}

TEST_F(SoundDeviceOpenThreadedTest, ACancelledOpenIsNeverHeardWhetherItOpensOrBlocks) {
  for (const char* factory : {"fakesink", test::StuckAudioSink::kName}) {
    SCOPED_TRACE(factory);
    test::StuckAudioSink stuck;
    auto opening = start(factory, 50ms, true);
    stuck.release();
    EXPECT_TRUE(gone(opening));
    drainMain();
    EXPECT_TRUE(answers().empty());
  }
}

}  // namespace
}  // namespace zivora::platform
