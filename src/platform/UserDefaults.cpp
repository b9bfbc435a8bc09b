#include "platform/UserDefaults.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/KeyValueStore.h"
#include "util/ZVLog.h"

namespace zivora::platform {

namespace {

using Json = nlohmann::json;

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string_view skipSpaces(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  return text;
}

// The leading [spaces][sign]digits of a text, saturating at the int64
// range; 0 when there are none.
std::int64_t leadingInteger(std::string_view text) {
  text = skipSpaces(text);
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::int64_t value = 0;
  constexpr auto max = std::numeric_limits<std::int64_t>::max();
  for (char c : text) {
    if (c < '0' || c > '9') break;
    int digit = c - '0';
    if (value > (max - digit) / 10)
      return negative ? std::numeric_limits<std::int64_t>::min() : max;
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

// The leading decimal number of a text, locale-independent; 0 when there is
// none.
double leadingDouble(std::string_view text) {
  text = skipSpaces(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  (void)end;
  return error == std::errc() ? value : 0.0;
}

bool leadingBool(std::string_view text) {
  text = skipSpaces(text);
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  if (text.empty()) return false;
  char c = text.front();
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

double numberValue(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
  return value.get<double>();
}

std::int64_t truncated(double value) {
  if (std::isnan(value)) return 0;
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (value >= limit) return std::numeric_limits<std::int64_t>::max();
  if (value < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

bool isScalarNumber(const Json& value) { return value.is_number() || value.is_boolean(); }

// Reads the key's value and converts it; nullopt when absent or when the
// conversion has no answer.
template <class T, class Convert>
std::optional<T> readAs(const UserDefaults& defaults, std::string_view key,
                        Convert&& convert) noexcept {
  try {
    auto value = defaults.objectForKey(key);
    if (!value) return std::nullopt;
    return convert(*value);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

UserDefaults::UserDefaults(std::shared_ptr<KeyValueStore> database, std::string suiteName)
    : database_(std::move(database)), suiteName_(std::move(suiteName)) {}

std::optional<Json> UserDefaults::objectForKey(std::string_view key) const noexcept {
  if (!database_) return std::nullopt;
  return database_->read(suiteName_, key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const noexcept {
  return readAs<std::string>(*this, key, [](const Json& value) -> std::optional<std::string> {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return std::string(value.get<bool>() ? "1" : "0");
    if (value.is_number_unsigned()) return fmt::format("{}", value.get<std::uint64_t>());
    if (value.is_number_integer()) return fmt::format("{}", value.get<std::int64_t>());
    if (value.is_number_float()) return fmt::format("{}", value.get<double>());
    return std::nullopt;
  });
}

std::optional<std::int64_t> UserDefaults::integerForKey(std::string_view key) const noexcept {
  return readAs<std::int64_t>(*this, key, [](const Json& value) -> std::optional<std::int64_t> {
    if (value.is_string()) return leadingInteger(value.get_ref<const std::string&>());
    if (value.is_number_integer() && !value.is_number_unsigned()) {
      return value.get<std::int64_t>();
    }
    if (isScalarNumber(value)) return truncated(numberValue(value));
    return std::nullopt;
  });
}

std::optional<double> UserDefaults::doubleForKey(std::string_view key) const noexcept {
  return readAs<double>(*this, key, [](const Json& value) -> std::optional<double> {
    if (value.is_string()) return leadingDouble(value.get_ref<const std::string&>());
    if (isScalarNumber(value)) return numberValue(value);
    return std::nullopt;
  });
}

std::optional<bool> UserDefaults::boolForKey(std::string_view key) const noexcept {
  return readAs<bool>(*this, key, [](const Json& value) -> std::optional<bool> {
    if (value.is_string()) return leadingBool(value.get_ref<const std::string&>());
    if (isScalarNumber(value)) return numberValue(value) != 0.0;
    return std::nullopt;
  });
}

bool UserDefaults::setObject(std::string_view key, const Json& value) noexcept {
  if (value.is_null()) return removeObjectForKey(key);
  if (!database_) return false;
  return database_->write(suiteName_, key, value);
}

template <class MakeValue>
bool UserDefaults::store(std::string_view key, MakeValue&& makeValue) noexcept {
  try {
    return setObject(key, makeValue());
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[UserDefaults][setValue] {}/{}: {}", suiteName_, key, error.what());
    return false;
  }
}

bool UserDefaults::setValue(std::string_view key, const std::string& value) noexcept {
  return store(key, [&] { return Json(value); });
}

bool UserDefaults::setValue(std::string_view key, const char* value) noexcept {
  if (!value) return removeObjectForKey(key);
  return store(key, [&] { return Json(value); });
}

bool UserDefaults::setValue(std::string_view key, std::int64_t value) noexcept {
  return store(key, [&] { return Json(value); });
}

bool UserDefaults::setValue(std::string_view key, int value) noexcept {
  return setValue(key, static_cast<std::int64_t>(value));
}

bool UserDefaults::setValue(std::string_view key, double value) noexcept {
  return store(key, [&] { return Json(value); });
}

bool UserDefaults::setValue(std::string_view key, bool value) noexcept {
  return store(key, [&] { return Json(value); });
}

bool UserDefaults::removeObjectForKey(std::string_view key) noexcept {
  if (!database_) return false;
  return database_->remove(suiteName_, key);
}

}  // namespace zivora::platform
