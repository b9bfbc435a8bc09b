#include "FaultPlan.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace zivora::soak {
namespace {

using Duration = FaultPlan::Duration;
constexpr std::uint64_t kMiB = 1024 * 1024;
// The SDK starts a download only with more than this free.
constexpr std::uint64_t kDownloadFloor = 30 * kMiB;

class Dice {
 public:
  Dice(std::mt19937_64& random, double intensity) : random_(random), intensity_(intensity) {}
  bool chance(double p) {
    return std::uniform_real_distribution<double>(0, 1)(random_) < std::min(1.0, p * intensity_);
  }
  long between(long low, long high) {
    return std::uniform_int_distribution<long>(low, high)(random_);
  }
  Duration millis(long low, long high) { return Duration(between(low, high)); }
  template <typename T>
  const T& pick(const std::vector<T>& from) {
    return from[static_cast<std::size_t>(between(0, static_cast<long>(from.size()) - 1))];
  }

 private:
  std::mt19937_64& random_;
  double intensity_;
};

// Which requests an ad-endpoint fault waits for; empty takes the next one.
const std::vector<std::string> kTargets{"",
                                        "getInitialization",
                                        "getVideo",
                                        "watchedAd",
                                        "startWatchingAd",
                                        "getMotivatedRewards",
                                        "removeMotivatedRewards"};
const std::vector<std::string> kReplyFaults{"http-error", "close-mid-body", "garbage", "empty"};

void drawServerFaults(Dice& dice, const FaultPlan::Settings& settings, FaultPlan& plan) {
  const long idle = settings.idleTimeout.count();
  auto target = [&] {
    const std::string& name = dice.pick(kTargets);
    return name.empty() ? std::string() : "&request=" + name;
  };
  if (dice.chance(0.2))  // past the client's idle limit: it gives up and retries
    plan.sandboxFaults.push_back("/control/misbehave?kind=delay&ms=" +
                                 std::to_string(idle + dice.between(300, 2500)) + target());
  if (dice.chance(0.25))
    plan.sandboxFaults.push_back("/control/misbehave?kind=" + dice.pick(kReplyFaults) +
                                 "&count=" + std::to_string(dice.between(1, 2)) + target());
  if (dice.chance(0.15))
    plan.sandboxFaults.push_back("/control/fail-events?count=" +
                                 std::to_string(dice.between(1, 3)));
  if (dice.chance(0.35))  // the connection is cut mid-download
    plan.sandboxFaults.push_back("/control/misbehave-files?kind=cut-after&bytes=" +
                                 std::to_string(dice.between(1, 900) * 1024) +
                                 "&count=" + std::to_string(dice.between(1, 2)));
  if (dice.chance(0.15))  // the download goes silent past the idle limit
    plan.sandboxFaults.push_back("/control/misbehave-files?kind=delay-after&bytes=" +
                                 std::to_string(dice.between(0, 600) * 1024) +
                                 "&ms=" + std::to_string(idle + dice.between(300, 2500)));
}

}  // namespace

FaultPlan FaultPlan::draw(std::mt19937_64& random, const Settings& settings) {
  Dice dice(random, settings.intensity);
  FaultPlan plan;
  plan.placement = dice.pick(settings.placements);
  drawServerFaults(dice, settings, plan);
  if (dice.chance(0.35)) plan.killHostAt = dice.millis(300, 9000);
  if (dice.chance(0.25)) plan.sandboxOutage = Outage{dice.millis(100, 8000), dice.millis(50, 3000)};
  if (dice.chance(0.1)) {
    plan.diskFill = DiskFill{std::nullopt, static_cast<std::uint64_t>(dice.between(0, 30 * kMiB))};
  } else if (dice.chance(0.15)) {
    // Enough free to start a download, not enough to finish it.
    plan.diskFill = DiskFill{dice.millis(100, 3000),
                             kDownloadFloor + static_cast<std::uint64_t>(dice.between(0, kMiB))};
  }
  plan.wipeCache = dice.chance(0.25);
  return plan;
}

FaultPlan FaultPlan::clean(std::string placement) {
  FaultPlan plan;
  plan.placement = std::move(placement);
  return plan;
}

std::string FaultPlan::describe() const {
  std::ostringstream out;
  out << "placement " << placement;
  for (const auto& fault : sandboxFaults) out << "; " << fault;
  if (killHostAt) out << "; host SIGKILL at " << killHostAt->count() << " ms";
  if (sandboxOutage)
    out << "; sandbox SIGKILL at " << sandboxOutage->at.count() << " ms for "
        << sandboxOutage->downFor.count() << " ms";
  if (diskFill) {
    out << "; disk full (" << diskFill->leaveFree << " bytes left) ";
    out << (diskFill->at ? "at " + std::to_string(diskFill->at->count()) + " ms"
                         : "from the start");
  }
  if (wipeCache) out << "; cache wiped";
  return out.str();
}

}  // namespace zivora::soak
