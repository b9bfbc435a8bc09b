#include "events/ZVSendRequest.h"

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "analytics/ZVPAnalitics.h"
#include "platform/HttpClient.h"
#include "sdk/Context.h"
#include "sdk/ZVConfiguration.h"
#include "util/Guard.h"
#include "util/JsonConvert.h"
#include "util/PercentEncoding.h"
#include "util/UrlQuery.h"
#include "util/Utf8.h"
#include "util/ZVHash.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {

namespace {

bool isAscii(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) > 0x7F) return false;
  }
  return true;
}

std::string endpoint() {
  auto configuration = ZVConfiguration::shared();
  auto url = configuration ? configuration->serverURL() : std::nullopt;
  return url.value_or(TS_HOST_URL);
}

void reportFailedStatus(long status) {
  std::string message = fmt::format("Error getting, HTTP status code {}", status);
  ZVLog::LogDebug("{}", message);
  ZVPAnalitics::shared().sendEvent("error", "ZVSendRequest", "sendPost", message);
}

}  // namespace

void ZVSendRequest::sendPost(std::optional<std::string_view> json,
                             const CallBack& callBack) noexcept {
  bool answered = false;
  auto answer = [&](const nlohmann::json* reply, int code) {
    answered = true;
    if (callBack) callBack(reply, code);
  };
  try {
    std::string md5 = getMD5(urlDecode(json));
    std::string body = fmt::format("Params={}&md5={}", json.value_or("(null)"), md5);
    // The body travels as 7-bit ASCII; callers percent-encode free text.
    if (!isAscii(body)) body.clear();

    auto response = Context::require()->http().perform(
        platform::HttpRequest::formPost(endpoint(), std::move(body)));
    if (response.status == TS_HTTP_STATUS_CODE_OK) {
      auto reply = JsonConvert::parseObject(response.body);
      answer(reply ? &*reply : nullptr, TS_HTTP_STATUS_CODE_OK);
      return;
    }
    reportFailedStatus(response.status);
    answer(nullptr, TS_HTTP_ERROR);
  } catch (...) {
    auto error = std::current_exception();
    if (!answered) {
      guarded("ZVSendRequest", "sendPost", [&] { answer(nullptr, TS_HTTP_ERROR); });
    }
    try {
      std::rethrow_exception(error);
    } catch (...) {
      detail::reportCaught("ZVSendRequest", "sendPost", GuardReport::Analytics);
    }
  }
}

std::optional<std::string> ZVSendRequest::urlEncode(std::optional<std::string_view> text) noexcept {
  return guarded("ZVSendRequest", "urlEncode", std::optional<std::string>(),
                 [&]() -> std::optional<std::string> {
                   if (!text) return std::nullopt;
                   return PercentEncoding::encode(*text, PercentEncoding::Set::Unreserved);
                 });
}

std::optional<std::string> ZVSendRequest::urlDecode(std::optional<std::string_view> text) noexcept {
  return guarded("ZVSendRequest", "urlDecode", std::optional<std::string>(),
                 [&]() -> std::optional<std::string> {
                   if (!text) return std::nullopt;
                   return PercentEncoding::decode(*text);
                 });
}

std::string ZVSendRequest::getMD5(std::optional<std::string_view> text) noexcept {
  return guarded("ZVSendRequest", "getMD5", std::string("error-generate-md5"),
                 [&] { return ZVHash::md5Hex(text); });
}

std::optional<std::string> ZVSendRequest::addArgumentToURL(std::string_view url,
                                                           std::string_view key,
                                                           std::string_view value) noexcept {
  try {
    std::string item =
        fmt::format("{}={}", urlEncode(key).value_or(""), urlEncode(value).value_or(""));
    return UrlQuery::append(url, item);
  } catch (...) {
    ZVLog::system("[addArgumentToURL] Error add path item");
    return std::string(url);
  }
}

}  // namespace zivora
