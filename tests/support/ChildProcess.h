#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zivora::test {

// A helper program (a bus daemon, an X server) that a test starts as its own
// child and stops by that pid when the object goes: SIGTERM, then reaped.
class ChildProcess {
 public:
  struct Options {
    // Written to the child's standard input, which is then closed.
    std::string input;
    // The child's standard output goes to a pipe that readLine() reads;
    // otherwise it is inherited.
    bool captureOutput = false;
  };

  // Null when the program cannot be started (not installed, no pipe).
  static std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments,
                                             const Options& options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next line of captured output without its newline, as soon as it is
  // written; nullopt when the child closes its output first or `patience`
  // passes.
  std::optional<std::string> readLine(std::chrono::milliseconds patience);

  // Waits for the child to exit by itself and returns its exit status
  // (-1 when it did not exit normally).
  int waitForExit();

 private:
  ChildProcess(pid_t pid, int output) : pid_(pid), output_(output) {}

  pid_t pid_;
  int output_;
};

}  // namespace zivora::test
