#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zivora::sandbox {

// A scripted fault for one request under /files/.
struct FileMisbehaviour {
  enum class Kind {
    NotFound,             // 404
    RangeNotSatisfiable,  // 416 whatever was asked
    IgnoreRange,          // 200 with the whole file, also to a ranged request
    BadContentRange,      // 206 with the asked bytes and a Content-Range that says nothing
    CutAfter,             // the asked bytes announced, `bytes` of them sent, connection closed
    StallAfter,           // `bytes` sent, then nothing until released or the server stops
    DelayAfter,           // `bytes` sent, then nothing for `delay`, then the rest
    Endless,              // 200 without a length, then bytes until the client hangs up
    HugeLength,           // 200 announcing 1 TiB, then bytes until the client hangs up
  };

  Kind kind = Kind::NotFound;
  std::size_t bytes = 0;
  std::chrono::milliseconds delay{0};
  // The file it waits for; empty takes the next request for any file.
  std::string fileName{};

  bool targets(std::string_view name) const { return fileName.empty() || fileName == name; }

  // "not-found", "range-not-satisfiable", "ignore-range", "bad-content-range",
  // "cut-after", "stall-after", "delay-after", "endless", "huge-length".
  static std::optional<Kind> kindNamed(std::string_view name);
};

}  // namespace zivora::sandbox
