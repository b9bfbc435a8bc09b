#include "util/JsonConvert.h"

#include <fmt/format.h>

#include <cctype>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "util/ZVException.h"

namespace zivora {

namespace {

[[noreturn]] void unconvertible(const nlohmann::json& value, const char* wanted) {
  throw ZVException("NSInvalidArgumentException",
                    fmt::format("a JSON {} has no {} value", value.type_name(), wanted));
}

std::int64_t truncateToInt64(double number) {
  if (std::isnan(number)) return 0;
  constexpr double kMax = 9223372036854775807.0;
  if (number >= kMax) return std::numeric_limits<std::int64_t>::max();
  if (number <= -kMax) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

std::int64_t leadingInteger(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
  bool negative = false;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
  std::int64_t result = 0;
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at) {
    int digit = text[at] - '0';
    if (result > (kMax - digit) / 10)
      return negative ? std::numeric_limits<std::int64_t>::min() : kMax;
    result = result * 10 + digit;
  }
  return negative ? -result : result;
}

bool leadingTruth(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  while (at < text.size() && text[at] == '0') ++at;
  if (at == text.size()) return false;
  char first = text[at];
  return first == 'Y' || first == 'y' || first == 'T' || first == 't' ||
         (first >= '1' && first <= '9');
}

std::string shortestDecimal(const nlohmann::json& number) {
  if (number.is_number_integer()) {
    return number.is_number_unsigned() ? fmt::format("{}", number.get<std::uint64_t>())
                                       : fmt::format("{}", number.get<std::int64_t>());
  }
  return fmt::format("{}", number.get<double>());
}

void rejectNonFinite(const nlohmann::json& value) {
  if (value.is_number_float() && !std::isfinite(value.get<double>())) {
    throw ZVException("NSInvalidArgumentException",
                      "Invalid number value (NaN or infinity) in JSON write");
  }
  if (value.is_structured()) {
    for (const auto& member : value) rejectNonFinite(member);
  }
}

// Whether arrays and objects nest deeper than `limit` anywhere in `text`
// (brackets inside strings do not count). Parsing is iterative, but copying,
// comparing and writing a document recurse once per level: a reply nested a
// hundred thousand levels deep would overflow a thread's stack there.
bool nestsDeeperThan(std::string_view text, int limit) {
  int depth = 0;
  bool inString = false, escaped = false;
  for (const char c : text) {
    if (inString) {
      if (escaped)
        escaped = false;
      else if (c == '\\')
        escaped = true;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

}  // namespace

std::optional<nlohmann::json> JsonConvert::parseObject(std::string_view text) {
  if (nestsDeeperThan(text, kMaxDepth)) return std::nullopt;
  auto parsed = nlohmann::json::parse(text, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
  return parsed;
}

bool JsonConvert::has(const nlohmann::json& object, std::string_view key) {
  return object.is_object() && object.contains(key);
}

bool JsonConvert::isNumber(const nlohmann::json& value) {
  return value.is_number() || value.is_boolean();
}

bool JsonConvert::boolValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_float()) return value.get<double>() != 0.0;
  if (value.is_number()) return value.get<std::int64_t>() != 0;
  if (value.is_string()) return leadingTruth(value.get_ref<const std::string&>());
  unconvertible(value, "boolean");
}

std::int64_t JsonConvert::integerValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_number_float()) return truncateToInt64(value.get<double>());
  if (value.is_number_unsigned()) return static_cast<std::int64_t>(value.get<std::uint64_t>());
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (value.is_string()) return leadingInteger(value.get_ref<const std::string&>());
  unconvertible(value, "integer");
}

std::string JsonConvert::textValue(const nlohmann::json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number()) return shortestDecimal(value);
  unconvertible(value, "text");
}

std::string JsonConvert::describe(const nlohmann::json* value) {
  if (!value) return "(null)";
  if (value->is_null()) return "<null>";
  if (value->is_string() || value->is_boolean() || value->is_number()) return textValue(*value);
  return value->dump();
}

std::string JsonConvert::serialize(const nlohmann::json& value) {
  rejectNonFinite(value);
  std::string text = value.dump();
  // '/' only ever stands inside strings, so escaping every one is exact.
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '/') escaped.push_back('\\');
    escaped.push_back(c);
  }
  return escaped;
}

}  // namespace zivora
