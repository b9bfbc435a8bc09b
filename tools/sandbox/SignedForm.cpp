#include "SignedForm.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace zivora::sandbox {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string SignedForm::percentDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
        hexValue(text[i + 2]) >= 0) {
      decoded.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      decoded.push_back(text[i]);
    }
  }
  return decoded;
}

std::string SignedForm::md5Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1) {
    throw std::runtime_error("MD5 failed");
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 0x0f]);
  }
  return hex;
}

SignedForm SignedForm::parse(std::string_view body) {
  SignedForm form;
  while (!body.empty()) {
    const std::size_t end = body.find('&');
    std::string_view field = body.substr(0, end);
    body = end == std::string_view::npos ? std::string_view() : body.substr(end + 1);
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos) continue;
    std::string_view name = field.substr(0, equals);
    std::string value = percentDecode(field.substr(equals + 1));
    if (name == "Params") {
      form.hasParams = true;
      form.params = std::move(value);
    } else if (name == "md5") {
      form.md5 = std::move(value);
    }
  }
  form.md5Valid = form.hasParams && form.md5 == md5Hex(form.params);
  return form;
}

}  // namespace zivora::sandbox
