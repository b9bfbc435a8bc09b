#include "ReceivedRequest.h"

#include <strings.h>

namespace zivora::sandbox {

std::string ReceivedRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0) {
      return value;
    }
  }
  return {};
}

nlohmann::json ReceivedRequest::toJson() const {
  nlohmann::json headerObject = nlohmann::json::object();
  for (const auto& [key, value] : headers) headerObject[key] = value;
  nlohmann::json record = {
      {"method", method}, {"path", path},         {"headers", headerObject},   {"body", body},
      {"params", params}, {"md5Valid", md5Valid}, {"requestName", requestName}};
  return record;
}

}  // namespace zivora::sandbox
