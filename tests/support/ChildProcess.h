#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zivora::test {

// A helper program (a bus daemon, an X server, the sample host) that a test
// starts as its own child. It tells apart how the child ended: a normal exit,
// a signal sent through kill(), or a signal nobody sent (a crash). One still
// running when the object goes gets SIGTERM, then SIGKILL if it lingers, and
// is reaped.
class ChildProcess {
 public:
  struct Options {
    // Written to the child's standard input, which is then closed.
    std::string input{};
    // The child's standard output goes to a pipe that readLine() reads;
    // otherwise it is inherited.
    bool captureOutput = false;
    // When set, the child's standard output and error are appended to these
    // files, and it runs in the directory that holds `outputFile` so that a
    // core dump lands beside the output of the run that crashed.
    std::filesystem::path outputFile{}, errorFile{};
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

  pid_t pid() const { return pid_; }
  void kill(int signal);
  bool running();
  // True once the child has ended (within `limit`).
  bool waitFor(std::chrono::milliseconds limit);

  // The exit status, or -1 when the child has not exited normally.
  int exitCode() const;
  // Ended by a signal that kill() did not send.
  bool crashed() const;
  std::string describe() const;
  // The CPU time (user and system) the child used, once it has ended.
  double cpuSeconds() const;

 private:
  ChildProcess(pid_t pid, int output) : pid_(pid), output_(output) {}

  pid_t pid_;
  int output_;
  int status_ = 0;
  bool ended_ = false;
  struct rusage usage_ {};
  int sent_ = 0;
};

}  // namespace zivora::test
