#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "util/LogSink.h"

namespace zivora::test {

// Keeps every line written, for exact-text assertions.
class RecordingLogSink final : public LogSink {
 public:
  struct Line {
    LogLevel level;
    std::string text;
  };

  void write(LogLevel level, std::string_view text) override;

  std::vector<Line> lines() const;
  std::vector<std::string> texts() const;
  bool contains(std::string_view text) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

}  // namespace zivora::test
