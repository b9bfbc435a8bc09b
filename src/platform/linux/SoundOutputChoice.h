#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zivora::platform {

// Which sound output the items of this process get. autoaudiosink would
// find it by opening each candidate in turn whenever a pipeline starts, on
// the thread that starts the pipeline, and an open can block for good: JACK
// waits forever on the lock of its metadata database when a process died
// holding it. The choice makes the tries once, each on a thread of its own
// and for at most `openLimit`, and remembers the answer: the first output
// that opens, or silence when none does (what autoaudiosink falls back to
// itself). An output whose open has not returned is skipped, and tried again
// only once that open returns. What opened is closed again at once: no
// device stays open while no ad plays.
//
// Outputs come and go (a sound server starts after the host), so an answer
// older than `maxAge` is still given but a new probe starts, and an answer
// whose device then fails to open for an item is dropped. Thread-safe. Held
// by its jobs too: it lives as long as an open that never returns.
class SoundOutputChoice : public std::enable_shared_from_this<SoundOutputChoice> {
 public:
  enum class Kind {
    Device,  // the factory that opened
    Silent,  // nothing opened: a sink that keeps time and discards
  };
  struct Output {
    Kind kind = Kind::Silent;
    std::string factory;  // for Kind::Device

    bool operator==(const Output&) const = default;
  };

  // The candidates' factory names, in the order they are tried; asked on
  // the thread that starts the probe.
  using Candidates = std::function<std::vector<std::string>()>;
  // Opens an output of the factory and closes it again; may block.
  using TryOpen = std::function<bool(const std::string& factory)>;
  // Runs a job on a thread of its own.
  using Launch = std::function<void(std::function<void()>)>;
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  struct Settings {
    std::chrono::steady_clock::duration openLimit = std::chrono::seconds(2);
    std::chrono::steady_clock::duration maxAge = std::chrono::seconds(60);
  };

  SoundOutputChoice(Candidates candidates, TryOpen tryOpen, Launch launch, Clock clock,
                    Settings settings);
  SoundOutputChoice(const SoundOutputChoice&) = delete;
  SoundOutputChoice& operator=(const SoundOutputChoice&) = delete;

  // A choice among GStreamer's audio sinks, tried in autoaudiosink's order,
  // each open on a thread of its own.
  static std::shared_ptr<SoundOutputChoice> ofGstreamer(Settings settings);
  // The process's.
  static const std::shared_ptr<SoundOutputChoice>& shared();

  // Starts a probe unless a fresh answer is known or a probe is under way.
  void prepare();
  // The answer, if one is known; a stale one starts a new probe.
  std::optional<Output> known();
  // `then` gets the answer: at once, on this thread, when one is known, or
  // on the probe's thread when the probe ends.
  void whenKnown(std::function<void(Output)> then);
  // The chosen device did not open for an item: the answer is dropped and
  // the machine probed again.
  void deviceFailed(const std::string& factory);
  // How long an open may take before the output counts as too slow; an
  // item's open of the chosen device keeps to it too.
  std::chrono::steady_clock::duration openLimit() const { return settings_.openLimit; }
  // Waits at most `limit` for a running probe to end (a shutdown's wait:
  // nothing of the probe should run while the process exits).
  bool awaitProbe(std::chrono::steady_clock::duration limit);

 private:
  enum class Attempt { Opened, Refused, TooSlow };

  bool startProbeLocked();
  void launchProbe();
  void probe(const std::vector<std::string>& candidates);
  Attempt attempt(const std::string& factory);
  void opened(const std::string& factory, bool success,
              const std::shared_ptr<std::optional<bool>>& result);
  void answer(Output output, bool remember);
  bool freshLocked() const;

  const Candidates candidates_;
  const TryOpen tryOpen_;
  const Launch launch_;
  const Clock clock_;
  const Settings settings_;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool probing_ = false;
  std::set<std::string> opening_;  // factories whose open has not returned
  std::optional<Output> answer_;
  std::chrono::steady_clock::time_point answeredAt_;
  std::vector<std::function<void(Output)>> waiting_;
};

}  // namespace zivora::platform
