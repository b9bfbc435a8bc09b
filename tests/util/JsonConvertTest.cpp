// Reading loosely typed reply values and writing request bodies.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "util/JsonConvert.h"
#include "util/ZVException.h"

namespace zivora {
namespace {

using nlohmann::json;

TEST(JsonConvert, ParseObjectAcceptsOnlyObjects) {
  EXPECT_TRUE(JsonConvert::parseObject("{}"));
  EXPECT_EQ((*JsonConvert::parseObject(R"({"a":[1]})"))["a"][0], 1);
  for (const char* body :
       {"", "garbage", "[1,2]", "42", "\"s\"", "null", "{\"a\":", "<html></html>"}) {
    EXPECT_FALSE(JsonConvert::parseObject(body)) << body;
  }
}

// Deeper replies are refused before parsing: copying or writing them would
// recurse once per level. Brackets inside strings do not count.
TEST(JsonConvert, ParseObjectRefusesDeepNesting) {
  auto nested = [](int depth) {
    return "{\"a\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
  };
  EXPECT_TRUE(JsonConvert::parseObject(nested(JsonConvert::kMaxDepth)));
  EXPECT_FALSE(JsonConvert::parseObject(nested(JsonConvert::kMaxDepth + 1)));
  EXPECT_FALSE(JsonConvert::parseObject(nested(100'000)));
  const std::string brackets = "{\"a\":\"" + std::string(1000, '[') + "\\\"{\"}";
  EXPECT_TRUE(JsonConvert::parseObject(brackets)) << brackets;
}

TEST(JsonConvert, NumbersAndBooleansAreNumbersAndBoolValueReadsLeadingCharacters) {
  EXPECT_TRUE(JsonConvert::isNumber(json(1.5)) && JsonConvert::isNumber(json(true)));
  EXPECT_FALSE(JsonConvert::isNumber(json("1")) || JsonConvert::isNumber(json(nullptr)));
  EXPECT_TRUE(JsonConvert::boolValue(json(true)));
  EXPECT_TRUE(JsonConvert::boolValue(json(0.1)));
  EXPECT_FALSE(JsonConvert::boolValue(json(0)));
  for (const char* yes : {"YES", "y", "true", "T", "1", "  -007", "+9x"}) {
    EXPECT_TRUE(JsonConvert::boolValue(json(yes))) << yes;
  }
  for (const char* no : {"", "NO", "false", "0", "000", " -0", "abc"}) {
    EXPECT_FALSE(JsonConvert::boolValue(json(no))) << no;
  }
  EXPECT_THROW(JsonConvert::boolValue(json(nullptr)), ZVException);
  EXPECT_THROW(JsonConvert::boolValue(json::object()), ZVException);
}

TEST(JsonConvert, IntegerValueTruncatesParsesLeadingDigitsAndThrowsOnContainers) {
  EXPECT_EQ(JsonConvert::integerValue(json(3.9)), 3);
  EXPECT_EQ(JsonConvert::integerValue(json(-3.9)), -3);
  EXPECT_EQ(JsonConvert::integerValue(json(true)), 1);
  EXPECT_EQ(JsonConvert::integerValue(json(" 42abc")), 42);
  EXPECT_EQ(JsonConvert::integerValue(json("-7")), -7);
  EXPECT_EQ(JsonConvert::integerValue(json("x1")), 0);
  EXPECT_EQ(JsonConvert::integerValue(json(1e300)), INT64_MAX);
  EXPECT_EQ(JsonConvert::integerValue(json("99999999999999999999999")), INT64_MAX);
  // The host sees error codes as unsigned 64-bit values.
  EXPECT_EQ(static_cast<std::uint64_t>(JsonConvert::integerValue(json(-1))), UINT64_MAX);
  EXPECT_THROW(JsonConvert::integerValue(json(nullptr)), ZVException);
  EXPECT_THROW(JsonConvert::integerValue(json::array()), ZVException);
}

TEST(JsonConvert, TextAndDescriptionFollowThePrintedForms) {
  EXPECT_EQ(JsonConvert::textValue(json(12)), "12");
  EXPECT_EQ(JsonConvert::textValue(json(0.85)), "0.85");
  EXPECT_EQ(JsonConvert::textValue(json("https://x")), "https://x");
  EXPECT_THROW(JsonConvert::textValue(json(nullptr)), ZVException);
  json null = nullptr;
  json yes = true;
  EXPECT_EQ(JsonConvert::describe(nullptr), "(null)");
  EXPECT_EQ(JsonConvert::describe(&null), "<null>");
  EXPECT_EQ(JsonConvert::describe(&yes), "1");
}

TEST(JsonConvert, SerializeEscapesSlashesKeepsTypesAndRefusesNonFiniteNumbers) {
  json body = {
      {"getInitialization",
       {{"appId", "a/b"}, {"limitAdTracking", 0}, {"isMobileNetwork", false}, {"ratio", 1.5}}}};
  EXPECT_EQ(
      JsonConvert::serialize(body),
      R"({"getInitialization":{"appId":"a\/b","isMobileNetwork":false,"limitAdTracking":0,"ratio":1.5}})");
  EXPECT_THROW(JsonConvert::serialize(json{{"x", {NAN}}}), ZVException);
  EXPECT_THROW(JsonConvert::serialize(json{{"x", INFINITY}}), ZVException);
}

}  // namespace
}  // namespace zivora
