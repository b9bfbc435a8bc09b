// The signed POST through libcurl to the sandbox over TLS, and how every
// kind of bad answer maps to (object, code).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "SandboxServer.h"
#include "events/ZVSendRequest.h"
#include "platform/linux/CurlHttpClient.h"
#include "sandbox/SandboxTestSupport.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

using sandbox::Misbehaviour;
using namespace std::chrono_literals;

struct Reply {
  std::optional<nlohmann::json> object;
  int code = 0;
};

class ZVSendRequestIntegrationTest : public ::testing::Test {
 protected:
  ZVSendRequestIntegrationTest() { sandbox_.start(); }

  Reply post(const std::string& caFile,
             std::string_view json = R"({"getInitialization":{"appId":"a%20b"}})") {
    auto http = std::make_shared<platform::CurlHttpClient>(
        platform::HttpClientOptions{.caFile = caFile, .connectTimeout = 2s, .lowSpeedTime = 1s});
    test::ScopedContext scope(
        HostOptions{.dataRoot = root_.path().string(), .adEndpoint = sandbox_.adEndpoint()},
        RuntimeOptions{.http = http});
    Reply reply;
    ZVSendRequest::sendPost(json, [&](const nlohmann::json* object, int code) {
      if (object) reply.object = *object;
      reply.code = code;
    });
    return reply;
  }

  Reply post() { return post(sandbox_.caFile()); }

  test::TempDir root_;
  sandbox::SandboxServer sandbox_{
      sandbox::SandboxOptions{.certDirectory = test::sandboxCertDirectory()}};
};

TEST_F(ZVSendRequestIntegrationTest, RoundTripOverTlsDeliversTheSignedForm) {
  auto reply = post();
  EXPECT_EQ(reply.code, 200);
  ASSERT_TRUE(reply.object);
  EXPECT_FALSE(reply.object->contains("error"));
  auto received = sandbox_.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].md5Valid);
  EXPECT_EQ(received[0].requestName, "getInitialization");
  EXPECT_EQ(received[0].params, R"({"getInitialization":{"appId":"a b"}})");
}

TEST_F(ZVSendRequestIntegrationTest, UnusableTwoHundredRepliesKeepTheirStatus) {
  for (auto kind : {Misbehaviour::Kind::Garbage, Misbehaviour::Kind::EmptyBody,
                    Misbehaviour::Kind::JsonArray, Misbehaviour::Kind::JsonScalar}) {
    sandbox_.misbehave(kind);
    auto reply = post();
    EXPECT_EQ(reply.code, 200) << Misbehaviour::nameOf(kind);
    EXPECT_FALSE(reply.object) << Misbehaviour::nameOf(kind);
  }
}

TEST_F(ZVSendRequestIntegrationTest, ServerErrorsCutBodiesAndStallsGiveMinusTwo) {
  for (auto kind : {Misbehaviour::Kind::HttpError, Misbehaviour::Kind::CloseMidBody,
                    Misbehaviour::Kind::Stall}) {
    sandbox_.misbehave(kind);
    auto reply = post();
    EXPECT_EQ(reply.code, -2) << Misbehaviour::nameOf(kind);
    EXPECT_FALSE(reply.object);
  }
}

}  // namespace
}  // namespace zivora
