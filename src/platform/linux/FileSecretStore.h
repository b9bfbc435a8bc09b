#pragma once

#include <filesystem>
#include <mutex>
#include <optional>

#include "platform/SecretFile.h"
#include "platform/SecretStore.h"

namespace zivora::platform {

// The secret store where no Secret Service answers: one file per item in a
// 0700 directory, each file 0600, replaced atomically (write, sync,
// rename). A truncated or garbled file reads as absent (logged once per
// read) and the next write replaces it.
class FileSecretStore final : public SecretStore {
 public:
  explicit FileSecretStore(std::filesystem::path directory);

  int find(const SecretItemKey& key, std::string& data) noexcept override;
  int add(const SecretItemKey& key, const std::string& data) noexcept override;
  int update(const SecretItemKey& key, const std::string& data) noexcept override;
  int remove(const SecretItemKey& key) noexcept override;
  std::string description() const override { return "file store"; }

  // The file that holds `key`.
  std::filesystem::path fileFor(const SecretItemKey& key) const;

 private:
  std::optional<SecretFile> read(const SecretItemKey& key) const;
  int write(const SecretItemKey& key, const std::string& data) const;

  std::filesystem::path directory_;
  std::mutex mutex_;
};

}  // namespace zivora::platform
