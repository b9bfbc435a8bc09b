#include "support/ExitingChildren.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/ChildProcess.h"
#include "support/ScopedEnv.h"

namespace zivora::test {

void expectChildrenExitCleanly(const char* childVariable, const char* childTest, int rounds) {
#ifdef __SANITIZE_THREAD__
  rounds = (rounds + 3) / 4;
#endif
  ScopedEnv childMode(childVariable, "1");
  for (int round = 0; round < rounds; ++round) {
    auto child = ChildProcess::start({"/proc/self/exe", std::string("--gtest_filter=") + childTest},
                                     {.captureOutput = true});
    ASSERT_TRUE(child);
    ASSERT_TRUE(child->waitFor(std::chrono::seconds(60))) << "round " << round;
    ASSERT_EQ(child->exitCode(), 0) << "round " << round << ": " << child->describe();
  }
}

}  // namespace zivora::test
