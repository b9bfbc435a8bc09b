#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "eventqueue/EventFile.h"
#include "events/ZVFileSaver.h"
#include "platform/FileSystem.h"
#include "support/FakeFileSystem.h"
#include "support/Files.h"
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

class EventFileTest : public ::testing::Test {
 protected:
  EventFile open(std::shared_ptr<platform::FileSystem> io = nullptr) {
    return EventFile(EventFileOptions{
        .path = path_,
        .logRepair = [this](std::string_view message) { repairs_.emplace_back(message); },
        .io = std::move(io)});
  }

  // The real system calls, keeping the bytes of the file as they were at
  // its last fdatasync (or as they are now): powerCut() puts the file back
  // to that, or removes it when it was never synced, as a machine losing
  // its page cache would.
  std::shared_ptr<test::FakeFileSystem> syncWatchingIo() {
    durable_ = fs::exists(path_) ? std::optional(test::readFile(path_)) : std::nullopt;
    auto io = std::make_shared<test::FakeFileSystem>();
    io->onSync = [this](int) {
      durable_ = test::readFile(path_);
      return 0;
    };
    return io;
  }
  void powerCut() {
    if (durable_)
      test::writeFile(path_, *durable_);
    else
      fs::remove(path_);
  }

  test::ScopedContext context_;
  test::TempDir dir_;
  fs::path path_ = dir_.path() / "events.dat";
  std::vector<std::string> repairs_;
  std::optional<std::string> durable_;
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

// The header is moved on by the first of every 32 consumptions only: a
// reader that starts afresh steps over the consumed lines after it, and
// reaches the same event whatever the header's lag.
TEST_F(EventFileTest, AFreshReaderFindsTheFirstLiveEventWhateverTheHeadersLag) {
  std::vector<std::string> events;
  for (int i = 0; i < 70; ++i) events.push_back(event(60, static_cast<char>('A' + i % 26)));
  for (const int consumed : {1, 2, 31, 32, 33, 34, 64, 65, 69}) {
    SCOPED_TRACE(consumed);
    fs::remove(path_);
    auto drainer = open();
    for (const auto& text : events) ASSERT_TRUE(drainer.save(text));
    for (int i = 0; i < consumed; ++i) drainer.removeFirstLine();

    auto fresh = open();
    EXPECT_EQ(fresh.firstEvent(), events[consumed]);
    // The header never points past a live event, and lags by fewer than 32.
    const std::string bytes = test::readFile(path_);
    const std::int64_t lineLength = 61;
    const std::int64_t header = std::stoll(bytes.substr(2, bytes.find('\n') - 2));
    EXPECT_LE(header, consumed * lineLength);
    EXPECT_GT(header, (consumed - 32) * lineLength);
  }
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

// Reads go by chunks and by whole blocks: lines that end on, straddle or
// outgrow either come back whole, by both ways of draining.
TEST_F(EventFileTest, EventsAroundTheChunkAndBlockSizesReadBackWhole) {
  const std::vector<std::string> events{event(255),  event(256),  event(257),  event(513),
                                        event(20),   event(1000), event(4095), event(4096),
                                        event(4097), event(20),   event(9000), event(3000)};
  auto file = open();
  for (const auto& e : events) ASSERT_TRUE(file.save(e));
  EXPECT_EQ(drain(file), events);
  EXPECT_FALSE(fs::exists(path_));

  for (const auto& e : events) ASSERT_TRUE(file.save(e));
  std::vector<std::string> onePass{*file.firstEvent()};
  while (auto next = file.removeFirstLineAndReadNext()) onePass.push_back(*next);
  EXPECT_EQ(onePass, events);
  EXPECT_FALSE(fs::exists(path_));
}

// A reader remembers where it left off and what its reads brought in; none
// of that may hide what another reader of the same path consumed or what a
// writer appended meanwhile.
TEST_F(EventFileTest, ReadersOfOnePathSeeEachOthersConsumptionsAndNewEvents) {
  auto io = std::make_shared<test::FakeFileSystem>();
  auto first = open(io);
  auto second = open();
  std::vector<std::string> events;
  for (char c = 'a'; c <= 'f'; ++c) events.push_back(event(60, c));
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(first.save(events[i]));

  EXPECT_EQ(first.firstEvent(), events[0]);
  second.removeFirstLine();
  EXPECT_EQ(first.firstEvent(), events[1]);
  EXPECT_EQ(first.removeFirstLineAndReadNext(), events[2]);
  second.removeFirstLine();
  ASSERT_TRUE(second.save(events[4]));
  EXPECT_EQ(first.removeFirstLineAndReadNext(), events[4]);
  ASSERT_TRUE(second.save(events[5]));
  EXPECT_EQ(first.removeFirstLineAndReadNext(), events[5]);
  first.removeFirstLine();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_FALSE(second.firstEvent());

  // Draining a file of short events reads it about once per event: the
  // header and the line before a consumption are not looked up again.
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(first.save(event(100)));
  const int readsBefore = io->reads.load();
  ASSERT_TRUE(first.firstEvent());
  while (first.removeFirstLineAndReadNext()) {
  }
  EXPECT_LE(io->reads.load() - readsBefore, 52);
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

// Damaged files hand out what can be sent and never stall the queue: after
// them a new event is taken and read back.
TEST_F(EventFileTest, DamagedFilesDeliverWhatTheyCanAndTakeNewEvents) {
  const std::string a = event(30, 'a'), b = event(30, 'b'), e = event(40);
  const std::string consumed = "-" + event(39).substr(1) + "\n";
  const auto marked = [&](const std::string& header) {
    return header + "\n-" + consumed.substr(header.size() + 2);
  };
  struct Case {
    const char* name;
    std::string content;
    std::vector<std::string> events;
  };
  const std::vector<Case> cases{
      {"header at the end", marked("-!" + std::to_string(consumed.size())), {}},
      {"header beyond the end", "-!999\n-" + consumed.substr(7) + e + "\n", {}},
      // Unparsable, or not at a line start: read from 0, where the marks hold.
      {"header not a number", marked("-!x") + e + "\n", {e}},
      {"header empty", marked("-!") + e + "\n", {e}},
      {"header too long", marked("-!12345678901234567890") + e + "\n", {e}},
      {"header inside a line", marked("-!3") + e + "\n", {e}},
      {"blank and non-ASCII lines", a + "\n\n{\"e\":\"\xC3\xA9\"}\n" + b + "\n", {a, b}},
      // A first line that, marked consumed, would read as a header saying
      // "everything up to byte 99 is sent" must not take later events.
      {"first line like a header", "!99\xCD\n", {}},
      {"unterminated line like a header", "!99", {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    test::writeFile(path_, row.content);
    auto file = open();
    EXPECT_EQ(drain(file), row.events);
    ASSERT_TRUE(file.save(a));
    EXPECT_EQ(drain(file), std::vector<std::string>{a});
    EXPECT_FALSE(fs::exists(path_));
  }
  EXPECT_FALSE(repairs_.empty());
}

// What the queue uses after a delivery: one pass that consumes the oldest
// event and answers the next one. On the fuzzing corpus's damaged files and
// one of blank, non-ASCII, consumed and torn lines it answers, at every
// step, what a fresh look at the file does.
TEST_F(EventFileTest, OnePassConsumptionAgreesWithFirstEventOnDamagedFiles) {
  const fs::path corpus = fs::path(ZIVORA_TEST_SOURCE_DIR) / "fuzz" / "corpus" / "EventFileFuzz";
  std::vector<std::string> contents{event(30, 'a') + "\n\n{\"e\":\"\xC3\xA9\"}\n-consumed\n" +
                                    event(300, 'b') + "\n" + event(30, 'c') + "\n{\"torn\":"};
  for (const auto& entry : fs::directory_iterator(corpus))
    contents.push_back(test::readFile(entry.path()));
  EXPECT_GT(contents.size(), 1u);
  for (const auto& content : contents) {
    test::writeFile(path_, content);
    auto file = open();
    for (int guard = 0; guard < 10000 && file.firstEvent(); ++guard) {
      const auto next = file.removeFirstLineAndReadNext();
      ASSERT_EQ(next, file.firstEvent()) << content;
    }
    EXPECT_FALSE(file.firstEvent());
    // Drained, it takes a new event; consuming that deletes the file.
    ASSERT_TRUE(file.save(event(30)));
    EXPECT_EQ(file.removeFirstLineAndReadNext(), std::nullopt);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_EQ(file.removeFirstLineAndReadNext(), std::nullopt);
  }
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
    auto io = syncWatchingIo();
    auto file = open(io);
    for (std::size_t i = 0; i < delivered; ++i) {
      ASSERT_EQ(file.firstEvent(), events[i]);
      file.removeFirstLine();
    }
    EXPECT_EQ(io->syncs, static_cast<int>(delivered) / limit) << delivered;
    powerCut();

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
  auto io = syncWatchingIo();
  auto file = open(io);
  for (char c : std::string("abcdef")) ASSERT_TRUE(file.save(event(30, c)));
  file.removeFirstLine();
  file.removeFirstLine();
  EXPECT_EQ(file.unsyncedConsumed(), 2);
  file.syncConsumed();
  EXPECT_EQ(file.unsyncedConsumed(), 0);
  const int syncs = io->syncs;
  file.syncConsumed();  // nothing to sync: no system call
  EXPECT_EQ(io->syncs, syncs);

  file.removeFirstLine();
  ASSERT_TRUE(file.save(event(30, 'g')));
  EXPECT_EQ(file.unsyncedConsumed(), 0);
  file.removeFirstLine();
  powerCut();
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
