#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace zivora::soak {

// Squares the rewards the SDK recorded against those it delivered, from the
// lines its reward ledger always prints:
//
//   [RewardLedger] Reward <id> of <placement> recorded
//   [RewardLedger] Reward <id> of <placement> delivered
//   [RewardLedger] Reward <id> of <placement> delivered again
//
// "recorded" follows the commit that makes the reward durable, "delivered"
// the return of the host's callback (a delivery of a record an earlier run
// left is "delivered again"). A reward recorded, never delivered and no
// longer in the ledger has been lost.
class RewardTally {
 public:
  struct Summary {
    std::size_t earned = 0;       // distinct rewards recorded
    std::size_t delivered = 0;    // distinct rewards delivered at least once
    std::size_t redelivered = 0;  // deliveries of a record from an earlier run
    std::size_t duplicates = 0;   // deliveries beyond a reward's first
    std::size_t stillOwed = 0;    // recorded, not delivered, still in the ledger
    std::size_t lost = 0;
  };

  void readHostOutput(const std::filesystem::path& file);
  void noteLine(std::string_view line);
  // The records left in the ledger database at the end.
  void readLedger(const std::filesystem::path& file);
  void noteOwed(const std::string& rewardId);

  Summary summary() const;

 private:
  std::set<std::string, std::less<>> earned_, owed_;
  std::map<std::string, std::size_t, std::less<>> deliveries_;
  std::size_t redelivered_ = 0;
};

}  // namespace zivora::soak
