#pragma once

#include <filesystem>
#include <memory>

#include "platform/SecretStore.h"

namespace zivora::platform {

// Picks the secret store for a data root: the Secret Service when it
// answers, else the 0600 file store under the data root. The choice is
// written beside the preferences and kept, so a keyring that is locked
// later answers "interaction not allowed" instead of the SDK switching
// stores and minting new identities. The choice is logged once.
class SecretStoreChooser {
 public:
  static std::shared_ptr<SecretStore> open(const std::filesystem::path& dataRoot);

  static std::filesystem::path choiceFile(const std::filesystem::path& dataRoot);
  static std::filesystem::path fileStoreDirectory(const std::filesystem::path& dataRoot);
};

}  // namespace zivora::platform
