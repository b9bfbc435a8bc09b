#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "zivora/ZivoraDelegate.h"

namespace zivora::test {

// A host that writes down each video callback as "name placement", with the
// error after a failure ("videoDidFailToLoad rewarded 3"). For tests on one
// thread: `calls` is read and cleared directly.
class RecordingHost final : public ZivoraDelegate {
 public:
  void videoDidCache(const std::string& p) override { add("videoDidCache", p); }
  void videoDidFailToLoad(const std::string& p, std::uint64_t error) override {
    add("videoDidFailToLoad", p + " " + std::to_string(error));
  }
  void videoWindowWillDisplay(const std::string& p) override { add("videoWindowWillDisplay", p); }
  void videoWindowDidDisplay(const std::string& p) override { add("videoWindowDidDisplay", p); }
  void videoDidDismiss(const std::string& p) override { add("videoDidDismiss", p); }
  void videoWindowWillClose(const std::string& p) override { add("videoWindowWillClose", p); }
  void videoWindowDidClose(const std::string& p) override { add("videoWindowDidClose", p); }
  void videoPostViewDidClick(const std::string& p) override { add("videoPostViewDidClick", p); }
  void videoReceiveReward(const std::string& p) override { add("videoReceiveReward", p); }

  std::size_t count(const std::string& call) const {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
  }

  std::vector<std::string> calls;

 private:
  void add(const std::string& name, const std::string& argument) {
    calls.push_back(name + " " + argument);
  }
};

}  // namespace zivora::test
