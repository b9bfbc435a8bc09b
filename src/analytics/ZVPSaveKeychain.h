#pragma once

#include <optional>
#include <string>

#include "platform/SecretStore.h"

namespace zivora {

// An error of the keychain wrapper: its domain, the store's result code and
// the text that explains it.
struct ZVPKeychainError {
  std::string domain;
  int code = 0;
  std::string description;
};

// One stored item: the attributes it was found under and its bytes.
struct ZVPKeychainItem {
  platform::SecretItemKey attributes;
  std::string data;
};

// Generic-password items (strings by key and service) in the installed
// context's secret store. Every operation is guarded: a failure answers
// nullopt or false and, where an error slot is given, fills it.
class ZVPSaveKeychain {
 public:
  static std::optional<std::string> itemForKey(const std::string& key, const std::string& service,
                                               ZVPKeychainError* error = nullptr) noexcept;
  static std::optional<std::string> itemForKey(const std::string& key, const std::string& service,
                                               const std::string& accessGroup,
                                               ZVPKeychainError* error = nullptr) noexcept;

  static std::optional<std::string> rawDataForKey(const std::string& key,
                                                  const std::string& service,
                                                  ZVPKeychainError* error = nullptr) noexcept;
  static std::optional<std::string> rawDataForKey(const std::string& key,
                                                  const std::string& service,
                                                  const std::string& accessGroup,
                                                  ZVPKeychainError* error = nullptr) noexcept;

  // Accessibility 1 is "after first unlock", anything else "when unlocked";
  // the Secret Service has one lock per collection, so both behave alike.
  static bool saveItem(const std::string& item, const std::string& key, const std::string& service,
                       ZVPKeychainError* error = nullptr) noexcept;
  static bool saveItem(const std::string& item, const std::string& key, const std::string& service,
                       const std::string& accessGroup, int accessibility,
                       ZVPKeychainError* error = nullptr) noexcept;

  static bool deleteItemForKey(const std::string& key, const std::string& service,
                               ZVPKeychainError* error = nullptr) noexcept;
  static bool deleteItemForKey(const std::string& key, const std::string& service,
                               const std::string& accessGroup,
                               ZVPKeychainError* error = nullptr) noexcept;

  static platform::SecretItemKey _baseQueryDictionaryForKey(
      const std::string& key, const std::string& service, const std::string& accessGroup) noexcept;
  // An empty key or service is reported and answers nullopt.
  static std::optional<ZVPKeychainItem> _itemAttributesAndDataForKey(
      const std::string& key, const std::string& service, const std::string& accessGroup,
      ZVPKeychainError* error) noexcept;
  static std::optional<ZVPKeychainError> _errorForResultCode(int code, const std::string& key,
                                                             const std::string& service) noexcept;
};

}  // namespace zivora
