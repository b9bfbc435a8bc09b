// xdg-open as a real child process: a recording stand-in first on PATH
// shows what the program received, and /proc shows it was reaped.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/XdgOpener.h"
#include "support/ScopedContext.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "support/WatchedRuntime.h"

namespace zivora::platform {
namespace {

namespace fs = std::filesystem;

// Writes its pid, its blocked signals, its argument count and each argument
// (NUL-terminated) to a record file, which appears complete by rename.
// The mask is read by the shell itself, with builtins only, before it has
// anything to fork: a shell blocks every signal for a moment around each
// fork, so reading it from a child (grep on /proc/$$/status) could catch
// that moment instead of the mask the opener gave it.
constexpr const char* kRecorder = R"(#!/bin/sh
while IFS= read -r line; do
  case "$line" in SigBlk:*) blocked="$line" ;; esac
done < /proc/self/status
out="${0%/*}/record"
{ echo "$$"; echo "$blocked"; echo "$#"; for a in "$@"; do printf '%s\0' "$a"; done; } > "$out.tmp"
mv "$out.tmp" "$out"
)";

class XdgOpenerIntegrationTest : public ::testing::Test {
 protected:
  XdgOpenerIntegrationTest() {
    const fs::path script = bin_.path() / "xdg-open";
    std::ofstream(script) << kRecorder;
    fs::permissions(script, fs::perms::owner_all);
  }

  struct Record {
    std::string pid;
    std::string blocked;
    std::string count;
    std::vector<std::string> arguments;
  };

  Record readRecord() const {
    std::ifstream in(bin_.path() / "record", std::ios::binary);
    Record record;
    std::getline(in, record.pid);
    std::getline(in, record.blocked);
    std::getline(in, record.count);
    for (std::string argument; std::getline(in, argument, '\0');)
      record.arguments.push_back(argument);
    return record;
  }

  test::TempDir bin_;
  // The recorder comes first; the shell's own tools stay reachable.
  const char* systemPath_ = std::getenv("PATH");
  test::ScopedEnv path_{"PATH", bin_.path().string() + ":" + (systemPath_ ? systemPath_ : "")};
  // The opener looks for its child's exit in tasks on the global queue; the
  // record exists by the time the look that reaps the child has run.
  test::WatchedRuntime runtime_;
  test::ScopedContext scope_;
  XdgOpener opener_{runtime_.globalQueue()};
};

TEST_F(XdgOpenerIntegrationTest, TheAddressIsTheOneArgumentVerbatimAndTheChildIsReaped) {
  const std::string url =
      "https://example.com/a;b$(touch${IFS}/tmp/zv-pwned)`id`'q'\"d\"&x=|y>z#frag";
  // A host thread that blocks signals must not pass that on to the browser.
  sigset_t blocked;
  sigset_t previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  const bool opened = opener_.openURL(url);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  ASSERT_TRUE(opened);

  ASSERT_TRUE(runtime_.waitUntil([&] { return fs::exists(bin_.path() / "record"); }));
  const Record record = readRecord();
  EXPECT_EQ(record.blocked, "SigBlk:\t0000000000000000");
  EXPECT_EQ(record.count, "1");
  ASSERT_EQ(record.arguments.size(), 1u);
  EXPECT_EQ(record.arguments[0], url);
  EXPECT_FALSE(fs::exists("/tmp/zv-pwned")) << "nothing in the address ran";

  // A zombie keeps its /proc entry until its parent waits for it.
  const fs::path proc = fs::path("/proc") / record.pid;
  EXPECT_TRUE(runtime_.waitUntil([&] { return !fs::exists(proc); }))
      << "xdg-open " << record.pid << " was not reaped";
}

TEST_F(XdgOpenerIntegrationTest, AMissingProgramIsReportedNotThrown) {
  test::ScopedEnv empty("PATH", (bin_.path() / "empty").string());
  EXPECT_FALSE(opener_.openURL("https://example.com/"));
  ASSERT_EQ(scope_.log().texts().size(), 1u);
  EXPECT_TRUE(scope_.log().texts()[0].starts_with("[XdgOpener][openURL] Can't start xdg-open"));
}

}  // namespace
}  // namespace zivora::platform
