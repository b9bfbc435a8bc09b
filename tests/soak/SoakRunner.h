#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "AnswerLedger.h"
#include "CacheAudit.h"
#include "EventLedger.h"
#include "FaultPlan.h"
#include "SandboxKeeper.h"

namespace zivora::soak {

struct SoakOptions {
  std::uint64_t seed = 0;
  // How long faults are injected; the final drain comes on top.
  std::chrono::seconds duration{60};
  bool shortMode = false;
  std::filesystem::path demo, sandbox, media, work;
};

// Runs the headless demo host again and again on one data root against the
// sandbox, with the faults of a FaultPlan per run, then a clean drain, and
// squares what the SDK stored and cached against what the server saw.
class SoakRunner {
 public:
  explicit SoakRunner(SoakOptions options);
  // The table; zero when no event or reward was lost, no corrupt file was
  // found, nothing crashed and every ad request was answered exactly once.
  int run();

 private:
  struct HostOutcome {
    bool rewarded = false;
    bool killed = false;
    bool timedOut = false;
    bool crashed = false;
  };

  HostOutcome runHost(int index, const FaultPlan& plan, std::chrono::seconds limit);
  void applyBeforeStart(const FaultPlan& plan);
  void fillDisk(std::uint64_t leaveFree);
  void auditCache();
  bool eventsQueued() const;
  void drain();
  int report();

  std::filesystem::path dataRoot() const { return options_.work / "data"; }
  std::filesystem::path runDirectory(int index) const;

  SoakOptions options_;
  std::mt19937_64 random_;
  SandboxKeeper sandbox_;
  FaultPlan::Settings settings_;
  std::unique_ptr<CacheAudit> audit_;
  int runs_ = 0;
  int rewarded_ = 0, hostKills_ = 0, timeouts_ = 0, hostCrashes_ = 0;
  int sandboxOutages_ = 0, diskFills_ = 0, cacheWipes_ = 0, serverFaults_ = 0;
  std::size_t filesIdentical_ = 0, filesPartial_ = 0, filesUnknown_ = 0;
  std::set<std::string> corrupt_;
  std::vector<std::string> crashRuns_;
  // Per run: the soak ended it (a planned kill or the time limit).
  std::vector<bool> cutRuns_;
};

}  // namespace zivora::soak
