// The sample host application: starts the sandbox ad server unless told
// where a server is, initialises against it over HTTPS and prints each step
// with its time since start.
#include <sys/utsname.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "SandboxProcess.h"
#include "core/Context.h"
#include "core/ZVConfiguration.h"
#include "events/ZVSendRequest.h"
#include "platform/dispatch/Runtime.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "util/JsonConvert.h"
#include "zivora/ZVConstants.h"

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
  std::fprintf(stderr,
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
    if (flag == "--server") args.server = value;
    else if (flag == "--analytics-server") args.analyticsServer = value;
    else if (flag == "--ca") args.ca = value;
    else if (flag == "--data-dir") args.dataDir = value;
    else if (flag == "--app-id") args.appId = value;
    else if (flag == "--out") args.out = value;
    else if (flag == "--sandbox") args.sandbox = value;
    else return std::nullopt;
  }
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) args.headless = true;
  if (args.dataDir.empty()) args.dataDir = (std::filesystem::temp_directory_path() / "zivora-demo").string();
  return args;
}

std::filesystem::path sandboxExecutable(const Arguments& args) {
  if (!args.sandbox.empty()) return args.sandbox;
  auto self = std::filesystem::read_symlink("/proc/self/exe");
  return self.parent_path().parent_path().parent_path() / "tools" / "sandbox" / "zivora-sandbox";
}

std::string osVersion() {
  utsname name{};
  uname(&name);
  return std::string("Linux ") + name.release;
}

std::string initializationBody(const std::string& appId, const std::string& randomUID) {
  nlohmann::json deviceInfo = {{zivora::TS_API_PLATFORM_ID, zivora::TS_PLATFORM_ID},
                               {zivora::TS_API_RANDOM_UID, randomUID},
                               {zivora::TS_API_SDK_VERSION, zivora::TS_AD_SDK_VERSION},
                               {zivora::TS_API_OS_VERSION, *zivora::ZVSendRequest::urlEncode(osVersion())}};
  return zivora::JsonConvert::serialize(
      {{zivora::TS_API_GET_INITIALIZATION,
        {{zivora::TS_API_APP_ID, appId}, {zivora::TS_API_DEVICE_INFO, deviceInfo}}}});
}

// Posts the initialization request on a serial queue, as the SDK does, and
// waits for the reply.
bool initialize(zivora::Context& context, const std::string& appId) {
  auto configuration = zivora::ZVConfiguration::shared();
  configuration->setAppId(appId);
  std::string randomUID = configuration->randomUID().value_or("");
  step("install id " + randomUID);

  auto queue = context.runtime().makeSerialQueue("com.zivora.main");
  std::promise<bool> done;
  queue->async([&] {
    step("POST getInitialization to " + configuration->serverURL().value_or("?"));
    zivora::ZVSendRequest::sendPost(initializationBody(appId, randomUID),
                                    [&](const nlohmann::json* reply, int code) {
                                      bool ok = code == 200 && reply &&
                                                !zivora::JsonConvert::has(*reply, zivora::TS_API_ERROR);
                                      step("reply " + std::to_string(code) + ": " +
                                           (reply ? reply->dump() : std::string("(no object)")));
                                      done.set_value(ok);
                                    });
  });
  return done.get_future().get();
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
      sandbox = std::make_unique<demo::SandboxProcess>(sandboxExecutable(*args),
                                                       std::filesystem::path(args->dataDir) / "sandbox");
      args->server = sandbox->adEndpoint();
      if (args->analyticsServer.empty()) args->analyticsServer = sandbox->analyticsEndpoint();
      if (args->ca.empty()) args->ca = sandbox->caFile();
      step("sandbox started at " + args->server);
    }

    zivora::HostOptions host{.dataRoot = args->dataDir,
                             .applicationName = "zivora-demo",
                             .adEndpoint = args->server,
                             .analyticsEndpoint = args->analyticsServer,
                             .caFile = args->ca};
    auto context = std::make_shared<zivora::Context>(
        host, zivora::RuntimeOptions{
                  .runtime = std::make_shared<zivora::dispatch::ThreadRuntime>(host.mainQueueMode),
                  .http = std::make_shared<zivora::platform::CurlHttpClient>(
                      zivora::platform::HttpClientOptions{.caFile = args->ca})});
    zivora::Context::install(context);
    step("data root " + args->dataDir);

    bool ok = initialize(*context, args->appId);
    step(ok ? "initialization succeeded" : "initialization failed");
    zivora::Context::install(nullptr);
    return ok ? 0 : 1;
  } catch (const std::exception& error) {
    step(std::string("error: ") + error.what());
    return 1;
  }
}
