#include "SoakRunner.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <thread>

#include "RequestJournal.h"
#include "RewardTally.h"
#include "SanitizerReport.h"

namespace zivora::soak {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint64_t kDiskCapacity = 64ull * 1024 * 1024;
constexpr auto kIdleTimeout = 2s;
constexpr const char* kFiller = "filler.bin";

std::uint64_t bytesUnder(const fs::path& root) {
  std::uint64_t used = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code sizeError;
    if (it->is_regular_file(sizeError)) used += it->file_size(sizeError);
  }
  return used;
}

std::size_t countLines(const fs::path& file, const std::string& text) {
  std::ifstream in(file);
  std::size_t count = 0;
  for (std::string line; std::getline(in, line);)
    if (line.find(text) != std::string::npos) ++count;
  return count;
}

}  // namespace

SoakRunner::SoakRunner(SoakOptions options)
    : options_(std::move(options)),
      random_(options_.seed),
      sandbox_(options_.sandbox, options_.work, options_.media) {
  settings_.idleTimeout = std::chrono::duration_cast<std::chrono::milliseconds>(kIdleTimeout);
  // The 5 MiB ad makes long downloads to cut; the short mode keeps to
  // the 3-second ads so that a run fits its budget.
  settings_.placements = {"short", "motivated"};
  if (!options_.shortMode) settings_.placements.push_back("large");
  settings_.intensity = options_.shortMode ? 1.6 : 1.0;
}

fs::path SoakRunner::runDirectory(int index) const {
  char name[32];
  std::snprintf(name, sizeof name, "run-%04d", index);
  return options_.work / "runs" / name;
}

int SoakRunner::run() {
  fs::create_directories(dataRoot());
  sandbox_.start();
  audit_ = std::make_unique<CacheAudit>(sandbox_.mediaDirectory(), sandbox_.baseUrl());
  std::cout << "soak: seed " << options_.seed << ", " << options_.duration.count()
            << " s of faults, work directory " << options_.work.string() << std::endl;

  const auto end = Clock::now() + options_.duration;
  const auto limit = options_.shortMode ? 25s : 45s;
  while (Clock::now() < end) {
    const FaultPlan plan = FaultPlan::draw(random_, settings_);
    std::cout << "run " << runs_ << ": " << plan.describe() << std::endl;
    runHost(runs_++, plan, limit);
  }
  drain();
  return report();
}

void SoakRunner::applyBeforeStart(const FaultPlan& plan) {
  if (plan.wipeCache) {
    ++cacheWipes_;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(dataRoot() / "Caches" / "Zivora", error))
      fs::remove(entry.path(), error);
  }
  for (const auto& fault : plan.sandboxFaults) {
    if (sandbox_.control(fault)) ++serverFaults_;
  }
  if (plan.diskFill && !plan.diskFill->at) fillDisk(plan.diskFill->leaveFree);
}

// A sparse filler: it counts against the simulated disk of the host's
// data root, not against the machine's real one.
void SoakRunner::fillDisk(std::uint64_t leaveFree) {
  ++diskFills_;
  const fs::path filler = dataRoot() / kFiller;
  std::error_code error;
  fs::remove(filler, error);
  const std::uint64_t used = bytesUnder(dataRoot());
  const std::uint64_t size =
      used + leaveFree >= kDiskCapacity ? 0 : kDiskCapacity - used - leaveFree;
  std::ofstream{filler};
  fs::resize_file(filler, size, error);
}

SoakRunner::HostOutcome SoakRunner::runHost(int index, const FaultPlan& plan,
                                            std::chrono::seconds limit) {
  const fs::path directory = runDirectory(index);
  fs::create_directories(directory);
  applyBeforeStart(plan);
  const std::string base = sandbox_.baseUrl();
  std::vector<std::string> argv{options_.demo.string(), "--headless"};
  const std::pair<const char*, std::string> flags[] = {
      {"--server", base + "/HandleRequestV3.php"},
      {"--analytics-server", base + "/ProfilingEvent.php"},
      {"--ca", sandbox_.caFile().string()},
      {"--data-dir", dataRoot().string()},
      {"--out", directory.string()},
      {"--placement", plan.placement},
      {"--user-id", "soak-" + std::to_string(options_.seed) + "-" + std::to_string(index)},
      {"--idle-timeout-ms", std::to_string(std::chrono::milliseconds(kIdleTimeout).count())},
      {"--retry-unit-ms", "100"},
      {"--disk-capacity", std::to_string(kDiskCapacity)}};
  for (const auto& [flag, value] : flags) argv.insert(argv.end(), {flag, value});
  auto child = spawn(argv, directory / "host.out", directory / "host.err");
  test::ChildProcess& host = *child;

  const auto started = Clock::now();
  bool sandboxDown = false, filled = false;
  HostOutcome outcome;
  while (host.running()) {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
    if (plan.sandboxOutage && !sandboxDown && elapsed >= plan.sandboxOutage->at) {
      sandbox_.kill();
      ++sandboxOutages_;
      sandboxDown = true;
    }
    if (sandboxDown && !sandbox_.running() &&
        elapsed >= plan.sandboxOutage->at + plan.sandboxOutage->downFor)
      sandbox_.start();
    if (plan.diskFill && plan.diskFill->at && !filled && elapsed >= *plan.diskFill->at) {
      fillDisk(plan.diskFill->leaveFree);
      filled = true;
    }
    if (plan.killHostAt && elapsed >= *plan.killHostAt) {
      host.kill(SIGKILL);
      outcome.killed = true;
      ++hostKills_;
      break;
    }
    if (elapsed >= limit) {
      host.kill(SIGKILL);
      outcome.timedOut = true;
      ++timeouts_;
      break;
    }
    std::this_thread::sleep_for(20ms);
  }
  host.waitFor(30s);
  if (!sandbox_.running()) sandbox_.start();
  std::error_code error;
  fs::remove(dataRoot() / kFiller, error);

  outcome.rewarded = host.exitCode() == 0;
  outcome.crashed = host.crashed() || SanitizerReport::foundIn(directory / "host.err");
  if (outcome.rewarded) ++rewarded_;
  if (outcome.crashed) {
    ++hostCrashes_;
    crashRuns_.push_back(directory.filename().string() + ": " + host.describe());
  }
  cutRuns_.resize(static_cast<std::size_t>(index) + 1);
  cutRuns_[static_cast<std::size_t>(index)] = outcome.killed || outcome.timedOut;
  std::cout << "  host " << host.describe() << (outcome.timedOut ? " (time limit)" : "")
            << (outcome.crashed ? " CRASH" : "") << std::endl;
  auditCache();
  return outcome;
}

void SoakRunner::auditCache() {
  const auto result = audit_->audit(dataRoot() / "Caches" / "Zivora");
  filesIdentical_ += result.identical;
  filesPartial_ += result.partial;
  filesUnknown_ += result.unknown;
  for (const auto& name : result.corruptNames) {
    if (corrupt_.insert(name).second) std::cout << "  CORRUPT cached file: " << name << std::endl;
  }
}

bool SoakRunner::eventsQueued() const {
  EventLedger queued;
  queued.readEventFile(dataRoot() / "Documents" / "ts_events.dat");
  return queued.summary().stillQueued > 0;
}

// No more faults: a fresh server and clean runs until the event queue has
// delivered everything it holds (each run also shows an ad of its own).
void SoakRunner::drain() {
  sandbox_.kill();
  sandbox_.start();
  for (int attempt = 0; attempt < 3; ++attempt) {
    std::cout << "drain " << attempt << ": clean run" << std::endl;
    runHost(runs_++, FaultPlan::clean("short"), 60s);
    if (!eventsQueued()) break;
  }
}

int SoakRunner::report() {
  EventLedger ledger;
  AnswerLedger answers;
  RewardTally rewards;
  std::size_t shown = 0;
  for (int index = 0; index < runs_; ++index) {
    const fs::path out = runDirectory(index) / "host.out";
    ledger.readHostOutput(out);
    answers.readHostOutput(out, cutRuns_.at(static_cast<std::size_t>(index)));
    rewards.readHostOutput(out);
    shown += countLines(out, "delegate: videoWindowDidDisplay");
  }
  ledger.readJournal(sandbox_.journal());
  ledger.readEventFile(dataRoot() / "Documents" / "ts_events.dat");
  const auto events = ledger.summary();
  rewards.readLedger(dataRoot() / "Documents" / "rewards.sqlite");
  const auto owed = rewards.summary();

  std::size_t resumed = 0;
  for (const auto& record : sandbox::RequestJournal::read(sandbox_.journal())) {
    if (record.value("kind", "") == "file" && record.value("from", 0) > 0) ++resumed;
  }

  const int crashes = hostCrashes_ + sandbox_.crashes();
  std::printf("\nsoak result (seed %llu)\n", static_cast<unsigned long long>(options_.seed));
  auto row = [](const char* what, std::size_t value) {
    std::printf("  %-52s %8zu\n", what, value);
  };
  row("host runs", static_cast<std::size_t>(runs_));
  row("  ran an ad to its reward", static_cast<std::size_t>(rewarded_));
  row("  killed by the soak (SIGKILL)", static_cast<std::size_t>(hostKills_));
  row("  killed at the run's time limit", static_cast<std::size_t>(timeouts_));
  row("sandbox killed and restarted", static_cast<std::size_t>(sandboxOutages_));
  row("server faults queued (delays, cuts, bad replies)", static_cast<std::size_t>(serverFaults_));
  row("disk filled", static_cast<std::size_t>(diskFills_));
  row("cache wiped between runs", static_cast<std::size_t>(cacheWipes_));
  const auto requests = answers.summary();
  row("ad requests (cacheVideo, showVideo)", requests.requests);
  row("  answered once", requests.answeredOnce);
  row("  ANSWERED TWICE (extra answers)", requests.answeredTwice);
  row("  NEVER ANSWERED (the host ended waiting)", requests.neverAnswered);
  row("  unanswered when the soak killed the host", requests.cutOff);
  row("ads shown", shown);
  row("downloads resumed (ranged requests from N > 0)", resumed);
  row("cached files byte-identical (MD5, summed over checks)", filesIdentical_);
  row("cached files partial, a true prefix (summed)", filesPartial_);
  row("cached files of no catalogue URL (summed)", filesUnknown_);
  row("CORRUPT cached files", corrupt_.size());
  row("events saved by the SDK", events.saved);
  row("events acknowledged by the SDK (saved, left the queue)", events.acknowledged);
  row("events accepted by the sandbox (distinct)", events.accepted);
  row("  accepted but never logged as saved", events.unknownAccepted);
  row("duplicates (an event accepted again)", events.acceptedTwice);
  row("events still queued at the end", events.stillQueued);
  row("LOST events", events.lost);
  row("rewards earned (recorded by the SDK)", owed.earned);
  row("rewards delivered (distinct)", owed.delivered);
  row("  redelivered at a later start", owed.redelivered);
  row("  duplicates (a reward delivered again)", owed.duplicates);
  row("rewards still owed at the end (in the ledger)", owed.stillOwed);
  row("LOST rewards", owed.lost);
  row("CRASHES (host or sandbox)", static_cast<std::size_t>(crashes));
  std::cout << ledger.lostExamples(5);
  for (const auto& line : crashRuns_) std::cout << "  crash: " << line << '\n';
  if (sandbox_.crashes() > 0) std::cout << "  the sandbox crashed; see sandbox.err\n";
  std::cout << "replay: zivora_soak --seed " << options_.seed << " --seconds "
            << options_.duration.count() << (options_.shortMode ? " --short" : "") << std::endl;
  const bool unanswered = requests.answeredTwice > 0 || requests.neverAnswered > 0;
  return events.lost > 0 || owed.lost > 0 || !corrupt_.empty() || crashes > 0 || unanswered ? 1 : 0;
}

}  // namespace zivora::soak
