#include "platform/StreamingHttpClient.h"

#include <strings.h>

namespace zivora::platform {

std::optional<std::string> DownloadResponse::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0) {
      return value;
    }
  }
  return std::nullopt;
}

}  // namespace zivora::platform
