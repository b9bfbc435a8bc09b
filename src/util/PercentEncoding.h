#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zivora {

// Percent-encoding of UTF-8 text with the character sets the protocol's
// texts use. Every byte outside the set becomes %XX (upper-case hex); a
// space is %20, never '+'.
class PercentEncoding {
 public:
  enum class Set {
    // Letters, digits and "-._~": everything else is encoded.
    Unreserved,
    // What may stand in a URL's query: the unreserved characters and
    // "!$&'()*+,;=:@/?". Keeps '&' and '=' as they are.
    URLQueryAllowed,
    // Every character that is legal somewhere in a URL: the query set and
    // "#[]". Space, '"', '%', '\\' and non-ASCII bytes are encoded.
    URLLegal,
  };

  static std::string encode(std::string_view text, Set set);
  // Decodes every well-formed %XX; anything else, '+' included, stays. Nil
  // when the decoded bytes are not valid UTF-8.
  static std::optional<std::string> decode(std::string_view text);
};

}  // namespace zivora
