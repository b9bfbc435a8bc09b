// The encoders and digests that make free text safe for request bodies.
#include <gtest/gtest.h>

#include <regex>

#include "eventqueue/JsonEscape.h"
#include "events/ZVSendRequest.h"
#include "support/ScopedContext.h"
#include "util/Utf8.h"
#include "util/ZVHash.h"

namespace zivora {
namespace {

TEST(UrlEncode, KeepsOnlyUnreservedCharactersAndEscapesEveryOtherByte) {
  EXPECT_EQ(ZVSendRequest::urlEncode(" &=/é"), "%20%26%3D%2F%C3%A9");
  EXPECT_EQ(ZVSendRequest::urlEncode("aZ09-_.~"), "aZ09-_.~");
  EXPECT_EQ(ZVSendRequest::urlEncode("%"), "%25");
  EXPECT_EQ(ZVSendRequest::urlEncode("!*'\"();:@+$,?#[]\n"),
            "%21%2A%27%22%28%29%3B%3A%40%2B%24%2C%3F%23%5B%5D%0A");
  EXPECT_EQ(ZVSendRequest::urlEncode(std::nullopt), std::nullopt);
}

TEST(UrlDecode, DecodesEscapesLeavesPlusAndRejectsInvalidUtf8) {
  EXPECT_EQ(ZVSendRequest::urlDecode("a%20b+c"), "a b+c");
  EXPECT_EQ(ZVSendRequest::urlDecode("%C3%A9%2f"), "é/");
  // A percent sign without two hex digits is not an escape.
  EXPECT_EQ(ZVSendRequest::urlDecode("100%"), "100%");
  EXPECT_EQ(ZVSendRequest::urlDecode("%zz%4"), "%zz%4");
  EXPECT_EQ(ZVSendRequest::urlDecode("%FF"), std::nullopt);
  EXPECT_EQ(ZVSendRequest::urlDecode("%C3"), std::nullopt);
  auto roundTrip = ZVSendRequest::urlDecode(ZVSendRequest::urlEncode("naïve \"q\" & 1+1=2 50%\n"));
  EXPECT_EQ(roundTrip, "naïve \"q\" & 1+1=2 50%\n");
}

TEST(Utf8, RejectsOverlongSurrogatesAndOutOfRange) {
  EXPECT_TRUE(Utf8::isValid("plain é 日本 😀"));
  EXPECT_FALSE(Utf8::isValid("\xC0\xAF"));          // overlong '/'
  EXPECT_FALSE(Utf8::isValid("\xED\xA0\x80"));      // surrogate
  EXPECT_FALSE(Utf8::isValid("\xF4\x90\x80\x80"));  // past U+10FFFF
  EXPECT_FALSE(Utf8::isValid("\xE6\x97"));          // truncated
}

TEST(JsonEscape, EscapesInOrderSoInsertedBackslashesAreNotDoubled) {
  EXPECT_EQ(JsonEscape::escape("a\\nb"), "a\\\\nb");
  EXPECT_EQ(JsonEscape::escape("x/y"), "x\\/y");
  EXPECT_EQ(JsonEscape::escape("\"q\"\n\b\f\r\t"), "\\\"q\\\"\\n\\b\\f\\r\\t");
  EXPECT_EQ(JsonEscape::escape(std::string_view("\x01", 1)), "\x01");
  EXPECT_EQ(JsonEscape::escape(std::nullopt), std::nullopt);
}

TEST(Md5, HashesUtf8BytesAsLowercaseHexWithDistinctFallbacks) {
  test::ScopedContext scope;
  EXPECT_EQ(ZVHash::hashMD5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(ZVSendRequest::getMD5("é"), ZVHash::hashMD5("\xC3\xA9"));
  EXPECT_EQ(ZVHash::hashMD5(std::nullopt), "exeption-generate-md5");
  EXPECT_EQ(ZVSendRequest::getMD5(std::nullopt), "error-generate-md5");
  auto reported = scope.analytics().exceptions();
  ASSERT_EQ(reported.size(), 2u);
  EXPECT_EQ(reported[0].className, "ZVHash");
  EXPECT_EQ(reported[1].method, "getMD5");
}

TEST(RandomString, IsTheMillisecondClockFollowedByRandomLowercaseAlphanumerics) {
  auto before = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::system_clock::now().time_since_epoch())
                    .count();
  std::string first = ZVHash::randomString();
  ASSERT_EQ(first.size(), 24u);
  EXPECT_TRUE(std::regex_match(first, std::regex("[0-9]{13}[a-z0-9]{11}")));
  EXPECT_GE(std::stoll(first.substr(0, 13)), before);
  EXPECT_NE(first.substr(13), ZVHash::randomString().substr(13));
}

TEST(AddArgumentToURL, AppendsAfterExistingItemsAndKeepsUnparsableUrls) {
  EXPECT_EQ(ZVSendRequest::addArgumentToURL("https://h.example/p?a=1&a=2", "b", "x y"),
            "https://h.example/p?a=1&a=2&b=x%20y");
  EXPECT_EQ(ZVSendRequest::addArgumentToURL("https://h.example/p", "k", "v"),
            "https://h.example/p?k=v");
  EXPECT_EQ(ZVSendRequest::addArgumentToURL("not a url", "k", "v"), std::nullopt);
  EXPECT_EQ(ZVSendRequest::addArgumentToURL("", "k", "v"), std::nullopt);
}

}  // namespace
}  // namespace zivora
