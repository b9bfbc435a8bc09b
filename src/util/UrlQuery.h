#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// Appending to the query of an absolute URL, with the system's URL parser
// (which also writes the URL back in its normal form). Declared here for the
// helpers and subsystems; the Linux implementation defines it, so that no
// code outside it names the URL library.
class UrlQuery {
 public:
  // `url` with `item` (already percent-encoded "key=value") after the
  // existing query items, joined with '&'. Nil when `url` does not parse as
  // an absolute URL; `url` unchanged when the item cannot be appended.
  static std::optional<std::string> append(std::string_view url, std::string_view item);
};

}  // namespace zivora
