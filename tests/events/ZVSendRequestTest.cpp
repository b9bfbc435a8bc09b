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

struct Reply {
  bool called = false;
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
      reply.called = true;
      if (object) reply.object = *object;
      reply.code = code;
    });
    return reply;
  }

  std::string header(const platform::HttpRequest& request, std::string_view name) {
    for (const auto& [key, value] : request.headers) {
      if (key == name) return value;
    }
    return "<absent>";
  }

  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  test::ScopedContext scope_{HostOptions{.dataRoot = root_.path().string(),
                                         .adEndpoint = "https://ads.test/HandleRequestV3.php"},
                             RuntimeOptions{.http = http_}};
};

TEST_F(ZVSendRequestTest, BodyCarriesTheJsonAsGivenAndTheMd5OfItsDecodedText) {
  std::string text = "a \"b\" & c+d 50% é\nz";
  nlohmann::json body = {
      {"getInitialization", {{"deviceName", *ZVSendRequest::urlEncode(JsonEscape::escape(text))}}}};
  std::string params = JsonConvert::serialize(body);
  ASSERT_EQ(
      params,
      R"({"getInitialization":{"deviceName":"a%20%5C%22b%5C%22%20%26%20c%2Bd%2050%25%20%C3%A9%5Cnz"}})");

  send(params);

  auto requests = http_->requests();
  ASSERT_EQ(requests.size(), 1u);
  const auto& request = requests[0];
  std::string expected = "Params=" + params + "&md5=d83de29fbe2d00311675d93a3e8b6c6d";
  EXPECT_EQ(request.body, expected);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://ads.test/HandleRequestV3.php");
  EXPECT_EQ(header(request, "Content-Length"), std::to_string(expected.size()));
  EXPECT_EQ(header(request, "Content-Type"), "application/x-www-form-urlencoded");
}

TEST_F(ZVSendRequestTest, SignatureOfAnEscapedAmpersandIsTheMd5OfAPlainOne) {
  send(R"({"k":"x%26y"})");
  auto body = http_->requests().at(0).body;
  EXPECT_EQ(body.substr(body.find("&md5=") + 5), ZVSendRequest::getMD5(R"({"k":"x&y"})"));
}

TEST_F(ZVSendRequestTest, NonAsciiBodyGoesOutEmpty) {
  send(R"({"k":"é"})");
  auto request = http_->requests().at(0);
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(header(request, "Content-Length"), "0");
}

TEST_F(ZVSendRequestTest, RepliesMapToObjectAndCode) {
  http_->enqueue(200, R"({"closeButtonURL":"https://x"})");
  http_->enqueue(200, "{}");
  http_->enqueue(200, "not json");
  http_->enqueue(200, "[1,2]");
  http_->enqueue(200, "");
  http_->enqueue(500, "<html>oops</html>");
  http_->enqueueFailure("Connection refused");

  auto object = send("{}");
  EXPECT_EQ(object.code, 200);
  EXPECT_EQ(object.object->at("closeButtonURL"), "https://x");
  auto empty = send("{}");
  EXPECT_EQ(empty.code, 200);
  EXPECT_EQ(empty.object, nlohmann::json::object());
  for (int i = 0; i < 3; ++i) {
    auto unusable = send("{}");
    EXPECT_EQ(unusable.code, 200);
    EXPECT_FALSE(unusable.object);
  }
  auto serverError = send("{}");
  EXPECT_EQ(serverError.code, -2);
  EXPECT_FALSE(serverError.object);
  auto noResponse = send("{}");
  EXPECT_EQ(noResponse.code, -2);
  EXPECT_EQ(noResponse.calls, 1);

  EXPECT_TRUE(scope_.log().contains("Error getting, HTTP status code 500"));
  EXPECT_TRUE(scope_.log().contains("Error getting, HTTP status code 0"));
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
  struct Throwing final : platform::HttpClient {
    platform::HttpResponse perform(const platform::HttpRequest&) override {
      throw std::bad_alloc();
    }
  };
  test::ScopedContext throwing(HostOptions{.dataRoot = root_.path().string()},
                               RuntimeOptions{.http = std::make_shared<Throwing>()});
  std::vector<std::string> order;
  ZVSendRequest::sendPost("{}", [&](const nlohmann::json* object, int code) {
    order.push_back(object ? "object" : "nil");
    order.push_back(std::to_string(code));
    order.push_back(std::to_string(throwing.analytics().exceptions().size()));
  });
  EXPECT_EQ(order, (std::vector<std::string>{"nil", "-2", "0"}));
  EXPECT_EQ(throwing.analytics().exceptions().size(), 1u);
}

}  // namespace
}  // namespace zivora
