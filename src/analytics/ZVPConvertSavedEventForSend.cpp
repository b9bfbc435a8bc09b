#include "analytics/ZVPConvertSavedEventForSend.h"

#include <fmt/format.h>

#include <iterator>

#include "eventqueue/JsonEscape.h"
#include "util/Guard.h"
#include "util/PercentEncoding.h"
#include "util/ZVHash.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

std::string marker(bool leadingAmpersand, int n, const char* attribute) {
  return fmt::format("{}{}{}{}=", leadingAmpersand ? "&" : "", TS_PARAMETER_PREFIX, n, attribute);
}

// "{"s":[{"a":"x"},{"b":"y"}],": one array of single-key objects.
void appendArray(std::string& out, const char* key, const std::map<std::string, std::string>& map,
                 bool quoted) {
  if (map.empty()) return;
  fmt::format_to(std::back_inserter(out), "\"{}\":[", key);
  for (const auto& [name, value] : map) {
    if (quoted) {
      fmt::format_to(std::back_inserter(out), "{{\"{}\":\"{}\"}},", name, value);
    } else {
      fmt::format_to(std::back_inserter(out), "{{\"{}\":{}}},", name, value);
    }
  }
  out.pop_back();
  out += "],";
}

}  // namespace

ZVPConvertSavedEventForSend::ZVPConvertSavedEventForSend(std::string_view savedEvent,
                                                         std::int64_t nowSeconds) {
  guarded(
      "ZVPConvertSavedEventForSend", "initWithSavedEvent",
      [&] {
        parse(savedEvent);
        if (!error_ && appId_) build(nowSeconds);
      },
      GuardReport::Backoffice);
}

void ZVPConvertSavedEventForSend::parse(std::string_view line) {
  const bool parsed = guarded(
      "ZVPConvertSavedEventForSend", "parse", false,
      [&] {
        std::size_t position = 0;
        for (int n = 1; n <= kMaxParameters && position < line.size(); ++n) {
          const std::string nameMarker = marker(false, n, TS_PARAMETER_NAME);
          const std::string typeMarker = marker(true, n, TS_PARAMETER_TYPE);
          const std::string valueMarker = marker(true, n, TS_PARAMETER_VALUE);
          const std::size_t nameAt = line.find(nameMarker, position);
          if (nameAt == std::string_view::npos) return false;
          const std::size_t typeAt = line.find(typeMarker, nameAt + nameMarker.size());
          if (typeAt == std::string_view::npos) return false;
          const std::size_t valueAt = line.find(valueMarker, typeAt + typeMarker.size());
          if (valueAt == std::string_view::npos) return false;
          const std::size_t nextAt =
              line.find(marker(true, n + 1, TS_PARAMETER_NAME), valueAt + valueMarker.size());

          const std::size_t nameStart = nameAt + nameMarker.size();
          const std::size_t typeStart = typeAt + typeMarker.size();
          const std::size_t valueStart = valueAt + valueMarker.size();
          std::string name(line.substr(nameStart, typeAt - nameStart));
          std::string_view type = line.substr(typeStart, valueAt - typeStart);
          std::string_view value = nextAt == std::string_view::npos
                                       ? line.substr(valueStart)
                                       : line.substr(valueStart, nextAt - valueStart);
          if (name == TS_APP_ID) {
            appId_ = std::string(value);
          } else if (type == TS_PARAMETER_TYPE_STRING) {
            mapString_[name] = convertForJSON(value).value_or("");
          } else if (type == TS_PARAMETER_TYPE_INTEGER) {
            mapLong_[name] = std::string(value);
          } else if (type == TS_PARAMETER_TYPE_DOUBLE) {
            mapDouble_[name] = std::string(value);
          }
          // The next pass starts at the next name marker, after its '&'.
          position = nextAt == std::string_view::npos ? line.size() : nextAt + 1;
        }
        return true;
      },
      GuardReport::Backoffice);
  if (!parsed) error_ = true;
}

std::string ZVPConvertSavedEventForSend::json() const {
  std::string out = "{";
  appendArray(out, "s", mapString_, true);
  appendArray(out, "d", mapDouble_, false);
  appendArray(out, "i", mapLong_, false);
  if (out.back() == ',') out.pop_back();
  out += "}";
  return out;
}

void ZVPConvertSavedEventForSend::build(std::int64_t nowSeconds) {
  mapLong_[TS_CLIENT_TIME] = fmt::format("{}", static_cast<std::int32_t>(nowSeconds));
  const std::string params = json();
  const auto decoded = PercentEncoding::decode(params);
  const std::string md5 =
      getMD5(decoded ? std::optional<std::string_view>(*decoded) : std::nullopt);
  event_ = fmt::format("AppId={}&Params={}&md5={}", *appId_, params, md5);
}

std::optional<std::string> ZVPConvertSavedEventForSend::convertForJSON(std::string_view value) {
  return guarded(
      "ZVPConvertSavedEventForSend", "convertForJSON", std::optional<std::string>(),
      [&]() -> std::optional<std::string> {
        auto decoded = PercentEncoding::decode(value);
        if (!decoded) return std::nullopt;
        auto escaped = JsonEscape::escape(*decoded);
        if (!escaped) return std::nullopt;
        return PercentEncoding::encode(*escaped, PercentEncoding::Set::URLQueryAllowed);
      },
      GuardReport::Backoffice);
}

std::string ZVPConvertSavedEventForSend::getMD5(std::optional<std::string_view> text) {
  return guarded(
      "ZVPConvertSavedEventForSend", "getMD5", std::string(), [&] { return ZVHash::md5Hex(text); },
      GuardReport::Backoffice);
}

}  // namespace zivora
