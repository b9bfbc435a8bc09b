// The C interface's host functions on a real start: the log and opener
// functions reach the SDK with their user data, and an older, smaller
// options struct leaves them out.
#include <gtest/gtest.h>

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

// The host's side; the C functions find it through their user data.
struct CHost {
  std::mutex mutex;
  std::vector<std::string> lines;
  std::vector<std::string> opened;

  static void log(void* user, zivora_log_level level, const char* line) {
    auto* host = static_cast<CHost*>(user);
    std::lock_guard lock(host->mutex);
    host->lines.push_back(std::to_string(level) + " " + line);
  }
  static int open(void* user, const char* url) {
    auto* host = static_cast<CHost*>(user);
    std::lock_guard lock(host->mutex);
    host->opened.emplace_back(url);
    return 0;
  }
  bool heard(const std::string& line) {
    std::lock_guard lock(mutex);
    for (const auto& text : lines)
      if (text == line) return true;
    return false;
  }
};

class ZivoraCHostHooksTest : public ::testing::Test {
 protected:
  ZivoraCHostHooksTest() {
    sandbox_.start();
    endpoint_ = sandbox_.adEndpoint();
    ca_ = sandbox_.caFile();
  }
  ~ZivoraCHostHooksTest() override { zivora_shutdown(); }

  zivora_options options() {
    zivora_options options;
    zivora_options_init(&options);
    options.data_root = dataRoot_.c_str();
    options.ad_endpoint = endpoint_.c_str();
    options.ca_file = ca_.c_str();
    options.host_user_data = &host_;
    options.log = &CHost::log;
    options.open_url = &CHost::open;
    return options;
  }

  test::ScopedEnv driver_{"SDL_VIDEODRIVER", "dummy"};
  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::string dataRoot_ = root_.path().string();
  std::string endpoint_, ca_;
  CHost host_;
};

TEST_F(ZivoraCHostHooksTest, TheHostsFunctionsGetItsUserDataAndTheirAnswers) {
  auto given = options();
  zivora_initialize("app-1", &given);
  zivora_initialize("app-1", &given);
  EXPECT_TRUE(host_.heard("0 [Zivora] Warning: Zivora already initialzed!"));

  auto opener = Context::current()->opener();
  // The host's zero means the address was not opened.
  EXPECT_FALSE(opener->openURL("https://store.example/app"));
  EXPECT_FALSE(opener->openURL("file:///etc/passwd"));
  std::lock_guard lock(host_.mutex);
  EXPECT_EQ(host_.opened, std::vector<std::string>{"https://store.example/app"});
}

TEST_F(ZivoraCHostHooksTest, AnOlderOptionsStructHasNoHostFunctions) {
  auto given = options();
  given.struct_size = offsetof(zivora_options, host_user_data);
  zivora_initialize("app-1", &given);
  zivora_initialize("app-1", &given);
  // The line went to standard error, as before the functions existed.
  EXPECT_FALSE(host_.heard("0 [Zivora] Warning: Zivora already initialzed!"));
  testing::internal::CaptureStderr();
  zivora_initialize("app-1", &given);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("already initialzed"), std::string::npos);
}

}  // namespace
}  // namespace zivora
