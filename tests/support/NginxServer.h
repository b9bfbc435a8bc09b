#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace zivora::test {

// nginx serving one directory over plain HTTP on a free loopback port, in
// the foreground as a child of this process.
class NginxServer {
 public:
  // Throws std::runtime_error when nginx cannot be started. A positive
  // `limitRate` caps each response at that many bytes a second (nginx's
  // limit_rate), so a client can overtake a download in progress.
  explicit NginxServer(std::filesystem::path root, std::int64_t limitRate = 0);

  int port() const { return port_; }
  std::string url(const std::string& name) const;
  // Body bytes nginx has written to its sockets so far (its access log).
  std::int64_t bodyBytesSent() const;
  // How many connections the logged requests came on.
  std::size_t connectionsUsed() const;

 private:
  TempDir work_;
  int port_ = 0;
  // Stops before its work directory goes.
  std::unique_ptr<ChildProcess> nginx_;
};

}  // namespace zivora::test
