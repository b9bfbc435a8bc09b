// Any reply body through the conversion rules: parse, read every value the
// loosely typed way, write it back. Only ZVException may come out of a
// reader (the guard's path); nothing may crash.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

#include "util/JsonConvert.h"
#include "util/ZVException.h"

using namespace zivora;

namespace {

void readEveryWay(const nlohmann::json& value, int depth) {
  if (depth > 64) return;
  JsonConvert::isNumber(value);
  JsonConvert::describe(&value);
  try {
    JsonConvert::boolValue(value);
  } catch (const ZVException&) {
  }
  try {
    JsonConvert::integerValue(value);
  } catch (const ZVException&) {
  }
  try {
    JsonConvert::textValue(value);
  } catch (const ZVException&) {
  }
  if (value.is_structured()) {
    for (const auto& member : value) readEveryWay(member, depth + 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view body(reinterpret_cast<const char*>(data), size);
  auto reply = JsonConvert::parseObject(body);
  if (!reply) return 0;
  if (!reply->is_object()) std::abort();
  readEveryWay(*reply, 0);
  try {
    std::string written = JsonConvert::serialize(*reply);
    // What we write parses back to an object.
    if (!JsonConvert::parseObject(written)) std::abort();
  } catch (const ZVException&) {
  } catch (const nlohmann::json::exception&) {
    // Invalid UTF-8 inside strings cannot be written back.
  }
  return 0;
}
