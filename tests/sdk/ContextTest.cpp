// Where log lines go as contexts come and go.
#include <gtest/gtest.h>

#include "sdk/Context.h"
#include "support/RecordingLogSink.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {

TEST(ContextLog, LinesFollowTheInstalledSinkAndNeverBypassAHostsSink) {
  auto sink = std::make_shared<test::RecordingLogSink>();
  Context::install(std::make_shared<Context>(HostOptions{}, RuntimeOptions{.log = sink}));
  ZVLog::system("while installed");
  ZVLog::LogDebug("[ZVPSessionManager][configuration] Exception!");

  // Work that outlives the context logs into nothing: neither the old sink
  // nor standard error.
  Context::install(nullptr);
  EXPECT_EQ(Context::currentLog(), nullptr);
  ZVLog::system("after the reset");
  EXPECT_EQ(sink->texts(),
            (std::vector<std::string>{"while installed",
                                      "[ZVPSessionManager][configuration] Exception!"}));

  // A context on the default sink leaves standard error in place.
  Context::install(std::make_shared<Context>(HostOptions{}, RuntimeOptions{}));
  EXPECT_EQ(Context::currentLog(), LogSink::standardError());
  Context::install(nullptr);
  EXPECT_EQ(Context::currentLog(), LogSink::standardError());
}

}  // namespace
}  // namespace zivora
