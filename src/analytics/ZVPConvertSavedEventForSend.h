#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// Turns a stored analytics line ("p1name=…&p1type=…&p1value=…&p2name=…")
// into the POST body "AppId=<id>&Params=<json>&md5=<md5>". The JSON holds
// one single-key object per parameter in the arrays "s", "d" and "i";
// "&", "=" and "+" inside it stay unencoded, so the receiver reads the body
// by position, not with a form decoder.
class ZVPConvertSavedEventForSend {
 public:
  // Parses at once. `nowSeconds` is the send time put as bo_ClientTime.
  ZVPConvertSavedEventForSend(std::string_view savedEvent, std::int64_t nowSeconds);

  // The wire text; nil when the line did not parse or carried no bo_AppId.
  const std::optional<std::string>& getEvent() const { return event_; }
  bool isError() const { return error_; }

  // Percent-decodes a string value, escapes it for a JSON string and
  // percent-encodes the result with the URL-query set (a quote travels as
  // %22, a backslash as %5C, a space as %20).
  static std::optional<std::string> convertForJSON(std::string_view value);
  static std::string getMD5(std::optional<std::string_view> text);

  // Lines stop being read after this many parameters.
  static constexpr int kMaxParameters = 9999;

 private:
  void parse(std::string_view line);
  void build(std::int64_t nowSeconds);
  std::string json() const;

  std::optional<std::string> event_;
  bool error_ = false;
  std::optional<std::string> appId_;
  std::map<std::string, std::string> mapDouble_;
  std::map<std::string, std::string> mapString_;
  std::map<std::string, std::string> mapLong_;
};

}  // namespace zivora
