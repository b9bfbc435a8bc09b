#include <gtest/gtest.h>

#include <deque>

#include "eventqueue/EventFile.h"
#include "eventqueue/ResendLoop.h"
#include "support/ForwardingFileSystem.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

class ResendLoopTest : public ::testing::Test {
 protected:
  struct Sent {
    std::string event;
    dispatch::Duration at;
  };

  std::shared_ptr<ResendLoop> makeLoop(bool waitsForServer = true) {
    return std::make_shared<ResendLoop>(
        runtime_, file_,
        ResendLoopOptions{.queueLabel = "test.resend",
                          .className = "ResendLoopTest",
                          .waitsForServer = waitsForServer,
                          .send = [this](const std::string& event) {
                            sent_.push_back({event, runtime_->elapsed()});
                            if (replies_.empty()) return 200;
                            int code = replies_.front();
                            replies_.pop_front();
                            return code;
                          }});
  }

  // The pauses between consecutive sends.
  std::vector<dispatch::Duration> pauses() const {
    std::vector<dispatch::Duration> result;
    for (std::size_t i = 1; i < sent_.size(); ++i) result.push_back(sent_[i].at - sent_[i - 1].at);
    return result;
  }

  std::vector<std::string> sentEvents() const {
    std::vector<std::string> result;
    for (const auto& s : sent_) result.push_back(s.event);
    return result;
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::ScopedContext context_;
  test::TempDir dir_;
  std::shared_ptr<EventFile> file_ =
      std::make_shared<EventFile>(EventFileOptions{.path = dir_.path() / "events.dat"});
  std::deque<int> replies_;
  std::vector<Sent> sent_;
};

TEST_F(ResendLoopTest, NothingIsSentBeforeTheServerIsConnectedThenAllInOrder) {
  auto loop = makeLoop();
  for (const char* e : {"{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}) EXPECT_TRUE(loop->sendEvent(e));
  runtime_->advanceBy(1h);
  EXPECT_TRUE(sent_.empty());

  loop->serverConnected();
  runtime_->runUntilIdle();
  EXPECT_EQ(sentEvents(), (std::vector<std::string>{"{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}));
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
  std::vector<std::string> expected(10, "{\"n\":1}");
  expected.insert(expected.end(), 2, "{\"n\":2}");
  EXPECT_EQ(sentEvents(), expected);
  EXPECT_EQ(pauses(),
            (std::vector<dispatch::Duration>{1s, 2s, 4s, 8s, 16s, 32s, 64s, 100s, 100s, 0s, 1s}));
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
  EXPECT_EQ(sentEvents(),
            (std::vector<std::string>{"{\"n\":1}", "{\"n\":1}", "{\"n\":2}", "{\"n\":3}"}));
}

// When each fdatasync happened, on the virtual clock.
class SyncTimes final : public test::ForwardingFileSystem {
 public:
  explicit SyncTimes(test::VirtualRuntime& runtime) : runtime_(runtime) {}
  int fdatasync(int fd) override {
    times.push_back(runtime_.elapsed());
    return ForwardingFileSystem::fdatasync(fd);
  }
  std::vector<dispatch::Duration> times;

 private:
  test::VirtualRuntime& runtime_;
};

class ConsumedSyncTest : public ResendLoopTest {
 protected:
  // A loop on its own file of `count` events whose sends take `sendTime`
  // each, with the fdatasync calls' times recorded in io_->times.
  std::shared_ptr<ResendLoop> slowLoop(int count, dispatch::Duration sendTime) {
    file_ =
        std::make_shared<EventFile>(EventFileOptions{.path = dir_.path() / "slow.dat", .io = io_});
    for (int n = 0; n < count; ++n) EXPECT_TRUE(file_->save("{\"n\":" + std::to_string(n) + "}"));
    io_->times.clear();
    return std::make_shared<ResendLoop>(
        runtime_, file_,
        ResendLoopOptions{.queueLabel = "test.slow",
                          .className = "ResendLoopTest",
                          .waitsForServer = false,
                          .send = [this, sendTime](const std::string& event) {
                            if (sendTime > dispatch::Duration::zero())
                              runtime_->clock().sleepFor(sendTime);
                            sent_.push_back({event, runtime_->elapsed()});
                            if (replies_.empty()) return 200;
                            int code = replies_.front();
                            replies_.pop_front();
                            return code;
                          }});
  }

  std::shared_ptr<SyncTimes> io_ = std::make_shared<SyncTimes>(*runtime_);
};

// Sends of 30 ms each: the marks of delivered events are synced 100 ms
// after the first unsynced one, beside the send in flight or the back-off,
// instead of waiting for a full group.
TEST_F(ConsumedSyncTest, MarksAreSyncedWithinTheDelayWhileTheLoopSendsOrWaits) {
  replies_ = {200, 200, 200, 200, 200, 200, 500};
  auto loop = slowLoop(10, 30ms);
  loop->trySendEvent();
  runtime_->advanceUntilNoTasks();
  // Marks at 30 ... 180 ms; the timer of the first runs at 130 ms during a
  // send, the one of the mark at 150 ms at 250 ms during the back-off that
  // the failure at 210 ms started. The last mark deletes the file, which
  // leaves nothing to sync.
  EXPECT_EQ(io_->times, (std::vector<dispatch::Duration>{130ms, 250ms}));
  EXPECT_EQ(sent_.size(), 11u);
  EXPECT_FALSE(std::filesystem::exists(file_->path()));
  EXPECT_EQ(file_->unsyncedConsumed(), 0);
}

// Instant sends: a full group of marks is synced at once, off the loop.
TEST_F(ConsumedSyncTest, AFullGroupIsSyncedAtOnce) {
  const int events = 2 * ResendLoop::kConsumedSyncGroup + ResendLoop::kConsumedSyncGroup / 2;
  auto loop = slowLoop(events, dispatch::Duration::zero());
  loop->trySendEvent();
  runtime_->runUntilIdle();
  EXPECT_EQ(sent_.size(), static_cast<std::size_t>(events));
  EXPECT_EQ(io_->times.size(), 2u);
  EXPECT_FALSE(std::filesystem::exists(file_->path()));
  runtime_->advanceUntilNoTasks();
  EXPECT_EQ(io_->times.size(), 2u);
}

}  // namespace
}  // namespace zivora
