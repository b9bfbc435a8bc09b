#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "events/EventFile.h"
#include "support/TempDir.h"

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

}  // namespace
}  // namespace zivora
