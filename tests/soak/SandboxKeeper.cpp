#include "SandboxKeeper.h"

#include <signal.h>

#include <fstream>
#include <stdexcept>
#include <thread>

#include "RequestJournal.h"
#include "SanitizerReport.h"
#include "platform/linux/CurlHttpClient.h"

namespace zivora::soak {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::unique_ptr<test::ChildProcess> spawn(const std::vector<std::string>& argv, const fs::path& out,
                                          const fs::path& err) {
  auto child = test::ChildProcess::start(argv, {.outputFile = out, .errorFile = err});
  if (!child) throw std::runtime_error("cannot start " + argv[0]);
  return child;
}

SandboxKeeper::SandboxKeeper(fs::path executable, fs::path workDirectory, fs::path mediaDirectory)
    : executable_(std::move(executable)),
      work_(std::move(workDirectory)),
      certs_(work_ / "certs"),
      state_(work_ / "sandbox-state"),
      media_(std::move(mediaDirectory)) {
  fs::create_directories(state_);
}

void SandboxKeeper::runToEnd(const std::vector<std::string>& argv) {
  auto maker = spawn(argv, work_ / "sandbox.out", work_ / "sandbox.err");
  if (!maker->waitFor(300s) || maker->exitCode() != 0)
    throw std::runtime_error("the sandbox could not make its files: " + maker->describe());
}

void SandboxKeeper::start() {
  if (starts_ == 0) {
    runToEnd({executable_.string(), "--make-certs", certs_.string()});
    runToEnd({executable_.string(), "--make-media", media_.string()});
    client_ = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
        .caFile = caFile().string(), .connectTimeout = 2s, .lowSpeedTime = 5s});
  }
  const fs::path portFile = work_ / "sandbox.port";
  fs::remove(portFile);
  std::vector<std::string> argv{
      executable_.string(), "--certs", certs_.string(),      "--media",
      media_.string(),      "--state", state_.string(),      "--port-file",
      portFile.string(),    "--port",  std::to_string(port_)};
  reap();
  ++starts_;
  process_ = spawn(argv, work_ / "sandbox.out", standardError());
  reaped_ = false;
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (!fs::exists(portFile)) {
    if (!process_->running() || std::chrono::steady_clock::now() > deadline) {
      reap();
      throw std::runtime_error("the sandbox did not start: " + process_->describe());
    }
    std::this_thread::sleep_for(10ms);
  }
  std::ifstream(portFile) >> port_;
}

void SandboxKeeper::kill() {
  if (!process_) return;
  process_->kill(SIGKILL);
  process_->waitFor(10s);
  reap();
}

// Each incarnation is judged once, on its own standard error.
void SandboxKeeper::reap() {
  if (!process_ || reaped_ || process_->running()) return;
  reaped_ = true;
  if (process_->crashed() || SanitizerReport::foundIn(standardError())) ++crashes_;
}

fs::path SandboxKeeper::standardError() const {
  return work_ / ("sandbox-" + std::to_string(starts_) + ".err");
}

bool SandboxKeeper::control(const std::string& pathAndQuery) {
  if (!client_) return false;
  auto response = client_->perform(platform::HttpRequest::formPost(baseUrl() + pathAndQuery, ""));
  return response.status == 200;
}

std::string SandboxKeeper::baseUrl() const { return "https://127.0.0.1:" + std::to_string(port_); }

fs::path SandboxKeeper::journal() const { return state_ / sandbox::RequestJournal::kFileName; }

}  // namespace zivora::soak
