// The sample host application. It starts the sandbox ad server unless told
// where a server is, initialises the SDK against it over HTTPS, caches the
// rewarded placement, shows the ad when it is cached, and afterwards fetches
// (and accepts) the user's motivated rewards. Every host callback is printed
// with its time since start.
//
// It uses the installed public headers only: copy it into a game.
#include <string>
#include <vector>

#include "DemoSession.h"
#include "zivora/Zivora.h"

int main(int argc, char** argv) {
  auto args = demo::parseArguments(std::vector<std::string>(argv + 1, argv + argc));
  if (!args) {
    demo::printUsage();
    return 2;
  }
  return demo::runSession(*args, [](const std::string& appId, const zivora::HostOptions& host) {
    zivora::Zivora::initializeWithAppId(appId, host);
  });
}
