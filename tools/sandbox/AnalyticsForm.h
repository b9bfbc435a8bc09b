#pragma once

#include <string>
#include <string_view>

namespace zivora::sandbox {

// The analytics body: "AppId=<id>&Params=<json>&md5=<md5>". Params keeps
// '&', '=' and '+' unencoded, so it is read by position, not with a form
// decoder: AppId up to "&Params=", Params up to the last "&md5=".
struct AnalyticsForm {
  bool wellFormed = false;
  std::string appId;
  // Params after percent-decoding ('+' stays '+').
  std::string params;
  std::string md5;
  bool md5Valid = false;

  static AnalyticsForm parse(std::string_view body);
};

}  // namespace zivora::sandbox
