#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>

#include "platform/linux/SoundOutputChoice.h"

namespace zivora::platform {
namespace {

using namespace std::chrono_literals;
using Kind = SoundOutputChoice::Kind;

// A machine whose probe answers only when the test lets the launched job
// run, on a clock the test moves.
class SoundOutputChoiceTest : public ::testing::Test {
 protected:
  SoundOutputChoice choice_{[this] {
                              ++probes_;
                              return found_;
                            },
                            [this](std::function<void()> job) {
                              if (launchFails_) throw std::runtime_error("no thread");
                              jobs_.push_back(std::move(job));
                            },
                            [this] { return now_; }, 60s};

  void finishProbes() {
    while (!jobs_.empty()) {
      auto job = std::move(jobs_.front());
      jobs_.pop_front();
      job();
    }
  }

  std::optional<std::string> found_;
  std::deque<std::function<void()>> jobs_;
  std::chrono::steady_clock::time_point now_{};
  int probes_ = 0;
  bool launchFails_ = false;
};

TEST_F(SoundOutputChoiceTest, ItemsGetAutomaticUntilOneProbeAnswersThenItsOutput) {
  found_ = "pulsesink";
  choice_.prepare();
  choice_.prepare();
  EXPECT_EQ(choice_.current().kind, Kind::Automatic);
  ASSERT_EQ(jobs_.size(), 1u);  // one probe at a time, however often asked
  finishProbes();
  const auto output = choice_.current();
  EXPECT_EQ(output.kind, Kind::Device);
  EXPECT_EQ(output.factory, "pulsesink");
  choice_.prepare();
  EXPECT_TRUE(jobs_.empty());  // a fresh answer is not probed again
  EXPECT_EQ(probes_, 1);
}

TEST_F(SoundOutputChoiceTest, AMachineWhereNothingOpensGetsTheSilentSink) {
  choice_.prepare();
  finishProbes();
  EXPECT_EQ(choice_.current().kind, Kind::Silent);
}

TEST_F(SoundOutputChoiceTest, AStaleAnswerGivesAutomaticAndIsProbedAgain) {
  choice_.prepare();
  finishProbes();
  now_ += 59s;
  EXPECT_EQ(choice_.current().kind, Kind::Silent);
  EXPECT_TRUE(jobs_.empty());
  // A sound server started since: the next answer finds it.
  now_ += 1s;
  found_ = "pulsesink";
  EXPECT_EQ(choice_.current().kind, Kind::Automatic);
  ASSERT_EQ(jobs_.size(), 1u);
  finishProbes();
  EXPECT_EQ(choice_.current().kind, Kind::Device);
  // prepare() refreshes a stale answer as well.
  now_ += 60s;
  choice_.prepare();
  EXPECT_EQ(jobs_.size(), 1u);
}

TEST_F(SoundOutputChoiceTest, ADeviceThatFailsIsDroppedOnlyWhenItIsTheChosenOne) {
  found_ = "pulsesink";
  choice_.prepare();
  finishProbes();
  choice_.deviceFailed("alsasink");  // an older item's choice
  EXPECT_EQ(choice_.current().kind, Kind::Device);
  EXPECT_TRUE(jobs_.empty());

  found_ = "alsasink";
  choice_.deviceFailed("pulsesink");
  EXPECT_EQ(choice_.current().kind, Kind::Automatic);
  ASSERT_EQ(jobs_.size(), 1u);
  finishProbes();
  EXPECT_EQ(choice_.current().factory, "alsasink");
}

TEST_F(SoundOutputChoiceTest, AProbeThatCannotStartLeavesAutomaticAndIsTriedAgain) {
  launchFails_ = true;
  choice_.prepare();
  EXPECT_EQ(choice_.current().kind, Kind::Automatic);
  launchFails_ = false;
  EXPECT_EQ(choice_.current().kind, Kind::Automatic);
  ASSERT_EQ(jobs_.size(), 1u);
  finishProbes();
  EXPECT_EQ(choice_.current().kind, Kind::Silent);
}

TEST(SoundOutputChoiceInlineTest, AProbeRunByTheLauncherItselfAnswersAtOnce) {
  SoundOutputChoice choice([] { return std::optional<std::string>("osssink"); },
                           [](std::function<void()> job) { job(); },
                           [] { return std::chrono::steady_clock::time_point{}; });
  choice.prepare();
  EXPECT_EQ(choice.current().factory, "osssink");
}

}  // namespace
}  // namespace zivora::platform
