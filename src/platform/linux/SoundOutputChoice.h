#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace zivora::platform {

// Which sound output a new item gets. autoaudiosink finds the machine's
// output by opening each candidate in turn (sound servers first) when its
// pipeline starts, and each failed try costs milliseconds of the item's
// preparation. The choice makes those tries once, off the caller's thread,
// and remembers the outcome: items then get the working output directly, or
// a silent sink when nothing opens (what autoaudiosink falls back to itself).
// The probe closes what it opened: no device stays open while no ad plays.
// Until a probe has answered, and once its answer is older than `maxAge`
// (outputs come and go: a sound server starts after the host), items get
// autoaudiosink as before. Thread-safe.
class SoundOutputChoice {
 public:
  // The factory name of the first output that opens, or nothing.
  using Probe = std::function<std::optional<std::string>()>;
  // Runs a job away from the calling thread.
  using Launch = std::function<void(std::function<void()>)>;
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  enum class Kind {
    Automatic,  // autoaudiosink, which tries the outputs itself
    Device,     // the factory that opened
    Silent,     // nothing opened: a sink that keeps time and discards
  };
  struct Output {
    Kind kind = Kind::Automatic;
    std::string factory;  // for Kind::Device
  };

  static constexpr std::chrono::seconds kMaxAge{60};

  SoundOutputChoice(Probe probe, Launch launch, Clock clock,
                    std::chrono::steady_clock::duration maxAge = kMaxAge);

  // The process's choice, probing the machine through GStreamer on a thread
  // of its own.
  static SoundOutputChoice& shared();

  // Starts a probe unless a fresh answer is known or a probe is under way.
  void prepare();
  // The output for an item made now; a stale answer starts a new probe.
  Output current();
  // The chosen device did not open for an item: the answer is dropped and
  // the machine probed again.
  void deviceFailed(const std::string& factory);

 private:
  bool claimProbeLocked();
  void launchProbe();
  void probed(std::optional<std::string> factory);
  bool freshLocked() const;

  const Probe probe_;
  const Launch launch_;
  const Clock clock_;
  const std::chrono::steady_clock::duration maxAge_;

  std::mutex mutex_;
  bool probing_ = false;
  std::optional<Output> answer_;
  std::chrono::steady_clock::time_point answeredAt_;
};

}  // namespace zivora::platform
