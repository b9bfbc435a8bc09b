#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "support/ScopedContext.h"
#include "util/Guard.h"
#include "util/ZVException.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {

class GuardTest : public ::testing::Test {
 protected:
  void TearDown() override {
    ZVLog::logEnable(true);
    WARNING_L0G_ENABLED = true;
  }
  test::ScopedContext scope_;
};

TEST_F(GuardTest, ReportsNamedAndStandardExceptionsAndReturnsTheNeutralValue) {
  auto named = guarded("UIColorUtilities", "colorWithHexString", std::optional<int>(),
                       []() -> std::optional<int> { throw ZVException("InvalidColor", "bad"); });
  EXPECT_FALSE(named);
  guarded("ZVConfiguration", "setAppId", [] { throw std::out_of_range("index"); });
  guarded("X", "y", [] { throw 42; });

  auto reported = scope_.analytics().exceptions();
  ASSERT_EQ(reported.size(), 3u);
  EXPECT_EQ(reported[0].name, "InvalidColor");
  EXPECT_EQ(reported[0].reason, "bad");
  EXPECT_EQ(reported[0].className, "UIColorUtilities");
  EXPECT_EQ(reported[0].method, "colorWithHexString");
  EXPECT_EQ(reported[1].name, "std::out_of_range");
  EXPECT_EQ(reported[1].reason, "index");
  EXPECT_EQ(reported[1].method, "setAppId");
  EXPECT_EQ(reported[2].name, "UnknownException");
}

TEST_F(GuardTest, BackofficeReportGoesToTheSystemLogOnly) {
  bool result = guarded(
      "ZVPFileSaver", "save", false, []() -> bool { throw std::runtime_error("disk"); },
      GuardReport::Backoffice);
  EXPECT_FALSE(result);
  EXPECT_TRUE(scope_.analytics().exceptions().empty());
  ASSERT_EQ(scope_.log().lines().size(), 1u);
  EXPECT_EQ(scope_.log().lines()[0].level, LogLevel::System);
  EXPECT_EQ(scope_.log().lines()[0].text, "Backoffice [ZVPFileSaver][save] Error!");
}

TEST_F(GuardTest, DebugSwitchSilencesDebugLinesButNeverWarnings) {
  ZVLog::LogDebug("[ZVResourceLoader] Start load file: {}", "a.mp4");
  ZVLog::logEnable(false);
  ZVLog::LogDebug("hidden {}", 1);
  ZVLog::LogWarning("[ZVResourceManager][removeFile] file: {}", "b.png");
  EXPECT_EQ(scope_.log().texts(),
            (std::vector<std::string>{"[ZVResourceLoader] Start load file: a.mp4",
                                      "[ZVResourceManager][removeFile] file: b.png"}));
  EXPECT_EQ(scope_.log().lines()[1].level, LogLevel::Warning);
}

class ThrowingSink final : public LogSink {
 public:
  void write(LogLevel level, std::string_view) override {
    if (level != LogLevel::System) throw std::runtime_error("sink");
    ++systemLines;
  }
  int systemLines = 0;
};

TEST(ZVLogFailure, AFailingSinkIsReportedAndNeverThrows) {
  auto sink = std::make_shared<ThrowingSink>();
  test::ScopedContext scope({}, RuntimeOptions{.log = sink});
  ZVLog::LogDebug("x");
  ZVLog::LogWarning("y");
  EXPECT_EQ(sink->systemLines, 2);
}

}  // namespace
}  // namespace zivora
