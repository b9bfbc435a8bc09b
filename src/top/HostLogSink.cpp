#include "top/HostLogSink.h"

#include <cstddef>
#include <utility>

namespace zivora {

HostLogSink::HostLogSink(std::function<void(ZivoraLogLevel, const std::string&)> write)
    : write_(std::move(write)) {}

void HostLogSink::write(LogLevel level, std::string_view text) {
  static constexpr ZivoraLogLevel kLevels[] = {ZivoraLogLevel::System, ZivoraLogLevel::Warning,
                                               ZivoraLogLevel::Debug};
  try {
    write_(kLevels[static_cast<std::size_t>(level)], std::string(text));
  } catch (...) {
    // The host's failure to log is not the SDK's to report: there is no
    // other place the line could go that the host would see.
  }
}

}  // namespace zivora
