#include "platform/linux/XdgOpener.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

#include "util/WebAddress.h"
#include "util/ZVLog.h"

extern char** environ;

namespace zivora::platform {
namespace {

using namespace std::chrono_literals;

constexpr const char* kProgram = "xdg-open";
// The first look comes soon (xdg-open usually hands over and exits at
// once); later looks back off so a long-running child costs little.
constexpr dispatch::Duration kFirstReap = 50ms;
constexpr dispatch::Duration kLongestReap = 2s;
// The host may block or ignore signals on the calling thread; the browser
// that xdg-open starts must not inherit that, or it could not be stopped.
int spawn(char* const argv[], pid_t* pid) {
  posix_spawnattr_t attributes;
  if (int error = ::posix_spawnattr_init(&attributes); error != 0) return error;
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setsigdefault(&attributes, &all);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int error = ::posix_spawnp(pid, kProgram, nullptr, &attributes, argv, environ);
  ::posix_spawnattr_destroy(&attributes);
  return error;
}

}  // namespace

XdgOpener::XdgOpener(dispatch::Queue& reaper) : reaper_(reaper) {}

bool XdgOpener::canOpenURL(const std::string& url) { return WebAddress::isWeb(url); }

bool XdgOpener::openURL(const std::string& url) {
  if (!canOpenURL(url)) {
    ZVLog::LogWarning("[XdgOpener][openURL] Refused to open: {}", WebAddress::printable(url));
    return false;
  }
  std::string program = kProgram;
  std::string argument = url;
  char* argv[] = {program.data(), argument.data(), nullptr};
  pid_t pid = 0;
  const int error = spawn(argv, &pid);
  if (error != 0) {
    ZVLog::LogWarning("[XdgOpener][openURL] Can't start {}: {}", kProgram, std::strerror(error));
    return false;
  }
  reapLater(reaper_, pid, kFirstReap);
  return true;
}

// Captures the queue, not the opener: a look may still be pending when the
// opener is gone, and the queue is alive whenever its task runs.
void XdgOpener::reapLater(dispatch::Queue& queue, int pid, dispatch::Duration wait) {
  queue.after(wait, [&queue, pid, wait] {
    int status = 0;
    pid_t done = ::waitpid(pid, &status, WNOHANG);
    while (done < 0 && errno == EINTR) done = ::waitpid(pid, &status, WNOHANG);
    if (done == 0) reapLater(queue, pid, std::min<dispatch::Duration>(wait * 2, kLongestReap));
  });
}

}  // namespace zivora::platform
