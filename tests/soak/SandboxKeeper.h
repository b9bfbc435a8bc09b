#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace zivora::platform {
class HttpClient;
}

namespace zivora::soak {

// Starts a child with its standard output and error appended to files;
// throws when it cannot be started.
std::unique_ptr<test::ChildProcess> spawn(const std::vector<std::string>& argv,
                                          const std::filesystem::path& out,
                                          const std::filesystem::path& err);

// Runs zivora-sandbox as a child process that the soak kills and starts
// again: always on the port of its first start and with the same state
// directory, so ad URLs (and so the SDK's cached names) stay valid and the
// journal of accepted events spans every incarnation.
class SandboxKeeper {
 public:
  SandboxKeeper(std::filesystem::path executable, std::filesystem::path workDirectory,
                std::filesystem::path mediaDirectory);

  // Makes the certificates and the media (once per machine) and starts.
  void start();
  void kill();
  bool running() const { return process_ && process_->running(); }
  // Ended by a signal the soak did not send, or by a sanitizer report.
  int crashes() const { return crashes_; }

  // POSTs a control request ("/control/misbehave?kind=stall"); false when
  // the server did not take it.
  bool control(const std::string& pathAndQuery);

  std::string baseUrl() const;
  std::filesystem::path caFile() const { return certs_ / "ca.pem"; }
  std::filesystem::path journal() const;
  const std::filesystem::path& mediaDirectory() const { return media_; }

 private:
  void reap();
  std::filesystem::path standardError() const;
  void runToEnd(const std::vector<std::string>& argv);

  std::filesystem::path executable_, work_, certs_, state_, media_;
  std::unique_ptr<test::ChildProcess> process_;
  std::shared_ptr<platform::HttpClient> client_;
  int port_ = 0;
  int starts_ = 0;
  int crashes_ = 0;
  bool reaped_ = false;
};

}  // namespace zivora::soak
