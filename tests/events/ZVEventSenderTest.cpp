#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "events/ZVEventSender.h"
#include "sdk/ZVConfiguration.h"
#include "support/FakeHttpClient.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora {
namespace {

class ZVEventSenderTest : public ::testing::Test {
 protected:
  ZVEventSenderTest() {
    ZVConfiguration::shared()->setAppId("app-1");
    ZVConfiguration::shared()->setAppUserId("player 7");
  }

  // The documents the server received, in order.
  std::vector<nlohmann::json> received() const {
    std::vector<nlohmann::json> documents;
    for (const auto& request : http_->requests()) {
      const auto& body = request.body;
      documents.push_back(nlohmann::json::parse(body.substr(7, body.rfind("&md5=") - 7)));
    }
    return documents;
  }

  void connectAndDeliver() {
    ZVEventSender::shared()->serverConnected();
    runtime_->runUntilIdle();
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::string receipt_ = (root_.path() / "receipt.bin").string();
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  test::ScopedContext context_{
      HostOptions{.dataRoot = root_.path().string(), .receiptFile = receipt_},
      RuntimeOptions{.runtime = runtime_, .http = http_}};
};

TEST_F(ZVEventSenderTest, EventsWaitForTheServerThenGoOutInCallOrderWithTheirFields) {
  auto sender = ZVEventSender::shared();
  sender->startWatchingAd("main", "42", 2);
  sender->watchedAdWithPlacement("main", "42", 2);
  sender->removeMotivatedRewards({"r1", "r2"});
  sender->purchase(1.5, "USD", "t-1", "token");
  runtime_->runUntilIdle();
  EXPECT_TRUE(http_->requests().empty());
  EXPECT_TRUE(std::filesystem::exists(root_.path() / "Documents" / "ts_events.dat"));

  connectAndDeliver();
  auto documents = received();
  ASSERT_EQ(documents.size(), 4u);
  const std::string uid = *ZVConfiguration::shared()->randomUID();
  const nlohmann::json identity = {
      {"appId", "app-1"}, {"randomUID", uid}, {"appUserId", "player 7"}};
  auto with = [&](nlohmann::json fields) {
    fields.update(identity);
    return fields;
  };
  EXPECT_EQ(documents[0],
            (nlohmann::json{{"startWatchingAd",
                             with({{"placementId", "main"}, {"adId", "42"}, {"adType", 2}})}}));
  EXPECT_EQ(documents[1],
            (nlohmann::json{
                {"watchedAd", with({{"placementId", "main"}, {"adId", "42"}, {"adType", 2}})}}));
  EXPECT_EQ(documents[2],
            (nlohmann::json{{"removeMotivatedRewards",
                             with({{"rewardIds", nlohmann::json::array({"r1", "r2"})}})}}));
  EXPECT_EQ(documents[3], (nlohmann::json{{"eventPurchase", with({{"amount", 1.5},
                                                                  {"currency", "USD"},
                                                                  {"transactionId", "t-1"},
                                                                  {"receipt", "token"}})}}));
  EXPECT_FALSE(std::filesystem::exists(root_.path() / "Documents" / "ts_events.dat"));
}

TEST_F(ZVEventSenderTest, AbsentValuesAreLeftOut) {
  ZVConfiguration::shared()->setAppUserId(std::nullopt);
  ZVEventSender::shared()->purchase(2, std::nullopt, "t-2", std::nullopt);
  connectAndDeliver();
  auto documents = received();
  ASSERT_EQ(documents.size(), 1u);
  const auto& fields = documents[0].at("eventPurchase");
  EXPECT_FALSE(fields.contains("receipt"));
  EXPECT_FALSE(fields.contains("currency"));
  EXPECT_FALSE(fields.contains("appUserId"));
  EXPECT_EQ(fields.at("transactionId"), "t-2");
}

TEST_F(ZVEventSenderTest, APurchaseCarriesTheReceiptFileBase64AndPercentEncoded) {
  std::ofstream(receipt_, std::ios::binary) << std::string("\xFB\xFF receipt", 10);
  ZVEventSender::shared()->purchaseEvent(0.99, "EUR", "t-3");
  connectAndDeliver();
  auto documents = received();
  ASSERT_EQ(documents.size(), 1u);
  // "+/8gcmVjZWlwdA==" percent-encoded.
  EXPECT_EQ(documents[0].at("eventPurchase").at("receipt"), "%2B%2F8gcmVjZWlwdA%3D%3D");
}

// A purchase without a receipt, or whose document cannot be written, is
// reported and never queued.
TEST_F(ZVEventSenderTest, PurchasesThatCannotBeSentAreReportedNotQueued) {
  ZVEventSender::shared()->purchaseEvent(1.5, "USD", std::nullopt);
  ZVEventSender::shared()->purchase(std::nan(""), "USD", "t-4", "r");
  connectAndDeliver();
  EXPECT_TRUE(http_->requests().empty());
  auto reported = context_.analytics().events();
  ASSERT_EQ(reported.size(), 2u);
  EXPECT_EQ(reported[0].eventName, "error");
  EXPECT_EQ(reported[0].className, "EventSender");
  EXPECT_EQ(reported[0].method, "purchaseEvent");
  EXPECT_EQ(reported[0].message,
            "Receipt is nil! Price: 1.500000, currency: USD, transactionId: (null)");
  EXPECT_TRUE(context_.log().contains("[ZVEventSender][purchaseEvent] Error: Receipt is nil!"));
  EXPECT_EQ(reported[1].method, "purchase");
  EXPECT_EQ(reported[1].message, "Can't create JSON for send purchase event");
  EXPECT_TRUE(context_.log().contains("Error! Can't create JSON for send purchase event"));
}

}  // namespace
}  // namespace zivora
