// Any text as a String parameter beside an Integer and a Double, through the
// line form and back to the wire form. The line is one line; it converts
// unless the text forges a field marker of the line; and where JSON can
// carry the text, the wire form read back by position gives it back.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPCustomParams.h"
#include "util/PercentEncoding.h"
#include "util/Utf8.h"
#include "util/ZVHash.h"

namespace {

// Control characters other than those the JSON escaping rewrites make the
// Params text invalid JSON; that is the record format's limit.
bool jsonCarries(std::string_view text) {
  for (unsigned char c : text)
    if (c < 0x20 && c != '\n' && c != '\r' && c != '\t' && c != '\b' && c != '\f') return false;
  return zivora::Utf8::isValid(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  zivora::ZVPCustomParams params;
  params.put("bo_AppId", "tessaro-profiling");
  params.put("text", text);
  params.put("count", std::int64_t{-42});
  params.put("ratio", 0.25);
  const std::string line = *params.toStr();
  if (line.find('\n') != std::string::npos) __builtin_trap();

  zivora::ZVPConvertSavedEventForSend converted(line, 1767225600);
  const bool forgesMarker = text.find("&p") != std::string::npos;
  if (!converted.getEvent()) {
    if (!forgesMarker) __builtin_trap();
    return 0;
  }
  const std::string& wire = *converted.getEvent();
  const auto paramsAt = wire.find("&Params=");
  const auto md5At = wire.rfind("&md5=");
  if (wire.rfind("AppId=tessaro-profiling&Params=", 0) != 0 || md5At == std::string::npos ||
      md5At < paramsAt)
    __builtin_trap();
  if (forgesMarker || !jsonCarries(text)) return 0;

  const auto start = paramsAt + 8;
  auto decoded =
      zivora::PercentEncoding::decode(std::string_view(wire).substr(start, md5At - start));
  if (!decoded || zivora::ZVHash::md5Hex(*decoded) != wire.substr(md5At + 5)) __builtin_trap();
  auto json = nlohmann::json::parse(*decoded, nullptr, false);
  if (json.is_discarded()) __builtin_trap();
  bool found = false;
  for (const auto& entry : json["s"])
    if (entry.contains("text")) found = entry["text"] == text;
  if (!found) __builtin_trap();
  return 0;
}
