// The SDK against an ad server that misbehaves on purpose: the real SDK on
// real threads, libcurl and GStreamer, the sandbox over loopback TLS. Every
// misbehaviour must end with the host alive, its request answered exactly
// once, and nothing written or deleted outside the data root.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SandboxServer.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/ZVConfiguration.h"
#include "support/Files.h"
#include "support/MemoryPresenter.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/Zivora.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using sandbox::FileMisbehaviour;
using sandbox::Misbehaviour;

constexpr char kPrecious[] = "the host's own bytes\n";
constexpr std::uintmax_t kCacheSize = 40u * 1024 * 1024;

// The host: every answer per placement, and a wait for the next one.
class AnswerLog final : public ZivoraDelegate {
 public:
  void videoDidCache(const std::string& placement) override { add(placement, "videoDidCache"); }
  void videoDidFailToLoad(const std::string& placement, std::uint64_t error) override {
    add(placement, "videoDidFailToLoad " + std::to_string(error));
  }

  // The first answer for `placement`, "" when none came in time.
  std::string waitForAnswer(const std::string& placement) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, 90s, [&] { return !answers_[placement].empty(); });
    return answers_[placement].empty() ? "" : answers_[placement].front();
  }
  std::map<std::string, std::vector<std::string>> answers() {
    std::lock_guard lock(mutex_);
    return answers_;
  }

 private:
  void add(const std::string& placement, std::string answer) {
    std::lock_guard lock(mutex_);
    answers_[placement].push_back(std::move(answer));
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, std::vector<std::string>> answers_;
};

struct Case {
  std::string placement;
  std::string expected;
};

// One temporary directory:
//   data/              the SDK's data root
//   data/keep.txt      the host's, beside the SDK's files
//   outside/victim.txt somewhere else entirely
class HostileServerIntegrationTest : public ::testing::Test {
 protected:
  HostileServerIntegrationTest() {
    test::writeFile(victim(), kPrecious);
    test::writeFile(dataRoot() / "keep.txt", kPrecious);
    sandbox_.start();
  }
  ~HostileServerIntegrationTest() override { ZivoraInstance::reset(); }

  void start(bool trustTheSandbox = true) {
    ZivoraInstance::start("app-hostile",
                          HostOptions{.dataRoot = dataRoot().string(),
                                      .adEndpoint = sandbox_.adEndpoint(),
                                      .caFile = trustTheSandbox ? sandbox_.caFile() : "",
                                      .screenWidth = 640,
                                      .screenHeight = 360,
                                      .requestTimeBudgetSeconds = 60},
                          RuntimeOptions{.runtime = runtime_, .log = log_, .retryTimeUnit = 10ms});
    test::useMemoryPresenter(*runtime_);
    Zivora::setDelegate(host_);
  }

  // An ad of the sandbox's with `changes` merged in; its video address is
  // the placement's own, so no other case has it cached.
  json adWith(const std::string& placement, const json& changes) {
    json ad = sandbox_.catalogue().adFor("short");
    ad["videoURL"] = sandbox_.fileUrl("ad-3s.mp4") + "?for=" + placement;
    // Member by member: a null is kept as a value, not taken as a removal.
    for (const auto& [key, value] : changes.items()) ad[key] = value;
    return ad;
  }

  // Asks for each case's placement in turn and checks its first answer;
  // then that no placement heard a second one, once the SDK has stopped.
  void expectAnswers(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.placement);
      Zivora::cacheVideo(c.placement);
      EXPECT_EQ(host_->waitForAnswer(c.placement), c.expected);
    }
    ZivoraInstance::reset();
    for (const auto& [placement, answers] : host_->answers())
      EXPECT_EQ(answers.size(), 1u) << placement;
    expectNothingOutsideTheDataRootChanged();
  }

  void expectNothingOutsideTheDataRootChanged() {
    std::vector<std::string> top;
    for (const auto& entry : fs::directory_iterator(root_.path()))
      top.push_back(entry.path().filename());
    std::sort(top.begin(), top.end());
    EXPECT_EQ(top, (std::vector<std::string>{"data", "outside"}));
    EXPECT_EQ(std::distance(fs::directory_iterator(outside()), fs::directory_iterator()), 1);
    EXPECT_EQ(test::readFile(victim()), kPrecious);
    EXPECT_EQ(test::readFile(dataRoot() / "keep.txt"), kPrecious);
    std::uintmax_t cached = 0;
    const fs::path cache = dataRoot() / "Caches" / "Zivora";
    if (fs::exists(cache)) {
      for (const auto& entry : fs::directory_iterator(cache)) {
        if (entry.is_regular_file()) cached += entry.file_size();
      }
    }
    EXPECT_LE(cached, kCacheSize);
  }

  // Some log line holds `part`.
  bool logged(std::string_view part) const {
    const auto texts = log_->texts();
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
      return text.find(part) != std::string::npos;
    });
  }

  fs::path dataRoot() const { return root_.path() / "data"; }
  fs::path outside() const { return root_.path() / "outside"; }
  fs::path victim() const { return outside() / "victim.txt"; }

  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
  std::shared_ptr<dispatch::ThreadRuntime> runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  std::shared_ptr<test::RecordingLogSink> log_ = std::make_shared<test::RecordingLogSink>();
  std::shared_ptr<AnswerLog> host_ = std::make_shared<AnswerLog>();
};

// Replies the ad logic cannot use fail the request with 3 after its retry
// (or with the server's own code); replies with odd optional fields still
// give a cached ad.
TEST_F(HostileServerIntegrationTest, ReplyShapesEndInOneAnswer) {
  sandbox_.catalogue().setAd("null-error", json{{"error", nullptr}});
  sandbox_.catalogue().setAd("error-array", json{{"error", json::array({7})}});
  sandbox_.catalogue().setAd("error-text", json{{"error", "soon"}});
  sandbox_.catalogue().setAd("video-null", adWith("video-null", {{"videoURL", nullptr}}));
  sandbox_.catalogue().setAd("video-object", adWith("video-object", {{"videoURL", {{"a", 1}}}}));
  sandbox_.catalogue().setAd("image-number", adWith("image-number", {{"imageURL", 12}}));
  sandbox_.catalogue().setAd("sound-array",
                             adWith("sound-array", {{"soundEnable", json::array()}}));
  sandbox_.catalogue().setAd("odd-optionals",
                             adWith("odd-optionals", {{"skipVideo", nullptr},
                                                      {"adId", {{"nested", true}}},
                                                      {"targetURL", 5},
                                                      {"motivationInfo", "none"},
                                                      {"dontOverrideRedirect", json::array()}}));
  const std::pair<const char*, Misbehaviour::Kind> raw[] = {
      {"html-page", Misbehaviour::Kind::HtmlPage},
      {"empty", Misbehaviour::Kind::EmptyBody},
      {"deep-nesting", Misbehaviour::Kind::DeepNesting},
      {"huge-reply", Misbehaviour::Kind::HugeReply},
  };
  start();
  std::vector<Case> cases{
      {"null-error", "videoDidFailToLoad 3"},   {"error-array", "videoDidFailToLoad 3"},
      {"error-text", "videoDidFailToLoad 0"},   {"video-null", "videoDidFailToLoad 3"},
      {"video-object", "videoDidFailToLoad 3"}, {"image-number", "videoDidFailToLoad 3"},
      {"sound-array", "videoDidFailToLoad 3"},  {"odd-optionals", "videoDidCache"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.placement);
    Zivora::cacheVideo(c.placement);
    EXPECT_EQ(host_->waitForAnswer(c.placement), c.expected);
  }
  // The faults are queued per request; the retry meets the second one.
  for (const auto& [placement, kind] : raw) {
    SCOPED_TRACE(placement);
    sandbox_.misbehave(kind, 2, 1, "getVideo");
    Zivora::cacheVideo(placement);
    EXPECT_EQ(host_->waitForAnswer(placement), "videoDidFailToLoad 3");
  }
  expectAnswers({});
}

// No address that is not http or https is fetched: the video or picture
// makes the ad unusable, the currency icon is left out.
TEST_F(HostileServerIntegrationTest, NonWebAddressesAreNeverFetched) {
  sandbox_.catalogue().setAd("video-file",
                             adWith("video-file", {{"videoURL", "file://" + victim().string()}}));
  sandbox_.catalogue().setAd("image-javascript",
                             adWith("image-javascript", {{"imageURL", "javascript:alert(1)"}}));
  sandbox_.catalogue().setAd(
      "icon-and-target",
      adWith("icon-and-target", {{"motivationInfo", {{"currencyIconURL", "ftp://x.test/i.png"}}},
                                 {"targetURL", "file:///bin/sh"}}));
  start();
  expectAnswers({{"video-file", "videoDidFailToLoad 3"},
                 {"image-javascript", "videoDidFailToLoad 3"},
                 {"icon-and-target", "videoDidCache"}});
  EXPECT_TRUE(logged("[Zivora] Refused the video address, not http or https: file://"));
  EXPECT_TRUE(logged("[Zivora] Refused the image address, not http or https: javascript:"));
  EXPECT_TRUE(logged("[Zivora] Refused the currency icon address"));
}

// A body without end or with a false length never grows a cache file past
// the cache: the download fails (code 1, no partial file), the ad with 3.
TEST_F(HostileServerIntegrationTest, EndlessBodiesAndLyingLengthsFailTheRequest) {
  sandbox_.catalogue().setAd("endless-video", adWith("endless-video", {}));
  sandbox_.catalogue().setAd("huge-length-video", adWith("huge-length-video", {}));
  sandbox_.catalogue().setAd(
      "endless-image",
      adWith("endless-image", {{"imageURL", sandbox_.fileUrl("post-video.png") + "?endless"}}));
  sandbox_.misbehaveFiles({.kind = FileMisbehaviour::Kind::Endless, .fileName = "ad-3s.mp4"}, 2);
  start();
  Zivora::cacheVideo("endless-video");
  EXPECT_EQ(host_->waitForAnswer("endless-video"), "videoDidFailToLoad 3");
  sandbox_.misbehaveFiles({.kind = FileMisbehaviour::Kind::HugeLength, .fileName = "ad-3s.mp4"}, 2);
  Zivora::cacheVideo("huge-length-video");
  EXPECT_EQ(host_->waitForAnswer("huge-length-video"), "videoDidFailToLoad 3");
  sandbox_.misbehaveFiles({.kind = FileMisbehaviour::Kind::Endless, .fileName = "post-video.png"},
                          2);
  expectAnswers({{"endless-image", "videoDidFailToLoad 3"}});
  EXPECT_TRUE(logged("the body is larger than the cache"));
  EXPECT_TRUE(logged("the announced size is larger than the cache"));
}

// The handshake's own fields: "removeFiles" entries that try to leave the
// cache, an endpoint downgraded to http or of another scheme, button images
// that are not web addresses. The SDK keeps its endpoint and its files, and
// its ads still cache.
TEST_F(HostileServerIntegrationTest, HostileHandshakeFieldsChangeNothingOutsideTheCache) {
  const std::string original = sandbox_.adEndpoint();
  std::atomic<int> handshakes{0};
  sandbox_.setHandler("getInitialization", [&](const json&) {
    json reply{{"closeButtonURL", "file:///etc/passwd"},
               {"soundOnButtonURL", "smb://x.test/on.png"},
               {"soundOffButtonURL", sandbox_.fileUrl("sound_off.png")},
               {"removeFiles", json::array({"../../outside/victim.txt", victim().string(), "..",
                                            "../keep.txt", "/", ".", "", nullptr, 12})}};
    reply["newURL"] = handshakes++ == 0 ? "http://127.0.0.1:1/HandleRequestV3.php" : "file:///x";
    return reply;
  });
  start();
  Zivora::cacheVideo("first");
  EXPECT_EQ(host_->waitForAnswer("first"), "videoDidCache");
  EXPECT_EQ(ZVConfiguration::shared()->serverURL().value_or(original), original);
  EXPECT_TRUE(logged("Ignored newURL, not an absolute https URL"));
  EXPECT_TRUE(logged("[Zivora] Refused the close button address"));
  EXPECT_TRUE(logged("[Zivora] Refused the sound-on button address"));
  expectAnswers({});

  // A second launch on the same data root: the other bad endpoint, the same
  // removals.
  host_ = std::make_shared<AnswerLog>();
  runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  start();
  expectAnswers({{"second", "videoDidCache"}});
  EXPECT_EQ(handshakes, 2);
}

// A server whose certificate the SDK does not trust is never talked to: the
// handshake fails, and the parked request hears 3 as the handshake's rules
// say.
TEST_F(HostileServerIntegrationTest, AnUntrustedCertificateFailsTheRequest) {
  start(false);
  expectAnswers({{"untrusted", "videoDidFailToLoad 3"}});
  EXPECT_TRUE(sandbox_.received().empty());
}

}  // namespace
}  // namespace zivora
