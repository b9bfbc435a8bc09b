#include "support/NginxServer.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <set>
#include <stdexcept>

namespace zivora::test {
namespace {

namespace fs = std::filesystem;

// A port the system had free a moment ago.
int freeLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    if (fd >= 0) ::close(fd);
    throw std::runtime_error("no free port");
  }
  ::close(fd);
  return ntohs(address.sin_port);
}

bool accepts(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  const bool ok =
      fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (fd >= 0) ::close(fd);
  return ok;
}

std::string configuration(const fs::path& work, const fs::path& root, int port,
                          std::int64_t limitRate) {
  return fmt::format(R"(daemon off;
master_process on;
worker_processes 1;
{user}
error_log {work}/error.log warn;
pid {work}/nginx.pid;
events {{ worker_connections 64; }}
http {{
  log_format sent '$body_bytes_sent $connection';
  access_log {work}/access.log sent;
  client_body_temp_path {work}/body;
  proxy_temp_path {work}/proxy;
  fastcgi_temp_path {work}/fastcgi;
  uwsgi_temp_path {work}/uwsgi;
  scgi_temp_path {work}/scgi;
  sendfile on;
  server {{
    listen 127.0.0.1:{port};
    root {root};
    limit_rate {rate};
  }}
}}
)",
                     fmt::arg("user", ::geteuid() == 0 ? "user root;" : ""),
                     fmt::arg("work", work.string()), fmt::arg("root", root.string()),
                     fmt::arg("port", port), fmt::arg("rate", limitRate > 0 ? limitRate : 0));
}

}  // namespace

NginxServer::NginxServer(fs::path root, std::int64_t limitRate) : port_(freeLoopbackPort()) {
  const fs::path& work = work_.path();
  const fs::path conf = work / "nginx.conf";
  std::ofstream(conf) << configuration(work, fs::absolute(root), port_, limitRate);

  // nginx writes its pid file once its listening socket is open: a change
  // in the work directory or the child's exit wakes the wait below.
  const int changes = ::inotify_init1(IN_CLOEXEC);
  if (changes < 0 || ::inotify_add_watch(changes, work.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
    if (changes >= 0) ::close(changes);
    throw std::runtime_error("inotify failed");
  }
  nginx_ = ChildProcess::start(
      {"nginx", "-c", conf.string(), "-p", work.string(), "-e", (work / "error.log").string()}, {});
  if (!nginx_) {
    ::close(changes);
    throw std::runtime_error("cannot start nginx");
  }
  const int exited = static_cast<int>(::syscall(SYS_pidfd_open, nginx_->pid(), 0));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::string failure;
  while (!accepts(port_)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd events[2] = {{changes, POLLIN, 0}, {exited, POLLIN, 0}};
    if (left.count() <= 0 ||
        ::poll(events, exited >= 0 ? 2 : 1, static_cast<int>(left.count())) <= 0) {
      failure = "nginx did not listen";
      break;
    }
    if (events[1].revents != 0) {
      failure = "nginx exited at start; see " + (work / "error.log").string();
      break;
    }
    char buffer[4096];
    [[maybe_unused]] auto drained = ::read(changes, buffer, sizeof buffer);
  }
  ::close(changes);
  if (exited >= 0) ::close(exited);
  if (!failure.empty()) throw std::runtime_error(failure);
}

std::int64_t NginxServer::bodyBytesSent() const {
  std::ifstream log(work_.path() / "access.log");
  std::int64_t total = 0, bytes = 0, connection = 0;
  while (log >> bytes >> connection) total += bytes;
  return total;
}

std::size_t NginxServer::connectionsUsed() const {
  std::ifstream log(work_.path() / "access.log");
  std::set<std::int64_t> connections;
  std::int64_t bytes = 0, connection = 0;
  while (log >> bytes >> connection) connections.insert(connection);
  return connections.size();
}

std::string NginxServer::url(const std::string& name) const {
  return fmt::format("http://127.0.0.1:{}/{}", port_, name);
}

}  // namespace zivora::test
