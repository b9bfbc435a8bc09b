#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <iostream>
#include <map>
#include <random>

#include "ads/RewardLedger.h"
#include "platform/dispatch/Queue.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

// What the child host tells the parent, one fixed-size message per write
// so that a pipe write is never torn.
struct Message {
  char kind = 0;  // 'E' earned (recorded), 'D' delivered, 'U' left unacknowledged
  char rewardId[47] = {};
};

void tell(int fd, char kind, const std::string& rewardId) {
  Message message;
  message.kind = kind;
  std::strncpy(message.rewardId, rewardId.c_str(), sizeof message.rewardId - 1);
  if (::write(fd, &message, sizeof message) != static_cast<ssize_t>(sizeof message)) ::_exit(3);
}

bool hear(int fd, Message& message) {
  return ::read(fd, &message, sizeof message) == static_cast<ssize_t>(sizeof message);
}

void spin(unsigned count) {
  for (; count > 0; --count) std::atomic_signal_fence(std::memory_order_seq_cst);
}

// The child host: at its start it takes the rewards an earlier life owes,
// then earns rewards one after another, each delivered to a callback that
// reports it and works a random while before it returns. It only ever
// leaves by SIGKILL, unless `drain` asks it to deliver what is owed and
// end.
[[noreturn]] void hostUntilKilled(const std::filesystem::path& file, int fd, unsigned seed,
                                  bool drain) {
  int null = ::open("/dev/null", O_WRONLY);
  if (null >= 0) ::dup2(null, STDERR_FILENO);
  std::mt19937 random(seed);
  dispatch::ThreadRuntime runtime;
  auto ledger = std::make_shared<RewardLedger>(file, runtime);
  ledger->open();
  const std::size_t owed = ledger->unacknowledged().size();

  std::atomic<std::size_t> delivered{0};
  std::promise<void> allOwedDelivered;
  if (owed == 0) allOwedDelivered.set_value();
  std::promise<void>* returned = nullptr;
  auto host = [&](const RewardRecord& record) {
    tell(fd, 'D', record.rewardId);
    spin(random() % 20000);
    if (++delivered == owed) allOwedDelivered.set_value();
    if (returned) returned->set_value();
    return true;
  };
  ledger->redeliverPending(host);
  allOwedDelivered.get_future().wait();

  if (drain) {
    // A barrier behind the last acknowledgement: queued from the main queue
    // after the callback's task, its commit follows every acknowledgement.
    std::promise<void> barrier;
    runtime.mainQueue().async([&] { ledger->earn("barrier", "", [&] { barrier.set_value(); }); });
    barrier.get_future().wait();
    for (const auto& record : ledger->unacknowledged())
      if (record.placement != "barrier") tell(fd, 'U', record.rewardId);
    ::_exit(0);
  }
  for (int ad = 0; ad < 100000; ++ad) {
    std::promise<void> committed, callbackReturned;
    auto record =
        ledger->earn("level-complete", "ad-" + std::to_string(ad), [&] { committed.set_value(); });
    committed.get_future().wait();
    tell(fd, 'E', record.rewardId);
    runtime.mainQueue().async([&] { returned = &callbackReturned; });
    ledger->deliver(record, host);
    callbackReturned.get_future().wait();
    runtime.mainQueue().async([&] { returned = nullptr; });
  }
  ::_exit(0);
}

// What the parent heard over all lives: when each reward was earned, how
// often each was delivered, and how many were left unacknowledged.
struct CrashTally {
  void note(const Message& message) {
    const std::string id(message.rewardId);
    if (message.kind == 'E') earnedIn[id] = life;
    if (message.kind == 'U') ++unacknowledged;
    if (message.kind != 'D') return;
    auto earned = earnedIn.find(id);
    if (earned != earnedIn.end() && earned->second != life) ++redelivered;
    if (++deliveries[id] > 1) ++duplicates;
  }
  std::size_t lost() const {
    std::size_t lost = 0;
    for (const auto& [id, earned] : earnedIn) lost += deliveries.count(id) == 0;
    return lost;
  }

  int life = 0;
  std::map<std::string, int> earnedIn;
  std::map<std::string, std::size_t> deliveries;
  std::size_t redelivered = 0, duplicates = 0, unacknowledged = 0;
};

// Runs one life of the child host; with `killAfterEarned`, it is killed at
// a random moment after its next reward was recorded.
void runLife(const std::filesystem::path& file, std::mt19937& random, CrashTally& tally,
             bool killAfterEarned) {
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const unsigned seed = random();
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(pipeFds[0]);
    hostUntilKilled(file, pipeFds[1], seed, !killAfterEarned);
  }
  ::close(pipeFds[1]);
  ++tally.life;
  Message message;
  if (killAfterEarned) {
    // Wait for a reward to be earned (a few rewards in, at times), then kill
    // somewhere between it and its callback's return, or just after.
    for (unsigned want = 1 + random() % 3, earned = 0;
         earned < want && hear(pipeFds[0], message);) {
      tally.note(message);
      if (message.kind == 'E') ++earned;
    }
    spin(random() % 400000);
    ::kill(child, SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  while (hear(pipeFds[0], message)) tally.note(message);
  ::close(pipeFds[0]);
  if (!killAfterEarned) {
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
}

TEST(RewardLedgerCrashIntegrationTest, SigkillBetweenEarningAndCallbackLosesNoReward) {
  test::TempDir dir;
  const auto file = dir.path() / "rewards.sqlite";
  const auto seed = static_cast<unsigned>(std::random_device{}());
  std::mt19937 random(seed);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(40);

  CrashTally tally;
  int kills = 0;
  while (kills < 220 && std::chrono::steady_clock::now() < deadline) {
    runLife(file, random, tally, true);
    ++kills;
  }
  // A last clean life delivers whatever the kills left owed.
  runLife(file, random, tally, false);

  std::cout << "reward crash test (seed " << seed << "): kills=" << kills
            << " earned=" << tally.earnedIn.size() << " delivered=" << tally.deliveries.size()
            << " redelivered=" << tally.redelivered << " duplicates=" << tally.duplicates
            << " lost=" << tally.lost() << " unacknowledged=" << tally.unacknowledged << "\n";
  // 220 kills when the machine has time; a sanitizer build on loaded cores
  // gets fewer within the deadline.
  EXPECT_GE(kills, 40);
  EXPECT_GE(tally.earnedIn.size(), static_cast<std::size_t>(kills));
  EXPECT_EQ(tally.lost(), 0u);
  // A child killed between a commit and its report delivers a reward the
  // parent never saw earned: more deliveries, never fewer.
  EXPECT_GE(tally.deliveries.size(), tally.earnedIn.size());
  // Every delivery at the last start was acknowledged.
  EXPECT_EQ(tally.unacknowledged, 0u);
}

}  // namespace
}  // namespace zivora
