#include "platform/linux/OpenSslLifetime.h"

#include <openssl/crypto.h>

namespace zivora::platform {

void OpenSslLifetime::keepUntilProcessEnd() noexcept {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

namespace {
// At load time, before the host's main can reach OpenSSL through libcurl.
[[maybe_unused]] const bool kKeptFromLoad = (OpenSslLifetime::keepUntilProcessEnd(), true);
}  // namespace

}  // namespace zivora::platform
