#pragma once

#include <map>
#include <mutex>
#include <string>
#include <tuple>

#include "platform/SecretStore.h"

namespace zivora::test {

// A secret store in memory that counts writes and can be told to answer
// every call with one failure code (a locked keyring, say).
class MemorySecretStore final : public platform::SecretStore {
 public:
  int find(const platform::SecretItemKey& key, std::string& data) noexcept override;
  int add(const platform::SecretItemKey& key, const std::string& data) noexcept override;
  int update(const platform::SecretItemKey& key, const std::string& data) noexcept override;
  int remove(const platform::SecretItemKey& key) noexcept override;
  std::string description() const override { return "memory"; }

  void failWith(int code);
  int writes() const;
  // The value under `account` of any application and service, or "".
  std::string valueOf(const std::string& account) const;
  void put(const platform::SecretItemKey& key, const std::string& data);

 private:
  using Key = std::tuple<std::string, std::string, std::string, std::string>;
  static Key keyOf(const platform::SecretItemKey& key);

  mutable std::mutex mutex_;
  std::map<Key, std::string> items_;
  int failure_ = platform::kSecretSuccess;
  int writes_ = 0;
};

}  // namespace zivora::test
