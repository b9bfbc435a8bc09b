#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "util/LogSink.h"
#include "zivora/HostOptions.h"

namespace zivora {

// The host's log function as the SDK's log sink: every line with its level.
// A host function that throws loses that line; the SDK's work goes on.
class HostLogSink final : public LogSink {
 public:
  explicit HostLogSink(std::function<void(ZivoraLogLevel, const std::string&)> write);
  void write(LogLevel level, std::string_view text) override;

 private:
  std::function<void(ZivoraLogLevel, const std::string&)> write_;
};

}  // namespace zivora
