// A C host's view, on real threads against the sandbox over TLS: options,
// the host's log and opener functions and the callbacks go in through the C
// structs with their user data; an older, smaller options struct leaves the
// functions out.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "SandboxServer.h"
#include "platform/UrlOpener.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/Context.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/zivora_c.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr char kWarning[] = "0 [Zivora] Warning: Zivora already initialzed!";

// The host's side; the C functions find it through their user data.
struct CHost {
  std::mutex mutex;
  std::condition_variable changed;
  Lines lines, opened, failures;

  static CHost& of(void* user) { return *static_cast<CHost*>(user); }
  static void log(void* user, zivora_log_level level, const char* line) {
    std::lock_guard lock(of(user).mutex);
    of(user).lines.push_back(std::to_string(level) + " " + line);
  }
  // The host's zero means the address was not opened.
  static int open(void* user, const char* url) {
    std::lock_guard lock(of(user).mutex);
    of(user).opened.emplace_back(url);
    return 0;
  }
  static void failed(void* user, const char* placement, uint64_t error) {
    std::lock_guard lock(of(user).mutex);
    of(user).failures.push_back(std::string(placement) + ":" + std::to_string(error));
    of(user).changed.notify_all();
  }
  bool heard(const std::string& line) {
    std::lock_guard lock(mutex);
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
};

class ZivoraCIntegrationTest : public ::testing::Test {
 protected:
  ZivoraCIntegrationTest() {
    sandbox_.start();
    endpoint_ = sandbox_.adEndpoint();
    ca_ = sandbox_.caFile();
  }
  ~ZivoraCIntegrationTest() override { zivora_shutdown(); }

  zivora_options options() {
    zivora_options options;
    zivora_options_init(&options);
    options.data_root = dataRoot_.c_str();
    options.application_name = "c-host";
    options.ad_endpoint = endpoint_.c_str();
    options.ca_file = ca_.c_str();
    options.host_user_data = &host_;
    options.log = &CHost::log;
    options.open_url = &CHost::open;
    return options;
  }

  // A headless host: its ads are drawn in memory.
  test::ScopedEnv driver_{"SDL_VIDEODRIVER", "dummy"};
  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::string dataRoot_ = root_.path().string();
  std::string endpoint_, ca_;
  CHost host_;
};

TEST_F(ZivoraCIntegrationTest, TheHostsFunctionsAndCallbacksGetItsUserDataAndTheirAnswers) {
  sandbox_.setHandler("getVideo", [](const nlohmann::json&) {
    return nlohmann::json{{"error", 9}};
  });
  auto given = options();
  zivora_initialize("c-app", &given);
  zivora_initialize("c-app", &given);
  EXPECT_TRUE(host_.heard(kWarning));

  auto opener = Context::current()->opener();
  EXPECT_FALSE(opener->openURL("https://store.example/app"));
  EXPECT_FALSE(opener->openURL("file:///etc/passwd"));

  zivora_callbacks callbacks;
  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &host_;
  callbacks.video_did_fail_to_load = &CHost::failed;
  zivora_set_callbacks(&callbacks);
  zivora_cache_video("rewarded");

  // Once the handshake succeeds the parked call is replayed; the ad server
  // refuses it with its own error number, which reaches the host unchanged.
  std::unique_lock lock(host_.mutex);
  ASSERT_TRUE(host_.changed.wait_for(lock, 10s, [&] { return !host_.failures.empty(); }));
  EXPECT_EQ(host_.failures, Lines{"rewarded:9"});
  EXPECT_EQ(host_.opened, Lines{"https://store.example/app"});
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_NE(received[0].params.find(R"("appId":"c-app")"), std::string::npos);
  EXPECT_EQ(received[1].requestName, "getVideo");
}

TEST_F(ZivoraCIntegrationTest, AnOlderOptionsStructHasNoHostFunctions) {
  auto given = options();
  given.struct_size = offsetof(zivora_options, host_user_data);
  zivora_initialize("app-1", &given);
  // The line goes to standard error, as before the functions existed.
  testing::internal::CaptureStderr();
  zivora_initialize("app-1", &given);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("already initialzed"), std::string::npos);
  EXPECT_FALSE(host_.heard(kWarning));
}

}  // namespace
}  // namespace zivora
