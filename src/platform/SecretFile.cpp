#include "platform/SecretFile.h"

#include <array>

#include "util/Hex.h"

namespace zivora::platform {

namespace {

constexpr std::string_view kHeader = "zivora-secret 1";
constexpr std::array<std::string_view, 5> kFields = {"application", "service", "account", "group",
                                                     "data"};

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<std::string> fromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(hex.size() / 2);
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    int high = digitValue(hex[i]);
    int low = digitValue(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

// Splits off the next newline-terminated line; a line without its newline
// means a truncated file.
std::optional<std::string_view> nextLine(std::string_view& text) {
  auto end = text.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  auto line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

}  // namespace

std::string SecretFile::format() const {
  const std::array<const std::string*, 5> values = {&key.application, &key.service, &key.account,
                                                    &key.accessGroup, &data};
  std::string text(kHeader);
  text += '\n';
  for (std::size_t i = 0; i < kFields.size(); ++i) {
    text += kFields[i];
    text += ' ';
    text += toHex(*values[i]);
    text += '\n';
  }
  return text;
}

std::optional<SecretFile> SecretFile::parse(std::string_view text) noexcept {
  try {
    if (nextLine(text) != kHeader) return std::nullopt;
    SecretFile file;
    const std::array<std::string*, 5> values = {&file.key.application, &file.key.service,
                                                &file.key.account, &file.key.accessGroup,
                                                &file.data};
    for (std::size_t i = 0; i < kFields.size(); ++i) {
      auto line = nextLine(text);
      if (!line || line->size() <= kFields[i].size() || !line->starts_with(kFields[i]) ||
          (*line)[kFields[i].size()] != ' ')
        return std::nullopt;
      auto value = fromHex(line->substr(kFields[i].size() + 1));
      if (!value) return std::nullopt;
      *values[i] = std::move(*value);
    }
    if (!text.empty()) return std::nullopt;
    return file;
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace zivora::platform
