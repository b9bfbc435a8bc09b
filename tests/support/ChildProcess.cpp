#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

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
  constexpr int kAppend = O_WRONLY | O_CREAT | O_APPEND;
  if (!options.outputFile.empty())
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, options.outputFile.c_str(), kAppend,
                                       0644);
  if (!options.errorFile.empty())
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, options.errorFile.c_str(), kAppend,
                                       0644);
  const std::string directory = options.outputFile.parent_path().string();
  if (!directory.empty()) ::posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
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
  if (running()) {
    kill(SIGTERM);
    if (!waitFor(std::chrono::seconds(10))) {
      kill(SIGKILL);
      waitFor(std::chrono::seconds(10));
    }
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

void ChildProcess::kill(int signal) {
  if (ended_) return;
  sent_ = signal;
  ::kill(pid_, signal);
}

bool ChildProcess::running() {
  if (ended_) return false;
  const pid_t done = ::wait4(pid_, &status_, WNOHANG, &usage_);
  if (done == pid_ || (done < 0 && errno == ECHILD)) ended_ = true;
  return !ended_;
}

bool ChildProcess::waitFor(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  // Children run in real time; polling keeps this simple.
  while (running()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

int ChildProcess::exitCode() const {
  return ended_ && WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
}

bool ChildProcess::crashed() const {
  return ended_ && WIFSIGNALED(status_) && WTERMSIG(status_) != sent_;
}

double ChildProcess::cpuSeconds() const {
  const auto seconds = [](const timeval& t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
  return ended_ ? seconds(usage_.ru_utime) + seconds(usage_.ru_stime) : 0;
}

std::string ChildProcess::describe() const {
  if (!ended_) return "running";
  if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
  return "signal " + std::to_string(WTERMSIG(status_)) + (crashed() ? "" : " (sent by kill())");
}

}  // namespace zivora::test
