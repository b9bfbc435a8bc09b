#pragma once

#include <optional>
#include <string>

namespace zivora::platform {

// Result codes of the secret store, the values the keychain wrapper turns
// into its error texts.
inline constexpr int kSecretSuccess = 0;
inline constexpr int kSecretInteractionNotAllowed = -25308;
inline constexpr int kSecretItemNotFound = -25300;
inline constexpr int kSecretDuplicateItem = -25299;
// Any other failure (no store, a write that did not happen).
inline constexpr int kSecretNotAvailable = -25291;

// Names one secret item. The application name keeps two host applications
// of one user apart: the stores are user-wide.
struct SecretItemKey {
  std::string application;
  std::string service;
  std::string account;
  // Empty: no access group.
  std::string accessGroup;
};

// A store of small secret byte strings, one per key. Implementations are
// thread-safe and never throw.
class SecretStore {
 public:
  virtual ~SecretStore() = default;

  // kSecretSuccess with the bytes in `data`, or a failure code.
  virtual int find(const SecretItemKey& key, std::string& data) noexcept = 0;
  // Fails with kSecretDuplicateItem when the item exists.
  virtual int add(const SecretItemKey& key, const std::string& data) noexcept = 0;
  // Fails with kSecretItemNotFound when the item does not exist.
  virtual int update(const SecretItemKey& key, const std::string& data) noexcept = 0;
  virtual int remove(const SecretItemKey& key) noexcept = 0;
  // For the log: "Secret Service" or "file store".
  virtual std::string description() const = 0;
};

}  // namespace zivora::platform
