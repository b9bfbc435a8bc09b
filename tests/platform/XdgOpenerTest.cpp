// Which addresses are handed to xdg-open. Nothing here starts a program:
// every address below is refused before a child could be spawned.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/XdgOpener.h"
#include "support/ScopedContext.h"
#include "support/VirtualRuntime.h"
#include "top/HostUrlOpener.h"

namespace zivora::platform {
namespace {

TEST(XdgOpenerTest, OpensOnlyWebAddressesAndLogsARefusalWithoutControlCharacters) {
  test::VirtualRuntime runtime;
  test::ScopedContext scope;
  XdgOpener opener(runtime.globalQueue());
  EXPECT_TRUE(opener.canOpenURL("HTTPS://Example.com/"));
  for (const std::string url : {"", "javascript:alert(1)", "https:///etc/passwd"}) {
    scope.log().clear();
    EXPECT_FALSE(opener.canOpenURL(url)) << url;
    EXPECT_FALSE(opener.openURL(url)) << url;
    EXPECT_EQ(scope.log().texts(),
              std::vector<std::string>{"[XdgOpener][openURL] Refused to open: " + url});
  }
  scope.log().clear();
  opener.openURL("file:///a\nb\x1b[31m");
  EXPECT_EQ(scope.log().texts(),
            std::vector<std::string>{"[XdgOpener][openURL] Refused to open: file:///a?b?[31m"});
  EXPECT_EQ(runtime.pendingTaskCount(), 0u) << "no child to reap";
}

TEST(XdgOpenerTest, TheContextsOpenerIsTheInjectedOneElseOneXdgOpener) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  auto injected = std::make_shared<HostUrlOpener>([](const std::string&) { return true; });
  {
    test::ScopedContext scope({}, {.runtime = runtime, .opener = injected});
    EXPECT_EQ(scope.context().opener(), injected);
  }
  test::ScopedContext scope({}, {.runtime = runtime});
  auto opener = scope.context().opener();
  EXPECT_NE(std::dynamic_pointer_cast<XdgOpener>(opener), nullptr);
  EXPECT_EQ(scope.context().opener(), opener) << "one per context";
  EXPECT_FALSE(opener->canOpenURL("file:///etc/passwd"));
}

}  // namespace
}  // namespace zivora::platform
