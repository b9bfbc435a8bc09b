#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zivora::test {

// An analytics POST body read back the way the analytics endpoint reads it:
// by position (AppId up to "&Params=", Params up to the last "&md5="), the
// Params percent-decoded with '+' kept, then parsed as JSON.
struct AnalyticsBody {
  std::string appId;
  std::string paramsText;  // decoded
  nlohmann::json params;
  std::string md5;
  bool md5Valid = false;

  // Nothing when the body is not of that form or Params is not JSON.
  static std::optional<AnalyticsBody> parse(std::string_view body);

  // The value put under `name` in the array "s", "d" or "i"; null when it
  // is not there.
  nlohmann::json value(const char* array, const std::string& name) const;
  std::string text(const std::string& name) const;
  std::int64_t integer(const std::string& name) const;
  std::string eventName() const { return text("bo_Name"); }
};

}  // namespace zivora::test
