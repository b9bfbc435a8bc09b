#include "RewardTally.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/linux/KeyValueDatabase.h"

namespace zivora::soak {
namespace {

constexpr std::string_view kPrefix = "[RewardLedger] Reward ";

bool endsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

}  // namespace

void RewardTally::readHostOutput(const std::filesystem::path& file) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) noteLine(line);
}

void RewardTally::noteLine(std::string_view line) {
  const auto at = line.find(kPrefix);
  if (at == std::string_view::npos) return;
  line.remove_prefix(at + kPrefix.size());
  const auto space = line.find(' ');
  if (space == 0 || space == std::string_view::npos) return;
  const std::string id(line.substr(0, space));
  if (endsWith(line, " recorded")) {
    earned_.insert(id);
  } else if (endsWith(line, " delivered again")) {
    ++deliveries_[id];
    ++redelivered_;
  } else if (endsWith(line, " delivered")) {
    ++deliveries_[id];
  }
}

void RewardTally::readLedger(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::exists(file, error)) return;
  auto database = platform::KeyValueDatabase::open(file);
  if (!database) return;
  for (const auto& [rewardId, value] : database->entries("rewards")) noteOwed(rewardId);
}

void RewardTally::noteOwed(const std::string& rewardId) { owed_.insert(rewardId); }

RewardTally::Summary RewardTally::summary() const {
  Summary summary;
  summary.earned = earned_.size();
  summary.redelivered = redelivered_;
  for (const auto& [id, count] : deliveries_) {
    ++summary.delivered;
    summary.duplicates += count - 1;
  }
  for (const auto& id : earned_) {
    if (deliveries_.count(id)) continue;
    if (owed_.count(id))
      ++summary.stillOwed;
    else
      ++summary.lost;
  }
  return summary;
}

}  // namespace zivora::soak
