#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

extern char** environ;

namespace zivora::soak {

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::filesystem::path& out,
                           const std::filesystem::path& err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0644);
  const std::string directory = out.parent_path().string();
  posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
  std::vector<char*> args;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const int error = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), "spawn " + argv[0]);
}

ChildProcess::~ChildProcess() {
  if (running()) {
    kill(SIGKILL);
    waitFor(std::chrono::seconds(10));
  }
}

void ChildProcess::kill(int signal) {
  if (ended_) return;
  sent_ = signal;
  ::kill(pid_, signal);
}

bool ChildProcess::running() {
  if (ended_) return false;
  const pid_t done = ::waitpid(pid_, &status_, WNOHANG);
  if (done == pid_ || (done < 0 && errno == ECHILD)) ended_ = true;
  return !ended_;
}

bool ChildProcess::waitFor(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  // The soak drives real processes in real time; polling keeps it simple.
  while (running()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

bool ChildProcess::exitedNormally() const { return ended_ && WIFEXITED(status_); }
int ChildProcess::exitCode() const { return exitedNormally() ? WEXITSTATUS(status_) : -1; }

bool ChildProcess::killedBySoak() const {
  return ended_ && WIFSIGNALED(status_) && WTERMSIG(status_) == sent_;
}

bool ChildProcess::crashed() const {
  return ended_ && WIFSIGNALED(status_) && WTERMSIG(status_) != sent_;
}

std::string ChildProcess::describe() const {
  if (!ended_) return "running";
  if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
  return std::string("signal ") + std::to_string(WTERMSIG(status_)) +
         (killedBySoak() ? " (sent by the soak)" : "");
}

}  // namespace zivora::soak
