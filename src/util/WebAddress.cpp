#include "util/WebAddress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "util/ZVLog.h"

namespace zivora {
namespace {

constexpr std::size_t kLoggedLength = 200;

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(), [](char lower, char c) {
           return std::tolower(static_cast<unsigned char>(c)) == lower;
         });
}

}  // namespace

std::string WebAddress::printable(std::string_view url) {
  std::string shown(url.substr(0, kLoggedLength));
  for (char& c : shown) {
    if (c < 0x20 || c > 0x7e) c = '?';
  }
  return shown;
}

bool WebAddress::isWeb(std::string_view url) {
  const bool printableAscii =
      std::all_of(url.begin(), url.end(), [](char c) { return c > 0x20 && c < 0x7f; });
  if (!printableAscii) return false;
  std::string_view rest;
  if (startsWithNoCase(url, "https://"))
    rest = url.substr(8);
  else if (startsWithNoCase(url, "http://"))
    rest = url.substr(7);
  else
    return false;
  return !rest.empty() && rest.front() != '/';
}

std::optional<std::string> WebAddress::accepted(std::optional<std::string> url,
                                                std::string_view field) {
  if (!url || isWeb(*url)) return url;
  ZVLog::system(fmt::format("[Zivora] Refused the {} address, not http or https: {}", field,
                            printable(*url)));
  return std::nullopt;
}

}  // namespace zivora
