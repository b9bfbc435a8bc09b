// zivora-sandbox: the sandbox ad server as a process, for the sample host,
// manual runs and the soak test.
//
//   zivora-sandbox [--port N] [--certs DIR] [--files DIR] [--media DIR] [--port-file FILE]
//                  [--state DIR]
//   zivora-sandbox --make-certs DIR
//   zivora-sandbox --make-media [DIR]
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "CertificateAuthority.h"
#include "SandboxMedia.h"
#include "SandboxServer.h"

namespace {

using zivora::sandbox::CertificateAuthority;
using zivora::sandbox::SandboxMedia;
using zivora::sandbox::SandboxOptions;
using zivora::sandbox::SandboxServer;

struct CommandLine {
  SandboxOptions options;
  std::string portFile;
  std::string makeCertsIn;
  std::string makeMediaIn;
};

int usage() {
  std::fprintf(stderr,
               "usage: zivora-sandbox [--port N] [--certs DIR] [--files DIR] [--media DIR]\n"
               "                      [--port-file FILE] [--state DIR]\n"
               "       zivora-sandbox --make-certs DIR\n"
               "       zivora-sandbox --make-media [DIR]\n");
  return 2;
}

std::optional<CommandLine> parse(int argc, char** argv) {
  CommandLine line;
  for (int i = 1; i < argc; ++i) {
    const std::string_view flag = argv[i];
    // Alone, it makes the media where a server started without --media
    // looks for them.
    if (flag == "--make-media" && i + 1 == argc) {
      line.makeMediaIn = SandboxMedia::defaultDirectory().string();
      continue;
    }
    if (i + 1 >= argc) return std::nullopt;
    const std::string value = argv[++i];
    if (flag == "--port") {
      line.options.port = std::stoi(value);
    } else if (flag == "--certs") {
      line.options.certDirectory = value;
    } else if (flag == "--files") {
      line.options.filesDirectory = value;
    } else if (flag == "--media") {
      line.options.mediaDirectory = value;
    } else if (flag == "--make-media") {
      line.makeMediaIn = value;
    } else if (flag == "--state") {
      line.options.stateDirectory = value;
    } else if (flag == "--port-file") {
      line.portFile = value;
    } else if (flag == "--make-certs") {
      line.makeCertsIn = value;
    } else {
      return std::nullopt;
    }
  }
  return line;
}

void writePortFile(const std::string& path, int port) {
  const std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::trunc);
    out << port << '\n';
    if (!out.flush()) throw std::runtime_error("cannot write " + temporary);
  }
  // Readers polling for the file never see it half-written.
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    throw std::runtime_error("cannot write " + path);
  }
}

int serve(const CommandLine& line) {
  // Blocked here, before any thread starts, so every thread inherits the
  // mask and the signals arrive only at sigwait below.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  SandboxServer server(line.options);
  const int port = server.start();
  std::printf("zivora-sandbox listening on %s\n", server.baseUrl().c_str());
  std::fflush(stdout);
  if (!line.portFile.empty()) writePortFile(line.portFile, port);

  int received = 0;
  sigwait(&signals, &received);
  server.stop();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto line = parse(argc, argv);
    if (!line) return usage();
    if (!line->makeCertsIn.empty()) {
      CertificateAuthority::ensure(line->makeCertsIn);
      return 0;
    }
    if (!line->makeMediaIn.empty()) {
      SandboxMedia::ensure(line->makeMediaIn);
      return 0;
    }
    return serve(*line);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zivora-sandbox: %s\n", e.what());
    return 1;
  }
}
