#include "platform/linux/PosixFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

namespace zivora::platform {
namespace {

template <class Call>
auto retryInterrupted(Call&& call) {
  for (;;) {
    auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

FileStatus described(const struct stat& info) {
  return FileStatus{.regular = S_ISREG(info.st_mode),
                    .size = static_cast<std::int64_t>(info.st_size),
                    .modified = static_cast<std::int64_t>(info.st_mtim.tv_sec),
                    .links = static_cast<std::uint64_t>(info.st_nlink)};
}

// Keeps errno of the call that failed across the close that follows it.
void closeKeepingErrno(int fd) {
  const int saved = errno;
  ::close(fd);
  errno = saved;
}

}  // namespace

std::shared_ptr<FileSystem> FileSystem::posix() {
  static const auto files = std::make_shared<PosixFileSystem>();
  return files;
}

int PosixFileSystem::open(const char* path, int flags, mode_t mode) {
  return retryInterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); });
}

ssize_t PosixFileSystem::pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return retryInterrupted([&] { return ::pread(fd, buffer, size, offset); });
}

ssize_t PosixFileSystem::pwrite(int fd, const void* buffer, std::size_t size, off_t offset) {
  return retryInterrupted([&] { return ::pwrite(fd, buffer, size, offset); });
}

ssize_t PosixFileSystem::write(int fd, const void* data, std::size_t size) {
  return retryInterrupted([&] { return ::write(fd, data, size); });
}

off_t PosixFileSystem::size(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return -1;
  return info.st_size;
}

int PosixFileSystem::ftruncate(int fd, off_t size) {
  return retryInterrupted([&] { return ::ftruncate(fd, size); });
}

int PosixFileSystem::fdatasync(int fd) {
  return retryInterrupted([&] { return ::fdatasync(fd); });
}

// close() is not retried: on Linux the descriptor is gone even after EINTR.
int PosixFileSystem::close(int fd) { return ::close(fd); }

int PosixFileSystem::unlink(const char* path) { return ::unlink(path); }

int PosixFileSystem::syncDirectory(const char* path) {
  int fd = open(path, O_RDONLY | O_DIRECTORY, 0);
  if (fd < 0) return -1;
  int result = retryInterrupted([&] { return ::fsync(fd); });
  closeKeepingErrno(fd);
  return result;
}

int PosixFileSystem::status(const char* path, FileStatus& status) {
  struct stat info {};
  if (::lstat(path, &info) != 0) return -1;
  status = described(info);
  return 0;
}

int PosixFileSystem::status(int fd, FileStatus& status) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return -1;
  status = described(info);
  return 0;
}

std::vector<std::string> PosixFileSystem::regularFiles(const char* directory) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(directory);
  if (!dir) return names;
  while (const dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    struct stat info {};
    if (::fstatat(::dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(info.st_mode)) {
      names.emplace_back(entry->d_name);
    }
  }
  ::closedir(dir);
  return names;
}

// Works relative to the directory's descriptor, so the check and the unlink
// name the same entry even if the directory is renamed in between.
int PosixFileSystem::removeRegularFile(const char* directory, const char* name) {
  const int dir = open(directory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, 0);
  if (dir < 0) return -1;
  struct stat info {};
  int result = ::fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW);
  if (result == 0 && !S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EPERM;
    result = -1;
  }
  if (result == 0) result = ::unlinkat(dir, name, 0);
  closeKeepingErrno(dir);
  return result;
}

FreeSpace PosixFileSystem::freeSpace(const std::filesystem::path& path) {
  struct statvfs info {};
  if (::statvfs(path.c_str(), &info) != 0) return {.ok = false, .bytes = 0, .error = errno};
  return {.ok = true,
          .bytes =
              static_cast<std::uint64_t>(info.f_bavail) * static_cast<std::uint64_t>(info.f_frsize),
          .error = 0};
}

}  // namespace zivora::platform
