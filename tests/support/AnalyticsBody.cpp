#include "support/AnalyticsBody.h"

#include <gtest/gtest.h>

#include "util/PercentEncoding.h"
#include "util/ZVHash.h"

namespace zivora::test {

std::optional<AnalyticsBody> AnalyticsBody::parse(std::string_view body) {
  constexpr std::string_view kAppId = "AppId=", kParams = "&Params=", kMd5 = "&md5=";
  if (body.substr(0, kAppId.size()) != kAppId) return std::nullopt;
  const auto paramsAt = body.find(kParams);
  const auto md5At = body.rfind(kMd5);
  if (paramsAt == std::string_view::npos || md5At == std::string_view::npos || md5At < paramsAt)
    return std::nullopt;
  AnalyticsBody parsed;
  parsed.appId = std::string(body.substr(kAppId.size(), paramsAt - kAppId.size()));
  const auto start = paramsAt + kParams.size();
  auto decoded = PercentEncoding::decode(body.substr(start, md5At - start));
  if (!decoded) return std::nullopt;
  parsed.paramsText = *decoded;
  parsed.md5 = std::string(body.substr(md5At + kMd5.size()));
  parsed.md5Valid = ZVHash::md5Hex(parsed.paramsText) == parsed.md5;
  parsed.params = nlohmann::json::parse(parsed.paramsText, nullptr, false);
  if (parsed.params.is_discarded()) return std::nullopt;
  return parsed;
}

std::vector<AnalyticsBody> AnalyticsBody::parseAll(
    const std::vector<platform::HttpRequest>& requests, std::string_view url) {
  std::vector<AnalyticsBody> bodies;
  for (const auto& request : requests) {
    if (!url.empty() && request.url != url) continue;
    auto body = parse(request.body);
    EXPECT_TRUE(body && body->md5Valid) << request.body;
    if (body) bodies.push_back(*body);
  }
  return bodies;
}

nlohmann::json AnalyticsBody::value(const char* array, const std::string& name) const {
  if (!params.contains(array)) return nullptr;
  for (const auto& entry : params.at(array)) {
    if (entry.contains(name)) return entry.at(name);
  }
  return nullptr;
}

std::string AnalyticsBody::text(const std::string& name) const {
  auto found = value("s", name);
  return found.is_string() ? found.get<std::string>() : std::string();
}

std::int64_t AnalyticsBody::integer(const std::string& name) const {
  auto found = value("i", name);
  return found.is_number_integer() ? found.get<std::int64_t>() : -1;
}

}  // namespace zivora::test
