#include <gtest/gtest.h>

#include <deque>

#include "eventqueue/EventFile.h"
#include "eventqueue/ResendLoop.h"
#include "support/FakeFileSystem.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Times = std::vector<dispatch::Duration>;
using Events = std::vector<std::string>;

class ResendLoopTest : public ::testing::Test {
 protected:
  ResendLoopTest() {
    // When each fdatasync of the queue file happened, on the virtual clock.
    io_->onSync = [this](int) {
      syncTimes_.push_back(runtime_->elapsed());
      return 0;
    };
  }

  // Each send takes `sendTime` and is answered by the next of `replies_`,
  // else by 200.
  std::shared_ptr<ResendLoop> makeLoop(bool waitsForServer = true,
                                       dispatch::Duration sendTime = 0s) {
    return std::make_shared<ResendLoop>(
        runtime_, file_,
        ResendLoopOptions{.queueLabel = "test.resend",
                          .className = "ResendLoopTest",
                          .waitsForServer = waitsForServer,
                          .send = [this, sendTime](const std::string& event) {
                            if (sendTime > 0s) runtime_->clock().sleepFor(sendTime);
                            sent_.push_back(event);
                            sendTimes_.push_back(runtime_->elapsed());
                            if (replies_.empty()) return 200;
                            int code = replies_.front();
                            replies_.pop_front();
                            return code;
                          }});
  }

  // A loop that does not wait for the server, on a file of `count` events.
  std::shared_ptr<ResendLoop> loopOverSavedEvents(int count, dispatch::Duration sendTime) {
    for (int n = 0; n < count; ++n) EXPECT_TRUE(file_->save("{\"n\":" + std::to_string(n) + "}"));
    syncTimes_.clear();
    return makeLoop(false, sendTime);
  }

  // The pauses between consecutive sends.
  Times pauses() const {
    Times result;
    for (std::size_t i = 1; i < sendTimes_.size(); ++i)
      result.push_back(sendTimes_[i] - sendTimes_[i - 1]);
    return result;
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::ScopedContext context_;
  test::TempDir dir_;
  std::shared_ptr<test::FakeFileSystem> io_ = std::make_shared<test::FakeFileSystem>();
  std::shared_ptr<EventFile> file_ =
      std::make_shared<EventFile>(EventFileOptions{.path = dir_.path() / "events.dat", .io = io_});
  std::deque<int> replies_;
  Events sent_;
  Times sendTimes_, syncTimes_;
};

TEST_F(ResendLoopTest, NothingIsSentBeforeTheServerIsConnectedThenAllInOrder) {
  auto loop = makeLoop();
  for (const char* e : {"{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}) EXPECT_TRUE(loop->sendEvent(e));
  runtime_->advanceBy(1h);
  EXPECT_TRUE(sent_.empty());

  loop->serverConnected();
  runtime_->runUntilIdle();
  EXPECT_EQ(sent_, (Events{"{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}));
  EXPECT_FALSE(file_->hasSavedEvents());
  EXPECT_FALSE(std::filesystem::exists(file_->path()));
  EXPECT_FALSE(loop->hasThread());
}

// The same event is sent again after pauses doubling from one second up to
// one hundred; a success resets the pause and the next event goes at once.
TEST_F(ResendLoopTest, FailuresPauseDoublingUpToOneHundredSecondsAndSuccessResets) {
  auto loop = makeLoop();
  loop->serverConnected();
  replies_ = {-2, -2, -2, -2, -2, -2, -2, -2, -2, 200, 500, 200};
  loop->sendEvent("{\"n\":1}");
  loop->sendEvent("{\"n\":2}");
  runtime_->advanceUntilNoTasks();
  Events expected(10, "{\"n\":1}");
  expected.insert(expected.end(), 2, "{\"n\":2}");
  EXPECT_EQ(sent_, expected);
  EXPECT_EQ(pauses(), (Times{1s, 2s, 4s, 8s, 16s, 32s, 64s, 100s, 100s, 0s, 1s}));
  EXPECT_EQ(loop->delayResendOffline(), 1);
  EXPECT_FALSE(file_->hasSavedEvents());
}

TEST_F(ResendLoopTest, OnlyOneRequestIsInFlightAndEventsArrivingMeanwhileFollow) {
  auto loop = makeLoop(false);
  replies_ = {500};
  loop->sendEvent("{\"n\":1}");
  loop->sendEvent("{\"n\":2}");
  runtime_->runUntilIdle();
  loop->sendEvent("{\"n\":3}");
  runtime_->advanceUntilNoTasks();
  EXPECT_EQ(sent_, (Events{"{\"n\":1}", "{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}));
}

// Sends of 30 ms each: the marks of delivered events are synced 100 ms
// after the first unsynced one, beside the send in flight or the back-off,
// instead of waiting for a full group.
TEST_F(ResendLoopTest, MarksAreSyncedWithinTheDelayWhileTheLoopSendsOrWaits) {
  replies_ = {200, 200, 200, 200, 200, 200, 500};
  auto loop = loopOverSavedEvents(10, 30ms);
  loop->trySendEvent();
  runtime_->advanceUntilNoTasks();
  // Marks at 30 ... 180 ms; the timer of the first runs at 130 ms during a
  // send, the one of the mark at 150 ms at 250 ms during the back-off that
  // the failure at 210 ms started. The last mark deletes the file, which
  // leaves nothing to sync.
  EXPECT_EQ(syncTimes_, (Times{130ms, 250ms}));
  EXPECT_EQ(sent_.size(), 11u);
  EXPECT_FALSE(std::filesystem::exists(file_->path()));
  EXPECT_EQ(file_->unsyncedConsumed(), 0);
}

// Instant sends: a full group of marks is synced at once, off the loop.
TEST_F(ResendLoopTest, AFullGroupOfMarksIsSyncedAtOnce) {
  const int events = 2 * ResendLoop::kConsumedSyncGroup + ResendLoop::kConsumedSyncGroup / 2;
  auto loop = loopOverSavedEvents(events, 0s);
  loop->trySendEvent();
  runtime_->runUntilIdle();
  EXPECT_EQ(sent_.size(), static_cast<std::size_t>(events));
  EXPECT_EQ(syncTimes_.size(), 2u);
  EXPECT_FALSE(std::filesystem::exists(file_->path()));
  runtime_->advanceUntilNoTasks();
  EXPECT_EQ(syncTimes_.size(), 2u);
}

}  // namespace
}  // namespace zivora
