#include "platform/Uuid.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <stdexcept>

#include "util/Crypto.h"

namespace zivora::platform {

namespace {

using Bytes = std::array<std::uint8_t, 16>;

bool readUrandom(Bytes& bytes) {
  std::ifstream source("/dev/urandom", std::ios::binary);
  source.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return source.gcount() == static_cast<std::streamsize>(bytes.size());
}

Bytes randomBytes() {
  Bytes bytes{};
  if (Crypto::randomBytes(bytes)) return bytes;
  if (readUrandom(bytes)) return bytes;
  throw std::runtime_error("no random source for a UUID");
}

}  // namespace

std::string Uuid::uuidString() {
  Bytes b = randomBytes();
  b[6] = static_cast<std::uint8_t>((b[6] & 0x0f) | 0x40);  // version 4
  b[8] = static_cast<std::uint8_t>((b[8] & 0x3f) | 0x80);  // RFC 4122 variant
  return fmt::format(
      "{:02X}{:02X}{:02X}{:02X}-{:02X}{:02X}-{:02X}{:02X}-{:02X}{:02X}-"
      "{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}",
      b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
      b[15]);
}

}  // namespace zivora::platform
