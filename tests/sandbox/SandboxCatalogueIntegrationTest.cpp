// The sandbox as the SDK's whole protocol sees it: ads by placement with
// media it really serves, the tracker's redirect, rewards granted by a
// watched motivated ad and removed again, faults aimed at one request.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "SandboxMedia.h"
#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"

namespace zivora::sandbox {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using platform::CurlHttpClient;
using platform::HttpRequest;
using platform::HttpResponse;

class SandboxCatalogueIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override { server_.start(); }

  HttpResponse send(const HttpRequest& request) {
    return CurlHttpClient({.caFile = server_.caFile(), .connectTimeout = 2s, .lowSpeedTime = 2s})
        .perform(request);
  }

  json ask(const std::string& name, json arguments) {
    const std::string params = json{{name, std::move(arguments)}}.dump();
    const HttpResponse response = send(test::signedPost(server_.adEndpoint(), params));
    EXPECT_EQ(response.status, 200) << response.error;
    return json::parse(response.body, nullptr, false);
  }

  json getVideo(const std::string& placement) {
    return ask("getVideo", {{"randomUID", "uid-1"},
                            {"appId", "app-1"},
                            {"placementId", placement},
                            {"orientation", 2},
                            {"isMobileNetwork", false}});
  }

  HttpResponse get(const std::string& url, bool followRedirects = true) {
    HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.followRedirects = followRedirects;
    return send(request);
  }

  json watched(const std::string& adId) {
    return ask("watchedAd", {{"appId", "app-1"},
                             {"randomUID", "uid-1"},
                             {"placementId", "p"},
                             {"adId", adId},
                             {"adType", 2}});
  }

  SandboxServer server_{{.certDirectory = test::sandboxCertDirectory()}};
};

TEST_F(SandboxCatalogueIntegrationTest, EachPlacementGetsAnAdWhoseMediaAreServed) {
  struct Case {
    const char* placement;
    const char* video;
    bool motivated;
  };
  for (const Case& c : {Case{"short", SandboxMedia::kShortVideo, false},
                        Case{"long", SandboxMedia::kLongVideo, false},
                        Case{"large", SandboxMedia::kLargeVideo, false},
                        Case{"motivated", SandboxMedia::kShortVideo, true},
                        Case{"unknown-placement", SandboxMedia::kShortVideo, false}}) {
    SCOPED_TRACE(c.placement);
    const json ad = getVideo(c.placement);
    ASSERT_TRUE(ad.is_object());
    EXPECT_FALSE(ad.contains("error"));
    EXPECT_TRUE(ad["adId"].is_string());
    EXPECT_EQ(ad["adType"], 2);
    EXPECT_EQ(ad["clickId"], "click-" + ad["adId"].get<std::string>());
    EXPECT_EQ(ad["videoURL"], server_.fileUrl(c.video));
    EXPECT_EQ(ad["imageURL"], server_.fileUrl(SandboxMedia::kPostVideoImage));
    EXPECT_NE(ad["targetURL"].get<std::string>().find("track.zivora-attribution.net"),
              std::string::npos);
    EXPECT_TRUE(ad["soundEnable"].is_boolean());
    EXPECT_EQ(ad.contains("motivationInfo"), c.motivated);
    EXPECT_EQ(ad.contains("skipVideo"), !c.motivated) << "a motivated ad cannot be skipped";
  }

  const json motivation = getVideo("motivated")["motivationInfo"];
  for (const char* key :
       {"currencyIconURL", "backgroundColor", "title", "titleColor", "description",
        "descriptionColor", "buttonText", "buttonColor", "buttonTextColor"}) {
    EXPECT_TRUE(motivation[key].is_string()) << key;
  }

  const HttpResponse large = get(getVideo("large")["videoURL"]);
  EXPECT_EQ(large.status, 200);
  EXPECT_GT(large.body.size(), 5u * 1024 * 1024);
  EXPECT_EQ(large.body.substr(4, 4), "ftyp");
  const HttpResponse icon = get(motivation["currencyIconURL"]);
  EXPECT_EQ(icon.status, 200);
  EXPECT_EQ(icon.body.substr(1, 3), "PNG");
  for (const char* button : {"closeButtonURL", "soundOnButtonURL", "soundOffButtonURL"}) {
    EXPECT_EQ(get(ask("getInitialization", {{"appId", "app-1"}})[button]).status, 200) << button;
  }
}

TEST_F(SandboxCatalogueIntegrationTest, ATestCanReplaceAnAdOrAddOne) {
  server_.catalogue().setAd("short", {{"error", 7}});
  server_.catalogue().setAd("mine", {{"adId", "mine-1"}, {"videoURL", "https://x/v.mp4"}});
  EXPECT_EQ(getVideo("short"), (json{{"error", 7}}));
  EXPECT_EQ(getVideo("mine")["adId"], "mine-1");
  EXPECT_EQ(getVideo("long")["adId"], "sandbox-long");
}

TEST_F(SandboxCatalogueIntegrationTest, TheTrackerRedirectsToTheLandingPage) {
  const std::string target = getVideo("short")["targetURL"];
  const HttpResponse redirect = get(target, false);
  EXPECT_EQ(redirect.status, 302);
  ASSERT_NE(redirect.header("Location"), nullptr);
  EXPECT_EQ(*redirect.header("Location"), server_.catalogue().landingUrl("sandbox-short"));

  // Followed, only the landing page's own head and body remain.
  const HttpResponse landing = get(target);
  EXPECT_EQ(landing.status, 200);
  EXPECT_EQ(landing.header("Location"), nullptr);
  ASSERT_NE(landing.header("content-type"), nullptr);
  EXPECT_EQ(*landing.header("content-type"), "text/html");
  EXPECT_NE(landing.body.find("Sandbox Quest"), std::string::npos);
}

TEST_F(SandboxCatalogueIntegrationTest, ClicksAreAcknowledgedAndRecorded) {
  EXPECT_EQ(ask("clickAd", {{"adId", "sandbox-short"}, {"clickId", "click-sandbox-short"}}),
            json::object());
  const auto received = server_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].requestName, "clickAd");
  EXPECT_TRUE(received[0].md5Valid);
}

TEST_F(SandboxCatalogueIntegrationTest, AWatchedMotivatedAdGrantsARewardUntilRemoved) {
  const json none = ask("getMotivatedRewards", {{"appId", "app-1"}, {"randomUID", "uid-1"}});
  EXPECT_EQ(none, (json{{"rewards", json::array()}}));

  watched("sandbox-short");
  EXPECT_TRUE(server_.rewards().rewards().empty()) << "a plain ad earns nothing";
  watched("sandbox-motivated");
  server_.rewards().grant("Other Game", 25);

  const json granted = ask("getMotivatedRewards", {{"appId", "app-1"}, {"randomUID", "uid-1"}});
  ASSERT_EQ(granted["rewards"].size(), 2u);
  const json& first = granted["rewards"][0];
  EXPECT_TRUE(first["rewardId"].is_string());
  EXPECT_TRUE(first["appName"].is_string());
  EXPECT_EQ(first["reward"], 10);
  EXPECT_EQ(granted["rewards"][1]["reward"], 25);

  EXPECT_EQ(ask("removeMotivatedRewards",
                {{"appId", "app-1"}, {"rewardIds", {first["rewardId"], "no-such-reward"}}}),
            json::object());
  const json left = ask("getMotivatedRewards", {{"appId", "app-1"}})["rewards"];
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0]["appName"], "Other Game");
}

TEST_F(SandboxCatalogueIntegrationTest, TheControlRoutesGrantRewardsFailEventsAndAimFaults) {
  auto control = [&](const std::string& route) {
    HttpRequest request;
    request.url = server_.baseUrl() + "/control/" + route;
    return send(request).status;
  };
  EXPECT_EQ(control("grant-reward?appName=Quest%202&reward=40&count=2"), 200);
  const auto rewards = server_.rewards().rewards();
  ASSERT_EQ(rewards.size(), 2u);
  EXPECT_EQ(rewards[1].appName, "Quest 2");
  EXPECT_EQ(rewards[1].amount, 40);
  EXPECT_NE(rewards[0].rewardId, rewards[1].rewardId);

  EXPECT_EQ(control("fail-events?count=1"), 200);
  const std::string params = json{{"watchedAd", {{"adId", "sandbox-motivated"}}}}.dump();
  EXPECT_EQ(send(test::signedPost(server_.adEndpoint(), params)).status, 500);
  EXPECT_EQ(server_.rewards().rewards().size(), 2u) << "a refused event grants nothing";
  EXPECT_EQ(send(test::signedPost(server_.adEndpoint(), params)).status, 200);
  EXPECT_EQ(server_.rewards().rewards().size(), 3u);

  // A fault aimed at one request waits for it and is used up by it.
  server_.misbehave(Misbehaviour::Kind::ErrorReply, 1, 9, "clickAd");
  EXPECT_EQ(getVideo("short")["adId"], "sandbox-short") << "other requests pass";
  EXPECT_EQ(ask("clickAd", json::object()), (json{{"error", 9}}));
  EXPECT_EQ(ask("clickAd", json::object()), json::object()) << "used up";
  EXPECT_EQ(control("misbehave?kind=error-reply&error=4&request=getVideo"), 200);
  EXPECT_EQ(ask("clickAd", json::object()), json::object());
  EXPECT_EQ(getVideo("short"), (json{{"error", 4}}));
}

}  // namespace
}  // namespace zivora::sandbox
