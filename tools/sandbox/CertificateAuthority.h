#pragma once

#include <filesystem>

namespace zivora::sandbox {

// Where the sandbox's TLS material lives inside a certificate directory.
struct CertificatePaths {
  std::filesystem::path caFile;      // ca.pem: what clients trust
  std::filesystem::path serverCert;  // server.pem
  std::filesystem::path serverKey;   // server-key.pem
};

// A private certificate authority for loopback TLS: an EC P-256 CA and a
// server certificate that it signs for DNS:localhost and IP:127.0.0.1.
class CertificateAuthority {
 public:
  static CertificatePaths pathsIn(const std::filesystem::path& directory);

  // Makes the three files in `directory` unless all of them exist. Several
  // processes may call this at once on the same directory: they take turns
  // on a lock file, and each file appears complete or not at all. Throws
  // std::runtime_error when the material cannot be made or written.
  static CertificatePaths ensure(const std::filesystem::path& directory);
};

}  // namespace zivora::sandbox
