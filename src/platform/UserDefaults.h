#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zivora::platform {

class KeyValueStore;

// One named user-defaults suite: typed values by string key, persisted in
// the shared key-value database. Reads convert between types as the
// platform's user defaults do (a stored number read as a string gives its
// decimal text, a string read as an integer gives its leading digits).
// Every getter answers std::nullopt when the key is absent (nil); callers
// that want the platform's zero or NO write `.value_or(0)`.
//
// Writes are committed before a setter returns and answer false (logged)
// when they fail. Thread-safe; nothing throws.
class UserDefaults {
 public:
  UserDefaults(std::shared_ptr<KeyValueStore> database, std::string suiteName);

  const std::string& suiteName() const { return suiteName_; }

  // A string as is; a number as its shortest decimal text; a boolean as
  // "1" or "0"; nullopt for arrays and objects.
  std::optional<std::string> stringForKey(std::string_view key) const noexcept;
  // A number truncated toward zero (booleans 1 and 0); a string by its
  // leading [spaces][sign]digits, else 0; nullopt for arrays and objects.
  std::optional<std::int64_t> integerForKey(std::string_view key) const noexcept;
  // A number as is; a string by its leading decimal number, else 0.
  std::optional<double> doubleForKey(std::string_view key) const noexcept;
  // A number is true when non-zero; a string when its first character after
  // spaces, a sign and zeros is one of Y y T t 1-9.
  std::optional<bool> boolForKey(std::string_view key) const noexcept;
  // The stored value, whatever its type.
  std::optional<nlohmann::json> objectForKey(std::string_view key) const noexcept;

  // The const char* overload keeps a string literal from binding to bool; a
  // null pointer removes the key, as setting nil does. The int overload
  // keeps a plain integer from being ambiguous.
  bool setValue(std::string_view key, const std::string& value) noexcept;
  bool setValue(std::string_view key, const char* value) noexcept;
  bool setValue(std::string_view key, std::int64_t value) noexcept;
  bool setValue(std::string_view key, int value) noexcept;
  bool setValue(std::string_view key, double value) noexcept;
  bool setValue(std::string_view key, bool value) noexcept;
  // Arrays and objects; null removes the key.
  bool setObject(std::string_view key, const nlohmann::json& value) noexcept;

  bool removeObjectForKey(std::string_view key) noexcept;

  // Every write is committed before it returns, so there is nothing left to
  // flush.
  bool synchronize() noexcept { return true; }

 private:
  // Builds the value (which may allocate) and writes it, inside one catch.
  template <class MakeValue>
  bool store(std::string_view key, MakeValue&& makeValue) noexcept;

  std::shared_ptr<KeyValueStore> database_;
  std::string suiteName_;
};

}  // namespace zivora::platform
