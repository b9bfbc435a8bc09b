// The sample host application. It starts the sandbox ad server unless told
// where a server is, initialises the SDK against it over HTTPS, caches the
// rewarded placement, shows the ad when it is cached, and afterwards fetches
// (and accepts) the user's motivated rewards. Every host callback is printed
// with its time since start.
//
// With a display the ad opens in a real window that a person watches and
// taps. Without one (--headless) the same ad runs drawn in memory with
// scripted taps, and the output directory receives callbacks.json and
// contact-sheet.png (the video with its controls, the skip control ready,
// the post-video screen).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "CallbackLog.h"
#include "HeadlessDriver.h"
#include "QuotaFileSystem.h"
#include "SandboxProcess.h"
#include "events/ZVEventSender.h"
#include "platform/UrlOpener.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sdk/Context.h"
#include "top/ZivoraInstance.h"
#include "util/LogSink.h"
#include "util/PercentEncoding.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace {

using demo::step;
using std::chrono::seconds;

struct Arguments {
  std::string server, analyticsServer, ca, dataDir, appId = "zivora-demo-app", out, sandbox;
  std::string placement = "rewarded", userId;
  bool headless = false;
  // Zero keeps the SDK's defaults.
  long idleTimeoutMs = 0, retryUnitMs = 0;
  unsigned long long diskCapacity = 0;
};

void usage() {
  std::fprintf(
      stderr,
      "usage: zivora-demo [--server URL] [--analytics-server URL] [--ca FILE]\n"
      "                   [--data-dir DIR] [--app-id ID] [--placement NAME]\n"
      "                   [--headless] [--out DIR] [--sandbox PATH] [--user-id ID]\n"
      "                   [--idle-timeout-ms N] [--retry-unit-ms N] [--disk-capacity BYTES]\n");
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
    else if (flag == "--placement")
      args.placement = value;
    else if (flag == "--out")
      args.out = value;
    else if (flag == "--sandbox")
      args.sandbox = value;
    else if (flag == "--user-id")
      args.userId = value;
    else if (flag == "--idle-timeout-ms")
      args.idleTimeoutMs = std::stol(value);
    else if (flag == "--retry-unit-ms")
      args.retryUnitMs = std::stol(value);
    else if (flag == "--disk-capacity")
      args.diskCapacity = std::stoull(value);
    else
      return std::nullopt;
  }
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) args.headless = true;
  auto temporary = std::filesystem::temp_directory_path();
  if (args.dataDir.empty()) args.dataDir = (temporary / "zivora-demo").string();
  if (args.out.empty()) args.out = (temporary / "zivora-demo-out").string();
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

// Headless runs open nothing: the address is printed instead.
class PrintingOpener final : public zivora::platform::UrlOpener {
 public:
  bool canOpenURL(const std::string& url) override {
    return url.rfind("https://", 0) == 0 || url.rfind("http://", 0) == 0;
  }
  bool openURL(const std::string& url) override {
    step("open " + url + " (headless: not launched)");
    return canOpenURL(url);
  }
};

// Sends through curl and prints the device block of each handshake it sends,
// as the server receives it.
class HandshakePrinter final : public zivora::platform::HttpClient {
 public:
  explicit HandshakePrinter(zivora::platform::HttpClientOptions options)
      : client_(std::move(options)) {}

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

// What the person would do, with pictures of the key moments.
bool playHeadless(demo::CallbackLog& log, demo::HeadlessDriver& driver) {
  using zivora::ui::ScreenAction;
  if (!log.waitFor("videoWindowDidDisplay", seconds(20))) return false;
  driver.tapCentre();
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  driver.snapshot("video with its controls");
  // The sandbox's ads allow skipping after two seconds; wait past it, but
  // let the video play to its end so that it earns the reward.
  std::this_thread::sleep_for(std::chrono::milliseconds(2000));
  driver.snapshot("skip control ready");
  if (!log.waitFor("videoDidDismiss", seconds(60))) return false;
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  driver.snapshot("post-video screen");
  step("tap the call to action");
  driver.perform(ScreenAction::CallToAction);
  if (!log.waitFor("videoPostViewDidClick", seconds(20))) return false;
  step("close the post-video screen");
  driver.perform(ScreenAction::Close);
  return log.waitFor("videoWindowDidClose", seconds(20));
}

// Waits until the ad events have reached the server (they travel through a
// file queue, so a quick exit would leave them for the next launch).
void drainEvents(seconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    auto sender = zivora::ZVEventSender::shared();
    if (!sender || !sender->eventController().saver().hasSavedEvents()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  step("events still queued; they are sent on the next launch");
}

// The collaborators the host chooses; a soak test shortens the timeouts
// and the retry schedules and gives the cache a small disk.
zivora::RuntimeOptions runtimeOptions(const Arguments& args) {
  using std::chrono::milliseconds;
  zivora::platform::HttpClientOptions http{.caFile = args.ca};
  zivora::RuntimeOptions runtime{.log = std::make_shared<StepLog>()};
  if (args.idleTimeoutMs > 0) {
    http.connectTimeout = http.lowSpeedTime = milliseconds(args.idleTimeoutMs);
    runtime.runtime =
        std::make_shared<zivora::dispatch::ThreadRuntime>(zivora::MainQueueMode::OwnThread);
    runtime.downloads = std::make_shared<zivora::platform::CurlStreamingClient>(
        zivora::platform::StreamingClientOptions{.caFile = args.ca,
                                                 .connectTimeout = milliseconds(args.idleTimeoutMs),
                                                 .lowSpeedTime = milliseconds(args.idleTimeoutMs)},
        runtime.runtime);
  }
  runtime.http = std::make_shared<HandshakePrinter>(http);
  if (args.retryUnitMs > 0) runtime.retryTimeUnit = milliseconds(args.retryUnitMs);
  if (args.diskCapacity > 0)
    runtime.files = std::make_shared<demo::QuotaFileSystem>(args.dataDir, args.diskCapacity);
  if (args.headless) runtime.opener = std::make_shared<PrintingOpener>();
  return runtime;
}

int run(Arguments& args) {
  std::unique_ptr<demo::SandboxProcess> sandbox;
  if (args.server.empty()) {
    sandbox = std::make_unique<demo::SandboxProcess>(
        sandboxExecutable(args), std::filesystem::path(args.dataDir) / "sandbox");
    args.server = sandbox->adEndpoint();
    if (args.analyticsServer.empty()) args.analyticsServer = sandbox->analyticsEndpoint();
    if (args.ca.empty()) args.ca = sandbox->caFile();
    step("sandbox started at " + args.server);
  }
  // Headless, SDL draws with its software renderer into memory.
  if (args.headless) setenv("SDL_VIDEODRIVER", "dummy", 1);

  zivora::HostOptions host{.dataRoot = args.dataDir,
                           .applicationName = "zivora-demo",
                           .applicationVersion = ZIVORA_VERSION_STRING,
                           .adEndpoint = args.server,
                           .analyticsEndpoint = args.analyticsServer,
                           .caFile = args.ca,
                           .screenWidth = args.headless ? 1280 : 0,
                           .screenHeight = args.headless ? 720 : 0};
  // The sandbox listens on a new port each run: forget an endpoint it
  // handed out last time, or the handshake would go there.
  if (sandbox)
    std::filesystem::remove(std::filesystem::path(args.dataDir) / "Preferences" /
                            "defaults.sqlite");
  zivora::RuntimeOptions runtime = runtimeOptions(args);

  step("initializeWithAppId " + args.appId + ", data root " + args.dataDir);
  zivora::ZivoraInstance::start(args.appId, host, runtime);
  if (!args.userId.empty()) zivora::Zivora::setAppUserId(args.userId);
  auto log = std::make_shared<demo::CallbackLog>();
  zivora::Zivora::setDelegate(log);

  step("cacheVideo " + args.placement);
  zivora::Zivora::cacheVideo(args.placement);
  bool ok = log->waitFor("videoDidCache", seconds(90));
  demo::HeadlessDriver driver;
  if (ok) {
    step("showVideo " + args.placement);
    zivora::Zivora::showVideo(args.placement);
    ok = args.headless ? playHeadless(*log, driver)
                       : log->waitFor("videoWindowDidClose", seconds(600));
  }
  if (ok) log->waitFor("videoReceiveReward", seconds(5), "");

  // The call to action led to a game that the user installed and opened:
  // the sandbox grants the reward a real server would.
  if (sandbox && ok && sandbox->grantReward("Sandbox Quest", 50))
    step("the sandbox granted a reward of 50 for installing Sandbox Quest");
  step("requestMotivatedRewards");
  zivora::Zivora::requestMotivatedRewards();
  log->waitFor("receiveMotivatedRewards", seconds(20), "failedRequestMotivatedRewards");
  drainEvents(seconds(10));

  std::filesystem::create_directories(args.out);
  log->writeJson(std::filesystem::path(args.out) / "callbacks.json");
  if (driver.sheet().size() > 0) {
    auto sheet = std::filesystem::path(args.out) / "contact-sheet.png";
    if (driver.sheet().write(sheet)) step("contact sheet written to " + sheet.string());
  }
  step(std::string("callbacks written to ") + args.out + "/callbacks.json");
  zivora::ZivoraInstance::reset();
  const bool rewarded = log->heard("videoReceiveReward");
  step(rewarded ? "the ad ran its whole course" : "the ad did not run its whole course");
  return rewarded ? 0 : 1;
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
    return run(*args);
  } catch (const std::exception& error) {
    step(std::string("error: ") + error.what());
    return 1;
  }
}
