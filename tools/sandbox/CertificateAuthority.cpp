#include "CertificateAuthority.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "DirectoryLock.h"

namespace zivora::sandbox {
namespace {

namespace fs = std::filesystem;

constexpr long kValiditySeconds = 10L * 365 * 24 * 3600;

struct KeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertDeleter {
  void operator()(X509* cert) const { X509_free(cert); }
};
struct BioDeleter {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyDeleter>;
using Cert = std::unique_ptr<X509, CertDeleter>;
using Bio = std::unique_ptr<BIO, BioDeleter>;

void check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(fmt::format("certificate generation failed: {}", what));
}

Key makeKey() {
  Key key(EVP_EC_gen("P-256"));
  check(key != nullptr, "EC key");
  return key;
}

void setRandomSerial(X509* cert) {
  unsigned char bytes[16];
  check(RAND_bytes(bytes, sizeof bytes) == 1, "serial");
  bytes[0] &= 0x7f;  // a positive serial number
  std::unique_ptr<BIGNUM, decltype(&BN_free)> serial(BN_bin2bn(bytes, sizeof bytes, nullptr),
                                                     BN_free);
  check(serial && BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert)), "serial");
}

void addExtension(X509* cert, X509* issuer, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  check(extension != nullptr, value);
  const bool added = X509_add_ext(cert, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  check(added, value);
}

// A certificate for `key` named `commonName`, not yet signed. A CA passes
// itself as issuer after the fact (self-signed); see makeCa.
Cert makeUnsigned(EVP_PKEY* key, const char* commonName) {
  Cert cert(X509_new());
  check(cert != nullptr, "X509_new");
  check(X509_set_version(cert.get(), 2) == 1, "version");
  setRandomSerial(cert.get());
  // A day of slack before now tolerates clocks that disagree a little.
  check(X509_gmtime_adj(X509_getm_notBefore(cert.get()), -24 * 3600) != nullptr, "notBefore");
  check(X509_gmtime_adj(X509_getm_notAfter(cert.get()), kValiditySeconds) != nullptr, "notAfter");
  check(X509_set_pubkey(cert.get(), key) == 1, "public key");
  X509_NAME* name = X509_get_subject_name(cert.get());
  check(X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("Zivora Sandbox"), -1, -1,
                                   0) == 1,
        "subject");
  check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                   0) == 1,
        "subject");
  return cert;
}

Cert makeCa(EVP_PKEY* caKey) {
  Cert ca = makeUnsigned(caKey, "Zivora Sandbox CA");
  check(X509_set_issuer_name(ca.get(), X509_get_subject_name(ca.get())) == 1, "issuer");
  addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash");
  check(X509_sign(ca.get(), caKey, EVP_sha256()) > 0, "CA signature");
  return ca;
}

// OpenSSL 3 matches the host against subjectAltName only, never the CN.
Cert makeServer(EVP_PKEY* serverKey, X509* ca, EVP_PKEY* caKey) {
  Cert server = makeUnsigned(serverKey, "localhost");
  check(X509_set_issuer_name(server.get(), X509_get_subject_name(ca)) == 1, "issuer");
  addExtension(server.get(), ca, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(server.get(), ca, NID_key_usage, "critical,digitalSignature");
  addExtension(server.get(), ca, NID_ext_key_usage, "serverAuth");
  addExtension(server.get(), ca, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
  addExtension(server.get(), ca, NID_authority_key_identifier, "keyid:always");
  check(X509_sign(server.get(), caKey, EVP_sha256()) > 0, "server signature");
  return server;
}

// Writes through a temporary name and renames, so a reader sees either the
// old state or the whole file.
template <class WritePem>
void writeAtomically(const fs::path& target, mode_t mode, WritePem writePem) {
  const fs::path temporary = target.string() + fmt::format(".tmp{}", getpid());
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  check(fd >= 0, "open a temporary file");
  Bio bio(BIO_new_fd(fd, BIO_CLOSE));
  if (!bio) close(fd);
  check(bio != nullptr, "BIO_new_fd");
  check(writePem(bio.get()) == 1 && BIO_flush(bio.get()) == 1, "write PEM");
  check(fsync(fd) == 0, "fsync");
  bio.reset();
  fs::rename(temporary, target);
}

void writeCert(const fs::path& target, X509* cert) {
  writeAtomically(target, 0644, [cert](BIO* bio) { return PEM_write_bio_X509(bio, cert); });
}

void writeKey(const fs::path& target, EVP_PKEY* key) {
  writeAtomically(target, 0600, [key](BIO* bio) {
    return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
  });
}

bool allExist(const CertificatePaths& paths) {
  return fs::exists(paths.caFile) && fs::exists(paths.serverCert) && fs::exists(paths.serverKey);
}

void generate(const CertificatePaths& paths) {
  Key caKey = makeKey();
  Cert ca = makeCa(caKey.get());
  Key serverKey = makeKey();
  Cert server = makeServer(serverKey.get(), ca.get(), caKey.get());
  writeKey(paths.serverKey, serverKey.get());
  writeCert(paths.serverCert, server.get());
  writeCert(paths.caFile, ca.get());
}

}  // namespace

CertificatePaths CertificateAuthority::pathsIn(const fs::path& directory) {
  return {directory / "ca.pem", directory / "server.pem", directory / "server-key.pem"};
}

CertificatePaths CertificateAuthority::ensure(const fs::path& directory) {
  const CertificatePaths paths = pathsIn(directory);
  if (allExist(paths)) return paths;
  fs::create_directories(directory);
  DirectoryLock lock(directory);
  if (!allExist(paths)) generate(paths);
  return paths;
}

}  // namespace zivora::sandbox
