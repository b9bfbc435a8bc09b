#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// The one rule for the addresses an ad server hands the SDK (click targets,
// redirect locations, videos, images, button images): only http and https
// addresses reach an opener, the tracker probe or the downloader. Anything
// else (file:, javascript:, a custom scheme, a relative path) is refused
// where the ad logic takes the address, with a log line naming the field.
class WebAddress {
 public:
  // "http://" or "https://" (in any case) followed by a host, with no
  // blank or control character anywhere.
  static bool isWeb(std::string_view url);
  // `url` as a log line can show it: at most 200 bytes, and nothing that
  // could forge a line or a terminal escape.
  static std::string printable(std::string_view url);
  // `url` when it is a web address. Otherwise, if there is one, logs its
  // refusal for `field` and gives nothing.
  static std::optional<std::string> accepted(std::optional<std::string> url,
                                             std::string_view field);
};

}  // namespace zivora
