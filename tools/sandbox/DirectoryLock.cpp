#include "DirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <stdexcept>

namespace zivora::sandbox {

DirectoryLock::DirectoryLock(const std::filesystem::path& directory)
    : fd_(::open((directory / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
  if (fd_ < 0) throw std::runtime_error("cannot open " + (directory / ".lock").string());
  if (::flock(fd_, LOCK_EX) != 0) {
    ::close(fd_);
    throw std::runtime_error("cannot lock " + directory.string());
  }
}

DirectoryLock::~DirectoryLock() { ::close(fd_); }

}  // namespace zivora::sandbox
