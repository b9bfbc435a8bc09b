// Any body as the ad server's answer to a rewards request. Read on its own,
// the reply gives an error code or one reward per listed element, or throws
// a std::exception (reported as a bad response). Through the reward manager
// on virtual time, the host hears exactly one answer, whatever came back.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "FuzzContext.h"
#include "ads/MotivationRewardManager.h"
#include "ads/ZVMotivatedRewardsReply.h"
#include "util/JsonConvert.h"
#include "zivora/ZivoraDelegate.h"

using namespace zivora;

namespace {

class CountingHost final : public ZivoraDelegate {
 public:
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>&) override {
    ++answers;
    return true;
  }
  void failedRequestMotivatedRewards(std::uint64_t) override { ++answers; }
  int answers = 0;
};

void readAlone(const std::string& body) {
  auto reply = JsonConvert::parseObject(body);
  if (!reply) return;
  try {
    auto read = ZVMotivatedRewardsReply::read(*reply);
    if (read.error.has_value() != reply->contains("error")) __builtin_trap();
    const auto listed = reply->value("rewards", nlohmann::json::array());
    if (!read.error && read.rewards.size() != listed.size()) __builtin_trap();
  } catch (const std::exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  readAlone(body);

  auto& context = test::FuzzContext::answering({.status = 200, .body = body});
  auto host = std::make_shared<CountingHost>();
  auto manager =
      std::make_shared<MotivationRewardManager>(host, [](const std::vector<std::string>&) {});
  manager->requestMotivatedRewards();
  context.runtime().advanceUntilNoTasks();
  if (host->answers != 1) __builtin_trap();
  return 0;
}
