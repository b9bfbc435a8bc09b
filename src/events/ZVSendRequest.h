#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// The one place that talks to the ad server: a form-encoded POST of
// "Params=<json>&md5=<md5 of the decoded json>", and the text utilities that
// prepare values for that body.
class ZVSendRequest {
 public:
  // Receives the reply object (null when there is none, or when a 200 reply
  // is not a JSON object) and the code: 200, or TS_HTTP_ERROR (-2) for any
  // other status, no response, or a failure while sending.
  using CallBack = std::function<void(const nlohmann::json* reply, int code)>;

  // Blocks for the whole exchange, then calls `callBack` exactly once on the
  // calling thread before returning. Run it on a background queue, never on
  // the main queue. An empty callBack is allowed.
  static void sendPost(std::optional<std::string_view> json, const CallBack& callBack) noexcept;

  // Percent-encodes the UTF-8 bytes: letters, digits, '-', '_', '.', '~'
  // stay; every other byte becomes %XX (a space is %20, never '+').
  static std::optional<std::string> urlEncode(std::optional<std::string_view> text) noexcept;

  // Decodes every %XX; '+' stays '+'. Bytes that are not valid UTF-8 give nil.
  static std::optional<std::string> urlDecode(std::optional<std::string_view> text) noexcept;

  // Lowercase hex MD5 of the UTF-8 bytes; "error-generate-md5" on failure.
  static std::string getMD5(std::optional<std::string_view> text) noexcept;

  // `url` with one more percent-encoded query item key=value after the
  // existing ones; nil when `url` is not an absolute URL.
  static std::optional<std::string> addArgumentToURL(std::string_view url, std::string_view key,
                                                     std::string_view value) noexcept;
};

}  // namespace zivora
