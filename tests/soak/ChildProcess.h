#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace zivora::soak {

// A program started with its standard output and error in files, which the
// soak may kill at any moment and whose end it tells apart: a normal exit,
// a signal the soak sent, or a signal it did not send (a crash).
class ChildProcess {
 public:
  // Runs in the directory that holds `out`, so a core dump lands beside
  // the output of the run that crashed.
  ChildProcess(const std::vector<std::string>& argv, const std::filesystem::path& out,
               const std::filesystem::path& err);
  // Kills and reaps a child that is still running.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void kill(int signal);
  // True once the child has ended (within `limit`).
  bool waitFor(std::chrono::milliseconds limit);
  bool running();

  bool exitedNormally() const;
  int exitCode() const;
  // Ended by a signal that kill() did not send.
  bool crashed() const;
  bool killedBySoak() const;
  std::string describe() const;

 private:
  pid_t pid_ = -1;
  int status_ = 0;
  bool ended_ = false;
  int sent_ = 0;
};

}  // namespace zivora::soak
