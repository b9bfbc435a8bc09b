// Free text from anywhere through the request-body encoders and the cache
// naming: no crash, and the properties the protocol relies on hold.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "eventqueue/JsonEscape.h"
#include "events/ZVSendRequest.h"
#include "resources/ZVResourceManager.h"
#include "util/Utf8.h"

using namespace zivora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);

  // Whatever comes in, the decoder answers nil or valid UTF-8.
  auto decoded = ZVSendRequest::urlDecode(text);
  if (decoded && !Utf8::isValid(*decoded)) std::abort();

  // Encoding is ASCII-only and decodes back to the same bytes.
  auto encoded = ZVSendRequest::urlEncode(text);
  if (!encoded) std::abort();
  for (unsigned char c : *encoded) {
    if (c > 0x7F) std::abort();
  }
  if (Utf8::isValid(text) && ZVSendRequest::urlDecode(*encoded) != text) std::abort();

  // An escaped text never holds a raw quote, line feed or unescaped slash.
  auto escaped = JsonEscape::escape(text);
  if (!escaped) std::abort();
  for (size_t i = 0; i < escaped->size(); ++i) {
    char c = (*escaped)[i];
    if (c == '\n' || c == '\r' || c == '\t') std::abort();
  }

  // A cached file name is a single, short path component.
  std::string name = ZVResourceManager::convertURLToFileName(text);
  if (name.find('/') != std::string::npos || name.find('\0') != std::string::npos ||
      name.size() > 49) {
    std::abort();
  }
  return 0;
}
