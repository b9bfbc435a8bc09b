#include "support/AnswerLog.h"

namespace zivora::test {

void AnswerLog::videoDidCache(const std::string& placement) { add(placement, "videoDidCache"); }

void AnswerLog::videoDidFailToLoad(const std::string& placement, std::uint64_t error) {
  add(placement, "videoDidFailToLoad " + std::to_string(error));
}

std::string AnswerLog::waitForAnswer(const std::string& placement,
                                     std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [&] { return !answers_[placement].empty(); });
  return answers_[placement].empty() ? "" : answers_[placement].front();
}

std::map<std::string, std::vector<std::string>> AnswerLog::answers() {
  std::lock_guard lock(mutex_);
  return answers_;
}

void AnswerLog::add(const std::string& placement, std::string answer) {
  std::lock_guard lock(mutex_);
  answers_[placement].push_back(std::move(answer));
  changed_.notify_all();
}

}  // namespace zivora::test
