// Any bytes as an item file of the file secret store: parsing never
// crashes, and whatever parses is written back to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/SecretFile.h"

using zivora::platform::SecretFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  auto file = SecretFile::parse(text);
  if (!file) return 0;
  if (file->format() != text) std::abort();
  auto again = SecretFile::parse(file->format());
  if (!again || again->data != file->data || again->key.account != file->key.account) std::abort();
  return 0;
}
