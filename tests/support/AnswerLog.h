#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "zivora/ZivoraDelegate.h"

namespace zivora::test {

// A host on real threads that writes down how each placement's load ended
// ("videoDidCache", "videoDidFailToLoad 3") and lets a test wait for it.
class AnswerLog final : public ZivoraDelegate {
 public:
  void videoDidCache(const std::string& placement) override;
  void videoDidFailToLoad(const std::string& placement, std::uint64_t error) override;

  // The first answer for `placement`, "" when none came in time.
  std::string waitForAnswer(const std::string& placement,
                            std::chrono::milliseconds timeout = std::chrono::seconds(90));
  std::map<std::string, std::vector<std::string>> answers();

 private:
  void add(const std::string& placement, std::string answer);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, std::vector<std::string>> answers_;
};

}  // namespace zivora::test
