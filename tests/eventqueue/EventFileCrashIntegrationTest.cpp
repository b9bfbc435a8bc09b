#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
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

// The child: appends numbered events for ever and reports each one that
// save() acknowledged through the pipe. It only ever leaves by SIGKILL (or,
// should the parent be gone, after a bounded number of events).
[[noreturn]] void appendUntilKilled(const std::filesystem::path& path, std::int64_t firstSeq,
                                    int ackFd) {
  EventFile file(EventFileOptions{.path = path});
  for (std::int64_t seq = firstSeq; seq < firstSeq + 100000; ++seq) {
    if (file.save(eventFor(seq)) &&
        ::write(ackFd, &seq, sizeof seq) != static_cast<ssize_t>(sizeof seq))
      break;
  }
  ::_exit(0);
}

bool readSeq(int fd, std::int64_t& seq) {
  return ::read(fd, &seq, sizeof seq) == static_cast<ssize_t>(sizeof seq);
}

TEST(EventFileCrashIntegrationTest, SigkillDuringAppendsLosesAndCorruptsNothing) {
  test::TempDir dir;
  const auto path = dir.path() / "events.dat";
  const auto seed = static_cast<unsigned>(std::random_device{}());
  std::mt19937 random(seed);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(25);

  int kills = 0;
  std::int64_t acknowledged = 0, sent = 0, lost = 0, corrupted = 0, nextSeq = 0;
  while (kills < 220 && std::chrono::steady_clock::now() < deadline) {
    int acks[2];
    ASSERT_EQ(::pipe(acks), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(acks[0]);
      appendUntilKilled(path, nextSeq, acks[1]);
    }
    ::close(acks[1]);

    // Let it acknowledge a few events, then kill it wherever it is.
    std::set<std::int64_t> acked;
    std::int64_t seq = 0;
    for (unsigned want = random() % 4; acked.size() < want && readSeq(acks[0], seq);)
      acked.insert(seq);
    // A random pause of up to a few hundred microseconds, spent spinning.
    for (unsigned spin = random() % 200000; spin > 0; --spin)
      std::atomic_signal_fence(std::memory_order_seq_cst);
    ASSERT_GT(child, 0);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    while (readSeq(acks[0], seq)) acked.insert(seq);
    ::close(acks[0]);
    ++kills;

    // A fresh reader delivers everything that is in the file.
    std::set<std::int64_t> delivered;
    EventFile reader(EventFileOptions{.path = path});
    for (int guard = 0; guard < 200000; ++guard) {
      auto event = reader.firstEvent();
      if (!event) break;
      std::int64_t got = parseEvent(*event);
      if (got < 0 || !delivered.insert(got).second) ++corrupted;
      reader.removeFirstLine();
    }
    for (auto a : acked)
      if (!delivered.count(a)) ++lost;
    acknowledged += static_cast<std::int64_t>(acked.size());
    sent += static_cast<std::int64_t>(delivered.size());
    if (!acked.empty()) nextSeq = std::max(nextSeq, *acked.rbegin() + 1);
    if (!delivered.empty()) nextSeq = std::max(nextSeq, *delivered.rbegin() + 1);
  }

  std::cout << "crash test (seed " << seed << "): kills=" << kills
            << " acknowledged=" << acknowledged << " sent=" << sent << " lost=" << lost
            << " corrupted=" << corrupted << "\n";
  // 220 kills when the machine has time; a sanitizer build on loaded cores
  // gets fewer within the deadline, still enough to hit every kind of tear.
  EXPECT_GE(kills, 40);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(corrupted, 0);
}

// The child: delivers the file's events oldest first, reporting each one
// through the pipe before consuming it (as the queue sends, then marks),
// until the file is empty or SIGKILL comes.
// Delivers at most `limit` events, then waits to be killed: a child that
// the scheduler lets run on (a loaded machine) cannot use up the file in
// one life.
[[noreturn]] void deliverUntilKilled(const std::filesystem::path& path, int reportFd,
                                     unsigned limit) {
  EventFile file(EventFileOptions{.path = path});
  for (unsigned delivered = 0; delivered < limit; ++delivered) {
    auto event = file.firstEvent();
    if (!event) ::_exit(0);  // the file is used up: the parent hears the end
    const std::int64_t seq = parseEvent(*event);
    if (::write(reportFd, &seq, sizeof seq) != static_cast<ssize_t>(sizeof seq)) ::_exit(1);
    file.removeFirstLine();
  }
  for (;;) ::pause();
}

// Killed while consuming, with its marks synced only in groups, a process
// loses no event and delivers again at most the one it had in flight.
TEST(EventFileCrashIntegrationTest, SigkillDuringConsumptionLosesNothingAndResendsAtMostOne) {
  test::TempDir dir;
  const auto path = dir.path() / "events.dat";
  constexpr std::int64_t kEvents = 3000;
  {
    EventFile file(EventFileOptions{.path = path});
    for (std::int64_t seq = 0; seq < kEvents; ++seq) ASSERT_TRUE(file.save(eventFor(seq)));
  }
  const auto seed = static_cast<unsigned>(std::random_device{}());
  std::mt19937 random(seed);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);

  std::vector<int> deliveries(kEvents, 0);
  int kills = 0, corrupted = 0;
  while (kills < 200 && std::chrono::steady_clock::now() < deadline &&
         std::filesystem::exists(path)) {
    int reports[2];
    ASSERT_EQ(::pipe(reports), 0);
    // More than the parent waits to hear of, so the wait always ends.
    const unsigned want = random() % 8, limit = 8 + random() % 16;
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(reports[0]);
      deliverUntilKilled(path, reports[1], limit);
    }
    ::close(reports[1]);
    std::int64_t seq = 0;
    for (unsigned got = 0; got < want && readSeq(reports[0], seq); ++got) {
      if (seq < 0 || seq >= kEvents)
        ++corrupted;
      else
        ++deliveries[static_cast<std::size_t>(seq)];
    }
    for (unsigned spin = random() % 200000; spin > 0; --spin)
      std::atomic_signal_fence(std::memory_order_seq_cst);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    while (readSeq(reports[0], seq)) {
      if (seq < 0 || seq >= kEvents)
        ++corrupted;
      else
        ++deliveries[static_cast<std::size_t>(seq)];
    }
    ::close(reports[0]);
    ++kills;
  }
  EventFile reader(EventFileOptions{.path = path});
  while (auto event = reader.firstEvent()) {
    const std::int64_t seq = parseEvent(*event);
    if (seq < 0)
      ++corrupted;
    else
      ++deliveries[static_cast<std::size_t>(seq)];
    reader.removeFirstLine();
  }

  const auto lost = std::count(deliveries.begin(), deliveries.end(), 0);
  std::int64_t duplicates = 0;
  for (int d : deliveries) duplicates += std::max(d - 1, 0);
  std::cout << "consumption crash test (seed " << seed << "): kills=" << kills
            << " duplicates=" << duplicates << " lost=" << lost << " corrupted=" << corrupted
            << "\n";
  EXPECT_GE(kills, 40);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(corrupted, 0);
  EXPECT_LE(duplicates, kills);
}

}  // namespace
}  // namespace zivora
