#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zivora::sandbox {

// A scripted fault for one request to the ad endpoint.
struct Misbehaviour {
  enum class Kind {
    HttpError,     // status 500 with an HTML page
    ErrorReply,    // 200 with {"error": errorCode}
    Garbage,       // 200 with text that is not JSON
    EmptyBody,     // 200 with no body
    JsonArray,     // 200 with a JSON array
    JsonScalar,    // 200 with a bare JSON number
    CloseMidBody,  // Content-Length announced, half the body sent, connection closed
    Stall,         // nothing sent until released or the server stops
    Delay,         // nothing sent for `delay`, then the normal answer
    HtmlPage,      // 200 with a whole HTML page, as a misconfigured proxy sends
    DeepNesting,   // 200 with an object whose one member nests 100000 arrays deep
    HugeReply,     // 200 with a valid JSON object of 24 MiB
  };

  Kind kind = Kind::HttpError;
  int errorCode = 1;
  // The request name it waits for ("getVideo", "clickAd" ...); empty takes
  // the next request of any name.
  std::string requestName;
  std::chrono::milliseconds delay{0};

  bool targets(std::string_view name) const { return requestName.empty() || requestName == name; }

  // The names used by the HTTP control endpoint: "http-error", "error-reply",
  // "garbage", "empty", "json-array", "json-scalar", "close-mid-body", "stall", "delay",
  // "html-page", "deep-nesting", "huge-reply".
  static std::optional<Kind> kindNamed(std::string_view name);
  static std::string_view nameOf(Kind kind);
};

}  // namespace zivora::sandbox
