#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// Sends one stored analytics line to the analytics endpoint: converted to
// its wire form, posted as a form, the reply's acknowledgement checked and
// logged. The queue judges the outcome by the status code alone.
class ZVPHttpRequest {
 public:
  // Receives the reply text (unused by the queue) and the HTTP status, or
  // -2 when the line does not convert or nothing could be sent.
  using CallBack = std::function<void(const std::string* reply, long code)>;

  // Blocks for the whole exchange and calls `callBack` once before
  // returning. Run it on the queue's own serial queue.
  static void sendPost(std::string_view savedEvent, const CallBack& callBack) noexcept;
  // True when the reply, spaces removed, holds {"Status":"Accepted"}.
  static bool validateResponse(std::optional<std::string_view> response) noexcept;
  static std::string hashMD5(std::string_view text) noexcept;
  // The older way of adding the send time and a checksum to a line:
  // bo_ClientTime and bo_HashSum appended as the next numbered fields.
  static std::optional<std::string> addAdditionParams(std::string_view savedEvent) noexcept;

 private:
  static std::string endpoint();
  static std::optional<std::string> concatenateWithEvent(std::string event, const char* name,
                                                         const char* type, std::int64_t number,
                                                         std::string_view value);
};

}  // namespace zivora
