#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zivora::sandbox {

// One request as the sandbox saw it.
struct ReceivedRequest {
  std::string method;
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  // Filled for the ad endpoint: the decoded Params text, whether its md5
  // matched, and the request's name (the JSON document's only key). For the
  // analytics endpoint: the decoded Params, whether the body was well formed
  // and its md5 matched, and the name "analytics".
  std::string params;
  bool md5Valid = false;
  std::string requestName;

  // First value of a header, matched without regard to case; "" if absent.
  std::string header(std::string_view name) const;

  nlohmann::json toJson() const;
};

}  // namespace zivora::sandbox
