#include "Misbehaviour.h"

#include <array>
#include <utility>

namespace zivora::sandbox {
namespace {

using Kind = Misbehaviour::Kind;

constexpr std::array<std::pair<Kind, std::string_view>, 12> kNames{{
    {Kind::HttpError, "http-error"},
    {Kind::ErrorReply, "error-reply"},
    {Kind::Garbage, "garbage"},
    {Kind::EmptyBody, "empty"},
    {Kind::JsonArray, "json-array"},
    {Kind::JsonScalar, "json-scalar"},
    {Kind::CloseMidBody, "close-mid-body"},
    {Kind::Stall, "stall"},
    {Kind::Delay, "delay"},
    {Kind::HtmlPage, "html-page"},
    {Kind::DeepNesting, "deep-nesting"},
    {Kind::HugeReply, "huge-reply"},
}};

}  // namespace

std::optional<Kind> Misbehaviour::kindNamed(std::string_view name) {
  for (const auto& [kind, text] : kNames) {
    if (text == name) return kind;
  }
  return std::nullopt;
}

std::string_view Misbehaviour::nameOf(Kind kind) {
  for (const auto& [candidate, text] : kNames) {
    if (candidate == kind) return text;
  }
  return "unknown";
}

}  // namespace zivora::sandbox
