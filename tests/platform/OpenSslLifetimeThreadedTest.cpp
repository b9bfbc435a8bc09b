#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/OpenSslLifetime.h"
#include "util/ZVHash.h"

extern char** environ;

namespace zivora::platform {
namespace {

constexpr const char* kChildVariable = "ZIVORA_OPENSSL_EXIT_CHILD";
constexpr const char* kChildTest = "OpenSslLifetimeThreadedTest.ChildExitsWhileThreadsEnd";

// What a host does when it returns from main while SDK threads that have
// hashed or spoken TLS through OpenSSL are still busy or ending: exit() runs
// the atexit handlers meanwhile. While OpenSSL cleaned up there, about one
// such exit in ten died with SIGSEGV.
TEST(OpenSslLifetimeThreadedTest, ChildExitsWhileThreadsEnd) {
  if (!std::getenv(kChildVariable)) GTEST_SKIP() << "the child of the test below";
  constexpr int kThreads = 8;
  static std::atomic<int> hashed{0};
  static std::atomic<bool> release{false};
  for (int i = 0; i < kThreads; ++i) {
    std::thread([] {
      ZVHash::md5Hex("per-thread OpenSSL state");
      ++hashed;
      while (!release) std::this_thread::yield();
    }).detach();
  }
  // Every thread holds OpenSSL state; they end while exit() runs.
  while (hashed < kThreads) std::this_thread::yield();
  release = true;
  std::exit(0);
}

// A fresh process each time: OpenSSL must meet the SDK before anything
// else initialises it, as in a host that loads the SDK.
int runChild() {
  std::vector<std::string> environment{std::string(kChildVariable) + "=1"};
  for (char** variable = environ; *variable; ++variable) environment.emplace_back(*variable);
  std::vector<char*> envp;
  for (auto& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  std::string self = "/proc/self/exe", filter = std::string("--gtest_filter=") + kChildTest;
  char* argv[] = {self.data(), filter.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int error = posix_spawn(&child, argv[0], &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return -1;
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

// Each child is a whole process start, which ThreadSanitizer makes slow;
// the race does not need it to show.
#ifdef __SANITIZE_THREAD__
constexpr int kRounds = 10;
#else
constexpr int kRounds = 40;
#endif

TEST(OpenSslLifetimeThreadedTest, AHostExitsCleanlyWhileThreadsThatUsedOpenSslEnd) {
  for (int round = 0; round < kRounds; ++round) {
    const int status = runChild();
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "round " << round << ": "
        << (WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                : "exit " + std::to_string(WEXITSTATUS(status)));
  }
}

}  // namespace
}  // namespace zivora::platform
