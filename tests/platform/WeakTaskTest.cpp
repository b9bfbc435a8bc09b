// Weakly held tasks on virtual time.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

#include "platform/dispatch/WeakTask.h"
#include "support/ScopedContext.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

struct Counter {
  int runs = 0;
};

class WeakTaskTest : public ::testing::Test {
 protected:
  test::ScopedContext scope_;
  test::VirtualRuntime runtime_;
  std::shared_ptr<dispatch::Queue> queue_ = runtime_.makeSerialQueue("weak");
  std::shared_ptr<Counter> owner_ = std::make_shared<Counter>();
};

TEST_F(WeakTaskTest, TasksRunWhileTheOwnerLivesAndNeverAfterItIsReleased) {
  const auto count = [](Counter& counter) { ++counter.runs; };
  dispatch::asyncWeak(*queue_, std::weak_ptr<Counter>(owner_), {"Counter", "async"}, count);
  dispatch::afterWeak(*queue_, 1s, std::weak_ptr<Counter>(owner_), {"Counter", "after"}, count);
  dispatch::everyWeak(*queue_, 1s, std::weak_ptr<Counter>(owner_), {"Counter", "every"}, count);
  runtime_.advanceBy(3s);
  // The async, the delayed task and three ticks.
  EXPECT_EQ(owner_->runs, 5);

  // Queued work does not keep its owner alive, and finds it gone.
  dispatch::asyncWeak(*queue_, std::weak_ptr<Counter>(owner_), {"Counter", "async"}, count);
  std::weak_ptr<Counter> watched = owner_;
  owner_.reset();
  EXPECT_TRUE(watched.expired());
  runtime_.advanceBy(3s);
  EXPECT_EQ(runtime_.pendingTaskCount(), 1u);  // only the timer, which finds nobody
}

TEST_F(WeakTaskTest, AThrowIsReportedUnderTheSiteAndTheTimerGoesOn) {
  auto handle = dispatch::everyWeak(*queue_, 1s, std::weak_ptr<Counter>(owner_),
                                    {"Counter", "tick"}, [](Counter& counter) {
                                      if (++counter.runs == 1) throw std::runtime_error("boom");
                                    });
  runtime_.advanceBy(2s);
  EXPECT_EQ(owner_->runs, 2);
  ASSERT_EQ(scope_.analytics().exceptions().size(), 1u);
  EXPECT_EQ(scope_.analytics().exceptions()[0].className, "Counter");
  EXPECT_EQ(scope_.analytics().exceptions()[0].method, "tick");
  handle.cancel();
}

}  // namespace
}  // namespace zivora
