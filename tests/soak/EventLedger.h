#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace zivora::soak {

// Squares the ad events the SDK stored against those the server accepted.
// An event is its whole JSON text; the soak gives every host run its own
// user id, so two events with the same text are one event sent twice.
//
// - saved: the SDK logged "[ZVPFileSaver][save] event = {...}", which it
//   does only after the line is synced into its event file;
// - accepted: the sandbox's journal holds it with status 200;
// - still queued: a live line of the event file when the soak ends.
// An event that was saved, is no longer queued and was never accepted has
// been lost.
class EventLedger {
 public:
  struct Summary {
    std::size_t saved = 0;
    std::size_t acknowledged = 0;   // saved and no longer queued
    std::size_t accepted = 0;       // distinct events the server accepted
    std::size_t acceptedTwice = 0;  // extra acceptances of the same event
    std::size_t stillQueued = 0;
    std::size_t lost = 0;
    std::size_t unknownAccepted = 0;  // accepted but never seen saved
  };

  // The save lines of one host run's output.
  void readHostOutput(const std::filesystem::path& file);
  void noteSaved(std::string_view event);
  // The sandbox's journal ("kind": "event" records).
  void readJournal(const std::filesystem::path& file);
  void noteAccepted(std::string_view event);
  // The live lines of an event file in the SDK's format (a "-!N" header,
  // "-" before consumed lines, a torn last line without its line feed).
  void readEventFile(const std::filesystem::path& file);
  void noteQueued(std::string_view event);

  Summary summary() const;
  // A few lost events, for the report.
  std::string lostExamples(std::size_t limit) const;

 private:
  std::map<std::string, std::size_t, std::less<>> saved_, accepted_, queued_;
};

}  // namespace zivora::soak
