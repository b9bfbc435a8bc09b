// The SDK against an ad server that misbehaves on purpose: the real SDK on
// real threads, libcurl and GStreamer, the sandbox over loopback TLS. Every
// misbehaviour must end with the host alive, its request answered exactly
// once, and nothing written or deleted outside the data root.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "SandboxServer.h"
#include "platform/linux/ThreadRuntime.h"
#include "sandbox/SandboxTestSupport.h"
#include "sdk/ZVConfiguration.h"
#include "support/AnswerLog.h"
#include "support/Files.h"
#include "support/MemoryPresenter.h"
#include "support/RecordingLogSink.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using sandbox::FileMisbehaviour;
using sandbox::Misbehaviour;

constexpr char kPrecious[] = "the host's own bytes\n";
constexpr char kFailed[] = "videoDidFailToLoad 3";

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

  // Asks for the placement and checks its first answer.
  void expectAnswer(const std::string& placement, const std::string& expected) {
    SCOPED_TRACE(placement);
    Zivora::cacheVideo(placement);
    EXPECT_EQ(host_->waitForAnswer(placement), expected);
  }

  // Once the SDK has stopped: no placement heard a second answer, and
  // nothing outside the data root changed.
  void expectOneAnswerEachAndNothingOutsideChanged() {
    ZivoraInstance::reset();
    for (const auto& [placement, answers] : host_->answers())
      EXPECT_EQ(answers.size(), 1u) << placement;
    std::vector<std::string> top;
    for (const auto& entry : fs::directory_iterator(root_.path()))
      top.push_back(entry.path().filename());
    std::sort(top.begin(), top.end());
    EXPECT_EQ(top, (std::vector<std::string>{"data", "outside"}));
    EXPECT_EQ(std::distance(fs::directory_iterator(outside()), fs::directory_iterator()), 1);
    EXPECT_EQ(test::readFile(victim()), kPrecious);
    EXPECT_EQ(test::readFile(dataRoot() / "keep.txt"), kPrecious);
    std::uintmax_t cached = 0;
    std::error_code ignored;
    const fs::path cache = dataRoot() / "Caches" / "Zivora";
    for (const auto& entry : fs::directory_iterator(cache, fs::directory_options::none, ignored))
      if (entry.is_regular_file()) cached += entry.file_size();
    EXPECT_LE(cached, 40u * 1024 * 1024);
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
  std::shared_ptr<test::AnswerLog> host_ = std::make_shared<test::AnswerLog>();
};

// One ad the server hands out, and how it misbehaves. Faults are queued per
// request or per file, twice: the retry meets the second one.
struct HostileAd {
  const char* placement;
  json changes = json::object();  // merged member by member into a sandbox ad (a null is kept)
  const char* answer = kFailed;
  const char* log = nullptr;
  bool wholeReply = false;  // `changes` is the whole reply instead
  std::optional<Misbehaviour::Kind> reply = std::nullopt;
  std::optional<FileMisbehaviour> file = std::nullopt;
};

// Replies the ad logic cannot use fail the request with 3 after its retry
// (or with the server's own code); replies with odd optional fields still
// give a cached ad. No address outside the web is fetched: the video or
// picture makes the ad unusable, the currency icon is left out. A body
// without end or with a false length never grows a cache file past the
// cache.
TEST_F(HostileServerIntegrationTest, EveryHostileAdEndsInOneAnswer) {
  using Kind = FileMisbehaviour::Kind;
  const HostileAd ads[] = {
      {.placement = "null-error", .changes = {{"error", nullptr}}, .wholeReply = true},
      {.placement = "error-array", .changes = {{"error", json::array({7})}}, .wholeReply = true},
      {.placement = "error-text",
       .changes = {{"error", "soon"}},
       .answer = "videoDidFailToLoad 0",
       .wholeReply = true},
      {.placement = "video-null", .changes = {{"videoURL", nullptr}}},
      {.placement = "video-object", .changes = {{"videoURL", {{"a", 1}}}}},
      {.placement = "image-number", .changes = {{"imageURL", 12}}},
      {.placement = "sound-array", .changes = {{"soundEnable", json::array()}}},
      {.placement = "odd-optionals",
       .changes = {{"skipVideo", nullptr},
                   {"adId", {{"nested", true}}},
                   {"targetURL", 5},
                   {"motivationInfo", "none"},
                   {"dontOverrideRedirect", json::array()}},
       .answer = "videoDidCache"},
      {.placement = "html-page", .reply = Misbehaviour::Kind::HtmlPage},
      {.placement = "empty", .reply = Misbehaviour::Kind::EmptyBody},
      {.placement = "deep-nesting", .reply = Misbehaviour::Kind::DeepNesting},
      {.placement = "huge-reply", .reply = Misbehaviour::Kind::HugeReply},
      {.placement = "video-file",
       .changes = {{"videoURL", "file://" + victim().string()}},
       .log = "[Zivora] Refused the video address, not http or https: file://"},
      {.placement = "image-javascript",
       .changes = {{"imageURL", "javascript:alert(1)"}},
       .log = "[Zivora] Refused the image address, not http or https: javascript:"},
      {.placement = "icon-and-target",
       .changes = {{"motivationInfo", {{"currencyIconURL", "ftp://x.test/i.png"}}},
                   {"targetURL", "file:///bin/sh"}},
       .answer = "videoDidCache",
       .log = "[Zivora] Refused the currency icon address"},
      {.placement = "endless-video",
       .log = "the body is larger than the cache",
       .file = FileMisbehaviour{.kind = Kind::Endless, .fileName = "ad-3s.mp4"}},
      {.placement = "huge-length-video",
       .log = "the announced size is larger than the cache",
       .file = FileMisbehaviour{.kind = Kind::HugeLength, .fileName = "ad-3s.mp4"}},
      // Its own picture address, so that no earlier ad has it cached.
      {.placement = "endless-image",
       .changes = {{"imageURL", sandbox_.fileUrl("post-video.png") + "?endless"}},
       .file = FileMisbehaviour{.kind = Kind::Endless, .fileName = "post-video.png"}},
  };
  for (const HostileAd& hostile : ads) {
    json ad = sandbox_.catalogue().adFor("short");
    // The placement's own video address, so no other case has it cached.
    ad["videoURL"] = sandbox_.fileUrl("ad-3s.mp4") + "?for=" + hostile.placement;
    for (const auto& [key, value] : hostile.changes.items()) ad[key] = value;
    sandbox_.catalogue().setAd(hostile.placement, hostile.wholeReply ? hostile.changes : ad);
  }
  start();
  for (const HostileAd& hostile : ads) {
    if (hostile.reply) sandbox_.misbehave(*hostile.reply, 2, 1, "getVideo");
    if (hostile.file) sandbox_.misbehaveFiles(*hostile.file, 2);
    expectAnswer(hostile.placement, hostile.answer);
  }
  expectOneAnswerEachAndNothingOutsideChanged();
  for (const HostileAd& hostile : ads)
    if (hostile.log) {
      EXPECT_TRUE(logged(hostile.log)) << hostile.log;
    }
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
  expectAnswer("first", "videoDidCache");
  EXPECT_EQ(ZVConfiguration::shared()->serverURL().value_or(original), original);
  EXPECT_TRUE(logged("Ignored newURL, not an absolute https URL"));
  EXPECT_TRUE(logged("[Zivora] Refused the close button address"));
  EXPECT_TRUE(logged("[Zivora] Refused the sound-on button address"));
  expectOneAnswerEachAndNothingOutsideChanged();

  // A second launch on the same data root: the other bad endpoint, the same
  // removals.
  host_ = std::make_shared<test::AnswerLog>();
  runtime_ = std::make_shared<dispatch::ThreadRuntime>();
  start();
  expectAnswer("second", "videoDidCache");
  expectOneAnswerEachAndNothingOutsideChanged();
  EXPECT_EQ(handshakes, 2);
}

// A server whose certificate the SDK does not trust is never talked to: the
// handshake fails, and the parked request hears 3 as the handshake's rules
// say.
TEST_F(HostileServerIntegrationTest, AnUntrustedCertificateFailsTheRequest) {
  start(false);
  expectAnswer("untrusted", kFailed);
  expectOneAnswerEachAndNothingOutsideChanged();
  EXPECT_TRUE(sandbox_.received().empty());
}

}  // namespace
}  // namespace zivora
