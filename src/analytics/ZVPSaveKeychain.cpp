#include "analytics/ZVPSaveKeychain.h"

#include <fmt/format.h>

#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/Utf8.h"
#include "util/ZVException.h"
#include "zivora/ZVConstants.h"

namespace zivora {

namespace {

constexpr char kClass[] = "ZVPSaveKeychain";
constexpr int kAccessibleAfterFirstUnlock = 1;

platform::SecretStore& store() {
  auto context = Context::current();
  if (!context) throw ZVException("NSInternalInconsistencyException", "SDK not initialised");
  return *context->secretStore();
}

void checkArguments(const char* operation, const std::string& key, const std::string& service) {
  if (service.empty())
    throw ZVException("NSInvalidArgumentException",
                      fmt::format("{} service argument cannot be empty", operation));
  if (key.empty())
    throw ZVException("NSInvalidArgumentException",
                      fmt::format("{} key argument cannot be empty", operation));
}

void fill(ZVPKeychainError* slot, std::optional<ZVPKeychainError> error) {
  if (slot && error) *slot = std::move(*error);
}

// The stored form of a string is its UTF-8 bytes; bytes that are not UTF-8
// cannot have come from a string.
std::string unarchive(const std::string& data) {
  if (!Utf8::isValid(data))
    throw ZVException("NSInvalidUnarchiveOperationException", "The stored item is not UTF-8 text");
  return data;
}

}  // namespace

std::optional<std::string> ZVPSaveKeychain::itemForKey(const std::string& key,
                                                       const std::string& service,
                                                       ZVPKeychainError* error) noexcept {
  return itemForKey(key, service, std::string(), error);
}

std::optional<std::string> ZVPSaveKeychain::itemForKey(const std::string& key,
                                                       const std::string& service,
                                                       const std::string& accessGroup,
                                                       ZVPKeychainError* error) noexcept {
  return guarded(
      kClass, "itemForKey", std::optional<std::string>(), [&]() -> std::optional<std::string> {
        auto data = rawDataForKey(key, service, accessGroup, error);
        if (!data) return std::nullopt;
        try {
          return unarchive(*data);
        } catch (const ZVException& exception) {
          fill(error, ZVPKeychainError{TSPSaveKeychainErrorDomain, 0, exception.reason()});
          return std::nullopt;
        }
      });
}

std::optional<std::string> ZVPSaveKeychain::rawDataForKey(const std::string& key,
                                                          const std::string& service,
                                                          ZVPKeychainError* error) noexcept {
  return rawDataForKey(key, service, std::string(), error);
}

std::optional<std::string> ZVPSaveKeychain::rawDataForKey(const std::string& key,
                                                          const std::string& service,
                                                          const std::string& accessGroup,
                                                          ZVPKeychainError* error) noexcept {
  return guarded(kClass, "rawDataForKey", std::optional<std::string>(),
                 [&]() -> std::optional<std::string> {
                   auto item = _itemAttributesAndDataForKey(key, service, accessGroup, error);
                   if (!item) return std::nullopt;
                   return std::move(item->data);
                 });
}

bool ZVPSaveKeychain::saveItem(const std::string& item, const std::string& key,
                               const std::string& service, ZVPKeychainError* error) noexcept {
  return saveItem(item, key, service, std::string(), kAccessibleAfterFirstUnlock, error);
}

bool ZVPSaveKeychain::saveItem(const std::string& item, const std::string& key,
                               const std::string& service, const std::string& accessGroup,
                               int /*accessibility*/, ZVPKeychainError* error) noexcept {
  return guarded(kClass, "saveItem", false, [&] {
    checkArguments(
        "+[ZVPSaveKeychain saveItem:forKey:forService:inAccessGroup:"
        "withAccessibility:error:]",
        key, service);
    auto query = _baseQueryDictionaryForKey(key, service, accessGroup);
    auto& secrets = store();
    std::string existing;
    int code = secrets.find(query, existing);
    if (code == platform::kSecretSuccess) {
      code = secrets.update(query, item);
    } else if (code == platform::kSecretItemNotFound) {
      code = secrets.add(query, item);
    }
    fill(error, _errorForResultCode(code, key, service));
    return code == platform::kSecretSuccess;
  });
}

bool ZVPSaveKeychain::deleteItemForKey(const std::string& key, const std::string& service,
                                       ZVPKeychainError* error) noexcept {
  return deleteItemForKey(key, service, std::string(), error);
}

bool ZVPSaveKeychain::deleteItemForKey(const std::string& key, const std::string& service,
                                       const std::string& accessGroup,
                                       ZVPKeychainError* error) noexcept {
  return guarded(kClass, "deleteItemForKey", false, [&] {
    checkArguments("+[ZVPSaveKeychain deleteItemForKey:forService:inAccessGroup:error:]", key,
                   service);
    int code = store().remove(_baseQueryDictionaryForKey(key, service, accessGroup));
    if (code == platform::kSecretItemNotFound) {
      fill(error, ZVPKeychainError{TSPSaveKeychainErrorDomain, code,
                                   fmt::format("Could not delete item with key '{}' for service "
                                               "'{}' from the keychain because it does not exist.",
                                               key, service)});
    } else {
      fill(error, _errorForResultCode(code, key, service));
    }
    return code == platform::kSecretSuccess;
  });
}

platform::SecretItemKey ZVPSaveKeychain::_baseQueryDictionaryForKey(
    const std::string& key, const std::string& service, const std::string& accessGroup) noexcept {
  return guarded(kClass, "_baseQueryDictionaryForKey", platform::SecretItemKey(), [&] {
    auto context = Context::current();
    return platform::SecretItemKey{context ? context->host().applicationName : std::string(),
                                   service, key, accessGroup};
  });
}

std::optional<ZVPKeychainItem> ZVPSaveKeychain::_itemAttributesAndDataForKey(
    const std::string& key, const std::string& service, const std::string& accessGroup,
    ZVPKeychainError* error) noexcept {
  return guarded(kClass, "_itemAttributesAndDataForKey", std::optional<ZVPKeychainItem>(),
                 [&]() -> std::optional<ZVPKeychainItem> {
                   checkArguments(
                       "+[ZVPSaveKeychain _itemAttributesAndDataForKey:forService:"
                       "inAccessGroup:error:]",
                       key, service);
                   ZVPKeychainItem item{_baseQueryDictionaryForKey(key, service, accessGroup), {}};
                   int code = store().find(item.attributes, item.data);
                   if (code != platform::kSecretSuccess) {
                     fill(error, _errorForResultCode(code, key, service));
                     return std::nullopt;
                   }
                   return item;
                 });
}

std::optional<ZVPKeychainError> ZVPSaveKeychain::_errorForResultCode(
    int code, const std::string& key, const std::string& service) noexcept {
  return guarded(kClass, "_errorForResultCode", std::optional<ZVPKeychainError>(),
                 [&]() -> std::optional<ZVPKeychainError> {
                   if (code == platform::kSecretSuccess) return std::nullopt;
                   std::string text;
                   switch (code) {
                     case platform::kSecretInteractionNotAllowed:
                       text = fmt::format(
                           "Interaction with key '{}' for service '{}' was not allowed. It is "
                           "possible that the item is only accessible when the device is "
                           "unlocked and this query is happening when the app is in the "
                           "background. Double-check your item permissions.",
                           key, service);
                       break;
                     case platform::kSecretItemNotFound:
                       text = fmt::format(
                           "Item with key '{}' for service '{}' could not be found in the "
                           "keychain.",
                           key, service);
                       break;
                     case platform::kSecretDuplicateItem:
                       text = fmt::format(
                           "Item with key '{}' for service '{}' already exists in the keychain.",
                           key, service);
                       break;
                     default:
                       text =
                           "This is a undefined error. Check SecBase.h or Apple's iOS Developer "
                           "Library for more information on this Keychain Services error code.";
                   }
                   return ZVPKeychainError{TSPSaveKeychainErrorDomain, code, std::move(text)};
                 });
}

}  // namespace zivora
