#include "analytics/ZVPCustomParams.h"

#include <fmt/format.h>

#include <iterator>

#include "util/Guard.h"
#include "util/PercentEncoding.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

template <class Map, class Value>
void putInto(Map& map, const std::string& name, const std::optional<Value>& value) {
  guarded(
      "ZVPCustomParams", "put",
      [&] {
        if (value) {
          map[name] = *value;
        } else {
          map.erase(name);
        }
      },
      GuardReport::Backoffice);
}

template <class Map>
auto valueIn(const Map& map, const std::string& name) -> std::optional<typename Map::mapped_type> {
  auto found = map.find(name);
  if (found == map.end()) return std::nullopt;
  return found->second;
}

void appendField(std::string& line, int n, const char* attribute, std::string_view value) {
  fmt::format_to(std::back_inserter(line), "{}{}{}={}&", TS_PARAMETER_PREFIX, n, attribute, value);
}

void appendEntry(std::string& line, int& n, const std::string& name, const char* type,
                 std::string_view value) {
  appendField(line, n, TS_PARAMETER_NAME,
              PercentEncoding::encode(name, PercentEncoding::Set::URLQueryAllowed));
  appendField(line, n, TS_PARAMETER_TYPE, type);
  appendField(line, n, TS_PARAMETER_VALUE, value);
  ++n;
}

}  // namespace

void ZVPCustomParams::put(const std::string& name, std::int32_t valueInt) {
  putInto(mapLong_, name, std::optional<std::int64_t>(valueInt));
}

void ZVPCustomParams::put(const std::string& name, std::int64_t valueLong) {
  putInto(mapLong_, name, std::optional<std::int64_t>(valueLong));
}

void ZVPCustomParams::put(const std::string& name, bool valueBool) {
  putInto(mapLong_, name, std::optional<std::int64_t>(valueBool ? 1 : 0));
}

void ZVPCustomParams::put(const std::string& name, double valueDouble) {
  putInto(mapDouble_, name, std::optional<double>(valueDouble));
}

void ZVPCustomParams::put(const std::string& name, std::optional<std::string> valueString) {
  putInto(mapString_, name, valueString);
}

void ZVPCustomParams::put(const std::string& name, const char* valueString) {
  put(name, valueString ? std::optional<std::string>(valueString) : std::nullopt);
}

std::int32_t ZVPCustomParams::getInt(const std::string& name) const {
  return static_cast<std::int32_t>(valueIn(mapLong_, name).value_or(0));
}

std::int64_t ZVPCustomParams::getLong(const std::string& name) const {
  return valueIn(mapLong_, name).value_or(0);
}

double ZVPCustomParams::getDouble(const std::string& name) const {
  return valueIn(mapDouble_, name).value_or(0.0);
}

std::optional<std::string> ZVPCustomParams::getString(const std::string& name) const {
  return valueIn(mapString_, name);
}

bool ZVPCustomParams::getBool(const std::string& name) const {
  return valueIn(mapLong_, name).value_or(0) != 0;
}

std::optional<std::string> ZVPCustomParams::toStr() const {
  if (size() == 0) return std::nullopt;
  std::string line;
  int n = 1;
  for (const auto& [name, value] : mapString_) {
    appendEntry(line, n, name, TS_PARAMETER_TYPE_STRING,
                PercentEncoding::encode(value, PercentEncoding::Set::URLLegal));
  }
  for (const auto& [name, value] : mapLong_) {
    appendEntry(line, n, name, TS_PARAMETER_TYPE_INTEGER, fmt::format("{}", value));
  }
  for (const auto& [name, value] : mapDouble_) {
    appendEntry(line, n, name, TS_PARAMETER_TYPE_DOUBLE, fmt::format("{:g}", value));
  }
  line.pop_back();  // the last '&'
  return line;
}

}  // namespace zivora
