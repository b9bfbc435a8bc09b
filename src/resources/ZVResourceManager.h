#pragma once

#include <string>
#include <string_view>

namespace zivora {

// Names and stores resource files in the cache directory.
class ZVResourceManager {
 public:
  // The cached file name of a resource URL: the lower-case hex MD5 of the
  // whole URL, a dot, and the URL's path extension with any query cut off.
  // The extension is reduced to at most 16 letters and digits, so a name
  // never holds '/', NUL or anything a shell or file system treats specially.
  static std::string convertURLToFileName(std::string_view url) noexcept;
};

}  // namespace zivora
