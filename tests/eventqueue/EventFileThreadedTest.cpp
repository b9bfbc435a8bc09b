#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "eventqueue/EventFile.h"
#include "eventqueue/ResendLoop.h"
#include "support/TempDir.h"
#include "support/WatchedRuntime.h"

namespace zivora {
namespace {

// Appends race a reader that consumes and, whenever it empties the file,
// deletes it. Every event that save() acknowledged must come out exactly
// once and in order: none may land in a file that was just unlinked.
TEST(EventFileThreadedTest, SavesRacingTheDrainingReaderLoseNothing) {
  test::TempDir dir;
  const auto path = dir.path() / "events.dat";
  constexpr int kEvents = 200;
  std::vector<bool> acknowledged(kEvents, false);
  std::atomic<bool> writerDone{false};

  std::thread writer([&] {
    EventFile file(EventFileOptions{.path = path});
    for (int i = 0; i < kEvents; ++i)
      acknowledged[static_cast<std::size_t>(i)] = file.save("{\"seq\":" + std::to_string(i) + "}");
    writerDone = true;
  });

  std::vector<std::string> received;
  EventFile reader(EventFileOptions{.path = path});
  for (;;) {
    bool done = writerDone.load();
    while (auto event = reader.firstEvent()) {
      received.push_back(*event);
      reader.removeFirstLine();
    }
    if (done) break;
  }
  writer.join();

  std::vector<std::string> expected;
  for (int i = 0; i < kEvents; ++i)
    if (acknowledged[static_cast<std::size_t>(i)])
      expected.push_back("{\"seq\":" + std::to_string(i) + "}");
  EXPECT_EQ(expected.size(), static_cast<std::size_t>(kEvents));
  EXPECT_EQ(received, expected);
}

// The loop on real threads: events saved from two threads while it drains,
// its marks synced on the global queue beside the sends, and syncs asked
// for from a third thread on top. Every event arrives once, in the order
// of its saver, and nothing is left unsynced once the loop is gone.
TEST(EventFileThreadedTest, TheLoopDrainsWhileMarksAreSyncedBesideIt) {
  test::TempDir dir;
  auto runtime = std::make_shared<test::WatchedRuntime>();
  auto file = std::make_shared<EventFile>(EventFileOptions{.path = dir.path() / "events.dat"});
  constexpr int kPerWriter = 150;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> received;
  auto loop = std::make_shared<ResendLoop>(runtime, file,
                                           ResendLoopOptions{.queueLabel = "test.threaded.resend",
                                                             .className = "EventFileThreadedTest",
                                                             .waitsForServer = false,
                                                             .send = [&](const std::string& event) {
                                                               std::lock_guard lock(mutex);
                                                               received.push_back(event);
                                                               changed.notify_all();
                                                               return 200;
                                                             }});
  std::atomic<bool> stop{false};
  std::thread syncer([&] {
    while (!stop) file->syncConsumed();
  });
  std::vector<std::thread> writers;
  for (char writer : {'a', 'b'}) {
    writers.emplace_back([&, writer] {
      for (int i = 0; i < kPerWriter; ++i)
        EXPECT_TRUE(loop->sendEvent(std::string("{\"") + writer + "\":" + std::to_string(i) + "}"));
    });
  }
  for (auto& writer : writers) writer.join();
  {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60),
                                 [&] { return received.size() >= 2 * kPerWriter; }));
  }
  stop = true;
  syncer.join();
  // The last delivery's mark follows its send: wait for the loop to go idle.
  EXPECT_TRUE(runtime->waitUntil([&] { return !loop->hasThread() && !file->hasSavedEvents(); }));
  // The loop syncs what is left when it goes.
  loop.reset();
  runtime->shutdown();

  std::lock_guard lock(mutex);
  ASSERT_EQ(received.size(), 2u * kPerWriter);
  for (char writer : {'a', 'b'}) {
    int next = 0;
    for (const auto& event : received) {
      if (event[2] != writer) continue;
      EXPECT_EQ(event, std::string("{\"") + writer + "\":" + std::to_string(next++) + "}");
    }
    EXPECT_EQ(next, kPerWriter);
  }
  EXPECT_EQ(file->unsyncedConsumed(), 0);
  EXPECT_FALSE(file->hasSavedEvents());
}

}  // namespace
}  // namespace zivora
