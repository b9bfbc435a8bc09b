// A placement's whole course on virtual time: the ad request, the image and
// video downloads (served by a scripted file server), the player (a
// scripted media item), the screens (drawn in memory) and the click-through,
// as the host sees them through its callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>

#include "ads/RewardLedger.h"
#include "ads/ZVRedirectRequest.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/InvokeDelegateHelper.h"
#include "sdk/ZVConfiguration.h"
#include "support/FakeFileSystem.h"
#include "support/FakeHttpClient.h"
#include "support/FakeMediaFactory.h"
#include "support/FakeMediaItem.h"
#include "support/FakeMediaPlayer.h"
#include "support/FakeStreamingClient.h"
#include "support/Files.h"
#include "support/MemoryPresenter.h"
#include "support/RecordingHost.h"
#include "support/RecordingOpener.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/DefaultAdSide.h"
#include "ui/Display.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

constexpr char kPlacement[] = "rewarded";
constexpr char kVideo[] = "https://cdn.test/ad/video.mp4";
constexpr char kImage[] = "https://cdn.test/ad/end.png";
constexpr char kTarget[] = "https://shop.test/item";
const std::string kTracker = std::string("https://") + ZVRedirectRequest::kTrackerHost + "/c/ad-7";

class PlacementTest : public ::testing::Test {
 public:
  explicit PlacementTest(int timeBudgetSeconds = 180)
      : scope_({.dataRoot = root_.path().string(),
                .screenWidth = 640,
                .screenHeight = 360,
                .requestTimeBudgetSeconds = timeBudgetSeconds},
               {.runtime = runtime_,
                .http = server_,
                .downloads = files_,
                .files = disk_,
                .media = media_,
                .opener = opener_}) {
    test::useMemoryPresenter(*runtime_);
    ZVConfiguration::shared()->setAppId("app-1");
    helper_->setDelegate(host_);
    side_->startUp();
    side_->newVideoManager();
    side_->serverConnected();
    server_->reply("getVideo", ad());
    content_[kVideo] = std::string(1'000'000, 'v');
    content_[kImage] = std::string(2'000, 'i');
  }

  ~PlacementTest() override { runtime_->runUntilIdle(); }

  static nlohmann::json ad(const nlohmann::json& changes = nlohmann::json::object()) {
    nlohmann::json ad{{"adId", "ad-7"},     {"adType", 2},        {"clickId", "click-9"},
                      {"videoURL", kVideo}, {"imageURL", kImage}, {"targetURL", kTarget},
                      {"skipVideo", 5},     {"soundEnable", true}};
    for (const auto& [key, value] : changes.items()) ad[key] = value;
    return ad;
  }

  // Serves every download asked for so far, then lets the work settle.
  void serveDownloads() {
    for (int round = 0; round < 10; ++round) {
      runtime_->runUntilIdle();
      bool servedAny = false;
      for (const auto& transfer : files_->transfers()) {
        if (!served_.insert(transfer.get()).second) continue;
        files_->serve(transfer, content_[transfer->request.url], 100'000);
        servedAny = true;
      }
      if (!servedAny) break;
    }
    runtime_->runUntilIdle();
  }

  // The video item reaches ready-to-play.
  void itemReady() {
    ASSERT_NE(media_->lastItem(), nullptr);
    media_->lastItem()->setDuration(media::MediaTime::fromSeconds(10));
    media_->lastItem()->postStatus(media::MediaItemStatus::ReadyToPlay);
    runtime_->runUntilIdle();
  }

  void cacheReady() {
    side_->cacheVideo(kPlacement);
    serveDownloads();
    itemReady();
  }

  // Shows the cached ad and lets the slide-in finish.
  void showAndDisplay() {
    side_->showVideo(kPlacement);
    runtime_->runUntilIdle();
    runtime_->advanceBy(1s);
  }

  void playToEnd() {
    media_->lastItem()->postPlayedToEnd();
    runtime_->runUntilIdle();
    runtime_->advanceBy(1s);
  }

  void toPostVideo() {
    cacheReady();
    showAndDisplay();
    playToEnd();
  }

  // Taps arrive on the main queue, as the window's events do.
  bool act(ui::ScreenAction action) {
    bool acted = false;
    runtime_->mainQueue().async([&] { acted = presenter().performAction(action); });
    runtime_->runUntilIdle();
    runtime_->advanceBy(1s);
    return acted;
  }

  // Queued on the main queue, not run: a second tap, or a close, lands
  // before the click request the first one posts.
  void tapCallToAction() {
    runtime_->mainQueue().async(
        [this] { presenter().performAction(ui::ScreenAction::CallToAction); });
  }

  ui::Presenter& presenter() { return ui::Display::of(Context::current())->presenter(); }

  // Some log line holds `part`.
  bool logged(std::string_view part) {
    const auto texts = scope_.log().texts();
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
      return text.find(part) != std::string::npos;
    });
  }

  test::TempDir root_;
  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  std::shared_ptr<test::FakeHttpClient> server_ = std::make_shared<test::FakeHttpClient>();
  std::shared_ptr<test::FakeStreamingClient> files_ =
      std::make_shared<test::FakeStreamingClient>(*runtime_);
  std::shared_ptr<test::FakeFileSystem> disk_ = std::make_shared<test::FakeFileSystem>();
  std::shared_ptr<test::FakeMediaFactory> media_ =
      std::make_shared<test::FakeMediaFactory>(runtime_->mainQueue());
  std::shared_ptr<test::RecordingOpener> opener_ = std::make_shared<test::RecordingOpener>();
  test::ScopedContext scope_;
  std::shared_ptr<test::RecordingHost> host_ = std::make_shared<test::RecordingHost>();
  std::shared_ptr<InvokeDelegateHelper> helper_ = std::make_shared<InvokeDelegateHelper>();
  std::shared_ptr<DefaultAdSide> side_ = std::make_shared<DefaultAdSide>(helper_);
  std::map<std::string, std::string> content_;
  std::set<const void*> served_;
};

// Watched to the end: each step reaches the host in order, the reward is on
// disk from the watched end until the host's callback returned.
TEST_F(PlacementTest, AWatchedAdTellsTheHostEachStepInOrderAndEarnsTheReward) {
  cacheReady();
  EXPECT_EQ(host_->calls, Calls{"videoDidCache rewarded"});
  EXPECT_TRUE(side_->isReadyVideo(kPlacement));
  auto request = test::FakeHttpClient::paramsOf(server_->requests().front());
  ASSERT_TRUE(request.contains("getVideo")) << request;
  auto& arguments = request["getVideo"];
  EXPECT_EQ(arguments["placementId"], kPlacement);
  EXPECT_EQ(arguments["appId"], "app-1");
  EXPECT_EQ(arguments["orientation"], 2);  // 640 x 360
  EXPECT_EQ(arguments["isMobileNetwork"], false);

  showAndDisplay();
  EXPECT_TRUE(side_->isRequestShow());
  playToEnd();
  const auto owed = RewardLedger::shared()->unacknowledged();
  ASSERT_EQ(owed.size(), 1u);
  EXPECT_EQ(owed.front().placement, kPlacement);
  EXPECT_FALSE(owed.front().adId.empty());
  EXPECT_EQ(server_->count("watchedAd"), 1u);
  EXPECT_EQ(host_->count("videoReceiveReward rewarded"), 0u);

  EXPECT_TRUE(act(ui::ScreenAction::Close));
  EXPECT_EQ(host_->calls, (Calls{"videoDidCache rewarded", "videoWindowWillDisplay rewarded",
                                 "videoWindowDidDisplay rewarded", "videoDidDismiss rewarded",
                                 "videoWindowWillClose rewarded", "videoWindowDidClose rewarded",
                                 "videoReceiveReward rewarded"}));
  EXPECT_TRUE(RewardLedger::shared()->unacknowledged().empty());
  EXPECT_EQ(server_->count("startWatchingAd"), 1u);
  EXPECT_FALSE(side_->isRequestShow());
  EXPECT_FALSE(side_->isReadyVideo(kPlacement));
  EXPECT_TRUE(presenter().windows().empty());
}

TEST_F(PlacementTest, ASkippedAdIsDismissedWithoutWatchedEventOrReward) {
  cacheReady();
  showAndDisplay();
  for (int step = 0; step < 120; ++step) {  // six seconds, past the skip time of 5 s
    media_->lastPlayer()->advanceBy(media::MediaTime::fromSeconds(0.05));
    runtime_->advanceBy(50ms);
  }
  act(ui::ScreenAction::Skip);
  EXPECT_EQ(host_->count("videoDidDismiss rewarded"), 1u);
  act(ui::ScreenAction::Close);
  EXPECT_EQ(host_->count("videoWindowDidClose rewarded"), 1u);
  EXPECT_EQ(host_->count("videoReceiveReward rewarded"), 0u);
  EXPECT_TRUE(RewardLedger::shared()->unacknowledged().empty());
  EXPECT_EQ(server_->count("watchedAd"), 0u);
  EXPECT_EQ(server_->count("startWatchingAd"), 1u);
}

TEST_F(PlacementTest, ShowingBeforeCachingOpensTheAdWhenReadyWithoutCachingCallback) {
  side_->showVideo(kPlacement);
  serveDownloads();
  itemReady();
  runtime_->advanceBy(1s);
  EXPECT_EQ(host_->calls,
            (Calls{"videoWindowWillDisplay rewarded", "videoWindowDidDisplay rewarded"}));
}

// The server's own refusal, and a disk without room, reach the host at once
// with their own codes; nothing is asked again.
TEST_F(PlacementTest, RefusalAndAFullDiskFailAtOnceWithoutRetry) {
  const auto expectFailsAtOnce = [this](const std::string& failure) {
    host_->calls.clear();
    const auto requests = server_->count("getVideo");
    side_->cacheVideo(kPlacement);
    serveDownloads();
    EXPECT_EQ(host_->calls, Calls{failure});
    runtime_->advanceBy(30s);
    EXPECT_EQ(server_->count("getVideo"), requests + 1);
  };
  server_->reply("getVideo", {{"error", 7}});
  expectFailsAtOnce("videoDidFailToLoad rewarded 7");
  server_->reply("getVideo", ad());
  disk_->freeBytes = 1024;
  expectFailsAtOnce("videoDidFailToLoad rewarded 2");
}

// Whatever breaks a load is retried once five seconds later and then fails
// with 3; the failed controller is gone, so the next call starts afresh.
struct LoadFault {
  const char* name;
  nlohmann::json reply = nullptr;  // what the server answers to the ad request, if given
  const char* log = nullptr;
  void (*arrange)(PlacementTest&) = nullptr;
  bool playerRejects = false;
};
// ctest lists each row by its name, not by the struct's bytes (which hold
// addresses that change from run to run).
void PrintTo(const LoadFault& row, std::ostream* out) { *out << row.name; }

class FailedLoadTest : public PlacementTest, public ::testing::WithParamInterface<LoadFault> {};

TEST_P(FailedLoadTest, IsRetriedOnceAfterFiveSecondsThenFailsWithThreeAndThePlacementRecovers) {
  const LoadFault& fault = GetParam();
  if (!fault.reply.is_null()) server_->reply("getVideo", fault.reply);
  if (fault.arrange) fault.arrange(*this);
  const auto loadOnce = [&] {
    serveDownloads();
    if (!fault.playerRejects) return;
    media_->lastItem()->postStatus(media::MediaItemStatus::Failed, "not a video");
    runtime_->runUntilIdle();
  };
  side_->cacheVideo(kPlacement);
  loadOnce();
  EXPECT_TRUE(host_->calls.empty());
  runtime_->advanceBy(4900ms);
  EXPECT_EQ(server_->count("getVideo"), 1u);
  runtime_->advanceBy(100ms);
  EXPECT_EQ(server_->count("getVideo"), 2u);
  loadOnce();
  EXPECT_EQ(host_->calls, Calls{"videoDidFailToLoad rewarded 3"});
  if (fault.log) {
    EXPECT_TRUE(logged(fault.log));
  }

  disk_->diskFullAfter.reset();
  disk_->beforeWrite = nullptr;
  server_->reply("getVideo", ad());
  host_->calls.clear();
  cacheReady();
  EXPECT_EQ(host_->calls, Calls{"videoDidCache rewarded"});
}

const LoadFault kLoadFaults[] = {
    {.name = "NoAnswer", .arrange = [](PlacementTest& t) { t.server_->refuse("getVideo"); }},
    {.name = "ImageNotAnAddress", .reply = PlacementTest::ad({{"imageURL", 12}})},
    {.name = "VideoNotAnAddress", .reply = PlacementTest::ad({{"videoURL", 12}})},
    // A video or picture address that is not http or https never reaches
    // the downloader.
    {.name = "VideoOutsideTheWeb",
     .reply = PlacementTest::ad({{"videoURL", "file:///etc/passwd"}}),
     .log = "[Zivora] Refused the video address, not http or https: file:///etc/passwd"},
    {.name = "ImageOutsideTheWeb",
     .reply = PlacementTest::ad({{"imageURL", "file:///etc/passwd"}}),
     .log = "[Zivora] Refused the image address, not http or https: file:///etc/passwd"},
    // Replies the ad logic cannot read: a null or mistyped "error", fields
    // that throw on reading.
    {.name = "NullError", .reply = {{"error", nullptr}}},
    {.name = "ErrorArray", .reply = {{"error", nlohmann::json::array({1})}}},
    {.name = "ErrorObjectInAnAd",
     .reply = PlacementTest::ad({{"error", nlohmann::json::object()}})},
    {.name = "SoundEnableArray",
     .reply = PlacementTest::ad({{"soundEnable", nlohmann::json::array()}})},
    {.name = "PlayerRejectsTheVideo", .playerRejects = true},
    // Write faults under the download reach the host as a failed load.
    {.name = "DiskFullMidChunk",
     .arrange = [](PlacementTest& t) { t.disk_->diskFullAfter = t.disk_->written + 250'000; }},
    // Every attempt loses its cache file a quarter of a megabyte in; the
    // event files written meanwhile are left alone.
    {.name = "UnlinkedUnderTheWriter",
     .arrange =
         [](PlacementTest& t) {
           t.disk_->beforeWrite = [&t, from = t.disk_->written](int fd) {
             if (t.disk_->written - from < 250'000) return;
             std::error_code error;
             const auto path =
                 std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
             if (!error && path.parent_path() == t.root_.path() / "Caches" / "Zivora")
               std::filesystem::remove(path, error);
           };
         }},
};

INSTANTIATE_TEST_SUITE_P(Causes, FailedLoadTest, ::testing::ValuesIn(kLoadFaults),
                         [](const auto& info) { return std::string(info.param.name); });

// Mistyped optional fields are ignored, optional images outside the web
// (the currency icon, the buttons) are left out, short writes lose nothing:
// the ad still caches whole and plays.
TEST_F(PlacementTest, AnAdWithOddOptionalPartsStillCachesWholeAndPlays) {
  server_->reply("getVideo",
                 ad({{"skipVideo", "soon"},
                     {"soundEnable", "no"},
                     {"motivationInfo", {{"currencyIconURL", "data:image/png;base64,AAAA"}}}}));
  ZVConfiguration::shared()->setCloseButtonURL("ftp://cdn.test/close.png");
  ZVConfiguration::shared()->setSoundOnButtonURL("HTTPS://cdn.test/on.png");
  content_["HTTPS://cdn.test/on.png"] = "on";
  disk_->shortWrites(777);
  cacheReady();
  EXPECT_EQ(host_->calls, Calls{"videoDidCache rewarded"});
  EXPECT_TRUE(logged("Refused the currency icon address"));
  EXPECT_TRUE(logged("Refused the close button address"));
  EXPECT_FALSE(logged("Refused the sound-on button address"));
  for (const auto& transfer : files_->transfers())
    EXPECT_TRUE(transfer->request.url.starts_with("http") ||
                transfer->request.url.starts_with("HTTP"))
        << transfer->request.url;
  std::filesystem::path video;
  for (const auto& entry : std::filesystem::directory_iterator(root_.path() / "Caches" / "Zivora"))
    if (video.empty() || entry.file_size() > std::filesystem::file_size(video))
      video = entry.path();
  EXPECT_EQ(test::readFile(video), content_[kVideo]);

  showAndDisplay();
  EXPECT_EQ(host_->count("videoWindowDidDisplay rewarded"), 1u);
  ASSERT_NE(media_->lastPlayer(), nullptr);
  EXPECT_TRUE(media_->lastPlayer()->isMuted());
}

// The player never reports the video ready: the request ends with 3 when
// its budget is spent, whatever arrives later stays unheard, and the
// placement is idle again.
TEST_F(PlacementTest, ARequestThatStallsEndsWithThreeWhenItsTimeBudgetIsSpent) {
  for (const bool show : {false, true}) {
    SCOPED_TRACE(show ? "showVideo" : "cacheVideo");
    host_->calls.clear();
    show ? side_->showVideo(kPlacement) : side_->cacheVideo(kPlacement);
    serveDownloads();
    auto* stalled = media_->lastItem();
    runtime_->advanceBy(179s);
    EXPECT_TRUE(host_->calls.empty());
    runtime_->advanceBy(1s);
    EXPECT_EQ(host_->calls, Calls{"videoDidFailToLoad rewarded 3"});
    EXPECT_FALSE(side_->isRequestShow());
    EXPECT_TRUE(logged("got no answer in time"));

    ASSERT_NE(stalled, nullptr);
    stalled->setDuration(media::MediaTime::fromSeconds(10));
    stalled->postStatus(media::MediaItemStatus::ReadyToPlay);
    runtime_->advanceBy(10min);
    EXPECT_EQ(host_->calls, Calls{"videoDidFailToLoad rewarded 3"});
    EXPECT_TRUE(presenter().windows().empty());
  }
  host_->calls.clear();
  cacheReady();
  runtime_->advanceBy(10min);
  EXPECT_EQ(host_->calls, Calls{"videoDidCache rewarded"});
}

class UnlimitedPlacementTest : public PlacementTest {
 protected:
  UnlimitedPlacementTest() : PlacementTest(0) {}
};

TEST_F(UnlimitedPlacementTest, ABudgetOfZeroLetsARequestWaitForItsAnswer) {
  side_->cacheVideo(kPlacement);
  serveDownloads();
  runtime_->advanceBy(1h);
  EXPECT_TRUE(host_->calls.empty());
  itemReady();
  EXPECT_EQ(host_->calls, Calls{"videoDidCache rewarded"});
}

TEST_F(PlacementTest, EachPlacementHasOneControllerAndAnEmptyNameIsRefused) {
  side_->cacheVideo("a");
  side_->cacheVideo("a");
  side_->showVideo("b");
  runtime_->runUntilIdle();
  EXPECT_TRUE(side_->isRequestShow());
  EXPECT_EQ(server_->count("getVideo"), 2u);
  side_->showVideo("");
  EXPECT_TRUE(scope_.log().contains("[Zivora][showVideo] Error! PlacementName is nil or empty."));
}

// A failed click request lets the next tap try again; a double tap sends one
// click; an acknowledged click opens the target again without a request.
TEST_F(PlacementTest, OneAcknowledgedClickPerAdAndAFailedOneIsTriedAgain) {
  server_->refuse("clickAd");
  toPostVideo();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(opener_->opened.empty());

  server_->reply("clickAd", nlohmann::json::object());
  tapCallToAction();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_.log().contains("Already sent clickAd to the server, wait responce."));
  EXPECT_EQ(server_->count("clickAd"), 2u);
  EXPECT_EQ(opener_->opened, Calls{kTarget});
  const auto click = server_->lastParams().at("clickAd");
  EXPECT_EQ(click["adId"], "ad-7");
  EXPECT_EQ(click["clickId"], "click-9");
  EXPECT_EQ(click["adType"], 2);

  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_EQ(server_->count("clickAd"), 2u);
  EXPECT_EQ(opener_->opened, (Calls{kTarget, kTarget}));
  EXPECT_EQ(host_->count("videoPostViewDidClick rewarded"), 2u);
}

TEST_F(PlacementTest, AClickAcknowledgedAfterClosingOpensNothing) {
  toPostVideo();
  // The screen is closed before the click request has even gone out.
  tapCallToAction();
  act(ui::ScreenAction::Close);
  EXPECT_EQ(server_->count("clickAd"), 1u);
  EXPECT_TRUE(opener_->opened.empty());
  EXPECT_EQ(host_->count("videoPostViewDidClick rewarded"), 0u);
  EXPECT_TRUE(scope_.log().contains(
      "[ZVVideoViewController][click] Receive responce from server on clickAd request, but "
      "video already closed."));
}

// Where a tap on the post-video screen leads: a tracker address is probed
// (GET, redirects not followed) and its web Location opened, else the
// tracker itself; a target or Location outside the web is never opened,
// even by an opener that would open anything; a web Location the opener
// cannot open leaves the tracker. Each tap hands the click over, so the
// second one goes the same way.
struct ClickCase {
  const char* name;
  std::string target;
  platform::HttpResponse trackerAnswer;
  std::string opened;
  const char* log = nullptr;
  bool dontOverride = false;
  std::string openerRefuses = {};
};
void PrintTo(const ClickCase& row, std::ostream* out) { *out << row.name; }

class ClickTargetTest : public PlacementTest, public ::testing::WithParamInterface<ClickCase> {};

TEST_P(ClickTargetTest, TwoTapsOpenTheExpectedAddressTwice) {
  const ClickCase& row = GetParam();
  auto custom = ad({{"targetURL", row.target}});
  if (row.dontOverride) custom["dontOverrideRedirect"] = "yes";
  server_->reply("getVideo", custom);
  server_->route(kTracker, [answer = row.trackerAnswer](const nlohmann::json&) { return answer; });
  opener_->refused = row.openerRefuses;
  toPostVideo();
  for (int tap = 0; tap < 2; ++tap) {
    tapCallToAction();
    runtime_->runUntilIdle();
  }
  EXPECT_EQ(opener_->opened, (row.opened.empty() ? Calls{} : Calls{row.opened, row.opened}));
  const bool probed = row.target == kTracker && !row.dontOverride;
  EXPECT_EQ(server_->count(kTracker), probed ? 2u : 0u);
  if (probed) {
    EXPECT_EQ(server_->requests().back().method, "GET");
    EXPECT_FALSE(server_->requests().back().followRedirects);
  }
  if (row.log) {
    EXPECT_TRUE(logged(row.log));
  }
}

const ClickCase kClickCases[] = {
    {"RedirectToTheWeb",
     kTracker,
     {.status = 302, .headers = {{"Location", "https://store.test/app"}}},
     "https://store.test/app"},
    {"RedirectOutsideTheWeb",
     kTracker,
     {.status = 302, .headers = {{"location", "javascript:alert(1)"}}},
     kTracker,
     "Refused the redirect Location address"},
    {"OpenerCannotOpenTheLocation",
     kTracker,
     {.status = 302, .headers = {{"Location", "https://store.test/app"}}},
     kTracker,
     nullptr,
     false,
     "https://store.test/app"},
    {"RedirectWithoutLocation", kTracker, {.status = 302}, kTracker},
    {"LandingPage", kTracker, {.status = 200, .body = "landing"}, kTracker},
    {"NoAnswer", kTracker, {.status = 0, .error = "refused"}, kTracker},
    {"DontOverrideRedirect", kTracker, {.status = 302}, kTracker, nullptr, true},
    {"TargetOutsideTheWeb",
     "file:///home/player/.bashrc",
     {},
     "",
     "[Zivora] Refused the target address, not http or https: file:///home/player/.bashrc"},
};

INSTANTIATE_TEST_SUITE_P(Targets, ClickTargetTest, ::testing::ValuesIn(kClickCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zivora
