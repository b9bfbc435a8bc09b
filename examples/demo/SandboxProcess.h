#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace demo {

// The sandbox ad server started as a child process on a free loopback port.
class SandboxProcess {
 public:
  SandboxProcess(const std::filesystem::path& executable, const std::filesystem::path& workDir);
  ~SandboxProcess();
  SandboxProcess(const SandboxProcess&) = delete;
  SandboxProcess& operator=(const SandboxProcess&) = delete;

  std::string adEndpoint() const;
  std::string analyticsEndpoint() const;
  std::string caFile() const;
  // Has the server grant the user a reward (as for an advertised game that
  // was installed and opened); false when the server did not take it.
  bool grantReward(const std::string& appName, int amount) const;

 private:
  pid_t pid_ = -1;
  int port_ = 0;
  std::filesystem::path certs_;
};

}  // namespace demo
