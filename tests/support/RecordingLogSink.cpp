#include "support/RecordingLogSink.h"

#include <algorithm>

namespace zivora::test {

void RecordingLogSink::write(LogLevel level, std::string_view text) {
  std::lock_guard lock(mutex_);
  lines_.push_back({level, std::string(text)});
}

std::vector<RecordingLogSink::Line> RecordingLogSink::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<std::string> RecordingLogSink::texts() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const auto& line : lines_) texts.push_back(line.text);
  return texts;
}

bool RecordingLogSink::contains(std::string_view text) const {
  std::lock_guard lock(mutex_);
  return std::any_of(lines_.begin(), lines_.end(),
                     [&](const Line& line) { return line.text == text; });
}

void RecordingLogSink::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

}  // namespace zivora::test
