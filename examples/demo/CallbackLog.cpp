#include "CallbackLog.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace demo {
namespace {
using Clock = std::chrono::steady_clock;
const Clock::time_point kStart = Clock::now();
}  // namespace

double secondsSinceStart() { return std::chrono::duration<double>(Clock::now() - kStart).count(); }

void step(const std::string& text) {
  std::printf("[%8.3fs] %s\n", secondsSinceStart(), text.c_str());
  std::fflush(stdout);
}

void CallbackLog::add(std::string callback, std::string argument) {
  step("delegate: " + callback + " " + argument);
  {
    std::lock_guard lock(mutex_);
    entries_.push_back({secondsSinceStart(), std::move(callback), std::move(argument)});
  }
  changed_.notify_all();
}

void CallbackLog::videoDidCache(const std::string& p) { add("videoDidCache", p); }
void CallbackLog::videoDidFailToLoad(const std::string& p, std::uint64_t error) {
  add("videoDidFailToLoad", p + " error " + std::to_string(error));
}
void CallbackLog::videoWindowWillDisplay(const std::string& p) { add("videoWindowWillDisplay", p); }
void CallbackLog::videoWindowDidDisplay(const std::string& p) { add("videoWindowDidDisplay", p); }
void CallbackLog::videoDidDismiss(const std::string& p) { add("videoDidDismiss", p); }
void CallbackLog::videoWindowWillClose(const std::string& p) { add("videoWindowWillClose", p); }
void CallbackLog::videoWindowDidClose(const std::string& p) { add("videoWindowDidClose", p); }
void CallbackLog::videoPostViewDidClick(const std::string& p) { add("videoPostViewDidClick", p); }
void CallbackLog::videoReceiveReward(const std::string& p, const std::string& rewardId) {
  add("videoReceiveReward", p + " (reward id " + rewardId + ")");
}

bool CallbackLog::receiveMotivatedRewards(
    const std::vector<zivora::ZVMotivatedRewardInfo>& rewards) {
  std::string list;
  for (const auto& reward : rewards) {
    if (!list.empty()) list += ", ";
    list += reward.rewardId() + " (" + reward.appName() + ": " +
            std::to_string(reward.amountOfReward()) + ")";
  }
  add("receiveMotivatedRewards", std::to_string(rewards.size()) + " [" + list + "]");
  return true;
}

void CallbackLog::failedRequestMotivatedRewards(std::uint64_t error) {
  add("failedRequestMotivatedRewards", std::to_string(error));
}

bool CallbackLog::waitFor(const std::string& callback, std::chrono::seconds limit,
                          const std::string& failure) {
  std::unique_lock lock(mutex_);
  bool found = false;
  changed_.wait_for(lock, limit, [&] {
    for (const auto& entry : entries_) {
      if (entry.callback == callback) return found = true;
      if (!failure.empty() && entry.callback == failure) return true;
    }
    return false;
  });
  return found;
}

bool CallbackLog::heard(const std::string& callback) const {
  std::lock_guard lock(mutex_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [&](const Entry& entry) { return entry.callback == callback; });
}

std::vector<CallbackLog::Entry> CallbackLog::entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

void CallbackLog::writeJson(const std::filesystem::path& file) const {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& entry : entries()) {
    list.push_back(
        {{"seconds", entry.seconds}, {"callback", entry.callback}, {"argument", entry.argument}});
  }
  std::ofstream(file) << list.dump(2) << '\n';
}

}  // namespace demo
