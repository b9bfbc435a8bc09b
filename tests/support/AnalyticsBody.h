#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/HttpClient.h"

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
  // The bodies of the requests (of those to `url`, when given) in order; one
  // that does not parse or whose md5 does not match fails the test.
  static std::vector<AnalyticsBody> parseAll(const std::vector<platform::HttpRequest>& requests,
                                             std::string_view url = {});

  // The value put under `name` in the array "s", "d" or "i"; null when it
  // is not there.
  nlohmann::json value(const char* array, const std::string& name) const;
  std::string text(const std::string& name) const;
  std::int64_t integer(const std::string& name) const;
  std::string eventName() const { return text("bo_Name"); }
};

}  // namespace zivora::test
