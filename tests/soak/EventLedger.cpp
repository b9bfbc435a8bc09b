#include "EventLedger.h"

#include <fstream>
#include <sstream>

#include "RequestJournal.h"
#include "support/Files.h"

namespace zivora::soak {
namespace {

constexpr std::string_view kSaveLine = "[ZVPFileSaver][save] event = ";

// Where the live region of an event file starts, as the SDK reads it: the
// number behind a leading "-!" when it is a line start, 0 for a header that
// is unusable or points into a line, and the end for one past the end (the
// SDK deletes such a file).
std::size_t liveStart(const std::string& text) {
  if (text.rfind("-!", 0) != 0) return 0;
  std::size_t offset = 0;
  for (std::size_t i = 2; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
    offset = offset * 10 + static_cast<std::size_t>(text[i] - '0');
  if (offset >= text.size()) return text.size();
  return offset > 0 && text[offset - 1] == '\n' ? offset : 0;
}

}  // namespace

void EventLedger::readHostOutput(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    const auto at = line.find(kSaveLine);
    if (at == std::string::npos) continue;
    const std::string_view event = std::string_view(line).substr(at + kSaveLine.size());
    // The analytics queue logs the same text; its records are forms, not JSON.
    if (!event.empty() && event.front() == '{') noteSaved(event);
  }
}

void EventLedger::readJournal(const std::filesystem::path& file) {
  for (const auto& record : sandbox::RequestJournal::read(file)) {
    if (record.value("kind", "") == "event" && record.value("status", 0) == 200)
      noteAccepted(record.value("params", ""));
  }
}

void EventLedger::readEventFile(const std::filesystem::path& file) {
  const std::string text = test::readFile(file);
  std::size_t start = liveStart(text);
  while (start < text.size()) {
    const auto end = text.find('\n', start);
    if (end == std::string::npos) break;  // torn tail: never an event
    const std::string_view line = std::string_view(text).substr(start, end - start);
    if (!line.empty() && line.front() != '-') noteQueued(line);
    start = end + 1;
  }
}

void EventLedger::noteSaved(std::string_view event) { ++saved_[std::string(event)]; }
void EventLedger::noteAccepted(std::string_view event) { ++accepted_[std::string(event)]; }
void EventLedger::noteQueued(std::string_view event) { ++queued_[std::string(event)]; }

EventLedger::Summary EventLedger::summary() const {
  Summary summary;
  for (const auto& [event, count] : accepted_) {
    ++summary.accepted;
    summary.acceptedTwice += count - 1;
    if (!saved_.contains(event)) ++summary.unknownAccepted;
  }
  for (const auto& [event, count] : queued_) summary.stillQueued += count;
  for (const auto& [event, count] : saved_) {
    summary.saved += count;
    const bool queued = queued_.contains(event);
    if (!queued) summary.acknowledged += count;
    if (!queued && !accepted_.contains(event)) summary.lost += count;
  }
  return summary;
}

std::string EventLedger::lostExamples(std::size_t limit) const {
  std::ostringstream out;
  for (const auto& [event, count] : saved_) {
    if (limit == 0) break;
    if (queued_.contains(event) || accepted_.contains(event)) continue;
    out << "  lost: " << event << '\n';
    --limit;
  }
  return out.str();
}

}  // namespace zivora::soak
