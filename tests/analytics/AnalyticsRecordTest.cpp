#include <gtest/gtest.h>

#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPHttpRequest.h"
#include "support/ScopedContext.h"
#include "util/PercentEncoding.h"
#include "util/ZVHash.h"

namespace zivora {
namespace {

constexpr std::int64_t kNow = 1767225600;

std::string wire(const std::string& appId, const std::string& params) {
  return "AppId=" + appId + "&Params=" + params +
         "&md5=" + ZVHash::md5Hex(*PercentEncoding::decode(params));
}

TEST(CustomParamsTest, LineFormWritesStringsThenIntegersThenDoubles) {
  ZVPCustomParams params;
  EXPECT_EQ(params.toStr(), std::nullopt);
  params.put("x", "a b");
  params.put("bo_Order", 7);
  EXPECT_EQ(params.toStr(),
            "p1name=x&p1type=String&p1value=a%20b&p2name=bo_Order&p2type=Integer&p2value=7");
  params.put("Amount", 0.1);
  params.put("big", 123456789.0);
  params.put("flag", true);
  EXPECT_EQ(params.toStr(),
            "p1name=x&p1type=String&p1value=a%20b&p2name=bo_Order&p2type=Integer&p2value=7&"
            "p3name=flag&p3type=Integer&p3value=1&p4name=Amount&p4type=Double&p4value=0.1&"
            "p5name=big&p5type=Double&p5value=1.23457e+08");
  // Values keep the URL characters and escape the rest.
  ZVPCustomParams texts;
  texts.put("a b", "k=v&w \"q\" 50% caf\xC3\xA9 \\");
  EXPECT_EQ(texts.toStr(),
            "p1name=a%20b&p1type=String&p1value=k=v&w%20%22q%22%2050%25%20caf%C3%A9%20%5C");
}

TEST(CustomParamsTest, PutReplacesAndANilTextRemoves) {
  ZVPCustomParams params;
  params.put("n", 1);
  params.put("n", std::int64_t{5000000000});
  params.put("s", "one");
  params.put("s", std::optional<std::string>());
  EXPECT_EQ(params.size(), 1u);
  EXPECT_EQ(params.getLong("n"), 5000000000);
  EXPECT_FALSE(params.containsString("s"));
  EXPECT_EQ(params.getString("s"), std::nullopt);
  EXPECT_EQ(params.getDouble("missing"), 0.0);
  EXPECT_FALSE(params.getBool("missing"));
}

TEST(ConvertSavedEventTest, RecordRoundTripsToTheWireForm) {
  ZVPCustomParams params;
  params.put("bo_AppId", "app-1");
  params.put("bo_Name", "AppOpen");
  params.put("note", "say \"hi\" & go");
  params.put("bo_Order", 7);
  params.put("Amount", 1.5);
  ZVPConvertSavedEventForSend converted(*params.toStr(), kNow);
  EXPECT_FALSE(converted.isError());
  EXPECT_EQ(
      converted.getEvent(),
      wire("app-1",
           "{\"s\":[{\"bo_Name\":\"AppOpen\"},{\"note\":\"say%20%5C%22hi%5C%22%20&%20go\"}],"
           "\"d\":[{\"Amount\":1.5}],\"i\":[{\"bo_ClientTime\":1767225600},{\"bo_Order\":7}]}"));
}

TEST(ConvertSavedEventTest, LinesWithoutAnAppIdOrMarkersBuildNothing) {
  test::ScopedContext context;
  ZVPConvertSavedEventForSend noAppId("p1name=x&p1type=String&p1value=y", kNow);
  EXPECT_FALSE(noAppId.isError());
  EXPECT_EQ(noAppId.getEvent(), std::nullopt);
  for (const char* broken : {"garbage", "p1name=x&p1value=y", "p1name=x&p1type=String",
                             "p2name=x&p2type=String&p2value=y"}) {
    ZVPConvertSavedEventForSend converted(broken, kNow);
    EXPECT_TRUE(converted.isError()) << broken;
    EXPECT_EQ(converted.getEvent(), std::nullopt) << broken;
  }
  // Unknown types are skipped, not errors; empty arrays are left out.
  ZVPConvertSavedEventForSend odd(
      "p1name=bo_AppId&p1type=String&p1value=a&p2name=x&p2type=Blob&p2value=1", kNow);
  EXPECT_EQ(odd.getEvent(), wire("a", "{\"i\":[{\"bo_ClientTime\":1767225600}]}"));
}

TEST(ConvertSavedEventTest, ReadingStopsAfterTheMaximumNumberOfParameters) {
  ZVPCustomParams params;
  params.put("bo_AppId", "a");
  std::string line = *params.toStr();
  for (int n = 2; n <= ZVPConvertSavedEventForSend::kMaxParameters + 2; ++n) {
    line += "&p" + std::to_string(n) + "name=k" + std::to_string(n) + "&p" + std::to_string(n) +
            "type=Integer&p" + std::to_string(n) + "value=" + std::to_string(n);
  }
  ZVPConvertSavedEventForSend converted(line, kNow);
  ASSERT_TRUE(converted.getEvent());
  const std::string& event = *converted.getEvent();
  EXPECT_NE(event.find("{\"k9999\":"), std::string::npos);
  EXPECT_EQ(event.find("{\"k10000\":"), std::string::npos);
}

TEST(ZVPHttpRequestTest, OlderFieldsAreAppendedAfterTheHighestNumber) {
  test::ScopedContext scope;
  const std::string line = "p1name=a&p1type=String&p1value=x&p12name=b&p12type=Integer&p12value=1";
  auto extended = ZVPHttpRequest::addAdditionParams(line);
  ASSERT_TRUE(extended);
  EXPECT_EQ(extended->rfind(line + "&p13name=bo_ClientTime&p13type=Integer&p13value=", 0), 0u);
  EXPECT_NE(extended->find("&p14name=bo_HashSum&p14type=String&p14value=" +
                           ZVPHttpRequest::hashMD5(line)),
            std::string::npos);
  EXPECT_FALSE(ZVPHttpRequest::validateResponse(std::nullopt));
  EXPECT_TRUE(ZVPHttpRequest::validateResponse(R"({ "Status" : "Accepted" })"));

  // Field numbers at the limit of an int still get their successors.
  auto atLimit = ZVPHttpRequest::addAdditionParams(
      "AppId=a&p2147483647name=b&p2147483647type=String&p2147483647value=x");
  ASSERT_TRUE(atLimit);
  EXPECT_NE(atLimit->find("&p2147483648name=bo_ClientTime"), std::string::npos);
  EXPECT_NE(atLimit->find("&p2147483649name=bo_HashSum"), std::string::npos);
  // A number past any int is refused as a whole, never wrapped.
  EXPECT_FALSE(ZVPHttpRequest::addAdditionParams("p99999999999name=b"));
}

}  // namespace
}  // namespace zivora
