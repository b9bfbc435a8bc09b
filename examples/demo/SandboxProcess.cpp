#include "SandboxProcess.h"

#include <curl/curl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace demo {

namespace {

int waitForPort(const std::filesystem::path& portFile, pid_t child) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    std::ifstream in(portFile);
    int port = 0;
    if (in >> port && port > 0) return port;
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child)
      throw std::runtime_error("the sandbox exited at start");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  throw std::runtime_error("the sandbox did not report its port");
}

// Starts the program in argv[0] as a child that the kernel ends when this
// process ends, however it ends (an exit, a crash, a SIGKILL): a demo that
// dies must not leave its server running. Runs before the SDK starts any
// thread, and the thread that forks lives until the end of the demo (the
// death signal follows the thread that made the child).
pid_t spawnTiedToParent(const std::vector<char*>& argv) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) return child;
  // The parent may have died between fork() and prctl(): then the death
  // signal would never come.
  if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) _exit(127);
  execv(argv[0], argv.data());
  _exit(127);
}

}  // namespace

SandboxProcess::SandboxProcess(const std::filesystem::path& executable,
                               const std::filesystem::path& workDir)
    : certs_(workDir / "certs") {
  std::filesystem::create_directories(workDir / "files");
  auto portFile = workDir / "port";
  std::filesystem::remove(portFile);
  std::vector<std::string> args = {executable.string(),
                                   "--port",
                                   "0",
                                   "--certs",
                                   certs_.string(),
                                   "--files",
                                   (workDir / "files").string(),
                                   "--port-file",
                                   portFile.string()};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_ = spawnTiedToParent(argv);
  if (pid_ < 0) throw std::runtime_error("cannot start " + executable.string());
  port_ = waitForPort(portFile, pid_);
}

SandboxProcess::~SandboxProcess() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  int status = 0;
  waitpid(pid_, &status, 0);
}

std::string SandboxProcess::adEndpoint() const {
  return "https://127.0.0.1:" + std::to_string(port_) + "/HandleRequestV3.php";
}

std::string SandboxProcess::analyticsEndpoint() const {
  return "https://127.0.0.1:" + std::to_string(port_) + "/ProfilingEvent.php";
}

std::string SandboxProcess::caFile() const { return (certs_ / "ca.pem").string(); }

bool SandboxProcess::grantReward(const std::string& appName, int amount) const {
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return false;
  std::unique_ptr<char, decltype(&curl_free)> name(
      curl_easy_escape(curl.get(), appName.c_str(), static_cast<int>(appName.size())), curl_free);
  if (!name) return false;
  const std::string url = "https://127.0.0.1:" + std::to_string(port_) +
                          "/control/grant-reward?reward=" + std::to_string(amount) +
                          "&appName=" + name.get();
  const std::string ca = caFile();
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_CAINFO, ca.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, "");
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 10L);
  // The answer's body is of no interest: it goes nowhere.
  curl_easy_setopt(
      curl.get(), CURLOPT_WRITEFUNCTION,
      +[](char*, size_t size, size_t count, void*) { return size * count; });
  long status = 0;
  if (curl_easy_perform(curl.get()) != CURLE_OK) return false;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  return status == 200;
}

}  // namespace demo
