#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/linux/GstreamerInit.h"
#include "platform/linux/SoundOutputChoice.h"
#include "support/ExitingChildren.h"

namespace zivora::platform {
namespace {

using namespace std::chrono_literals;
using Output = SoundOutputChoice::Output;
using Kind = SoundOutputChoice::Kind;

enum class Behaviour { Opens, Refuses, Blocks };

// Sound outputs that open, refuse, or block until released (JACK on a
// locked database), with the tries counted.
class FakeOutputs {
 public:
  void set(const std::string& name, Behaviour behaviour) {
    std::lock_guard lock(mutex_);
    if (!behaviours_.count(name)) names_.push_back(name);
    behaviours_[name] = behaviour;
  }

  std::vector<std::string> names() {
    std::lock_guard lock(mutex_);
    return names_;
  }

  bool tryOpen(const std::string& name) {
    std::unique_lock lock(mutex_);
    ++tries_[name];
    if (behaviours_[name] == Behaviour::Blocks) {
      released_.wait(lock, [&] { return behaviours_[name] != Behaviour::Blocks; });
    }
    return behaviours_[name] == Behaviour::Opens;
  }

  // A blocked open returns, with the outcome its output now has.
  void release(const std::string& name, Behaviour now) {
    set(name, now);
    released_.notify_all();
  }

  void releaseAll() {
    std::lock_guard lock(mutex_);
    for (auto& [name, behaviour] : behaviours_)
      if (behaviour == Behaviour::Blocks) behaviour = Behaviour::Refuses;
    released_.notify_all();
  }

  int tries(const std::string& name) {
    std::lock_guard lock(mutex_);
    return tries_[name];
  }

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  std::vector<std::string> names_;
  std::map<std::string, Behaviour> behaviours_;
  std::map<std::string, int> tries_;
};

class SoundOutputChoiceThreadedTest : public ::testing::Test {
 protected:
  // Opens still blocked return; the choice and the outputs go with them.
  ~SoundOutputChoiceThreadedTest() override { outputs_->releaseAll(); }

  // Opens that come back at once do so long before this, on a loaded
  // machine too; where an open blocks, the test waits this long for it.
  static constexpr auto kStuckAfter = 2s;
  SoundOutputChoice::Settings settings_{.openLimit = 60s, .maxAge = 60s};

  // By default each job runs on a thread of its own and is counted, so
  // that a test can wait for the jobs still under way.
  std::shared_ptr<SoundOutputChoice> makeChoice(SoundOutputChoice::Launch launch = {}) {
    if (!launch) {
      launch = [jobs = jobs_](std::function<void()> job) {
        jobs->started();
        std::thread([jobs, job = std::move(job)] {
          job();
          jobs->ended();
        }).detach();
      };
    }
    return std::make_shared<SoundOutputChoice>(
        [outputs = outputs_] { return outputs->names(); },
        [outputs = outputs_](const std::string& name) { return outputs->tryOpen(name); },
        std::move(launch),
        [now = now_] { return std::chrono::steady_clock::time_point(now->load()); }, settings_);
  }

  static Output answerOf(SoundOutputChoice& choice) {
    auto promise = std::make_shared<std::promise<Output>>();
    auto answer = promise->get_future();
    choice.whenKnown([promise](Output output) { promise->set_value(output); });
    if (answer.wait_for(30s) != std::future_status::ready) {
      ADD_FAILURE() << "no answer";
      return {};
    }
    return answer.get();
  }

  void age(std::chrono::steady_clock::duration by) { *now_ = now_->load() + by; }

  // The choice's jobs under way.
  class Jobs {
   public:
    void started() {
      std::lock_guard lock(mutex_);
      ++running_;
    }
    void ended() {
      std::lock_guard lock(mutex_);
      --running_;
      changed_.notify_all();
    }
    bool awaitNone() {
      std::unique_lock lock(mutex_);
      return changed_.wait_for(lock, 30s, [this] { return running_ == 0; });
    }

   private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int running_ = 0;
  };

  // Shared with the choice's jobs, which may outlive the test.
  std::shared_ptr<Jobs> jobs_ = std::make_shared<Jobs>();
  std::shared_ptr<FakeOutputs> outputs_ = std::make_shared<FakeOutputs>();
  std::shared_ptr<std::atomic<std::chrono::steady_clock::duration>> now_ =
      std::make_shared<std::atomic<std::chrono::steady_clock::duration>>(std::chrono::hours(1));
};

struct Machine {
  const char* name;
  std::vector<std::pair<std::string, Behaviour>> outputs;
  Output expected;
};

std::ostream& operator<<(std::ostream& out, const Machine& machine) { return out << machine.name; }

class SoundOutputMachines : public SoundOutputChoiceThreadedTest,
                            public ::testing::WithParamInterface<Machine> {};

// A sound server first, devices after it, as autoaudiosink orders them.
TEST_P(SoundOutputMachines, TheFirstOutputThatOpensIsChosenAndAStuckOneIsPassedBy) {
  for (const auto& [name, behaviour] : GetParam().outputs) {
    outputs_->set(name, behaviour);
    if (behaviour == Behaviour::Blocks) settings_.openLimit = kStuckAfter;
  }
  auto choice = makeChoice();
  EXPECT_EQ(answerOf(*choice), GetParam().expected);
  EXPECT_EQ(choice->known(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    , SoundOutputMachines,
    ::testing::Values(
        Machine{"SoundServer",
                {{"pulsesink", Behaviour::Opens}, {"alsasink", Behaviour::Opens}},
                {Kind::Device, "pulsesink"}},
        Machine{"NoServer",
                {{"pulsesink", Behaviour::Refuses}, {"alsasink", Behaviour::Opens}},
                {Kind::Device, "alsasink"}},
        Machine{"LockedJack",
                {{"pulsesink", Behaviour::Refuses},
                 {"jackaudiosink", Behaviour::Blocks},
                 {"alsasink", Behaviour::Opens}},
                {Kind::Device, "alsasink"}},
        Machine{"OnlyLockedJack", {{"jackaudiosink", Behaviour::Blocks}}, {Kind::Silent, ""}},
        Machine{"NothingOpens", {{"pulsesink", Behaviour::Refuses}}, {Kind::Silent, ""}},
        Machine{"NoOutputs", {}, {Kind::Silent, ""}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SoundOutputChoiceThreadedTest, ItemsWaitingTogetherShareOneProbe) {
  outputs_->set("pulsesink", Behaviour::Blocks);  // until released: the probe waits
  outputs_->set("alsasink", Behaviour::Opens);
  auto choice = makeChoice();
  std::vector<std::future<Output>> answers;
  for (int i = 0; i < 8; ++i)
    answers.push_back(std::async(std::launch::async, [&] { return answerOf(*choice); }));
  EXPECT_EQ(choice->known(), std::nullopt);
  outputs_->release("pulsesink", Behaviour::Refuses);
  for (auto& answer : answers) EXPECT_EQ(answer.get(), (Output{Kind::Device, "alsasink"}));
  EXPECT_EQ(outputs_->tries("pulsesink"), 1);
  EXPECT_EQ(outputs_->tries("alsasink"), 1);
}

// JACK's lock is still held when the answer grows old: the new probe does
// not start another open that would block too. Once the stuck open comes
// back having opened, silence is no longer the answer.
TEST_F(SoundOutputChoiceThreadedTest, AStuckOutputIsTriedAgainOnlyOnceItsOpenReturns) {
  outputs_->set("jackaudiosink", Behaviour::Blocks);
  settings_.openLimit = kStuckAfter;
  auto choice = makeChoice();
  EXPECT_EQ(answerOf(*choice), Output{});

  age(61s);
  EXPECT_EQ(choice->known(), Output{});  // stale, given while a probe runs
  EXPECT_TRUE(choice->awaitProbe(30s));
  EXPECT_EQ(outputs_->tries("jackaudiosink"), 1);

  outputs_->release("jackaudiosink", Behaviour::Opens);
  ASSERT_TRUE(jobs_->awaitNone());  // the stuck open has returned
  EXPECT_EQ(choice->known(), std::nullopt);
  EXPECT_EQ(answerOf(*choice), (Output{Kind::Device, "jackaudiosink"}));
  EXPECT_EQ(outputs_->tries("jackaudiosink"), 2);
}

TEST_F(SoundOutputChoiceThreadedTest, ADeviceThatFailsAnItemIsReplacedByTheNextThatOpens) {
  outputs_->set("pulsesink", Behaviour::Opens);
  outputs_->set("alsasink", Behaviour::Opens);
  auto choice = makeChoice();
  ASSERT_EQ(answerOf(*choice), (Output{Kind::Device, "pulsesink"}));

  choice->deviceFailed("alsasink");  // not the answer: kept
  EXPECT_EQ(choice->known(), (Output{Kind::Device, "pulsesink"}));

  outputs_->set("pulsesink", Behaviour::Refuses);  // the server went away
  choice->deviceFailed("pulsesink");
  EXPECT_EQ(answerOf(*choice), (Output{Kind::Device, "alsasink"}));
}

TEST_F(SoundOutputChoiceThreadedTest, WithoutAThreadToProbeOnItemsPlaySilentlyAndTheNextAsksAgain) {
  outputs_->set("pulsesink", Behaviour::Opens);
  int launches = 0;
  auto choice = makeChoice([&](std::function<void()>) {
    ++launches;
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  });
  EXPECT_EQ(answerOf(*choice), Output{});
  EXPECT_EQ(choice->known(), std::nullopt);
  EXPECT_EQ(answerOf(*choice), Output{});
  EXPECT_EQ(launches, 2);
}

constexpr const char* kChildVariable = "ZIVORA_SOUND_EXIT_CHILD";
constexpr const char* kChildTest = "SoundOutputChoiceExitTest.ChildExitsWhileTheProbeRuns";

// A host that asks for a video and returns from main at once: the process's
// probe is still opening the machine's outputs while exit() runs.
TEST(SoundOutputChoiceExitTest, ChildExitsWhileTheProbeRuns) {
  if (!std::getenv(kChildVariable)) GTEST_SKIP() << "the child of the test below";
  ASSERT_TRUE(ensureGstreamer());
  SoundOutputChoice::shared()->prepare();
  std::exit(0);
}

TEST(SoundOutputChoiceExitTest, AHostExitsCleanlyWhileTheSoundOutputIsSought) {
  test::expectChildrenExitCleanly(kChildVariable, kChildTest, 20);
}

}  // namespace
}  // namespace zivora::platform
