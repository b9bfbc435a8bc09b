// The sample host runs a whole ad headless against the sandbox: the host's
// callbacks, the requests and events the server saw, the reward and the
// contact sheet.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SandboxServer.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/ChildProcess.h"
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

// The processes `parent`'s main thread started, from /proc.
std::vector<pid_t> childrenOf(pid_t parent) {
  std::ifstream in("/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) +
                   "/children");
  std::vector<pid_t> children;
  for (pid_t child; in >> child;) children.push_back(child);
  return children;
}

// A process that has ended, whether or not its new parent reaped it yet.
bool ended(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(in, line)) return true;
  const auto state = line.find(") ");
  return state != std::string::npos && line.size() > state + 2 &&
         (line[state + 2] == 'Z' || line[state + 2] == 'X');
}

TEST(DemoEndToEnd, AKilledDemoTakesItsSandboxWithIt) {
  test::TempDir work;
  auto demo = test::ChildProcess::start(
      {ZIVORA_DEMO_EXECUTABLE, "--headless", "--data-dir", (work.path() / "data").string(), "--out",
       (work.path() / "out").string()},
      {.input = {}, .captureOutput = true});
  ASSERT_NE(demo, nullptr);
  while (auto line = demo->readLine(std::chrono::seconds(60))) {
    if (line->find("sandbox started at") != std::string::npos) break;
  }
  const auto children = childrenOf(demo->pid());
  ASSERT_EQ(children.size(), 1u) << "the demo's sandbox";
  demo->kill(SIGKILL);
  ASSERT_TRUE(demo->waitFor(std::chrono::seconds(30)));
  // The kernel ends the sandbox with its parent: a process descriptor of it
  // becomes readable when it ends (the bound only ends a failing run).
  const int sandbox = static_cast<int>(::syscall(SYS_pidfd_open, children.front(), 0));
  if (sandbox >= 0) {
    pollfd exit{sandbox, POLLIN, 0};
    ::poll(&exit, 1, 30'000);
    ::close(sandbox);
  }
  EXPECT_TRUE(ended(children.front())) << "the sandbox outlived the demo";
}

}  // namespace
}  // namespace zivora
#endif  // ZIVORA_DEMO_EXECUTABLE
