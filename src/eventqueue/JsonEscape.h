#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zivora {

class JsonEscape {
 public:
  // Makes free text safe inside a JSON string literal: backslash, double
  // quote, slash, line feed, backspace, form feed, carriage return and tab,
  // replaced in that order (backslashes first, so inserted ones are not
  // doubled again). Other control characters pass unchanged. nil gives nil.
  static std::optional<std::string> escape(std::optional<std::string_view> text) noexcept;
};

}  // namespace zivora
