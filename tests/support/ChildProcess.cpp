#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace zivora::test {
namespace {

struct Pipe {
  int read = -1, write = -1;
  bool open() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    read = fds[0];
    write = fds[1];
    return true;
  }
  void close() {
    if (read >= 0) ::close(read);
    if (write >= 0) ::close(write);
    read = write = -1;
  }
};

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::start(const std::vector<std::string>& arguments,
                                                  const Options& options) {
  Pipe input, output;
  if (!input.open() || (options.captureOutput && !output.open())) {
    input.close();
    output.close();
    return nullptr;
  }
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input.read, STDIN_FILENO);
  if (options.captureOutput)
    ::posix_spawn_file_actions_adddup2(&actions, output.write, STDOUT_FILENO);
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int error = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(input.read);
  input.read = -1;
  if (output.write >= 0) ::close(output.write);
  output.write = -1;
  if (error != 0) {
    input.close();
    output.close();
    return nullptr;
  }
  // A pipe this small never blocks the write; the child reads it when it likes.
  if (!options.input.empty()) {
    [[maybe_unused]] auto written =
        ::write(input.write, options.input.data(), options.input.size());
  }
  input.close();
  return std::unique_ptr<ChildProcess>(new ChildProcess(pid, output.read));
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  if (output_ >= 0) ::close(output_);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds patience) {
  if (output_ < 0) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::string line;
  char c = 0;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd ready{output_, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) != 1) break;
    if (::read(output_, &c, 1) != 1) break;
    if (c == '\n') return line;
    line += c;
  }
  return std::nullopt;
}

int ChildProcess::waitForExit() {
  int status = 0;
  const pid_t done = ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace zivora::test
