#include "util/PercentEncoding.h"

#include <fmt/format.h>

#include <iterator>

#include "util/Utf8.h"

namespace zivora {
namespace {

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == '~';
}

bool allowed(unsigned char c, PercentEncoding::Set set) {
  if (isUnreserved(c)) return true;
  constexpr std::string_view kQuery = "!$&'()*+,;=:@/?";
  constexpr std::string_view kLegalOnly = "#[]";
  switch (set) {
    case PercentEncoding::Set::Unreserved:
      return false;
    case PercentEncoding::Set::URLQueryAllowed:
      return kQuery.find(static_cast<char>(c)) != std::string_view::npos;
    case PercentEncoding::Set::URLLegal:
      return kQuery.find(static_cast<char>(c)) != std::string_view::npos ||
             kLegalOnly.find(static_cast<char>(c)) != std::string_view::npos;
  }
  return false;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string PercentEncoding::encode(std::string_view text, Set set) {
  std::string encoded;
  encoded.reserve(text.size() * 3);
  for (unsigned char c : text) {
    if (c != 0 && allowed(c, set)) {
      encoded.push_back(static_cast<char>(c));
    } else {
      fmt::format_to(std::back_inserter(encoded), "%{:02X}", c);
    }
  }
  return encoded;
}

std::optional<std::string> PercentEncoding::decode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    int high = 0, low = 0;
    if (c == '%' && i + 2 < text.size() && (high = hexDigit(text[i + 1])) >= 0 &&
        (low = hexDigit(text[i + 2])) >= 0) {
      decoded.push_back(static_cast<char>(high * 16 + low));
      i += 2;
    } else {
      decoded.push_back(c);
    }
  }
  if (!Utf8::isValid(decoded)) return std::nullopt;
  return decoded;
}

}  // namespace zivora
