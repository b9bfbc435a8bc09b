// A C host's view, on real threads against the sandbox over TLS: options
// and callbacks go in through the C structs, the handshake's outcome comes
// back through a C callback.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "SandboxServer.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/zivora_c.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

struct Inbox {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> failures;
};

TEST(ZivoraCIntegration, AParkedCallIsAnsweredThroughTheCallbackTable) {
  // A headless host: its ads are drawn in memory.
  test::ScopedEnv driver("SDL_VIDEODRIVER", "dummy");
  test::TempDir root;
  sandbox::SandboxServer sandbox{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  sandbox.start();
  sandbox.setHandler("getVideo", [](const nlohmann::json&) {
    return nlohmann::json{{"error", 9}};
  });
  std::string dataRoot = root.path().string(), endpoint = sandbox.adEndpoint(),
              ca = sandbox.caFile();

  zivora_options options;
  zivora_options_init(&options);
  options.data_root = dataRoot.c_str();
  options.application_name = "c-host";
  options.ad_endpoint = endpoint.c_str();
  options.ca_file = ca.c_str();
  zivora_initialize("c-app", &options);

  Inbox inbox;
  zivora_callbacks callbacks;
  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &inbox;
  callbacks.video_did_fail_to_load = [](void* user, const char* placement, uint64_t error) {
    auto* inbox = static_cast<Inbox*>(user);
    std::lock_guard lock(inbox->mutex);
    inbox->failures.push_back(std::string(placement) + ":" + std::to_string(error));
    inbox->changed.notify_all();
  };
  zivora_set_callbacks(&callbacks);
  zivora_cache_video("rewarded");

  // Once the handshake succeeds the parked call is replayed; the ad server
  // refuses it with its own error number, which reaches the host unchanged.
  {
    std::unique_lock lock(inbox.mutex);
    ASSERT_TRUE(inbox.changed.wait_for(lock, 10s, [&] { return !inbox.failures.empty(); }));
    EXPECT_EQ(inbox.failures, std::vector<std::string>{"rewarded:9"});
  }
  auto received = sandbox.received();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_NE(received[0].params.find(R"("appId":"c-app")"), std::string::npos);
  EXPECT_EQ(received[1].requestName, "getVideo");
  ZivoraInstance::reset();
}

}  // namespace
}  // namespace zivora
