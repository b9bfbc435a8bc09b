#include "DemoSession.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <thread>

#include "CallbackLog.h"
#include "ContactSheet.h"
#include "SandboxProcess.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace demo {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

std::filesystem::path sandboxExecutable(const Arguments& args) {
  if (!args.sandbox.empty()) return args.sandbox;
  auto self = std::filesystem::read_symlink("/proc/self/exe");
  return self.parent_path().parent_path().parent_path() / "tools" / "sandbox" / "zivora-sandbox";
}

// A picture of the ad screens for the contact sheet.
void snapshot(ContactSheet& sheet, const std::string& caption) {
  if (auto picture = zivora::Zivora::captureScreen()) {
    sheet.add(*picture, caption);
  } else {
    step("no picture of \"" + caption + "\": no ad screen was shown");
  }
}

// What the person would do, with pictures of the key moments. The screens
// take the host's actions as they take its keys.
bool playHeadless(CallbackLog& log, ContactSheet& sheet) {
  using zivora::ZivoraScreenAction;
  if (!log.waitFor("videoWindowDidDisplay", seconds(20))) return false;
  // The video's controls slide in as it starts.
  std::this_thread::sleep_for(milliseconds(600));
  snapshot(sheet, "video with its controls");
  // The sandbox's ads allow skipping after two seconds; wait past it, but
  // let the video play to its end so that it earns the reward.
  std::this_thread::sleep_for(milliseconds(2000));
  snapshot(sheet, "skip control ready");
  if (!log.waitFor("videoDidDismiss", seconds(60))) return false;
  std::this_thread::sleep_for(milliseconds(800));
  snapshot(sheet, "post-video screen");
  step("tap the call to action");
  zivora::Zivora::performScreenAction(ZivoraScreenAction::CallToAction);
  // Without a server the click cannot be sent and nothing opens; the
  // player then closes the screen all the same, which pays the reward.
  const bool clicked = log.waitFor("videoPostViewDidClick", seconds(20));
  if (!clicked) step("the call to action opened nothing");
  step("close the post-video screen");
  zivora::Zivora::performScreenAction(ZivoraScreenAction::Close);
  return log.waitFor("videoWindowDidClose", seconds(20)) && clicked;
}

// Waits until the ad events have reached the server (they travel through a
// file queue, so a quick exit would leave them for the next launch).
void drainEvents(seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (zivora::Zivora::hasQueuedEvents()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      step("events still queued; they are sent on the next launch");
      return;
    }
    std::this_thread::sleep_for(milliseconds(50));
  }
}

zivora::HostOptions hostOptions(const Arguments& args) {
  zivora::HostOptions host{.dataRoot = args.dataDir,
                           .applicationName = "zivora-demo",
                           .applicationVersion = zivora::ZivoraSDKVersionString,
                           .adEndpoint = args.server,
                           .analyticsEndpoint = args.analyticsServer,
                           .caFile = args.ca,
                           .screenWidth = args.headless ? 1280 : 0,
                           .screenHeight = args.headless ? 720 : 0};
  // The SDK's own lines, printed with the demo's clock among its callbacks.
  host.log = [](zivora::ZivoraLogLevel, const std::string& line) { step("  sdk: " + line); };
  // Headless runs open nothing: the address is printed instead. A game
  // would show it in its store's overlay browser here.
  if (args.headless) {
    host.openUrl = [](const std::string& url) {
      step("open " + url + " (headless: not launched)");
      return true;
    };
  }
  return host;
}

int run(Arguments& args, const StartSdk& start) {
  std::unique_ptr<SandboxProcess> sandbox;
  if (args.server.empty()) {
    sandbox = std::make_unique<SandboxProcess>(sandboxExecutable(args),
                                               std::filesystem::path(args.dataDir) / "sandbox");
    args.server = sandbox->adEndpoint();
    if (args.analyticsServer.empty()) args.analyticsServer = sandbox->analyticsEndpoint();
    if (args.ca.empty()) args.ca = sandbox->caFile();
    step("sandbox started at " + args.server);
  }
  // Headless, SDL draws with its software renderer into memory.
  if (args.headless) setenv("SDL_VIDEODRIVER", "dummy", 1);
  // The sandbox listens on a new port each run: forget an endpoint it
  // handed out last time, or the handshake would go there.
  if (sandbox)
    std::filesystem::remove(std::filesystem::path(args.dataDir) / "Preferences" /
                            "defaults.sqlite");

  step("initializeWithAppId " + args.appId + ", data root " + args.dataDir);
  start(args.appId, hostOptions(args));
  if (!args.userId.empty()) zivora::Zivora::setAppUserId(args.userId);
  auto log = std::make_shared<CallbackLog>();
  zivora::Zivora::setDelegate(log);

  step("cacheVideo " + args.placement);
  zivora::Zivora::cacheVideo(args.placement);
  bool ok = log->waitFor("videoDidCache", seconds(90));
  ContactSheet sheet;
  if (ok) {
    step("showVideo " + args.placement);
    zivora::Zivora::showVideo(args.placement);
    ok = args.headless ? playHeadless(*log, sheet)
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
  if (sheet.size() > 0) {
    auto file = std::filesystem::path(args.out) / "contact-sheet.png";
    if (sheet.write(file)) step("contact sheet written to " + file.string());
  }
  step(std::string("callbacks written to ") + args.out + "/callbacks.json");
  zivora::Zivora::shutdown();
  const bool rewarded = log->heard("videoReceiveReward");
  step(rewarded ? "the ad ran its whole course" : "the ad did not run its whole course");
  return rewarded ? 0 : 1;
}

}  // namespace

void printUsage() {
  std::fprintf(stderr,
               "usage: zivora-demo [--server URL] [--analytics-server URL] [--ca FILE]\n"
               "                   [--data-dir DIR] [--app-id ID] [--placement NAME]\n"
               "                   [--headless] [--out DIR] [--sandbox PATH] [--user-id ID]\n");
}

std::optional<Arguments> parseArguments(const std::vector<std::string>& arguments) {
  Arguments args;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& flag = arguments[i];
    if (flag == "--headless") {
      args.headless = true;
      continue;
    }
    if (i + 1 >= arguments.size()) return std::nullopt;
    const std::string& value = arguments[++i];
    std::string* target = flag == "--server"             ? &args.server
                          : flag == "--analytics-server" ? &args.analyticsServer
                          : flag == "--ca"               ? &args.ca
                          : flag == "--data-dir"         ? &args.dataDir
                          : flag == "--app-id"           ? &args.appId
                          : flag == "--placement"        ? &args.placement
                          : flag == "--out"              ? &args.out
                          : flag == "--sandbox"          ? &args.sandbox
                          : flag == "--user-id"          ? &args.userId
                                                         : nullptr;
    if (!target) return std::nullopt;
    *target = value;
  }
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) args.headless = true;
  auto temporary = std::filesystem::temp_directory_path();
  if (args.dataDir.empty()) args.dataDir = (temporary / "zivora-demo").string();
  if (args.out.empty()) args.out = (temporary / "zivora-demo-out").string();
  return args;
}

int runSession(Arguments args, const StartSdk& start) {
  step(std::string("zivora-demo, SDK ") + zivora::ZivoraSDKVersionString +
       (args.headless ? ", headless" : ", with a display"));
  try {
    return run(args, start);
  } catch (const std::exception& error) {
    step(std::string("error: ") + error.what());
    return 1;
  }
}

}  // namespace demo
