#pragma once

#include <string>
#include <string_view>

namespace zivora::sandbox {

// The body the SDK posts: "Params=<json>&md5=<md5 of the decoded json>".
struct SignedForm {
  bool hasParams = false;
  // The Params value after percent-decoding.
  std::string params;
  std::string md5;
  // md5 is the lowercase hex MD5 of `params`.
  bool md5Valid = false;

  // Splits the body at every '&' and each field at its first '=', as a form
  // decoder on a real server does, so a raw '&' inside the JSON text breaks
  // the signature there as well. Values are percent-decoded with '+' kept as
  // a literal plus: the SDK writes spaces as %20 and means '+' as a plus.
  static SignedForm parse(std::string_view body);

  // "%41" becomes "A"; '+' stays '+'; a '%' not followed by two hex digits
  // is kept as it is.
  static std::string percentDecode(std::string_view text);

  static std::string md5Hex(std::string_view bytes);
};

}  // namespace zivora::sandbox
