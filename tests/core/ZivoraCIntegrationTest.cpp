// A C host's view, on real threads against the sandbox over TLS: options
// and callbacks go in through the C structs, the handshake's outcome comes
// back through a C callback.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "SandboxServer.h"
#include "core/ZivoraInstance.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/TempDir.h"
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
  test::TempDir root;
  sandbox::SandboxServer sandbox{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  sandbox.start();
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

  // This build has no placement layer yet: once the handshake succeeds the
  // replayed call is answered with error 3.
  {
    std::unique_lock lock(inbox.mutex);
    ASSERT_TRUE(inbox.changed.wait_for(lock, 10s, [&] { return !inbox.failures.empty(); }));
    EXPECT_EQ(inbox.failures, std::vector<std::string>{"rewarded:3"});
  }
  auto received = sandbox.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_NE(received[0].params.find(R"("appId":"c-app")"), std::string::npos);
  ZivoraInstance::reset();
}

}  // namespace
}  // namespace zivora
