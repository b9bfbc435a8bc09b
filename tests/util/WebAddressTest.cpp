#include <gtest/gtest.h>

#include "support/ScopedContext.h"
#include "util/WebAddress.h"

namespace zivora {
namespace {

TEST(WebAddressTest, OnlyHttpAndHttpsWithAHostAndNoBlanksAreWebAddresses) {
  for (const char* url : {"http://a.test/x", "https://a.test", "HTTPS://A.test/v.mp4",
                          "hTTp://a.test:8080/?q=1&r=$(x)#frag", "https://127.0.0.1:8443/ad-1"}) {
    EXPECT_TRUE(WebAddress::isWeb(url)) << url;
  }
  for (const char* url :
       {"", "file:///etc/passwd", "javascript:alert(1)", "ftp://a.test/x", "market://details",
        "zivora-game://reward", "https://", "https:///etc/passwd", "/relative/path",
        "httpx://a.test", " https://a.test", "-https://a.test", "https://a.test/x y",
        "https://a.test/a\tb", "https://a.test/\nX-Injected: 1", "https://a.test/\x7f",
        "https://a.test/caf\xc3\xa9", "data:text/html,hi", "https:a.test"}) {
    EXPECT_FALSE(WebAddress::isWeb(url)) << url;
  }
}

TEST(WebAddressTest, ARefusalIsLoggedWithTheFieldAndAPrintableAddress) {
  test::ScopedContext scope;
  EXPECT_EQ(WebAddress::accepted(std::string("https://a.test"), "video"), "https://a.test");
  EXPECT_EQ(WebAddress::accepted(std::nullopt, "video"), std::nullopt);
  EXPECT_FALSE(scope.log().contains("Refused"));
  EXPECT_EQ(WebAddress::accepted(std::string("file:///tmp/\x1b[2Jx"), "image"), std::nullopt);
  EXPECT_TRUE(scope.log().contains(
      "[Zivora] Refused the image address, not http or https: file:///tmp/?[2Jx"));
}

}  // namespace
}  // namespace zivora
