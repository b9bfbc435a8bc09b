// Cached file names: MD5 of the whole URL plus a sanitised extension.
#include <gtest/gtest.h>

#include "resources/ZVResourceManager.h"
#include "util/ZVHash.h"

namespace zivora {
namespace {

TEST(ConvertURLToFileName, IsTheMd5OfTheWholeUrlAndItsExtension) {
  const std::string url = "https://cdn.example/ads/v1.mp4?token=a/b";
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://cdn.example/ads/v1.mp4"),
            ZVHash::md5Hex("https://cdn.example/ads/v1.mp4") + ".mp4");
  // The query is hashed with the URL; only the extension loses it. Here the
  // last path component is "b", which has no extension.
  EXPECT_EQ(ZVResourceManager::convertURLToFileName(url), ZVHash::md5Hex(url) + ".");
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://x/y.png?size=2").substr(32), ".png");
  EXPECT_EQ(ZVResourceManager::convertURLToFileName("https://x/noext").substr(32), ".");
}

TEST(ConvertURLToFileName, NeverYieldsPathSeparatorsNulOrLongExtensions) {
  std::string hostile = std::string("https://x/a.m\0p4", 16);
  for (const std::string& url :
       {hostile, std::string("https://x/a.../../etc"), std::string("https://x/a.<script>"),
        std::string("https://x/a.") + std::string(500, 'e')}) {
    std::string name = ZVResourceManager::convertURLToFileName(url);
    EXPECT_EQ(name.find('/'), std::string::npos) << name;
    EXPECT_EQ(name.find('\0'), std::string::npos);
    EXPECT_LE(name.size(), 32u + 1u + 16u);
  }
}

}  // namespace
}  // namespace zivora
