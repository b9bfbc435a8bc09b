#include "support/MemorySecretStore.h"

namespace zivora::test {

MemorySecretStore::Key MemorySecretStore::keyOf(const platform::SecretItemKey& key) {
  return {key.application, key.service, key.account, key.accessGroup};
}

int MemorySecretStore::find(const platform::SecretItemKey& key, std::string& data) noexcept {
  std::lock_guard lock(mutex_);
  if (failure_ != platform::kSecretSuccess) return failure_;
  auto found = items_.find(keyOf(key));
  if (found == items_.end()) return platform::kSecretItemNotFound;
  data = found->second;
  return platform::kSecretSuccess;
}

int MemorySecretStore::add(const platform::SecretItemKey& key, const std::string& data) noexcept {
  std::lock_guard lock(mutex_);
  if (failure_ != platform::kSecretSuccess) return failure_;
  if (!items_.emplace(keyOf(key), data).second) return platform::kSecretDuplicateItem;
  ++writes_;
  return platform::kSecretSuccess;
}

int MemorySecretStore::update(const platform::SecretItemKey& key,
                              const std::string& data) noexcept {
  std::lock_guard lock(mutex_);
  if (failure_ != platform::kSecretSuccess) return failure_;
  auto found = items_.find(keyOf(key));
  if (found == items_.end()) return platform::kSecretItemNotFound;
  found->second = data;
  ++writes_;
  return platform::kSecretSuccess;
}

int MemorySecretStore::remove(const platform::SecretItemKey& key) noexcept {
  std::lock_guard lock(mutex_);
  if (failure_ != platform::kSecretSuccess) return failure_;
  return items_.erase(keyOf(key)) ? platform::kSecretSuccess : platform::kSecretItemNotFound;
}

void MemorySecretStore::failWith(int code) {
  std::lock_guard lock(mutex_);
  failure_ = code;
}

int MemorySecretStore::writes() const {
  std::lock_guard lock(mutex_);
  return writes_;
}

std::string MemorySecretStore::valueOf(const std::string& account) const {
  std::lock_guard lock(mutex_);
  for (const auto& [key, value] : items_)
    if (std::get<2>(key) == account) return value;
  return "";
}

void MemorySecretStore::put(const platform::SecretItemKey& key, const std::string& data) {
  std::lock_guard lock(mutex_);
  items_[keyOf(key)] = data;
}

}  // namespace zivora::test
