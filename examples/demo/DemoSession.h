#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zivora/HostOptions.h"

namespace demo {

// What the sample host was asked to do, from its command line.
struct Arguments {
  std::string server, analyticsServer, ca, dataDir, appId = "zivora-demo-app", out, sandbox;
  std::string placement = "rewarded", userId;
  bool headless = false;
};

// The sample's flags (argv without the program's name); nullopt on an
// unknown flag or a flag without its value. Without a display the run is
// headless.
std::optional<Arguments> parseArguments(const std::vector<std::string>& arguments);
void printUsage();

// How the SDK is started. The sample initialises it through the public
// API; a host under test may start it with collaborators of its own.
using StartSdk = std::function<void(const std::string& appId, const zivora::HostOptions& host)>;

// The whole session: the sandbox (unless a server was named), the SDK, one
// ad cached and shown, the rewards, the output files. Returns the process's
// exit status: 0 when the ad ran its whole course and earned its reward.
int runSession(Arguments args, const StartSdk& start);

}  // namespace demo
