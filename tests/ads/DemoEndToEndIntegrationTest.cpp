// The sample host runs a whole ad headless against the sandbox: the host's
// callbacks, the requests and events the server saw, the reward and the
// contact sheet.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SandboxServer.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/TempDir.h"

// Only trees that build the sample host (not the sanitizer trees) run it.
#ifdef ZIVORA_DEMO_EXECUTABLE
namespace zivora {
namespace {

std::vector<std::string> callbacksIn(const std::filesystem::path& file) {
  std::vector<std::string> names;
  std::ifstream in(file);
  auto document = nlohmann::json::parse(in, nullptr, false);
  if (!document.is_array()) return names;
  for (const auto& entry : document) names.push_back(entry.value("callback", ""));
  return names;
}

TEST(DemoEndToEnd, TheHeadlessDemoRunsAWholeAdAgainstTheSandbox) {
  test::TempDir work;
  sandbox::SandboxServer server{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  server.start();
  // A reward waits on the server, as for a game the user installed earlier.
  server.rewards().grant("Sandbox Quest", 50);
  const auto out = work.path() / "out";
  const std::string command =
      std::string("timeout 120 ") + ZIVORA_DEMO_EXECUTABLE + " --headless --server " +
      server.adEndpoint() + " --analytics-server " + server.analyticsEndpoint() + " --ca " +
      server.caFile() + " --data-dir " + (work.path() / "data").string() + " --out " +
      out.string() + " > " + (work.path() / "demo.log").string() + " 2>&1";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "see " << (work.path() / "demo.log");

  EXPECT_EQ(callbacksIn(out / "callbacks.json"),
            (std::vector<std::string>{
                "videoDidCache", "videoWindowWillDisplay", "videoWindowDidDisplay",
                "videoDidDismiss", "videoPostViewDidClick", "videoWindowWillClose",
                "videoWindowDidClose", "videoReceiveReward", "receiveMotivatedRewards"}));
  EXPECT_GT(std::filesystem::file_size(out / "contact-sheet.png"), 10'000u);

  std::vector<std::string> adRequests;
  for (const auto& request : server.received()) {
    if (!request.requestName.empty() && request.requestName != "analytics") {
      adRequests.push_back(request.requestName);
    }
  }
  auto position = [&](const std::string& name) {
    return std::find(adRequests.begin(), adRequests.end(), name) - adRequests.begin();
  };
  ASSERT_LT(position("watchedAd"), static_cast<long>(adRequests.size()));
  EXPECT_LT(position("getInitialization"), position("getVideo"));
  EXPECT_LT(position("getVideo"), position("startWatchingAd"));
  EXPECT_LT(position("startWatchingAd"), position("watchedAd"));
  EXPECT_LT(position("watchedAd"), position("clickAd"));
  EXPECT_LT(position("getMotivatedRewards"), position("removeMotivatedRewards"));
  EXPECT_LT(position("removeMotivatedRewards"), static_cast<long>(adRequests.size()));
}

}  // namespace
}  // namespace zivora
#endif  // ZIVORA_DEMO_EXECUTABLE
