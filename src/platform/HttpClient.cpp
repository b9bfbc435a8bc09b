#include "platform/HttpClient.h"

#include <algorithm>
#include <cctype>

namespace zivora::platform {

const std::string* HttpResponse::header(std::string_view name) const {
  auto sameName = [name](const std::pair<std::string, std::string>& field) {
    return std::ranges::equal(field.first, name, [](unsigned char a, unsigned char b) {
      return std::tolower(a) == std::tolower(b);
    });
  };
  auto found = std::ranges::find_if(headers, sameName);
  return found == headers.end() ? nullptr : &found->second;
}

}  // namespace zivora::platform
