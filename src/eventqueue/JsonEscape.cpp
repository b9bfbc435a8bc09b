#include "eventqueue/JsonEscape.h"

#include <array>
#include <utility>

#include "util/Guard.h"

namespace zivora {

namespace {

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kReplacements{{
    {"\\", "\\\\"},
    {"\"", "\\\""},
    {"/", "\\/"},
    {"\n", "\\n"},
    {"\b", "\\b"},
    {"\f", "\\f"},
    {"\r", "\\r"},
    {"\t", "\\t"},
}};

}  // namespace

std::optional<std::string> JsonEscape::escape(std::optional<std::string_view> text) noexcept {
  return guarded("JsonEscape", "escape", std::optional<std::string>(),
                 [&]() -> std::optional<std::string> {
                   if (!text) return std::nullopt;
                   std::string escaped(*text);
                   for (const auto& [from, to] : kReplacements) replaceAll(escaped, from, to);
                   return escaped;
                 });
}

}  // namespace zivora
