#pragma once

#include <memory>
#include <string_view>

namespace zivora {

// Where log lines go. System lines are always written (the facade's
// messages and other unconditional lines); Warning and Debug lines come
// from ZVLog and ZVPLog and obey their switches before reaching the sink.
enum class LogLevel { System, Warning, Debug };

class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(LogLevel level, std::string_view text) = 0;

  // The default sink: one line per message on standard error.
  static std::shared_ptr<LogSink> standardError();
};

}  // namespace zivora
