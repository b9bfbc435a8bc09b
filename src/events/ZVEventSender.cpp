#include "events/ZVEventSender.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "analytics/ZVPAnalitics.h"
#include "events/ZVSendRequest.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "sdk/Context.h"
#include "sdk/ZVConfiguration.h"
#include "util/Crypto.h"
#include "util/Guard.h"
#include "util/JsonConvert.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVEventSender";
constexpr char kPurchaseClass[] = "ZVEventSenderDispatch";
constexpr char kReportClass[] = "EventSender";

std::string describe(const std::optional<std::string>& text) { return text ? *text : "(null)"; }

// appId, randomUID and appUserId as the configuration holds them now; a
// value that is not set is left out.
nlohmann::json identityFields() {
  nlohmann::json fields = nlohmann::json::object();
  if (auto configuration = ZVConfiguration::shared()) {
    if (auto appId = configuration->appId()) fields[TS_API_APP_ID] = *appId;
    if (auto uid = configuration->randomUID()) fields[TS_API_RANDOM_UID] = *uid;
    if (auto user = configuration->appUserId()) fields[TS_API_APP_USER_ID] = *user;
  }
  return fields;
}

nlohmann::json purchaseFields(double price, const std::optional<std::string>& currency,
                              const std::optional<std::string>& transactionId,
                              const std::optional<std::string>& receipt) {
  nlohmann::json fields = identityFields();
  fields[TS_API_AMOUNT] = price;
  if (currency) fields[TS_API_CURRENCY] = *currency;
  if (transactionId) fields[TS_API_TRANSACTION_ID] = *transactionId;
  if (receipt) fields[TS_API_RECEIPT] = *receipt;
  return fields;
}

nlohmann::json adFields(const std::string& placement, const std::string& adId,
                        std::uint64_t typeId) {
  nlohmann::json fields = identityFields();
  fields[TS_API_PLACEMENT_NAME] = placement;
  fields[TS_API_AD_ID] = adId;
  fields[TS_API_AD_TYPE] = typeId;
  return fields;
}

}  // namespace

ZVEventSender::ZVEventSender(std::shared_ptr<dispatch::Runtime> runtime, Options options)
    : serial_(runtime->makeSerialQueue(kQueueLabel)),
      eventController_(runtime, options.documentsDirectory, options.timeUnit, options.io),
      options_(std::move(options)) {}

std::shared_ptr<ZVEventSender> ZVEventSender::shared() noexcept {
  return guarded(kClass, "shared", std::shared_ptr<ZVEventSender>(), [] {
    auto context = Context::current();
    if (!context || !context->hasRuntime()) return std::shared_ptr<ZVEventSender>();
    return context->instance<ZVEventSender>([&] {
      const auto& runtime = context->runtimeOptions();
      return std::make_shared<ZVEventSender>(
          runtime.runtime, Options{.documentsDirectory = context->paths().documentsDirectory(),
                                   .receiptFile = context->host().receiptFile,
                                   .timeUnit = runtime.retryTimeUnit});
    });
  });
}

template <class Body>
void ZVEventSender::onSerial(const char* className, const char* method, Body body) {
  dispatch::asyncWeak(*serial_, weak_from_this(), {className, method}, std::move(body));
}

void ZVEventSender::purchaseEvent(double price, std::optional<std::string> currency,
                                  std::optional<std::string> transactionId) noexcept {
  guarded(kClass, "purchaseEvent", [&] {
    onSerial(kPurchaseClass, "purchaseEvent",
             [price, currency = std::move(currency),
              transactionId = std::move(transactionId)](ZVEventSender& self) {
               auto receipt = self.readReceipt();
               if (!receipt) {
                 ZVPAnalitics::shared().sendEvent(
                     TSP_EVENT_NAME_ERROR, kReportClass, "purchaseEvent",
                     fmt::format("Receipt is nil! Price: {:f}, currency: {}, transactionId: {}",
                                 price, describe(currency), describe(transactionId)));
                 ZVLog::LogWarning("[ZVEventSender][purchaseEvent] Error: Receipt is nil!");
                 return;
               }
               self.send("purchase", TS_API_EVENT_PURCHASE,
                         purchaseFields(price, currency, transactionId,
                                        ZVSendRequest::urlEncode(Crypto::base64(*receipt))));
             });
  });
}

void ZVEventSender::purchase(double price, std::optional<std::string> currency,
                             std::optional<std::string> transactionId,
                             std::optional<std::string> receipt) noexcept {
  guarded(kClass, "purchase", [&] {
    onSerial(kPurchaseClass, "purchase", [=](ZVEventSender& self) {
      self.send("purchase", TS_API_EVENT_PURCHASE,
                purchaseFields(price, currency, transactionId, receipt));
    });
  });
}

void ZVEventSender::startWatchingAd(std::string placement, std::string adId,
                                    std::uint64_t typeId) noexcept {
  guarded(kClass, "startWatchingAd", [&] {
    onSerial(kClass, "startWatchingAdDispatch", [=](ZVEventSender& self) {
      self.send("startWatchingAd", TS_API_EVENT_START_WATCHING_AD,
                adFields(placement, adId, typeId));
    });
  });
}

void ZVEventSender::watchedAdWithPlacement(std::string placement, std::string adId,
                                           std::uint64_t typeId) noexcept {
  guarded(kClass, "watchedAdWithPlacement", [&] {
    onSerial(kClass, "watchedAdWithPlacementDispatch", [=](ZVEventSender& self) {
      self.send("watchedAd", TS_API_EVENT_WATCHED_AD, adFields(placement, adId, typeId));
    });
  });
}

void ZVEventSender::removeMotivatedRewards(std::vector<std::string> rewardIds) noexcept {
  guarded(kClass, "removeMotivatedRewards", [&] {
    onSerial(kClass, "removeMotivatedRewardsDispatch",
             [rewardIds = std::move(rewardIds)](ZVEventSender& self) {
               nlohmann::json fields = identityFields();
               fields[TS_API_REWARD_IDS] = rewardIds;
               self.send("removeMotivatedRewards", TS_API_REMOVE_MOTIVATED_REWARDS,
                         std::move(fields));
             });
  });
}

void ZVEventSender::serverConnected() noexcept {
  guarded(kClass, "serverConnected", [&] { eventController_.serverConnected(); });
}

// Wraps `fields` under `eventName` and queues the document. The failure
// texts say "purchase" for every kind of event; the server's tools know them so.
void ZVEventSender::send(const char* method, const char* eventName, nlohmann::json fields) {
  std::string document;
  try {
    document = JsonConvert::serialize(nlohmann::json{{eventName, std::move(fields)}});
  } catch (...) {
    ZVPAnalitics::shared().sendEvent(TSP_EVENT_NAME_ERROR, kReportClass, method,
                                     "Can't create JSON for send purchase event");
    ZVLog::LogWarning("Error! Can't create JSON for send purchase event");
    return;
  }
  eventController_.sendEvent(document);
}

// Linux stores keep no receipt of their own: the host may name a file.
std::optional<std::string> ZVEventSender::readReceipt() const {
  if (options_.receiptFile.empty()) return std::nullopt;
  std::ifstream in(options_.receiptFile, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

}  // namespace zivora
