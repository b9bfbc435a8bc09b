#include "AnswerLedger.h"

#include <algorithm>
#include <fstream>
#include <string>

namespace zivora::soak {
namespace {

// The text after "prefix", up to the next blank (the placement), or "".
std::string_view wordAfter(std::string_view line, std::string_view prefix) {
  if (!line.starts_with(prefix)) return {};
  std::string_view rest = line.substr(prefix.size());
  return rest.substr(0, rest.find(' '));
}

}  // namespace

void AnswerLedger::readHostOutput(const std::filesystem::path& file, bool killed) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    // "[   1.234s] text": the sample host's steps and callbacks.
    const auto stamp = line.find("s] ");
    if (line.starts_with("[") && stamp != std::string::npos) noteLine(line.substr(stamp + 3));
  }
  endRun(killed);
}

void AnswerLedger::noteLine(std::string_view line) {
  if (auto placement = wordAfter(line, "cacheVideo "); !placement.empty()) {
    open_.push_back({false, std::string(placement)});
    ++summary_.requests;
  } else if (placement = wordAfter(line, "showVideo "); !placement.empty()) {
    open_.push_back({true, std::string(placement)});
    ++summary_.requests;
  } else if (placement = wordAfter(line, "delegate: videoDidCache "); !placement.empty()) {
    answer(placement, true, false);
  } else if (placement = wordAfter(line, "delegate: videoWindowDidClose "); !placement.empty()) {
    answer(placement, false, true);
  } else if (placement = wordAfter(line, "delegate: videoDidFailToLoad "); !placement.empty()) {
    answer(placement, true, true);
  }
}

bool AnswerLedger::answer(std::string_view placement, bool cache, bool show) {
  auto waiting = std::find_if(open_.begin(), open_.end(), [&](const Open& request) {
    return request.placement == placement && (request.show ? show : cache);
  });
  if (waiting == open_.end()) {
    ++summary_.answeredTwice;
    return false;
  }
  open_.erase(waiting);
  ++summary_.answeredOnce;
  return true;
}

void AnswerLedger::endRun(bool killed) {
  (killed ? summary_.cutOff : summary_.neverAnswered) += open_.size();
  open_.clear();
}

}  // namespace zivora::soak
