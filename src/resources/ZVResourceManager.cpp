#include "resources/ZVResourceManager.h"

#include <cctype>

#include "util/Guard.h"
#include "util/ZVHash.h"

namespace zivora {

namespace {

constexpr std::size_t kMaxExtensionLength = 16;

// The text after the last '.' of the last path component, as a path
// extension is read; empty when there is none.
std::string_view pathExtension(std::string_view url) {
  auto slash = url.find_last_of('/');
  std::string_view component = slash == std::string_view::npos ? url : url.substr(slash + 1);
  auto dot = component.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return component.substr(dot + 1);
}

std::string sanitized(std::string_view extension) {
  extension = extension.substr(0, extension.find('?'));
  std::string kept;
  for (char c : extension) {
    if (kept.size() == kMaxExtensionLength) break;
    if (std::isalnum(static_cast<unsigned char>(c))) kept.push_back(c);
  }
  return kept;
}

}  // namespace

std::string ZVResourceManager::convertURLToFileName(std::string_view url) noexcept {
  return guarded("ZVResourceManager", "convertURLToFileName", std::string(),
                 [&] { return ZVHash::md5Hex(url) + "." + sanitized(pathExtension(url)); });
}

}  // namespace zivora
