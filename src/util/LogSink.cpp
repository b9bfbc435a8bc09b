#include "util/LogSink.h"

#include <unistd.h>

#include <string>

namespace zivora {

namespace {

class StandardErrorSink final : public LogSink {
 public:
  void write(LogLevel, std::string_view text) override {
    // One write() per line so lines from several threads never interleave.
    std::string line;
    line.reserve(text.size() + 1);
    line.append(text).push_back('\n');
    std::string_view rest(line);
    while (!rest.empty()) {
      ssize_t n = ::write(STDERR_FILENO, rest.data(), rest.size());
      if (n <= 0) return;
      rest.remove_prefix(static_cast<size_t>(n));
    }
  }
};

}  // namespace

std::shared_ptr<LogSink> LogSink::standardError() {
  // Never destroyed: the SDK's threads may still log while the process exits.
  static const auto* sink = new std::shared_ptr<LogSink>(std::make_shared<StandardErrorSink>());
  return *sink;
}

}  // namespace zivora
