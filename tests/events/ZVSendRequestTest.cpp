// The signed form POST and how replies map to (object, code).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "eventqueue/JsonEscape.h"
#include "events/ZVSendRequest.h"
#include "support/FakeHttpClient.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "util/JsonConvert.h"

namespace zivora {
namespace {

constexpr char kEndpoint[] = "https://ads.test/HandleRequestV3.php";

struct Reply {
  int calls = 0;
  std::optional<nlohmann::json> object;
  int code = 0;
};

class ZVSendRequestTest : public ::testing::Test {
 protected:
  Reply send(std::string_view json) {
    Reply reply;
    ZVSendRequest::sendPost(json, [&](const nlohmann::json* object, int code) {
      ++reply.calls;
      if (object) reply.object = *object;
      reply.code = code;
    });
    return reply;
  }

  static std::string header(const platform::HttpRequest& request, std::string_view name) {
    for (const auto& [key, value] : request.headers)
      if (key == name) return value;
    return "<absent>";
  }

  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  test::ScopedContext scope_{
      HostOptions{.dataRoot = root_.path().string(), .adEndpoint = kEndpoint},
      RuntimeOptions{.http = http_}};
};

// The md5 signs the decoded text, so an escaped ampersand signs as a plain
// one; a body that is not ASCII goes out empty.
TEST_F(ZVSendRequestTest, BodyCarriesTheJsonAsGivenAndTheMd5OfItsDecodedText) {
  std::string text = "a \"b\" & c+d 50% é\nz";
  nlohmann::json body = {
      {"getInitialization", {{"deviceName", *ZVSendRequest::urlEncode(JsonEscape::escape(text))}}}};
  std::string params = JsonConvert::serialize(body);
  ASSERT_EQ(
      params,
      R"({"getInitialization":{"deviceName":"a%20%5C%22b%5C%22%20%26%20c%2Bd%2050%25%20%C3%A9%5Cnz"}})");
  send(params);
  send(R"({"k":"x%26y"})");
  send(R"({"k":"é"})");

  auto requests = http_->requests();
  ASSERT_EQ(requests.size(), 3u);
  std::string expected = "Params=" + params + "&md5=d83de29fbe2d00311675d93a3e8b6c6d";
  EXPECT_EQ(requests[0].body, expected);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].url, kEndpoint);
  EXPECT_EQ(header(requests[0], "Content-Length"), std::to_string(expected.size()));
  EXPECT_EQ(header(requests[0], "Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(requests[1].body,
            R"(Params={"k":"x%26y"}&md5=)" + ZVSendRequest::getMD5(R"({"k":"x&y"})"));
  EXPECT_EQ(requests[2].body, "");
  EXPECT_EQ(header(requests[2], "Content-Length"), "0");
}

TEST_F(ZVSendRequestTest, RepliesMapToObjectAndCode) {
  struct Case {
    platform::HttpResponse response;
    int code;
    std::optional<nlohmann::json> object;
  };
  const std::vector<Case> cases{
      {{200, R"({"closeButtonURL":"https://x"})"},
       200,
       nlohmann::json{{"closeButtonURL", "https://x"}}},
      {{200, "{}"}, 200, nlohmann::json::object()},
      {{200, "not json"}, 200, std::nullopt},
      {{200, "[1,2]"}, 200, std::nullopt},
      {{200, ""}, 200, std::nullopt},
      {{500, "<html>oops</html>"}, -2, std::nullopt},
      {{0, "", "Connection refused"}, -2, std::nullopt},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::to_string(row.response.status) + " " + row.response.body);
    http_->enqueue(row.response);
    auto reply = send("{}");
    EXPECT_EQ(reply.calls, 1);
    EXPECT_EQ(reply.code, row.code);
    EXPECT_EQ(reply.object, row.object);
  }
  EXPECT_TRUE(scope_.log().contains("Error getting, HTTP status code 500"));
  auto events = scope_.analytics().events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].eventName, "error");
  EXPECT_EQ(events[1].className, "ZVSendRequest");
  EXPECT_EQ(events[1].method, "sendPost");
  EXPECT_EQ(events[1].message, "Error getting, HTTP status code 0");
}

TEST_F(ZVSendRequestTest, NilCallbackStillSendsAndAThrowingCallbackIsCalledOnceAndReported) {
  ZVSendRequest::sendPost("{}", nullptr);
  EXPECT_EQ(http_->requests().size(), 1u);
  int calls = 0;
  ZVSendRequest::sendPost("{}", [&](const nlohmann::json*, int) {
    ++calls;
    throw std::runtime_error("host code");
  });
  EXPECT_EQ(calls, 1);
  auto reported = scope_.analytics().exceptions();
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_EQ(reported[0].className, "ZVSendRequest");
  EXPECT_EQ(reported[0].method, "sendPost");
  EXPECT_EQ(reported[0].reason, "host code");
}

TEST_F(ZVSendRequestTest, AFailingTransportAnswersMinusTwoBeforeReporting) {
  http_->route(kEndpoint,
               [](const nlohmann::json&) -> platform::HttpResponse { throw std::bad_alloc(); });
  std::vector<std::string> order;
  ZVSendRequest::sendPost("{}", [&](const nlohmann::json* object, int code) {
    order = {object ? "object" : "nil", std::to_string(code),
             std::to_string(scope_.analytics().exceptions().size())};
  });
  EXPECT_EQ(order, (std::vector<std::string>{"nil", "-2", "0"}));
  EXPECT_EQ(scope_.analytics().exceptions().size(), 1u);
}

}  // namespace
}  // namespace zivora
