#pragma once

#include <string>
#include <string_view>

namespace zivora {

// `bytes` as lowercase hexadecimal, two digits per byte: how digests and
// stored secrets are written as text.
std::string toHex(std::string_view bytes);

}  // namespace zivora
