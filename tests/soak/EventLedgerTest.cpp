#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "EventLedger.h"
#include "support/TempDir.h"

namespace zivora::soak {
namespace {

constexpr const char* kStart = R"({"startWatchingAd":{"appUserId":"soak-1-0"}})";
constexpr const char* kWatched = R"({"watchedAd":{"appUserId":"soak-1-0"}})";
constexpr const char* kRemove = R"({"removeMotivatedRewards":{"appUserId":"soak-1-0"}})";

class EventLedgerTest : public ::testing::Test {
 protected:
  std::filesystem::path write(const std::string& name, const std::string& text) {
    auto file = directory_.path() / name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

  test::TempDir directory_;
  EventLedger ledger_;
};

TEST_F(EventLedgerTest, ReadsOnlyTheAdEventsTheHostLoggedAsSaved) {
  ledger_.readHostOutput(write(
      "host.out", std::string("[   0.7s]   sdk: [ZVPFileSaver][save] event = ") + kStart + "\n" +
                      "[   0.8s]   sdk: [ZVPFileSaver][save] event = p1name=bo_Name&p1type=String\n"
                      "[   0.9s] delegate: videoWindowDidDisplay short\n"));
  EXPECT_EQ(ledger_.summary().saved, 1u);
}

TEST_F(EventLedgerTest, ReadsTheLiveLinesOfAnEventFile) {
  // Consumed bytes behind a header, a consumed line, two live lines and a
  // torn tail that must never count.
  const std::string consumed = "-!" + std::string(8, '0') + "\n";
  const std::string text = consumed + "-" + std::string(kStart).substr(1) + "\n" + kWatched + "\n" +
                           kRemove + "\n" + R"({"watchedAd":{"torn)";
  ledger_.readEventFile(write("ts_events.dat", text));
  EXPECT_EQ(ledger_.summary().stillQueued, 2u);

  // A header that points into a line means "read from the start".
  EventLedger midLine;
  midLine.noteSaved(kStart);
  midLine.readEventFile(write("mid-line.dat", "-!00000012\n" + std::string(kStart) + "\n"));
  EXPECT_EQ(midLine.summary().acknowledged, 0u);
  // One past the end: the SDK deletes the file, nothing is live.
  EventLedger pastEnd;
  pastEnd.readEventFile(write("past-end.dat", "-!99\n" + std::string(kStart) + "\n"));
  EXPECT_EQ(pastEnd.summary().stillQueued, 0u);
}

TEST_F(EventLedgerTest, TakesOnlyAcceptedEventsFromTheJournal) {
  ledger_.readJournal(write(
      "journal.jsonl",
      std::string(R"({"kind":"event","status":500,"params":)") + nlohmann::json(kStart).dump() +
          "}\n" + R"({"kind":"event","status":200,"params":)" + nlohmann::json(kWatched).dump() +
          "}\n" + R"({"kind":"file","from":100})" + "\n"));
  ledger_.noteSaved(kStart);
  ledger_.noteSaved(kWatched);
  const auto summary = ledger_.summary();
  EXPECT_EQ(summary.accepted, 1u);
  EXPECT_EQ(summary.lost, 1u);  // the refused one never got through
}

TEST_F(EventLedgerTest, SquaresSavedQueuedAndAccepted) {
  ledger_.noteSaved(kStart);    // accepted twice: a duplicate, not a loss
  ledger_.noteSaved(kWatched);  // still queued: neither acknowledged nor lost
  ledger_.noteSaved(kRemove);   // gone from the queue, never accepted: lost
  ledger_.noteAccepted(kStart);
  ledger_.noteAccepted(kStart);
  ledger_.noteQueued(kWatched);
  ledger_.noteAccepted(R"({"watchedAd":{"appUserId":"other"}})");

  const auto summary = ledger_.summary();
  EXPECT_EQ(summary.saved, 3u);
  EXPECT_EQ(summary.acknowledged, 2u);
  EXPECT_EQ(summary.accepted, 2u);
  EXPECT_EQ(summary.acceptedTwice, 1u);
  EXPECT_EQ(summary.unknownAccepted, 1u);
  EXPECT_EQ(summary.stillQueued, 1u);
  EXPECT_EQ(summary.lost, 1u);
  EXPECT_NE(ledger_.lostExamples(5).find("removeMotivatedRewards"), std::string::npos);
}

}  // namespace
}  // namespace zivora::soak
