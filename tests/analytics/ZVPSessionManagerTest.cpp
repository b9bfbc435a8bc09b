#include <gtest/gtest.h>

#include "analytics/ZVPSessionManager.h"
#include "platform/UserDefaults.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Event = ui::AppLifecycle::Event;

constexpr std::int64_t kStart = 1767225600;  // the virtual wall clock's start

class ZVPSessionManagerTest : public ::testing::Test {
 protected:
  std::shared_ptr<ZVPSessionManager> open() {
    auto manager =
        std::make_shared<ZVPSessionManager>(std::weak_ptr<Context>(Context::current()), lifecycle_);
    manager->appOpen();
    return manager;
  }

  // Each finished session as (start, duration).
  std::vector<std::pair<std::int64_t, std::int64_t>> sessions() {
    std::vector<std::pair<std::int64_t, std::int64_t>> out;
    for (const auto& record : scope_.analytics().records()) {
      EXPECT_EQ(record.eventName, "SessionFinished");
      out.emplace_back(record.params.getLong("Start"), record.params.getLong("Duration"));
    }
    return out;
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  test::ScopedContext scope_{HostOptions{.dataRoot = root_.path().string()},
                             RuntimeOptions{.runtime = runtime_}};
  std::shared_ptr<ui::AppLifecycle> lifecycle_ = std::make_shared<ui::AppLifecycle>();
};

TEST_F(ZVPSessionManagerTest, AShortAbsenceContinuesTheSessionALongOneEndsIt) {
  auto manager = open();
  runtime_->advanceBy(9s);
  lifecycle_->post(Event::DidEnterBackground);
  runtime_->advanceBy(20s);
  lifecycle_->post(Event::WillEnterForeground);
  runtime_->advanceBy(6s);
  EXPECT_TRUE(sessions().empty());

  lifecycle_->post(Event::DidEnterBackground);
  runtime_->advanceBy(25s);  // the ticks still see a recent last time
  EXPECT_TRUE(sessions().empty());
  runtime_->advanceBy(15s);  // now one finds it older than 30 s
  ASSERT_EQ(sessions().size(), 1u);
  // The last tick that saw it running was at 33 s.
  EXPECT_EQ(sessions()[0], std::make_pair(kStart, std::int64_t{33}));
  // Coming back after the tick reported it does not report it again.
  lifecycle_->post(Event::WillEnterForeground);
  runtime_->advanceBy(9s);
  EXPECT_EQ(sessions().size(), 1u);
}

TEST_F(ZVPSessionManagerTest, EveryThreeSecondTickStoresTheLastRunningTime) {
  auto manager = open();
  auto store = manager->configuration();
  ASSERT_TRUE(store);
  auto last = [&] { return store->integerForKey("ts_sesstionLastTime").value_or(0); };
  EXPECT_EQ(store->integerForKey("ts_sesstionStartTime"), kStart);
  EXPECT_EQ(last(), kStart);
  runtime_->advanceBy(2999ms);
  EXPECT_EQ(last(), kStart);
  runtime_->advanceBy(1ms);
  EXPECT_EQ(last(), kStart + 3);
  runtime_->advanceBy(6s);
  EXPECT_EQ(last(), kStart + 9);
  // In the background the ticks go on but no longer move the last time.
  lifecycle_->post(Event::DidEnterBackground);
  runtime_->advanceBy(9s);
  EXPECT_EQ(last(), kStart + 9);
  EXPECT_TRUE(sessions().empty());
}

TEST_F(ZVPSessionManagerTest, ASessionShorterThanATickIsNotReported) {
  auto manager = open();
  manager.reset();
  auto next = open();
  EXPECT_TRUE(sessions().empty());
}

TEST_F(ZVPSessionManagerTest, TheManagerKeepsItsLifecycleUntilItGoes) {
  // A tick on the global queue may hold the last reference after the
  // context and its display are gone; the manager unregisters then.
  auto manager = open();
  std::weak_ptr<ui::AppLifecycle> watched = lifecycle_;
  lifecycle_.reset();
  EXPECT_FALSE(watched.expired());
  manager.reset();
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace zivora
