#include "analytics/ZVPHttpRequest.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <stdexcept>

#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPLog.h"
#include "platform/HttpClient.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVHash.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

std::int64_t nowSeconds() {
  auto context = Context::current();
  auto now = context && context->hasRuntime() ? context->runtime().clock().wallNow()
                                              : std::chrono::system_clock::now();
  return std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) <= 0x7F; });
}

}  // namespace

std::string ZVPHttpRequest::endpoint() {
  auto context = Context::current();
  if (context && !context->host().analyticsEndpoint.empty()) {
    return context->host().analyticsEndpoint;
  }
  return TS_HOST_NAME_POST;
}

void ZVPHttpRequest::sendPost(std::string_view savedEvent, const CallBack& callBack) noexcept {
  bool answered = false;
  auto answer = [&](const std::string* reply, long code) {
    answered = true;
    if (callBack) callBack(reply, code);
  };
  try {
    ZVPConvertSavedEventForSend converted(savedEvent, nowSeconds());
    if (converted.isError() || !converted.getEvent()) {
      ZVPLog::LogDebug("[TSHttpRequest][sendPost] Error parse saved event.");
      return answer(nullptr, TS_HTTP_ERROR);
    }
    std::string body = *converted.getEvent();
    if (!isAscii(body)) body.clear();
    const std::string url = endpoint();
    ZVPLog::LogDebug("[HTTPRequest] send post url = {} Content = {}", url, body);
    // The queue may still be draining after the context was dropped.
    auto context = Context::current();
    if (!context) throw std::logic_error("no context to send with");
    auto response = context->http().perform(platform::HttpRequest::formPost(url, std::move(body)));
    if (response.status != TS_HTTP_STATUS_CODE_OK) {
      ZVPLog::LogDebug("Error getting, HTTP status code {}", response.status);
    }
    const std::string reply = isAscii(response.body) ? response.body : std::string();
    validateResponse(reply);
    // No status at all (no connection) is a failed send like any other.
    answer(&reply, response.status == 0 ? TS_HTTP_ERROR : response.status);
  } catch (...) {
    ZVLog::system("Backoffice [ZVPHttpRequest][sendPost] Error send request!");
    if (!answered) answer(nullptr, TS_HTTP_ERROR);
  }
}

bool ZVPHttpRequest::validateResponse(std::optional<std::string_view> response) noexcept {
  return guarded(
      "ZVPHttpRequest", "validateResponse", false,
      [&] {
        if (!response || response->empty()) {
          ZVPLog::LogWarning(
              "[TSHttpRequest][validateResponse] Warning! Response is null or empty.");
          return false;
        }
        std::string compact(*response);
        compact.erase(std::remove(compact.begin(), compact.end(), ' '), compact.end());
        if (compact.find(TS_VALID_RESPONSE) != std::string::npos) return true;
        ZVPLog::LogWarning(
            "[TSHttpRequest][validateResponse] Warning! Fail save event on the server, response "
            "= {}",
            *response);
        return false;
      },
      GuardReport::Backoffice);
}

std::string ZVPHttpRequest::hashMD5(std::string_view text) noexcept {
  return guarded(
      "ZVPHttpRequest", "hashMD5", std::string(), [&] { return ZVHash::md5Hex(text); },
      GuardReport::Backoffice);
}

std::optional<std::string> ZVPHttpRequest::addAdditionParams(std::string_view savedEvent) noexcept {
  return guarded(
      "ZVPHttpRequest", "addAdditionParams", std::optional<std::string>(),
      [&]() -> std::optional<std::string> {
        static const std::regex kNameField("p([0-9]+)name=");
        // Wide enough that the next two numbers after the largest an int
        // field number can be never overflow.
        std::int64_t highest = 0;
        const std::string line(savedEvent);
        for (auto it = std::sregex_iterator(line.begin(), line.end(), kNameField);
             it != std::sregex_iterator(); ++it) {
          highest = std::max<std::int64_t>(highest, std::stoi((*it)[1].str()));
        }
        auto event = concatenateWithEvent(line, TS_CLIENT_TIME, TS_PARAMETER_TYPE_INTEGER,
                                          highest + 1, fmt::format("{}", nowSeconds()));
        if (!event) return std::nullopt;
        return concatenateWithEvent(*event, TS_HASH_SUM, TS_PARAMETER_TYPE_STRING, highest + 2,
                                    hashMD5(line));
      },
      GuardReport::Backoffice);
}

std::optional<std::string> ZVPHttpRequest::concatenateWithEvent(std::string event, const char* name,
                                                                const char* type,
                                                                std::int64_t number,
                                                                std::string_view value) {
  return guarded(
      "ZVPHttpRequest", "concatenateWithEvent", std::optional<std::string>(),
      [&]() -> std::optional<std::string> {
        for (auto [attribute, text] : {std::pair{TS_PARAMETER_NAME, std::string_view(name)},
                                       std::pair{TS_PARAMETER_TYPE, std::string_view(type)},
                                       std::pair{TS_PARAMETER_VALUE, value}}) {
          event += fmt::format("&{}{}{}={}", TS_PARAMETER_PREFIX, number, attribute, text);
        }
        return event;
      },
      GuardReport::Backoffice);
}

}  // namespace zivora
