#include "ads/MotivationRewardManager.h"

#include <nlohmann/json.hpp>

#include "ads/ZVMotivatedRewardsReply.h"
#include "analytics/ZVPAnalitics.h"
#include "events/ZVSendRequest.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "sdk/ZVConfiguration.h"
#include "util/Guard.h"
#include "util/JsonConvert.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

constexpr std::int64_t kTransportFailed = 3;
constexpr std::int64_t kBadResponse = 4;

dispatch::Runtime& runtime() { return Context::require()->runtime(); }

nlohmann::json requestBody() {
  auto configuration = ZVConfiguration::shared();
  nlohmann::json fields = nlohmann::json::object();
  if (configuration) {
    if (auto appId = configuration->appId()) fields[TS_API_APP_ID] = *appId;
    if (auto uid = configuration->randomUID()) fields[TS_API_RANDOM_UID] = *uid;
    if (auto user = configuration->appUserId()) fields[TS_API_APP_USER_ID] = *user;
  }
  return {{TS_API_GET_MOTIVATED_REWARDS, fields}};
}

}  // namespace

MotivationRewardManager::MotivationRewardManager(std::shared_ptr<ZivoraDelegate> delegate,
                                                 Remover remover)
    : delegate_(std::move(delegate)), remover_(std::move(remover)) {}

void MotivationRewardManager::requestMotivatedRewards() {
  guarded("MotivationRewardManager", "requestMotivatedRewards", [&] {
    runtime().globalQueue().async([self = shared_from_this()] {
      guarded("MotivationRewardManager", "requestMotivatedRewards", [&] { self->fetch(); });
    });
  });
}

void MotivationRewardManager::fetch() {
  std::string body;
  try {
    body = JsonConvert::serialize(requestBody());
  } catch (...) {
    ZVPAnalitics::shared().sendEvent(TSP_EVENT_NAME_ERROR, "MotivationRewardManager",
                                     "requestMotivatedRewards",
                                     "Can't create JSON for request video");
    ZVLog::LogWarning("Error! Can't create JSON for request video");
    failRequestRewards(kBadResponse);
    return;
  }
  auto self = shared_from_this();
  ZVSendRequest::sendPost(body, [self](const nlohmann::json* reply, int error) {
    std::optional<nlohmann::json> copy;
    if (reply) copy = *reply;
    runtime().globalQueue().async([self, copy = std::move(copy), error] {
      guarded("MotivationRewardManager", "requestMotivatedRewards", [&] {
        if (error == TS_HTTP_ERROR || !copy) {
          ZVLog::LogDebug(
              "[MotivationRewardManager][requestMotivatedRewards] Error request motivated "
              "rewards, error = {}",
              error);
          self->repeateRequestAfterError();
          return;
        }
        self->requestCount_ = 0;
        self->receiveResponse(&*copy);
      });
    });
  });
}

void MotivationRewardManager::repeateRequestAfterError() {
  std::weak_ptr<MotivationRewardManager> weak = weak_from_this();
  const auto delay = std::chrono::duration_cast<dispatch::Duration>(
      Context::require()->runtimeOptions().retryTimeUnit);
  runtime().globalQueue().after(delay, [weak] {
    auto self = weak.lock();
    if (!self) return;
    try {
      if (self->requestCount_ < kMaxRetries) {
        self->requestMotivatedRewards();
        ++self->requestCount_;
      } else {
        self->requestCount_ = 0;
        self->failRequestRewards(kTransportFailed);
      }
    } catch (const std::exception& e) {
      ZVLog::LogDebug("[MotivationRewardManager][repeateRequestAfterErrorDipatch] Error! {}",
                      e.what());
      self->failRequestRewards(kBadResponse);
    }
  });
}

void MotivationRewardManager::receiveResponse(const nlohmann::json* response) {
  try {
    if (!response || !response->is_object()) return failRequestRewards(kBadResponse);
    auto reply = ZVMotivatedRewardsReply::read(*response);
    if (reply.error) return failRequestRewards(*reply.error);
    receiveMotivatedRewards(std::move(reply.rewards));
  } catch (const std::exception& e) {
    ZVLog::LogDebug("[MotivationRewardManager][receiveResponse] Error! {}", e.what());
    failRequestRewards(kBadResponse);
  }
}

void MotivationRewardManager::receiveMotivatedRewards(std::vector<ZVMotivatedRewardInfo> rewards) {
  runtime().mainQueue().async([self = shared_from_this(), rewards = std::move(rewards)] {
    guarded("MotivationRewardManager", "receiveMotivatedRewards", [&] {
      std::vector<std::string> ids;
      for (const auto& reward : rewards) ids.push_back(reward.rewardId());
      const bool accepted = self->delegate_ && self->delegate_->receiveMotivatedRewards(rewards);
      if (accepted && !ids.empty()) self->removeMotivatedRewards(ids);
    });
  });
}

void MotivationRewardManager::failRequestRewards(std::int64_t error) {
  runtime().mainQueue().async([self = shared_from_this(), error] {
    guarded("MotivationRewardManager", "failRequestRewards", [&] {
      if (self->delegate_) {
        self->delegate_->failedRequestMotivatedRewards(static_cast<std::uint64_t>(error));
      }
    });
  });
}

void MotivationRewardManager::removeMotivatedRewards(const std::vector<std::string>& rewardIds) {
  try {
    std::vector<std::string> kept;
    for (const auto& id : rewardIds) {
      if (!id.empty()) kept.push_back(id);
    }
    if (!kept.empty() && remover_) remover_(kept);
  } catch (const std::exception& e) {
    ZVLog::LogDebug("[MotivationRewardManager][removeMotivatedRewards] Error! {}", e.what());
  }
}

}  // namespace zivora
