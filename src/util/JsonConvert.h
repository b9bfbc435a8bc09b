#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// How the SDK reads values out of server replies and writes request bodies.
// The rules follow the loosely typed reader the ad server was built
// against: numbers and booleans are interchangeable, strings are read by
// their leading characters, and presence means "the key exists", null
// included. Conversions that have no answer throw ZVException, which the
// calling operation's guard turns into its neutral result.
class JsonConvert {
 public:
  // How deep a reply's arrays and objects may nest.
  static constexpr int kMaxDepth = 256;

  // Parses a reply; only a JSON object nested at most kMaxDepth levels
  // counts (anything else gives nullopt).
  static std::optional<nlohmann::json> parseObject(std::string_view text);

  // True when `object` is an object that has `key`, whatever its value.
  static bool has(const nlohmann::json& object, std::string_view key);

  // JSON numbers and booleans are numbers; strings are not.
  static bool isNumber(const nlohmann::json& value);

  // A number is true when non-zero; a string when its first character after
  // spaces, a sign and zeros is one of Y y T t 1-9. Throws for null, arrays
  // and objects.
  static bool boolValue(const nlohmann::json& value);

  // A number truncated toward zero (saturating at the int64 range); a string
  // by its leading [sign]digits, else 0. Throws for null, arrays and objects.
  static std::int64_t integerValue(const nlohmann::json& value);

  // A configuration value as stored text: strings as they are, numbers as
  // their shortest decimal text, booleans as "1"/"0". Throws for null,
  // arrays and objects, so a setter refuses them inside its own guard.
  static std::string textValue(const nlohmann::json& value);

  // The text "%@" prints for a value: "(null)" for nil, "<null>" for JSON
  // null, "1"/"0" for booleans, the shortest decimal for numbers.
  static std::string describe(const nlohmann::json* value);

  // Serialises a request body: compact, "/" written as "\/", integers as
  // integers, UTF-8 kept as is. Throws on NaN or infinity.
  static std::string serialize(const nlohmann::json& value);
};

}  // namespace zivora
