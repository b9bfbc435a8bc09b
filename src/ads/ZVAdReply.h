#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace zivora {

// Reads the fields of an ad (the "getVideo" reply, kept whole) the way the
// placement controller uses them. Pure: no queues, no context, no I/O, so
// any reply the server can send is safe to try on it. A value that has no
// reading of the wanted kind (an array where a bool belongs) throws
// ZVException, which the calling operation's guard turns into its neutral
// result; nothing else escapes.
class ZVAdReply {
 public:
  // The refusal code when the reply holds "error".
  static std::optional<std::uint64_t> error(const nlohmann::json& ad);
  // "skipVideo" when it is a number; -1 (never) otherwise.
  static float skipAfter(const nlohmann::json& ad);
  // "soundEnable" read as a bool; true when absent.
  static bool soundEnable(const nlohmann::json& ad);

  // Addresses count only as text: anything else is treated as missing.
  static std::optional<std::string> imageURL(const nlohmann::json& ad);
  static std::optional<std::string> videoURL(const nlohmann::json& ad);
  // "currencyIconURL" inside the "motivationInfo" object.
  static std::optional<std::string> currencyIconURL(const nlohmann::json& ad);

  // Values passed on as text (an ad id may come as a number); "" when
  // absent or null.
  static std::string adId(const nlohmann::json& ad);
  static std::string targetURL(const nlohmann::json& ad);
  // The target is opened as it is, without resolving a tracker's redirect.
  static bool dontOverrideRedirection(const nlohmann::json& ad);

  // Both the video and the picture are named (whatever their values).
  static bool isValid(const nlohmann::json& ad);

 private:
  static std::optional<std::string> textOf(const nlohmann::json& object, const char* key);
  static std::string describeOf(const nlohmann::json& object, const char* key);
};

}  // namespace zivora
