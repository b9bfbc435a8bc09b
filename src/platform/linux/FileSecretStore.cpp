#include "platform/linux/FileSecretStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

#include "util/ZVHash.h"
#include "util/ZVLog.h"

namespace zivora::platform {

namespace {

bool writeAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

FileSecretStore::FileSecretStore(std::filesystem::path directory)
    : directory_(std::move(directory)) {}

std::filesystem::path FileSecretStore::fileFor(const SecretItemKey& key) const {
  // The name only spreads items over files; the file itself says which item
  // it holds, so a collision reads as absent instead of as another's value.
  std::string name = ZVHash::md5Hex(key.application + '\n' + key.service + '\n' + key.account +
                                    '\n' + key.accessGroup);
  return directory_ / (name + ".secret");
}

std::optional<SecretFile> FileSecretStore::read(const SecretItemKey& key) const {
  auto path = fileFor(key);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto file = SecretFile::parse(text);
  if (!file || file->key.application != key.application || file->key.service != key.service ||
      file->key.account != key.account || file->key.accessGroup != key.accessGroup) {
    ZVLog::system("[FileSecretStore] Unreadable secret file, treated as absent: " + path.string());
    return std::nullopt;
  }
  return file;
}

int FileSecretStore::write(const SecretItemKey& key, const std::string& data) const {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  ::chmod(directory_.c_str(), 0700);
  auto path = fileFor(key);
  auto temporary = path;
  temporary += ".tmp";
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return kSecretNotAvailable;
  // A file left by an older run may carry wider permissions.
  bool ok =
      ::fchmod(fd, 0600) == 0 && writeAll(fd, SecretFile{key, data}.format()) && ::fsync(fd) == 0;
  ok = (::close(fd) == 0) && ok;
  if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    ZVLog::system("[FileSecretStore] Could not write secret file: " + path.string());
    return kSecretNotAvailable;
  }
  return kSecretSuccess;
}

int FileSecretStore::find(const SecretItemKey& key, std::string& data) noexcept {
  try {
    std::lock_guard lock(mutex_);
    auto file = read(key);
    if (!file) return kSecretItemNotFound;
    data = std::move(file->data);
    return kSecretSuccess;
  } catch (...) {
    return kSecretNotAvailable;
  }
}

int FileSecretStore::add(const SecretItemKey& key, const std::string& data) noexcept {
  try {
    std::lock_guard lock(mutex_);
    if (read(key)) return kSecretDuplicateItem;
    return write(key, data);
  } catch (...) {
    return kSecretNotAvailable;
  }
}

int FileSecretStore::update(const SecretItemKey& key, const std::string& data) noexcept {
  try {
    std::lock_guard lock(mutex_);
    if (!read(key)) return kSecretItemNotFound;
    return write(key, data);
  } catch (...) {
    return kSecretNotAvailable;
  }
}

int FileSecretStore::remove(const SecretItemKey& key) noexcept {
  try {
    std::lock_guard lock(mutex_);
    auto path = fileFor(key);
    bool present = read(key).has_value();
    std::error_code error;
    std::filesystem::remove(path, error);
    if (!present) return kSecretItemNotFound;
    return error ? kSecretNotAvailable : kSecretSuccess;
  } catch (...) {
    return kSecretNotAvailable;
  }
}

}  // namespace zivora::platform
