#pragma once

namespace zivora::test {

// Runs `childTest` of this test executable `rounds` times, each in a fresh
// process with `childVariable` set (the child test skips itself without
// it), and expects every child to exit with 0: for races with exit(), which
// only a process that really exits can show. Under ThreadSanitizer, which
// makes every process start slow, a quarter of the rounds run.
void expectChildrenExitCleanly(const char* childVariable, const char* childTest, int rounds);

}  // namespace zivora::test
