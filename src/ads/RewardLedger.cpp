#include "ads/RewardLedger.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "platform/KeyValueStore.h"
#include "platform/Uuid.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "sdk/Defaults.h"
#include "sdk/InvokeDelegateHelper.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

constexpr char kClass[] = "RewardLedger";
constexpr char kQueueLabel[] = "com.zivora.rewards";
// The ledger's one suite in its own database file.
constexpr char kSuite[] = "rewards";

nlohmann::json toJson(const RewardRecord& record) {
  return {{"placement", record.placement}, {"adId", record.adId}, {"earnedAt", record.earnedAt}};
}

// A record as stored; a value of another shape (written by no version of
// the ledger) still yields its id, so the reward is not dropped.
RewardRecord fromJson(const std::string& rewardId, const nlohmann::json& value) {
  RewardRecord record;
  record.rewardId = rewardId;
  if (!value.is_object()) return record;
  if (auto it = value.find("placement"); it != value.end() && it->is_string())
    record.placement = it->get<std::string>();
  if (auto it = value.find("adId"); it != value.end() && it->is_string())
    record.adId = it->get<std::string>();
  if (auto it = value.find("earnedAt"); it != value.end() && it->is_number_integer())
    record.earnedAt = it->get<std::int64_t>();
  return record;
}

}  // namespace

std::shared_ptr<RewardLedger> RewardLedger::shared() {
  return guarded(kClass, "shared", std::shared_ptr<RewardLedger>(), [] {
    auto context = Context::current();
    if (!context || !context->hasRuntime()) return std::shared_ptr<RewardLedger>();
    return context->instance<RewardLedger>([&] {
      return std::make_shared<RewardLedger>(context->paths().documentsDirectory() / kFileName,
                                            context->runtime());
    });
  });
}

RewardLedger::Deliver RewardLedger::toHost(std::shared_ptr<ZivoraDelegate> host) {
  return [host = std::move(host)](const RewardRecord& record) {
    if (!host) return false;
    // The SDK's dispatcher drops a callback when the host has set no
    // delegate yet; the reward then waits for the next start.
    if (auto* dispatcher = dynamic_cast<InvokeDelegateHelper*>(host.get());
        dispatcher && !dispatcher->delegate()) {
      ZVLog::LogWarning("[RewardLedger] No delegate for reward {} of {}; kept for the next start",
                        record.rewardId, record.placement);
      return false;
    }
    host->videoReceiveReward(record.placement, record.rewardId);
    return true;
  };
}

RewardLedger::RewardLedger(std::filesystem::path file, dispatch::Runtime& runtime)
    : file_(std::move(file)), runtime_(runtime), queue_(runtime.makeSerialQueue(kQueueLabel)) {}

void RewardLedger::open() { database(); }

std::shared_ptr<platform::KeyValueStore> RewardLedger::database() {
  std::lock_guard lock(mutex_);
  if (opened_) return database_;
  opened_ = true;
  database_ = defaults::keyValueStore(file_);
  if (!database_) {
    ZVLog::LogWarning("[RewardLedger] {} cannot be opened: rewards are delivered without a record",
                      file_.string());
    return nullptr;
  }
  for (auto& [rewardId, value] : database_->entries(kSuite))
    pending_.push_back(fromJson(rewardId, value));
  std::stable_sort(pending_.begin(), pending_.end(),
                   [](const auto& a, const auto& b) { return a.earnedAt < b.earnedAt; });
  return database_;
}

RewardRecord RewardLedger::earn(const std::string& placement, const std::string& adId,
                                std::function<void()> afterCommit) {
  const auto now = runtime_.clock().wallNow().time_since_epoch();
  RewardRecord record{
      .rewardId = platform::Uuid::uuidString(),
      .placement = placement,
      .adId = adId,
      .earnedAt = std::chrono::duration_cast<std::chrono::milliseconds>(now).count()};
  queue_->async([self = shared_from_this(), record, afterCommit = std::move(afterCommit)] {
    guarded(kClass, "earn", [&] { self->commit(record); });
    if (afterCommit) guarded(kClass, "earnAfterCommit", [&] { afterCommit(); });
  });
  return record;
}

void RewardLedger::commit(const RewardRecord& record) {
  ZV_ASSERT_ON(queue_);
  auto store = database();
  if (!store || !store->write(kSuite, record.rewardId, toJson(record))) {
    ZVLog::LogWarning(
        "[RewardLedger] Reward {} of {} is not recorded; a crash before its delivery "
        "would lose it",
        record.rewardId, record.placement);
    return;
  }
  // Always printed, like the delivery lines: together they let a support
  // case (or the soak) follow one reward from earning to its delivery.
  ZVLog::system(
      fmt::format("[RewardLedger] Reward {} of {} recorded", record.rewardId, record.placement));
}

void RewardLedger::deliver(const RewardRecord& record, Deliver deliver) {
  queue_->async([self = shared_from_this(), record, deliver = std::move(deliver)]() mutable {
    self->handOver(record, std::move(deliver), false);
  });
}

void RewardLedger::redeliverPending(const Deliver& deliver) {
  database();
  std::vector<RewardRecord> pending;
  {
    std::lock_guard lock(mutex_);
    pending.swap(pending_);
  }
  for (const auto& record : pending) {
    handOver(record, deliver, true);
  }
}

void RewardLedger::handOver(const RewardRecord& record, Deliver deliver, bool again) {
  runtime_.mainQueue().async(
      [self = shared_from_this(), record, deliver = std::move(deliver), again] {
        const bool taken = guarded(kClass, "deliver", false, [&] { return deliver(record); });
        if (!taken) return;
        ZVLog::system(fmt::format("[RewardLedger] Reward {} of {} delivered{}", record.rewardId,
                                  record.placement, again ? " again" : ""));
        self->acknowledge(record.rewardId);
      });
}

void RewardLedger::acknowledge(const std::string& rewardId) {
  queue_->async([self = shared_from_this(), rewardId] {
    guarded(kClass, "acknowledge", [&] {
      auto store = self->database();
      if (store && !store->remove(kSuite, rewardId))
        ZVLog::LogWarning("[RewardLedger] Acknowledgement of reward {} not recorded", rewardId);
    });
  });
}

std::vector<RewardRecord> RewardLedger::unacknowledged() {
  std::vector<RewardRecord> records;
  auto store = database();
  if (!store) return records;
  for (auto& [rewardId, value] : store->entries(kSuite))
    records.push_back(fromJson(rewardId, value));
  std::stable_sort(records.begin(), records.end(),
                   [](const auto& a, const auto& b) { return a.earnedAt < b.earnedAt; });
  return records;
}

}  // namespace zivora
