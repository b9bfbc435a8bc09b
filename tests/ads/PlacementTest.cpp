// A placement's whole course on virtual time: the ad request, the image and
// video downloads (served by a scripted file server), the player (a
// scripted media item), the screens (drawn in memory) and the click-through,
// as the host sees them through its callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <functional>
#include <set>

#include "ads/RewardLedger.h"
#include "ads/ZVRedirectRequest.h"
#include "platform/UrlOpener.h"
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
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/DefaultAdSide.h"
#include "ui/Display.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

constexpr char kPlacement[] = "rewarded";
constexpr char kVideo[] = "https://cdn.test/ad/video.mp4";
constexpr char kImage[] = "https://cdn.test/ad/end.png";
constexpr char kTarget[] = "https://shop.test/item";

class RecordingOpener final : public platform::UrlOpener {
 public:
  bool canOpenURL(const std::string& url) override {
    return openAnything || url.rfind("https://", 0) == 0 || url.rfind("http://", 0) == 0;
  }
  bool openURL(const std::string& url) override {
    opened.push_back(url);
    return canOpenURL(url);
  }
  Calls opened;
  // An opener without a scheme check of its own: the ad logic's rule is
  // then the only wall.
  bool openAnything = false;
};

class PlacementTest : public ::testing::Test {
 protected:
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
    auto configuration = ZVConfiguration::shared();
    configuration->setAppId("app-1");
    helper_->setDelegate(host_);
    side_->startUp();
    side_->newVideoManager();
    side_->serverConnected();
    server_->reply("getVideo", ad());
    content_[kVideo] = std::string(1'000'000, 'v');
    content_[kImage] = std::string(2'000, 'i');
  }

  ~PlacementTest() override { runtime_->runUntilIdle(); }

  nlohmann::json ad() const {
    return {{"adId", "ad-7"},     {"adType", 2},        {"clickId", "click-9"},
            {"videoURL", kVideo}, {"imageURL", kImage}, {"targetURL", kTarget},
            {"skipVideo", 5},     {"soundEnable", true}};
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
  void itemReady(double duration = 10) {
    ASSERT_NE(media_->lastItem(), nullptr);
    media_->lastItem()->setDuration(media::MediaTime::fromSeconds(duration));
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

  // Plays for `seconds`, the player's clock moving with virtual time.
  void playFor(double seconds) {
    for (double t = 0; t < seconds - 1e-9; t += 0.05) {
      media_->lastPlayer()->advanceBy(media::MediaTime::fromSeconds(0.05));
      runtime_->advanceBy(50ms);
    }
  }

  void playToEnd() {
    media_->lastItem()->postPlayedToEnd();
    runtime_->runUntilIdle();
    runtime_->advanceBy(1s);
  }

  // Taps arrive on the main queue, as the window's events do.
  bool act(ui::ScreenAction action) {
    bool acted = false;
    runtime_->mainQueue().async([&] { acted = presenter().performAction(action); });
    runtime_->runUntilIdle();
    runtime_->advanceBy(1s);
    return acted;
  }

  ui::Presenter& presenter() { return ui::Display::of(Context::current())->presenter(); }

  // Some log line holds `part`.
  bool logged(std::string_view part) {
    const auto texts = scope_.log().texts();
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
      return text.find(part) != std::string::npos;
    });
  }

  Calls calls() const { return host_->calls; }
  std::size_t count(const std::string& call) const { return host_->count(call); }

  test::TempDir root_;
  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  std::shared_ptr<test::FakeHttpClient> server_ = std::make_shared<test::FakeHttpClient>();
  std::shared_ptr<test::FakeStreamingClient> files_ =
      std::make_shared<test::FakeStreamingClient>(*runtime_);
  std::shared_ptr<test::FakeFileSystem> disk_ = std::make_shared<test::FakeFileSystem>();
  std::shared_ptr<test::FakeMediaFactory> media_ =
      std::make_shared<test::FakeMediaFactory>(runtime_->mainQueue());
  std::shared_ptr<RecordingOpener> opener_ = std::make_shared<RecordingOpener>();
  test::ScopedContext scope_;
  std::shared_ptr<test::RecordingHost> host_ = std::make_shared<test::RecordingHost>();
  std::shared_ptr<InvokeDelegateHelper> helper_ = std::make_shared<InvokeDelegateHelper>();
  std::shared_ptr<DefaultAdSide> side_ = std::make_shared<DefaultAdSide>(helper_);
  std::map<std::string, std::string> content_;
  std::set<const void*> served_;
};

TEST_F(PlacementTest, AWatchedAdTellsTheHostEachStepInOrderAndEarnsTheReward) {
  cacheReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
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
  EXPECT_TRUE(act(ui::ScreenAction::Close));

  EXPECT_EQ(calls(), (Calls{"videoDidCache rewarded", "videoWindowWillDisplay rewarded",
                            "videoWindowDidDisplay rewarded", "videoDidDismiss rewarded",
                            "videoWindowWillClose rewarded", "videoWindowDidClose rewarded",
                            "videoReceiveReward rewarded"}));
  EXPECT_EQ(server_->count("startWatchingAd"), 1u);
  EXPECT_EQ(server_->count("watchedAd"), 1u);
  EXPECT_FALSE(side_->isRequestShow());
  EXPECT_FALSE(side_->isReadyVideo(kPlacement));
  EXPECT_TRUE(presenter().windows().empty());
}

TEST_F(PlacementTest, TheRewardIsOnDiskFromTheWatchedEndUntilTheHostsCallbackReturned) {
  cacheReady();
  showAndDisplay();
  playToEnd();
  // The post-video screen waits for the player: the reward is on disk.
  auto owed = RewardLedger::shared()->unacknowledged();
  ASSERT_EQ(owed.size(), 1u);
  EXPECT_EQ(owed.front().placement, kPlacement);
  EXPECT_FALSE(owed.front().adId.empty());
  EXPECT_EQ(server_->count("watchedAd"), 1u);

  EXPECT_TRUE(act(ui::ScreenAction::Close));
  EXPECT_EQ(count("videoReceiveReward rewarded"), 1u);
  EXPECT_TRUE(RewardLedger::shared()->unacknowledged().empty());
}

TEST_F(PlacementTest, ASkippedAdIsDismissedWithoutWatchedEventOrReward) {
  cacheReady();
  showAndDisplay();
  playFor(6);  // past the skip time of 5 s
  act(ui::ScreenAction::Skip);
  EXPECT_EQ(count("videoDidDismiss rewarded"), 1u);
  act(ui::ScreenAction::Close);
  EXPECT_EQ(count("videoWindowDidClose rewarded"), 1u);
  EXPECT_EQ(count("videoReceiveReward rewarded"), 0u);
  EXPECT_TRUE(RewardLedger::shared()->unacknowledged().empty());
  EXPECT_EQ(server_->count("watchedAd"), 0u);
  EXPECT_EQ(server_->count("startWatchingAd"), 1u);
}

TEST_F(PlacementTest, ShowingBeforeCachingOpensTheAdWhenReadyWithoutCachingCallback) {
  side_->showVideo(kPlacement);
  serveDownloads();
  itemReady();
  runtime_->advanceBy(1s);
  EXPECT_EQ(calls(), (Calls{"videoWindowWillDisplay rewarded", "videoWindowDidDisplay rewarded"}));
}

TEST_F(PlacementTest, ServerRefusalIsPassedToTheHostAtOnceWithoutRetry) {
  server_->reply("getVideo", {{"error", 7}});
  side_->cacheVideo(kPlacement);
  runtime_->runUntilIdle();
  EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 7"});
  runtime_->advanceBy(30s);
  EXPECT_EQ(server_->count("getVideo"), 1u);
}

// Whatever breaks the load (no answer, an ad without usable addresses, a
// video the player rejects), it is retried once five seconds later and then
// fails with 3; the failed controller is gone, so the next call starts afresh.
TEST_F(PlacementTest, AFailedLoadIsRetriedOnceAfterFiveSecondsThenFailsWithThree) {
  auto badAd = [this](const char* key) {
    auto bad = ad();
    bad[key] = 12;  // not an address
    server_->reply("getVideo", bad);
  };
  auto rejectVideo = [this] {
    media_->lastItem()->postStatus(media::MediaItemStatus::Failed, "not a video");
    runtime_->runUntilIdle();
  };
  struct Cause {
    const char* name;
    std::function<void()> arrange;
    std::function<void()> afterDownloads;
  };
  const Cause causes[] = {
      {"transport", [this] { server_->refuse("getVideo"); }, [] {}},
      {"imageURL", [&] { badAd("imageURL"); }, [] {}},
      {"videoURL", [&] { badAd("videoURL"); }, [] {}},
      {"player", [] {}, rejectVideo},
  };
  for (const Cause& cause : causes) {
    SCOPED_TRACE(cause.name);
    server_->reply("getVideo", ad());
    cause.arrange();
    host_->calls.clear();
    const auto requests = server_->count("getVideo");
    side_->cacheVideo(kPlacement);
    serveDownloads();
    cause.afterDownloads();
    EXPECT_TRUE(calls().empty());
    runtime_->advanceBy(4900ms);
    EXPECT_EQ(server_->count("getVideo"), requests + 1);
    runtime_->advanceBy(100ms);
    EXPECT_EQ(server_->count("getVideo"), requests + 2);
    serveDownloads();
    cause.afterDownloads();
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
  }

  server_->reply("getVideo", ad());
  cacheReady();
  EXPECT_EQ(calls(), (Calls{"videoDidFailToLoad rewarded 3", "videoDidCache rewarded"}));
}

// A reply the ad logic cannot read (a null or mistyped "error", an ad whose
// fields throw on reading) is a failed request like any other: retried once,
// then error 3, and the placement takes new requests afterwards.
TEST_F(PlacementTest, AnUnreadableReplyIsRetriedThenFailsWithThreeAndThePlacementRecovers) {
  const nlohmann::json replies[] = {
      {{"error", nullptr}},
      {{"error", nlohmann::json::array({1})}},
      [this] {
        auto bad = ad();
        bad["error"] = nlohmann::json::object();
        return bad;
      }(),
      [this] {
        auto bad = ad();
        bad["soundEnable"] = nlohmann::json::array();
        return bad;
      }(),
  };
  for (const auto& reply : replies) {
    SCOPED_TRACE(reply.dump());
    server_->reply("getVideo", reply);
    host_->calls.clear();
    const auto requests = server_->count("getVideo");
    side_->cacheVideo(kPlacement);
    serveDownloads();
    EXPECT_TRUE(calls().empty());
    runtime_->advanceBy(5s);
    serveDownloads();
    EXPECT_EQ(server_->count("getVideo"), requests + 2);
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
  }
  server_->reply("getVideo", ad());
  host_->calls.clear();
  cacheReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
}

// The player never reports the video ready: the request ends with 3 when
// its budget is spent, whatever arrives later stays unheard, and the
// placement is idle again.
TEST_F(PlacementTest, ARequestThatStallsEndsWithThreeWhenItsTimeBudgetIsSpent) {
  for (const bool show : {false, true}) {
    SCOPED_TRACE(show ? "showVideo" : "cacheVideo");
    host_->calls.clear();
    if (show)
      side_->showVideo(kPlacement);
    else
      side_->cacheVideo(kPlacement);
    serveDownloads();
    auto* stalled = media_->lastItem();
    runtime_->advanceBy(179s);
    EXPECT_TRUE(calls().empty());
    runtime_->advanceBy(1s);
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
    EXPECT_FALSE(side_->isRequestShow());
    EXPECT_TRUE(logged("got no answer in time"));

    // The stalled load finishing late reaches nobody.
    ASSERT_NE(stalled, nullptr);
    stalled->setDuration(media::MediaTime::fromSeconds(10));
    stalled->postStatus(media::MediaItemStatus::ReadyToPlay);
    runtime_->advanceBy(10min);
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
    EXPECT_TRUE(presenter().windows().empty());
  }
  host_->calls.clear();
  cacheReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
  runtime_->advanceBy(10min);
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
}

class UnlimitedPlacementTest : public PlacementTest {
 protected:
  UnlimitedPlacementTest() : PlacementTest(0) {}
};

TEST_F(UnlimitedPlacementTest, ABudgetOfZeroLetsARequestWaitForItsAnswer) {
  side_->cacheVideo(kPlacement);
  serveDownloads();
  runtime_->advanceBy(1h);
  EXPECT_TRUE(calls().empty());
  itemReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
}

bool anyTransferOutsideTheWeb(const test::FakeStreamingClient& files) {
  const auto transfers = files.transfers();
  return std::any_of(transfers.begin(), transfers.end(), [](const auto& t) {
    std::string scheme = t->request.url.substr(0, t->request.url.find(':'));
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return scheme != "http" && scheme != "https";
  });
}

// A video or picture address that is not http or https never reaches the
// downloader: the ad counts as unusable (retried, then 3). Optional images
// (the currency icon, the buttons) are left out and the ad still caches.
TEST_F(PlacementTest, OnlyWebAddressesReachTheDownloader) {
  for (const char* key : {"videoURL", "imageURL"}) {
    SCOPED_TRACE(key);
    auto bad = ad();
    bad[key] = "file:///etc/passwd";
    server_->reply("getVideo", bad);
    host_->calls.clear();
    side_->cacheVideo(kPlacement);
    serveDownloads();
    runtime_->advanceBy(5s);
    serveDownloads();
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
    EXPECT_TRUE(scope_.log().contains(std::string("[Zivora] Refused the ") +
                                      (key[0] == 'v' ? "video" : "image") +
                                      " address, not http or https: file:///etc/passwd"));
  }
  auto odd = ad();
  odd["motivationInfo"] = {{"currencyIconURL", "data:image/png;base64,AAAA"}};
  server_->reply("getVideo", odd);
  ZVConfiguration::shared()->setCloseButtonURL("ftp://cdn.test/close.png");
  ZVConfiguration::shared()->setSoundOnButtonURL("HTTPS://cdn.test/on.png");
  content_["HTTPS://cdn.test/on.png"] = "on";
  host_->calls.clear();
  cacheReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
  EXPECT_TRUE(logged("Refused the currency icon address"));
  EXPECT_TRUE(logged("Refused the close button address"));
  EXPECT_FALSE(logged("Refused the sound-on button address"));
  EXPECT_FALSE(anyTransferOutsideTheWeb(*files_));
}

TEST_F(PlacementTest, CachingTwiceSendsOneRequest) {
  server_->route("getVideo", [](const nlohmann::json&) {
    return platform::HttpResponse{.status = 0, .error = "slow"};
  });
  side_->cacheVideo(kPlacement);
  side_->cacheVideo(kPlacement);
  runtime_->runUntilIdle();
  EXPECT_EQ(server_->count("getVideo"), 1u);
}

TEST_F(PlacementTest, MistypedOptionalFieldsAreIgnoredAndTheAdStillPlays) {
  auto odd = ad();
  odd["skipVideo"] = "soon";
  odd["soundEnable"] = "no";
  server_->reply("getVideo", odd);
  cacheReady();
  showAndDisplay();
  EXPECT_EQ(count("videoWindowDidDisplay rewarded"), 1u);
  ASSERT_NE(media_->lastPlayer(), nullptr);
  EXPECT_TRUE(media_->lastPlayer()->isMuted());
}

TEST_F(PlacementTest, NoFreeSpaceFailsWithTwo) {
  disk_->freeBytes = 1024;
  side_->cacheVideo(kPlacement);
  serveDownloads();
  EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 2"});
}

// A write that fails under the download (the disk filling in the middle of
// a chunk, the file unlinked under the writer) reaches the host as a failed
// load, never as a cached ad; short writes lose nothing. Once the fault is
// gone the video is downloaded whole.
TEST_F(PlacementTest, WriteFaultsFailTheLoadAtTheHostAndLoseNoBytes) {
  const auto videoFile = [this] {
    std::filesystem::path largest;
    for (const auto& entry :
         std::filesystem::directory_iterator(root_.path() / "Caches" / "Zivora"))
      if (largest.empty() || entry.file_size() > std::filesystem::file_size(largest))
        largest = entry.path();
    return largest;
  };
  struct Fault {
    const char* name;
    std::function<void()> arrange;
  };
  const Fault faults[] = {
      {"disk full mid-chunk", [this] { disk_->diskFullAfter = disk_->written + 250'000; }},
      // Every attempt loses its cache file a quarter of a megabyte in; the
      // event files written meanwhile are left alone.
      {"unlinked under the writer",
       [this] {
         const std::int64_t from = disk_->written;
         disk_->beforeWrite = [this, from](int fd) {
           if (disk_->written - from < 250'000) return;
           std::error_code error;
           const auto path =
               std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
           if (!error && path.parent_path() == root_.path() / "Caches" / "Zivora")
             std::filesystem::remove(path, error);
         };
       }},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    fault.arrange();
    host_->calls.clear();
    side_->cacheVideo(kPlacement);
    serveDownloads();
    runtime_->advanceBy(5s);
    serveDownloads();
    EXPECT_EQ(calls(), Calls{"videoDidFailToLoad rewarded 3"});
    disk_->diskFullAfter.reset();
    disk_->beforeWrite = nullptr;
    runtime_->advanceBy(5s);
  }

  host_->calls.clear();
  disk_->shortWrites(777);
  cacheReady();
  EXPECT_EQ(calls(), Calls{"videoDidCache rewarded"});
  EXPECT_EQ(test::readFile(videoFile()), content_[kVideo]);
}

TEST_F(PlacementTest, TwoPlacementsHaveIndependentControllers) {
  side_->cacheVideo("a");
  side_->showVideo("b");
  runtime_->runUntilIdle();
  EXPECT_TRUE(side_->isRequestShow());
  EXPECT_EQ(server_->count("getVideo"), 2u);
  side_->showVideo("");
  EXPECT_TRUE(scope_.log().contains("[Zivora][showVideo] Error! PlacementName is nil or empty."));
}

class ClickTest : public PlacementTest {
 protected:
  // Plays the ad to the post-video screen.
  void toPostVideo() {
    cacheReady();
    showAndDisplay();
    playToEnd();
  }
  // Queued on the main queue, not run: a second tap, or a close, lands
  // before the click request the first one posts.
  void tapCallToAction() {
    runtime_->mainQueue().async(
        [this] { presenter().performAction(ui::ScreenAction::CallToAction); });
  }
};

TEST_F(ClickTest, ADoubleTapSendsOneClickAndAnAcknowledgedClickOpensAgainWithoutRequest) {
  toPostVideo();
  tapCallToAction();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(scope_.log().contains("Already sent clickAd to the server, wait responce."));
  EXPECT_EQ(server_->count("clickAd"), 1u);
  EXPECT_EQ(opener_->opened, Calls{kTarget});
  const auto click = server_->lastParams().at("clickAd");
  EXPECT_EQ(click["adId"], "ad-7");
  EXPECT_EQ(click["clickId"], "click-9");
  EXPECT_EQ(click["adType"], 2);

  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_EQ(server_->count("clickAd"), 1u);
  EXPECT_EQ(opener_->opened, (Calls{kTarget, kTarget}));
  EXPECT_EQ(count("videoPostViewDidClick rewarded"), 2u);
}

TEST_F(ClickTest, AFailedClickRequestLetsTheNextTapTryAgain) {
  server_->refuse("clickAd");
  toPostVideo();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(opener_->opened.empty());
  server_->reply("clickAd", nlohmann::json::object());
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_EQ(server_->count("clickAd"), 2u);
  EXPECT_EQ(opener_->opened, Calls{kTarget});
}

TEST_F(ClickTest, AClickAcknowledgedAfterClosingOpensNothing) {
  toPostVideo();
  // The screen is closed before the click request has even gone out.
  tapCallToAction();
  act(ui::ScreenAction::Close);
  EXPECT_EQ(server_->count("clickAd"), 1u);
  EXPECT_TRUE(opener_->opened.empty());
  EXPECT_EQ(count("videoPostViewDidClick rewarded"), 0u);
  EXPECT_TRUE(scope_.log().contains(
      "[ZVVideoViewController][click] Receive responce from server on clickAd request, but "
      "video already closed."));
}

TEST_F(ClickTest, ATrackerAddressIsResolvedOnceAndFallsBackWhenTheLocationCannotBeOpened) {
  const std::string tracker = std::string("https://") + ZVRedirectRequest::kTrackerHost + "/c/ad-7";
  struct Case {
    platform::HttpResponse answer;
    std::string opened;
  };
  const std::vector<Case> cases{
      {{.status = 302, .headers = {{"Location", "https://store.test/app"}}},
       "https://store.test/app"},
      {{.status = 302, .headers = {{"location", "market://details?id=1"}}}, tracker},
      {{.status = 302}, tracker},
      {{.status = 200, .body = "landing"}, tracker},
      {{.status = 0, .error = "refused"}, tracker},
  };
  auto custom = ad();
  custom["targetURL"] = tracker;
  server_->reply("getVideo", custom);
  toPostVideo();
  for (const auto& c : cases) {
    server_->route(tracker, [answer = c.answer](const nlohmann::json&) { return answer; });
    opener_->opened.clear();
    tapCallToAction();
    runtime_->runUntilIdle();
    EXPECT_EQ(opener_->opened, Calls{c.opened});
    const auto last = server_->requests().back();
    EXPECT_EQ(last.method, "GET");
    EXPECT_FALSE(last.followRedirects);
  }
}

// Even with an opener that would open anything, a target or a redirect's
// Location that is not http or https is never opened nor probed.
TEST_F(ClickTest, ANonWebTargetOrLocationIsNeverOpened) {
  opener_->openAnything = true;
  const std::string tracker = std::string("https://") + ZVRedirectRequest::kTrackerHost + "/c/2";
  auto custom = ad();
  custom["targetURL"] = "file:///home/player/.bashrc";
  server_->reply("getVideo", custom);
  toPostVideo();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(opener_->opened.empty());
  EXPECT_TRUE(scope_.log().contains(
      "[Zivora] Refused the target address, not http or https: file:///home/player/.bashrc"));
  // The click was handed over: the next tap may try again.
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_TRUE(opener_->opened.empty());

  act(ui::ScreenAction::Close);
  custom["targetURL"] = tracker;
  server_->reply("getVideo", custom);
  server_->route(tracker, [](const nlohmann::json&) {
    return platform::HttpResponse{.status = 302, .headers = {{"Location", "javascript:alert(1)"}}};
  });
  toPostVideo();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_EQ(opener_->opened, Calls{tracker});
  EXPECT_TRUE(logged("Refused the redirect Location address"));
}

TEST_F(ClickTest, DontOverrideRedirectOpensTheTrackerAddressAsItStands) {
  const std::string tracker = std::string("https://") + ZVRedirectRequest::kTrackerHost + "/c/1";
  auto custom = ad();
  custom["targetURL"] = tracker;
  custom["dontOverrideRedirect"] = "yes";
  server_->reply("getVideo", custom);
  toPostVideo();
  tapCallToAction();
  runtime_->runUntilIdle();
  EXPECT_EQ(opener_->opened, Calls{tracker});
  EXPECT_EQ(server_->count(tracker), 0u);
}

}  // namespace
}  // namespace zivora
