// Which addresses are handed to xdg-open. Nothing here starts a program:
// every address below is refused before a child could be spawned.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/linux/XdgOpener.h"
#include "support/ScopedContext.h"
#include "support/VirtualRuntime.h"

namespace zivora::platform {
namespace {

class RecordingOpener final : public UrlOpener {
 public:
  bool canOpenURL(const std::string&) override { return true; }
  bool openURL(const std::string&) override { return true; }
};

class XdgOpenerTest : public ::testing::Test {
 protected:
  test::VirtualRuntime runtime_;
  test::ScopedContext scope_;
  XdgOpener opener_{runtime_.globalQueue()};
};

TEST_F(XdgOpenerTest, RefusesEverythingButWebAddressesAndSaysSo) {
  const std::string refused[] = {
      "",
      "file:///etc/passwd",
      "javascript:alert(1)",
      "zivora-game://reward",
      "ftp://example.com/a",
      "https:example.com",
      "https://",
      "https:///etc/passwd",
      "https://example.com/a b",
      "https://example.com/a\tb",
      "https://example.com/\nX-Injected: 1",
      "https://example.com/\x7f",
      "https://example.com/caf\xc3\xa9",
      " https://example.com/",
      "-https://example.com/",
  };
  for (const std::string& url : refused) {
    SCOPED_TRACE(url);
    scope_.log().clear();
    EXPECT_FALSE(opener_.canOpenURL(url));
    EXPECT_FALSE(opener_.openURL(url));
    ASSERT_EQ(scope_.log().texts().size(), 1u);
    EXPECT_TRUE(scope_.log().texts()[0].starts_with("[XdgOpener][openURL] Refused to open: "));
  }
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u) << "no child to reap";
}

TEST_F(XdgOpenerTest, TheLogLineKeepsControlCharactersOut) {
  opener_.openURL("file:///a\nb\x1b[31m");
  ASSERT_EQ(scope_.log().texts().size(), 1u);
  EXPECT_EQ(scope_.log().texts()[0], "[XdgOpener][openURL] Refused to open: file:///a?b?[31m");
}

TEST_F(XdgOpenerTest, WebAddressesInAnyCaseCanBeOpened) {
  for (const char* url : {"http://example.com", "https://example.com/path?q=1&r=$(x)#frag",
                          "HTTPS://Example.com/", "https://127.0.0.1:8443/landing/ad-1"}) {
    SCOPED_TRACE(url);
    EXPECT_TRUE(opener_.canOpenURL(url));
  }
}

TEST(ContextOpenerTest, TheInjectedOpenerWinsElseXdgOpen) {
  auto runtime = std::make_shared<test::VirtualRuntime>();
  auto injected = std::make_shared<RecordingOpener>();
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
