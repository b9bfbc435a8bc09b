// Any status and body as the ad server's answer to a click (or any other
// signed request): the transport calls back exactly once, with 200 and the
// reply object only for a 200 whose body is a JSON object, and with the
// error code and no object for everything else.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "FuzzContext.h"
#include "events/ZVSendRequest.h"
#include "zivora/ZVConstants.h"

using namespace zivora;

namespace {

// The first byte picks the status: the common ones, and no response at all.
constexpr long kStatuses[] = {200, 200, 200, 0, 201, 204, 206, 301, 304, 400, 404, 500, 503, -1};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const long status = kStatuses[data[0] % std::size(kStatuses)];
  const std::string body(reinterpret_cast<const char*>(data + 1), size - 1);
  auto& context = test::FuzzContext::answering({.status = status, .body = body});

  int calls = 0;
  ZVSendRequest::sendPost(R"({"clickAd":{"placementId":"p","adType":2}})",
                          [&](const nlohmann::json* reply, int code) {
                            ++calls;
                            if (reply && (code != TS_HTTP_STATUS_CODE_OK || !reply->is_object()))
                              __builtin_trap();
                            if ((code == TS_HTTP_STATUS_CODE_OK) != (status == 200))
                              __builtin_trap();
                            if (code != TS_HTTP_STATUS_CODE_OK && code != TS_HTTP_ERROR)
                              __builtin_trap();
                          });
  if (calls != 1 || context.requests() != 1) __builtin_trap();
  return 0;
}
