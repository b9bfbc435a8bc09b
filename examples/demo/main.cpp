// The sample host application: starts the sandbox ad server unless told
// where a server is, initialises the SDK against it over HTTPS, parks a cache
// request until the handshake has succeeded, and prints each step (and the
// SDK's own log lines) with its time since start.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "SandboxProcess.h"
#include "core/Context.h"
#include "core/ZVConfiguration.h"
#include "core/ZivoraInstance.h"
#include "platform/linux/CurlHttpClient.h"
#include "util/LogSink.h"
#include "util/PercentEncoding.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace {

using Clock = std::chrono::steady_clock;
const Clock::time_point kStart = Clock::now();

void step(const std::string& text) {
  double seconds = std::chrono::duration<double>(Clock::now() - kStart).count();
  std::printf("[%8.3fs] %s\n", seconds, text.c_str());
  std::fflush(stdout);
}

struct Arguments {
  std::string server, analyticsServer, ca, dataDir, appId = "zivora-demo-app", out, sandbox;
  bool headless = false;
};

void usage() {
  std::fprintf(
      stderr,
      "usage: zivora-demo [--server URL] [--analytics-server URL] [--ca FILE] [--data-dir DIR]\n"
      "                   [--app-id ID] [--headless] [--out DIR] [--sandbox PATH]\n");
}

std::optional<Arguments> parse(int argc, char** argv) {
  Arguments args;
  for (int i = 1; i < argc; ++i) {
    std::string flag = argv[i];
    if (flag == "--headless") {
      args.headless = true;
      continue;
    }
    if (i + 1 >= argc) return std::nullopt;
    std::string value = argv[++i];
    if (flag == "--server")
      args.server = value;
    else if (flag == "--analytics-server")
      args.analyticsServer = value;
    else if (flag == "--ca")
      args.ca = value;
    else if (flag == "--data-dir")
      args.dataDir = value;
    else if (flag == "--app-id")
      args.appId = value;
    else if (flag == "--out")
      args.out = value;
    else if (flag == "--sandbox")
      args.sandbox = value;
    else
      return std::nullopt;
  }
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) args.headless = true;
  if (args.dataDir.empty())
    args.dataDir = (std::filesystem::temp_directory_path() / "zivora-demo").string();
  return args;
}

std::filesystem::path sandboxExecutable(const Arguments& args) {
  if (!args.sandbox.empty()) return args.sandbox;
  auto self = std::filesystem::read_symlink("/proc/self/exe");
  return self.parent_path().parent_path().parent_path() / "tools" / "sandbox" / "zivora-sandbox";
}

// Prints the SDK's own log lines with the demo's clock.
class StepLog final : public zivora::LogSink {
 public:
  void write(zivora::LogLevel, std::string_view text) override {
    step("  sdk: " + std::string(text));
  }
};

// Prints what the host hears.
class PrintingDelegate final : public zivora::ZivoraDelegate {
 public:
  void videoDidCache(const std::string& placement) override {
    step("delegate: videoDidCache " + placement);
  }
  void videoDidFailToLoad(const std::string& placement, std::uint64_t error) override {
    step("delegate: videoDidFailToLoad " + placement + " error " + std::to_string(error));
  }
};

// Sends through curl and prints the device block of each handshake it sends,
// as the server receives it.
class HandshakePrinter final : public zivora::platform::HttpClient {
 public:
  explicit HandshakePrinter(std::string caFile)
      : client_(zivora::platform::HttpClientOptions{.caFile = std::move(caFile)}) {}

  zivora::platform::HttpResponse perform(const zivora::platform::HttpRequest& request) override {
    printDeviceBlock(request.body);
    return client_.perform(request);
  }

 private:
  static void printDeviceBlock(const std::string& body) {
    constexpr std::string_view kParams = "Params=";
    if (body.rfind(kParams, 0) != 0) return;
    auto end = body.find('&');
    auto params = zivora::PercentEncoding::decode(
        std::string_view(body).substr(kParams.size(), end - kParams.size()));
    if (!params) return;
    auto json = nlohmann::json::parse(*params, nullptr, false);
    if (!json.is_object() || !json.contains(zivora::TS_API_GET_INITIALIZATION)) return;
    const auto& initialization = json[zivora::TS_API_GET_INITIALIZATION];
    if (initialization.contains(zivora::TS_API_DEVICE_INFO))
      step("handshake device block: " + initialization[zivora::TS_API_DEVICE_INFO].dump());
  }

  zivora::platform::CurlHttpClient client_;
};

// Waits for the handshake's reply to land in the settings: the sandbox's
// reply names a close-button image.
bool waitForHandshake(std::chrono::seconds limit) {
  auto deadline = Clock::now() + limit;
  while (Clock::now() < deadline) {
    auto configuration = zivora::ZVConfiguration::shared();
    if (auto closeButton = configuration ? configuration->closeButtonURL() : std::nullopt) {
      step("handshake answered; close button image " + *closeButton);
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  auto args = parse(argc, argv);
  if (!args) {
    usage();
    return 2;
  }
  step(std::string("zivora-demo, SDK ") + zivora::ZivoraSDKVersionString +
       (args->headless ? ", headless" : ", with a display"));
  try {
    std::unique_ptr<demo::SandboxProcess> sandbox;
    if (args->server.empty()) {
      sandbox = std::make_unique<demo::SandboxProcess>(
          sandboxExecutable(*args), std::filesystem::path(args->dataDir) / "sandbox");
      args->server = sandbox->adEndpoint();
      if (args->analyticsServer.empty()) args->analyticsServer = sandbox->analyticsEndpoint();
      if (args->ca.empty()) args->ca = sandbox->caFile();
      step("sandbox started at " + args->server);
    }

    zivora::HostOptions host{.dataRoot = args->dataDir,
                             .applicationName = "zivora-demo",
                             .applicationVersion = ZIVORA_VERSION_STRING,
                             .adEndpoint = args->server,
                             .analyticsEndpoint = args->analyticsServer,
                             .caFile = args->ca};
    // The sandbox listens on a new port each run: forget an endpoint it
    // handed out last time, or the handshake would go there.
    if (sandbox)
      std::filesystem::remove(std::filesystem::path(args->dataDir) / "Preferences" /
                              "defaults.sqlite");
    step("initializeWithAppId " + args->appId + ", data root " + args->dataDir);
    zivora::ZivoraInstance::start(
        args->appId, host,
        zivora::RuntimeOptions{.http = std::make_shared<HandshakePrinter>(args->ca),
                               .log = std::make_shared<StepLog>()});
    zivora::Zivora::setDelegate(std::make_shared<PrintingDelegate>());
    step("cacheVideo rewarded (parked until the handshake succeeds)");
    zivora::Zivora::cacheVideo("rewarded");

    bool ok = waitForHandshake(std::chrono::seconds(30));
    step(ok ? "initialization succeeded" : "initialization did not succeed within 30 s");
    step("install id " + zivora::ZVConfiguration::shared()->randomUID().value_or("?"));
    zivora::ZivoraInstance::reset();
    return ok ? 0 : 1;
  } catch (const std::exception& error) {
    step(std::string("error: ") + error.what());
    return 1;
  }
}
