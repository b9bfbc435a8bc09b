#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace zivora::soak {

// The faults of one host run, drawn from the soak's seeded generator so a
// seed replays the same plan. Times count from the host's start.
struct FaultPlan {
  using Duration = std::chrono::milliseconds;

  struct Outage {
    Duration at;
    Duration downFor;
  };
  struct DiskFill {
    std::optional<Duration> at;  // none: full before the host starts
    std::uint64_t leaveFree;     // bytes left free once filled
  };

  std::string placement;
  // Control requests queued on the sandbox before the host starts
  // ("/control/misbehave?kind=delay&ms=3500" ...).
  std::vector<std::string> sandboxFaults;
  std::optional<Duration> killHostAt;
  std::optional<Outage> sandboxOutage;
  std::optional<DiskFill> diskFill;
  bool wipeCache = false;

  struct Settings {
    Duration idleTimeout;
    std::vector<std::string> placements;
    // Scales every fault's probability (the short mode packs more in).
    double intensity = 1.0;
  };
  static FaultPlan draw(std::mt19937_64& random, const Settings& settings);
  // A run with no fault at all (the final drain).
  static FaultPlan clean(std::string placement);

  std::string describe() const;
};

}  // namespace zivora::soak
