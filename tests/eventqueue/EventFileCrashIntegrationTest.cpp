#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <random>
#include <set>
#include <vector>

#include "eventqueue/EventFile.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

std::string eventFor(std::int64_t seq) {
  return "{\"seq\":" + std::to_string(seq) + ",\"pad\":\"" + std::string(150, 'p') +
         "\",\"check\":" + std::to_string(seq * 7) + "}";
}

// The sequence number of an intact event; -1 for anything else.
std::int64_t parseEvent(const std::string& text) {
  long long seq = -1;
  if (std::sscanf(text.c_str(), "{\"seq\":%lld", &seq) != 1 || seq < 0) return -1;
  return eventFor(seq) == text ? seq : -1;
}

bool report(int fd, std::int64_t seq) {
  return ::write(fd, &seq, sizeof seq) == static_cast<ssize_t>(sizeof seq);
}

// Forks a child running `body` with the writing end of a pipe, reads
// `want` of its reports, lets it run on for a random spin of up to a few
// hundred microseconds and kills it wherever it is. Every report it made.
std::vector<std::int64_t> forkAndKill(std::mt19937& random, unsigned want,
                                      const std::function<void(int fd)>& body) {
  std::vector<std::int64_t> reports;
  int pipeFds[2];
  const pid_t child = ::pipe(pipeFds) == 0 ? ::fork() : -1;
  if (child < 0) {
    ADD_FAILURE() << "pipe or fork failed";
    return reports;
  }
  if (child == 0) {
    ::close(pipeFds[0]);
    body(pipeFds[1]);
    ::_exit(0);
  }
  ::close(pipeFds[1]);
  std::int64_t seq = 0;
  auto read = [&] {
    return ::read(pipeFds[0], &seq, sizeof seq) == static_cast<ssize_t>(sizeof seq);
  };
  while (reports.size() < want && read()) reports.push_back(seq);
  for (unsigned spin = random() % 200000; spin > 0; --spin)
    std::atomic_signal_fence(std::memory_order_seq_cst);
  ::kill(child, SIGKILL);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  while (read()) reports.push_back(seq);
  ::close(pipeFds[0]);
  return reports;
}

class EventFileCrashIntegrationTest : public ::testing::Test {
 protected:
  // Delivers the file's events to `deliver` oldest first, consuming each.
  void drain(const std::function<void(std::int64_t seq)>& deliver) {
    EventFile reader(EventFileOptions{.path = path_});
    for (int guard = 0; guard < 200000; ++guard) {
      auto event = reader.firstEvent();
      if (!event) break;
      deliver(parseEvent(*event));
      reader.removeFirstLine();
    }
  }

  test::TempDir dir_;
  const std::filesystem::path path_ = dir_.path() / "events.dat";
  const unsigned seed_ = std::random_device{}();
  std::mt19937 random_{seed_};
};

// A child appends numbered events for ever, reporting each one that save()
// acknowledged; after each kill a fresh reader must deliver every
// acknowledged event, intact and once.
TEST_F(EventFileCrashIntegrationTest, SigkillDuringAppendsLosesAndCorruptsNothing) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(25);
  int kills = 0;
  std::int64_t acknowledged = 0, sent = 0, lost = 0, corrupted = 0, nextSeq = 0;
  for (; kills < 220 && std::chrono::steady_clock::now() < deadline; ++kills) {
    const auto reports = forkAndKill(random_, random_() % 4, [&](int fd) {
      EventFile file(EventFileOptions{.path = path_});
      // Bounded, should the parent be gone.
      for (std::int64_t seq = nextSeq; seq < nextSeq + 100000; ++seq)
        if (file.save(eventFor(seq)) && !report(fd, seq)) break;
    });
    const std::set<std::int64_t> acked(reports.begin(), reports.end());
    std::set<std::int64_t> delivered;
    drain([&](std::int64_t seq) {
      if (seq < 0 || !delivered.insert(seq).second) ++corrupted;
    });
    for (auto seq : acked) lost += delivered.count(seq) ? 0 : 1;
    acknowledged += static_cast<std::int64_t>(acked.size());
    sent += static_cast<std::int64_t>(delivered.size());
    if (!acked.empty()) nextSeq = std::max(nextSeq, *acked.rbegin() + 1);
    if (!delivered.empty()) nextSeq = std::max(nextSeq, *delivered.rbegin() + 1);
  }
  std::cout << "crash test (seed " << seed_ << "): kills=" << kills
            << " acknowledged=" << acknowledged << " sent=" << sent << " lost=" << lost
            << " corrupted=" << corrupted << "\n";
  // 220 kills when the machine has time; a sanitizer build on loaded cores
  // gets fewer within the deadline, still enough to hit every kind of tear.
  EXPECT_GE(kills, 40);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(corrupted, 0);
}

// A child delivers the file's events oldest first, reporting each before
// consuming it (as the queue sends, then marks), its marks synced only in
// groups. Killed at any point, it loses no event and delivers again at
// most the one it had in flight.
TEST_F(EventFileCrashIntegrationTest, SigkillDuringConsumptionLosesNothingAndResendsAtMostOne) {
  constexpr std::int64_t kEvents = 3000;
  {
    EventFile file(EventFileOptions{.path = path_});
    for (std::int64_t seq = 0; seq < kEvents; ++seq) ASSERT_TRUE(file.save(eventFor(seq)));
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  std::vector<int> deliveries(kEvents, 0);
  int kills = 0, corrupted = 0;
  auto count = [&](std::int64_t seq) {
    if (seq < 0 || seq >= kEvents)
      ++corrupted;
    else
      ++deliveries[static_cast<std::size_t>(seq)];
  };
  for (;
       kills < 200 && std::chrono::steady_clock::now() < deadline && std::filesystem::exists(path_);
       ++kills) {
    // The child delivers more than the parent waits to hear of, so the wait
    // always ends, but a bounded number, so that a child the scheduler lets
    // run on cannot use up the file in one life; then it waits to be killed.
    const unsigned want = random_() % 8, limit = 8 + random_() % 16;
    for (auto seq : forkAndKill(random_, want, [&](int fd) {
           EventFile file(EventFileOptions{.path = path_});
           for (unsigned delivered = 0; delivered < limit; ++delivered) {
             auto event = file.firstEvent();
             if (!event || !report(fd, parseEvent(*event))) return;
             file.removeFirstLine();
           }
           for (;;) ::pause();
         }))
      count(seq);
  }
  drain(count);

  const auto lost = std::count(deliveries.begin(), deliveries.end(), 0);
  std::int64_t duplicates = 0;
  for (int d : deliveries) duplicates += std::max(d - 1, 0);
  std::cout << "consumption crash test (seed " << seed_ << "): kills=" << kills
            << " duplicates=" << duplicates << " lost=" << lost << " corrupted=" << corrupted
            << "\n";
  EXPECT_GE(kills, 40);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(corrupted, 0);
  EXPECT_LE(duplicates, kills);
}

}  // namespace
}  // namespace zivora
