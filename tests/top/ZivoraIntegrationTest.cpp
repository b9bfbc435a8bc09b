// The facade's handshake on real threads, through libcurl, against the
// sandbox over TLS (retry delays shortened through the runtime options), and
// a C host's view of it: options, the host's log and opener functions and
// the callbacks go in through the C structs with their user data; an older,
// smaller options struct leaves the functions out.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <nlohmann/json.hpp>

#include "SandboxServer.h"
#include "platform/UrlOpener.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/ZVConfiguration.h"
#include "support/AnswerLog.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingLogSink.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/Zivora.h"
#include "zivora/zivora_c.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using sandbox::Misbehaviour;
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

class ZivoraIntegrationTest : public ::testing::Test {
 protected:
  ZivoraIntegrationTest() {
    sandbox_.start();
    endpoint_ = sandbox_.adEndpoint();
    ca_ = sandbox_.caFile();
  }
  ~ZivoraIntegrationTest() override { ZivoraInstance::reset(); }

  void start() {
    ZivoraInstance::start(
        "app-1",
        HostOptions{.dataRoot = root_.path().string(), .adEndpoint = sandbox_.adEndpoint()},
        RuntimeOptions{
            .runtime = std::make_shared<dispatch::ThreadRuntime>(),
            .http = std::make_shared<platform::CurlHttpClient>(platform::HttpClientOptions{
                .caFile = sandbox_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 2s}),
            .log = std::make_shared<test::RecordingLogSink>(),
            .adSide = adSide_,
            .retryTimeUnit = 10ms});
    Zivora::setDelegate(host_);
  }

  zivora_options options() {
    zivora_options options;
    zivora_options_init(&options);
    options.data_root = dataRoot_.c_str();
    options.application_name = "c-host";
    options.ad_endpoint = endpoint_.c_str();
    options.ca_file = ca_.c_str();
    options.host_user_data = &cHost_;
    options.log = &CHost::log;
    options.open_url = &CHost::open;
    return options;
  }

  // A headless host: its ads are drawn in memory.
  test::ScopedEnv driver_{"SDL_VIDEODRIVER", "dummy"};
  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::shared_ptr<test::RecordingAdSide> adSide_ = std::make_shared<test::RecordingAdSide>();
  std::shared_ptr<test::AnswerLog> host_ = std::make_shared<test::AnswerLog>();
  std::string dataRoot_ = root_.path().string();
  std::string endpoint_, ca_;
  CHost cHost_;
};

TEST_F(ZivoraIntegrationTest, HandshakeSucceedsAndReplaysTheParkedCall) {
  start();
  Zivora::cacheVideo("rewarded");
  ASSERT_TRUE(adSide_->waitForCall("cache:rewarded", 10s));
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].md5Valid);
  auto params = nlohmann::json::parse(received[0].params);
  EXPECT_EQ(params["getInitialization"]["appId"], "app-1");
  EXPECT_TRUE(host_->answers().empty());
}

TEST_F(ZivoraIntegrationTest, TwoFailuresThenSuccessAtTheThirdAttempt) {
  sandbox_.misbehave(Misbehaviour::Kind::HttpError, 1);
  sandbox_.misbehave(Misbehaviour::Kind::CloseMidBody, 1);
  start();
  Zivora::cacheVideo("early");
  // A reward request waits for success and is made once it is complete.
  Zivora::requestMotivatedRewards();
  // The second failure fails the parked call with error 3 ...
  EXPECT_EQ(host_->waitForAnswer("early", 10s), "videoDidFailToLoad 3");
  // ... and the third attempt succeeds, after which calls reach the ad side.
  ASSERT_TRUE(adSide_->waitForCall("requestMotivatedRewards", 10s));
  EXPECT_EQ(sandbox_.received().size(), 3u);
  Zivora::showVideo("late");
  EXPECT_TRUE(adSide_->waitForCall("show:late", 1s));
  EXPECT_EQ(host_->answers().size(), 1u);
}

TEST_F(ZivoraIntegrationTest, NewUrlMovesLaterRequestsAndSurvivesARestart) {
  sandbox::SandboxServer moved{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  moved.start();
  sandbox_.setHandler("getInitialization", [&](const nlohmann::json&) {
    return nlohmann::json{{"newURL", moved.adEndpoint()}};
  });
  start();
  ASSERT_TRUE(adSide_->waitForCall("newVideoManager", 10s));
  EXPECT_EQ(ZVConfiguration::shared()->serverURL(), moved.adEndpoint());

  // A new process on the same data root starts its handshake at the new endpoint.
  ZivoraInstance::reset();
  adSide_ = std::make_shared<test::RecordingAdSide>();
  start();
  ASSERT_TRUE(moved.waitForReceived(1, 10s));
  EXPECT_EQ(sandbox_.received().size(), 1u);
}

TEST_F(ZivoraIntegrationTest, TheHostsFunctionsAndCallbacksGetItsUserDataAndTheirAnswers) {
  sandbox_.setHandler("getVideo", [](const nlohmann::json&) {
    return nlohmann::json{{"error", 9}};
  });
  auto given = options();
  zivora_initialize("c-app", &given);
  zivora_initialize("c-app", &given);
  EXPECT_TRUE(cHost_.heard(kWarning));

  auto opener = Context::current()->opener();
  EXPECT_FALSE(opener->openURL("https://store.example/app"));
  EXPECT_FALSE(opener->openURL("file:///etc/passwd"));

  zivora_callbacks callbacks;
  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &cHost_;
  callbacks.video_did_fail_to_load = &CHost::failed;
  zivora_set_callbacks(&callbacks);
  zivora_cache_video("rewarded");

  // Once the handshake succeeds the parked call is replayed; the ad server
  // refuses it with its own error number, which reaches the host unchanged.
  std::unique_lock lock(cHost_.mutex);
  ASSERT_TRUE(cHost_.changed.wait_for(lock, 10s, [&] { return !cHost_.failures.empty(); }));
  EXPECT_EQ(cHost_.failures, Lines{"rewarded:9"});
  EXPECT_EQ(cHost_.opened, Lines{"https://store.example/app"});
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_NE(received[0].params.find(R"("appId":"c-app")"), std::string::npos);
  EXPECT_EQ(received[1].requestName, "getVideo");
}

TEST_F(ZivoraIntegrationTest, AnOlderOptionsStructHasNoHostFunctions) {
  auto given = options();
  given.struct_size = offsetof(zivora_options, host_user_data);
  zivora_initialize("app-1", &given);
  // The line goes to standard error, as before the functions existed.
  testing::internal::CaptureStderr();
  zivora_initialize("app-1", &given);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("already initialzed"), std::string::npos);
  EXPECT_FALSE(cHost_.heard(kWarning));
}

}  // namespace
}  // namespace zivora
