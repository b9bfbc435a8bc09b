#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>

#include "eventqueue/EventFile.h"
#include "events/ZVFileSaver.h"
#include "platform/FileSystem.h"
#include "support/FakeFileSystem.h"
#include "support/Files.h"
#include "support/ForwardingFileSystem.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

namespace fs = std::filesystem;

std::string event(std::size_t length, char fill = 'x') {
  std::string text = "{\"e\":\"";
  text += std::string(length - text.size() - 2, fill);
  return text + "\"}";
}

// Every event the file hands out, consuming each (bounded, so that a file
// that never empties fails the test instead of hanging it).
std::vector<std::string> drain(EventFile& file) {
  std::vector<std::string> events;
  for (int i = 0; i < 100000; ++i) {
    auto first = file.firstEvent();
    if (!first) break;
    events.push_back(*first);
    file.removeFirstLine();
  }
  return events;
}

// The real system calls, keeping the bytes of the one file as they were at
// its last fdatasync (or as they were made, when it exists already):
// powerCut() puts the file back to that, or removes it when it was never
// synced, as a machine losing its page cache would.
class PowerCutFileSystem final : public test::ForwardingFileSystem {
 public:
  explicit PowerCutFileSystem(fs::path path) : path_(std::move(path)) {
    if (fs::exists(path_)) durable_ = test::readFile(path_);
  }

  int syncs() const { return syncs_; }
  void powerCut() {
    if (durable_)
      test::writeFile(path_, *durable_);
    else
      fs::remove(path_);
  }

  int fdatasync(int fd) override {
    ++syncs_;
    durable_ = test::readFile(path_);
    return ForwardingFileSystem::fdatasync(fd);
  }

 private:
  fs::path path_;
  std::optional<std::string> durable_;
  int syncs_ = 0;
};

class EventFileTest : public ::testing::Test {
 protected:
  EventFile open(std::shared_ptr<platform::FileSystem> io = nullptr) {
    return EventFile(EventFileOptions{
        .path = path_,
        .logRepair = [this](std::string_view message) { repairs_.emplace_back(message); },
        .io = std::move(io)});
  }

  test::ScopedContext context_;
  test::TempDir dir_;
  fs::path path_ = dir_.path() / "events.dat";
  std::vector<std::string> repairs_;
};

TEST_F(EventFileTest, ConsumingTheFirstOfTwoEventsWritesTheHeaderInPlace) {
  auto file = open();
  const std::string a = event(120, 'a'), b = event(80, 'b');
  ASSERT_TRUE(file.save(a));
  ASSERT_TRUE(file.save(b));
  EXPECT_EQ(test::readFile(path_), a + "\n" + b + "\n");

  EXPECT_EQ(file.firstEvent(), a);
  file.removeFirstLine();
  EXPECT_EQ(test::readFile(path_), "-!121\n-" + a.substr(7) + "\n" + b + "\n");
  EXPECT_EQ(file.firstEvent(), b);

  file.removeFirstLine();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_FALSE(file.hasSavedEvents());
  EXPECT_FALSE(file.firstEvent());
}

// The reader keeps its descriptor between calls; it must never go on
// draining (and finally delete) a file that is no longer the one at the
// path, or the events saved into the new file would be lost.
TEST_F(EventFileTest, AReaderFollowsAFileDeletedOrReplacedUnderIt) {
  auto reader = open();
  const std::string a = event(40, 'a'), b = event(40, 'b'), c = event(40, 'c'), d = event(40, 'd');
  ASSERT_TRUE(reader.save(a));
  ASSERT_TRUE(reader.save(b));
  EXPECT_EQ(reader.firstEvent(), a);

  fs::remove(path_);
  ASSERT_TRUE(open().save(c));
  EXPECT_EQ(reader.firstEvent(), c);

  test::writeFile(dir_.path() / "replacement", d + "\n");
  fs::rename(dir_.path() / "replacement", path_);
  EXPECT_EQ(reader.firstEvent(), d);
  ASSERT_TRUE(open().save(a));
  EXPECT_EQ(reader.removeFirstLineAndReadNext(), a);
  reader.removeFirstLine();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_FALSE(reader.firstEvent());
  ASSERT_TRUE(open().save(b));
  EXPECT_EQ(drain(reader), std::vector<std::string>{b});
}

TEST_F(EventFileTest, EventsAroundTheChunkSizeReadBackWhole) {
  auto file = open();
  const std::vector<std::string> events{event(255), event(256), event(257),
                                        event(513), event(20),  event(1000)};
  for (const auto& e : events) ASSERT_TRUE(file.save(e));
  EXPECT_EQ(drain(file), events);
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(EventFileTest, AFullFileRefusesEventsUntilDrainedAndDeleted) {
  auto file = open();
  // 10240 lines of 1024 bytes make exactly 10 MiB.
  const std::string line = event(1023);
  std::string bytes;
  for (int i = 0; i < 10239; ++i) bytes += line + "\n";
  test::writeFile(path_, bytes);
  EXPECT_TRUE(file.save(line));
  ASSERT_EQ(fs::file_size(path_), 10485760u);
  EXPECT_FALSE(file.save(event(40)));
  EXPECT_EQ(fs::file_size(path_), 10485760u);

  EXPECT_EQ(drain(file).size(), 10240u);
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_TRUE(file.save(event(40)));
  EXPECT_EQ(file.firstEvent(), event(40));
}

TEST_F(EventFileTest, HeadersThatCannotBeTrusted) {
  auto file = open();
  const std::string e = event(40);
  // Pointing at the end: everything is consumed, the reader deletes the file.
  std::string consumed = "-" + event(39).substr(1) + "\n";
  std::string header = "-!" + std::to_string(consumed.size()) + "\n-";
  test::writeFile(path_, header + consumed.substr(header.size()));
  EXPECT_FALSE(file.firstEvent());
  EXPECT_FALSE(fs::exists(path_));

  // Beyond the end: the same.
  test::writeFile(path_, "-!999\n-" + consumed.substr(7) + e + "\n");
  EXPECT_FALSE(file.firstEvent());
  EXPECT_FALSE(fs::exists(path_));

  // Unparsable, or not at a line start: read from 0, where the marks still hold.
  for (std::string bad : {"-!x", "-!", "-!12345678901234567890", "-!3"}) {
    std::string first = bad + "\n-" + consumed.substr(bad.size() + 2);
    test::writeFile(path_, first + e + "\n");
    EXPECT_EQ(file.firstEvent(), e) << bad;
  }
}

TEST_F(EventFileTest, LinesThatCanNeverBeSentDoNotStallTheQueue) {
  auto file = open();
  const std::string a = event(30, 'a'), b = event(30, 'b');
  test::writeFile(path_, a + "\n\n{\"e\":\"\xC3\xA9\"}\n" + b + "\n");
  EXPECT_EQ(drain(file), (std::vector<std::string>{a, b}));
  EXPECT_FALSE(repairs_.empty());

  // A first line that, marked consumed, would read as a header saying
  // "everything up to byte 99 is sent" must not take later events with it.
  for (const std::string& damaged : {std::string("!99\xCD\n"), std::string("!99")}) {
    test::writeFile(path_, damaged);
    EXPECT_EQ(file.firstEvent(), std::nullopt);
    ASSERT_TRUE(file.save(a));
    EXPECT_EQ(file.firstEvent(), a) << damaged;
  }
}

// What the queue uses after a delivery: one pass that consumes the oldest
// event and answers the next one exactly as firstEvent() would.
TEST_F(EventFileTest, ConsumingAndReadingTheNextAnswersWhatFirstEventWould) {
  auto file = open();
  const std::string a = event(30, 'a'), b = event(300, 'b'), c = event(30, 'c');
  test::writeFile(path_,
                  a + "\n\n{\"e\":\"\xC3\xA9\"}\n-consumed\n" + b + "\n" + c + "\n{\"torn\":");
  EXPECT_EQ(file.removeFirstLineAndReadNext(), b);
  EXPECT_EQ(file.firstEvent(), b);
  EXPECT_EQ(file.removeFirstLineAndReadNext(), c);
  EXPECT_EQ(file.removeFirstLineAndReadNext(), std::nullopt);
  EXPECT_EQ(file.firstEvent(), std::nullopt);
  ASSERT_TRUE(file.save(a));
  EXPECT_EQ(file.removeFirstLineAndReadNext(), std::nullopt);
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(file.removeFirstLineAndReadNext(), std::nullopt);
}

// The fuzzing corpus's damaged files: consuming and reading the next in one
// pass answers, at every step, what a fresh look at the file does.
TEST_F(EventFileTest, OnePassConsumptionAgreesWithFirstEventOnDamagedFiles) {
  const fs::path corpus = fs::path(ZIVORA_TEST_SOURCE_DIR) / "fuzz" / "corpus" / "EventFileFuzz";
  int files = 0;
  for (const auto& entry : fs::directory_iterator(corpus)) {
    test::writeFile(path_, test::readFile(entry.path()));
    auto file = open();
    for (int guard = 0; guard < 10000 && file.firstEvent(); ++guard) {
      const auto next = file.removeFirstLineAndReadNext();
      ASSERT_EQ(next, file.firstEvent()) << entry.path();
    }
    EXPECT_FALSE(file.firstEvent());
    ++files;
  }
  EXPECT_GT(files, 0);
}

TEST_F(EventFileTest, SaveRefusesWhatCouldNotBeOneAsciiLine) {
  auto file = open();
  EXPECT_FALSE(file.save(""));
  EXPECT_FALSE(file.save("{\"e\":\"\xC3\xA9\"}"));
  EXPECT_FALSE(file.save("{\"a\":1}\n{\"b\":2}"));
  EXPECT_FALSE(file.hasSavedEvents());
}

TEST_F(EventFileTest, ATornTailIsNeverReturnedAndNeverGluedToTheNextEvent) {
  auto file = open();
  const std::string a = event(30, 'a'), c = event(30, 'c');
  test::writeFile(path_, a + "\n{\"torn\":");
  EXPECT_EQ(file.firstEvent(), a);
  file.removeFirstLine();
  EXPECT_FALSE(file.firstEvent());
  EXPECT_TRUE(fs::exists(path_));

  ASSERT_TRUE(file.save(c));
  EXPECT_EQ(file.firstEvent(), c);
  EXPECT_NE(test::readFile(path_).find("\n-\"torn\":\n" + c + "\n"), std::string::npos);
  EXPECT_EQ(repairs_.size(), 1u);
}

// A crash at every byte of an append, and again at every byte of the next
// append (which repairs the first): whatever survives reads back whole, in
// order, and every acknowledged event is there.
TEST_F(EventFileTest, CrashAtEveryByteOfAnAppendLosesOnlyTheUnacknowledgedEvent) {
  const std::string a = event(24, 'a'), b = event(24, 'b'), c = event(24, 'c'), d = event(24, 'd');
  for (std::size_t first = 0; first <= b.size() + 1; ++first) {
    for (std::size_t second = 0; second <= c.size() + 3; second += 3) {
      fs::remove(path_);
      ASSERT_TRUE(open().save(a));
      auto crashing = std::make_shared<test::FakeFileSystem>();
      crashing->crashAfter(first);
      EXPECT_FALSE(open(crashing).save(b));
      auto crashingAgain = std::make_shared<test::FakeFileSystem>();
      crashingAgain->crashAfter(second);
      bool savedC = open(crashingAgain).save(c);
      auto file = open();
      ASSERT_TRUE(file.save(d)) << first << "/" << second;

      auto events = drain(file);
      std::vector<std::string> expected{a};
      if (first == b.size() + 1) expected.push_back(b);
      if (savedC || (!events.empty() && std::find(events.begin(), events.end(), c) != events.end()))
        expected.push_back(c);
      expected.push_back(d);
      EXPECT_EQ(events, expected) << "crash after " << first << " then " << second;
    }
  }
}

TEST_F(EventFileTest, AFullDiskRefusesTheEventAndLeavesTheFileIntact) {
  const std::string a = event(30, 'a'), b = event(30, 'b');
  ASSERT_TRUE(open().save(a));
  auto full = std::make_shared<test::FakeFileSystem>();
  full->failWrites(ENOSPC);
  EXPECT_FALSE(open(full).save(b));
  EXPECT_EQ(test::readFile(path_), a + "\n");

  auto trickling = std::make_shared<test::FakeFileSystem>();
  trickling->shortWrites(3);
  EXPECT_TRUE(open(trickling).save(b));
  auto file = open();
  EXPECT_EQ(drain(file), (std::vector<std::string>{a, b}));
}

// Left to itself the file syncs its consumed marks maxUnsyncedConsumed at
// a time, so a power cut after any number of deliveries brings back at
// most one fewer delivered events (all of them when it strikes inside that
// sync) and never loses one that was not delivered.
TEST_F(EventFileTest, APowerCutResendsAtMostTheUnsyncedDeliveredEventsAndLosesNone) {
  const int limit = EventFileOptions{}.maxUnsyncedConsumed;
  std::vector<std::string> events;
  std::string bytes;
  for (int i = 0; i < limit + 8; ++i) {
    events.push_back(event(40 + i % 7, static_cast<char>('a' + i % 26)));
    bytes += events.back() + "\n";
  }
  std::size_t worst = 0;
  for (std::size_t delivered = 0; delivered <= events.size(); ++delivered) {
    test::writeFile(path_, bytes);
    auto io = std::make_shared<PowerCutFileSystem>(path_);
    auto file = open(io);
    for (std::size_t i = 0; i < delivered; ++i) {
      ASSERT_EQ(file.firstEvent(), events[i]);
      file.removeFirstLine();
    }
    EXPECT_EQ(io->syncs(), static_cast<int>(delivered) / limit) << delivered;
    io->powerCut();

    auto again = open();
    const auto resent = drain(again);
    ASSERT_GE(resent.size(), events.size() - delivered) << delivered;
    EXPECT_TRUE(std::equal(resent.begin(), resent.end(), events.end() - resent.size()))
        << "after " << delivered << " deliveries";
    worst = std::max(worst, resent.size() - (events.size() - delivered));
  }
  EXPECT_EQ(worst, static_cast<std::size_t>(limit - 1));
}

TEST_F(EventFileTest, SyncConsumedAndEverySaveMakeTheMarksSoFarDurable) {
  auto io = std::make_shared<PowerCutFileSystem>(path_);
  auto file = open(io);
  for (char c : std::string("abcdef")) ASSERT_TRUE(file.save(event(30, c)));
  file.removeFirstLine();
  file.removeFirstLine();
  EXPECT_EQ(file.unsyncedConsumed(), 2);
  file.syncConsumed();
  EXPECT_EQ(file.unsyncedConsumed(), 0);
  const int syncs = io->syncs();
  file.syncConsumed();  // nothing to sync: no system call
  EXPECT_EQ(io->syncs(), syncs);

  file.removeFirstLine();
  ASSERT_TRUE(file.save(event(30, 'g')));
  EXPECT_EQ(file.unsyncedConsumed(), 0);
  file.removeFirstLine();
  io->powerCut();
  auto again = open();
  EXPECT_EQ(drain(again), (std::vector<std::string>{event(30, 'd'), event(30, 'e'), event(30, 'f'),
                                                    event(30, 'g')}));
}

TEST(ZVFileSaverTest, KeepsItsEventsInTheDocumentsDirectoryAndLogsEachSave) {
  test::ScopedContext context;
  test::TempDir documents;
  ZVFileSaver saver(documents.path());
  EXPECT_EQ(saver.fullPath(), documents.path() / "ts_events.dat");
  EXPECT_TRUE(saver.save("{\"a\":1}"));
  EXPECT_TRUE(context.log().contains("[ZVPFileSaver][save] event = {\"a\":1}"));
  EXPECT_FALSE(saver.save("{\"a\":\"\xC3\xA9\"}"));
  EXPECT_TRUE(context.log().contains(
      "[ZVPFileSaver][save:] Error = an event is one non-empty line of ASCII text"));
  EXPECT_EQ(saver.getFirstEvent(), "{\"a\":1}");
  saver.removeFile();
  EXPECT_FALSE(saver.hasSavedEvents());
}

}  // namespace
}  // namespace zivora
