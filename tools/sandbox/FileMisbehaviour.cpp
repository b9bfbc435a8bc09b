#include "FileMisbehaviour.h"

#include <array>
#include <utility>

namespace zivora::sandbox {

std::optional<FileMisbehaviour::Kind> FileMisbehaviour::kindNamed(std::string_view name) {
  static constexpr std::array<std::pair<Kind, std::string_view>, 9> kNames{{
      {Kind::NotFound, "not-found"},
      {Kind::RangeNotSatisfiable, "range-not-satisfiable"},
      {Kind::IgnoreRange, "ignore-range"},
      {Kind::BadContentRange, "bad-content-range"},
      {Kind::CutAfter, "cut-after"},
      {Kind::StallAfter, "stall-after"},
      {Kind::DelayAfter, "delay-after"},
      {Kind::Endless, "endless"},
      {Kind::HugeLength, "huge-length"},
  }};
  for (const auto& [kind, text] : kNames) {
    if (text == name) return kind;
  }
  return std::nullopt;
}

}  // namespace zivora::sandbox
