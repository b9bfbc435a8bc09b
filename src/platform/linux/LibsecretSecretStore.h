#pragma once

#include <string>

#include "platform/SecretStore.h"

namespace zivora::platform {

// Secret items in the Secret Service's default collection through
// libsecret. Each item carries the attributes application, service,
// account and accessGroup (empty when none); the secret is the value's
// bytes. A locked default collection answers kSecretInteractionNotAllowed:
// the SDK never raises an unlock prompt in a host.
class LibsecretSecretStore final : public SecretStore {
 public:
  int find(const SecretItemKey& key, std::string& data) noexcept override;
  int add(const SecretItemKey& key, const std::string& data) noexcept override;
  int update(const SecretItemKey& key, const std::string& data) noexcept override;
  int remove(const SecretItemKey& key) noexcept override;
  std::string description() const override { return "Secret Service"; }

  // True when a session bus is reachable, the Secret Service owns its name
  // on it and the default collection is unlocked. Never activates a
  // daemon.
  static bool available() noexcept;
};

}  // namespace zivora::platform
