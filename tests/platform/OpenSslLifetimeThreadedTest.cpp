#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/linux/OpenSslLifetime.h"
#include "support/ExitingChildren.h"
#include "util/ZVHash.h"

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
TEST(OpenSslLifetimeThreadedTest, AHostExitsCleanlyWhileThreadsThatUsedOpenSslEnd) {
  test::expectChildrenExitCleanly(kChildVariable, kChildTest, 40);
}

}  // namespace
}  // namespace zivora::platform
