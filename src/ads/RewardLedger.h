#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zivora {

class ZivoraDelegate;
namespace dispatch {
class Queue;
class Runtime;
}  // namespace dispatch
namespace platform {
class KeyValueStore;
}

// One reward a user earned by watching an ad to its end.
struct RewardRecord {
  // Made when the reward is earned; the same on every delivery of it.
  std::string rewardId;
  std::string placement;
  std::string adId;
  // Milliseconds since 1970.
  std::int64_t earnedAt = 0;
};

// Makes every earned reward reach the host at least once, through crashes.
//
// A reward is committed to the ledger database (SQLite, synchronous=FULL)
// before anything else is done with it; the host's videoReceiveReward is
// its delivery, and the callback's return is its acknowledgement, which
// removes the record. A record still there at the next start was earned
// and perhaps delivered, but never acknowledged: it is delivered again,
// with the same id, after the handshake and before any new ad.
//
// Commits run on the ledger's queue "com.zivora.rewards", never on the
// host's thread or the main queue; deliveries run on the main queue. The
// queue being serial is what orders them: a delivery is posted behind its
// record's commit, and an acknowledgement behind its delivery.
class RewardLedger : public std::enable_shared_from_this<RewardLedger> {
 public:
  // Hands a reward to the host; false when nobody took it, so the record
  // stays for the next start.
  using Deliver = std::function<bool(const RewardRecord&)>;

  static constexpr const char* kFileName = "rewards.sqlite";

  // The installed context's ledger, in its documents directory; null
  // without a context or a runtime.
  static std::shared_ptr<RewardLedger> shared();
  // Delivery to `host` through its videoReceiveReward with the id. A
  // dispatcher with no host delegate behind it takes nothing.
  static Deliver toHost(std::shared_ptr<ZivoraDelegate> host);

  RewardLedger(std::filesystem::path file, dispatch::Runtime& runtime);

  // Opens the database and takes the records an earlier run left without
  // an acknowledgement. Runs on the calling SDK queue; later calls, and the
  // ledger's own first use, find it open.
  void open();

  // A reward earned now. Its record is committed on the ledger queue, and
  // then `afterCommit` runs there (the watched event, which must never be
  // on disk without the reward). Returns the record.
  RewardRecord earn(const std::string& placement, const std::string& adId,
                    std::function<void()> afterCommit);
  // Delivers `record` once its commit is done: `deliver` runs on the main
  // queue, and its true answer is recorded on the ledger queue.
  void deliver(const RewardRecord& record, Deliver deliver);
  // Delivers the records of earlier runs, oldest first, once per run. They
  // are posted to the main queue before this returns, so they come before
  // anything the caller posts there afterwards.
  void redeliverPending(const Deliver& deliver);

  // The records now waiting for an acknowledgement, oldest first (read
  // from the database).
  std::vector<RewardRecord> unacknowledged();

 private:
  std::shared_ptr<platform::KeyValueStore> database();
  void commit(const RewardRecord& record);
  void acknowledge(const std::string& rewardId);
  // Runs `deliver` on the main queue and records a true answer; `again`
  // for a record of an earlier run.
  void handOver(const RewardRecord& record, Deliver deliver, bool again);

  std::filesystem::path file_;
  dispatch::Runtime& runtime_;
  std::shared_ptr<dispatch::Queue> queue_;

  std::mutex mutex_;
  bool opened_ = false;
  std::shared_ptr<platform::KeyValueStore> database_;
  std::vector<RewardRecord> pending_;
};

}  // namespace zivora
