#include <gtest/gtest.h>

#include <fstream>

#include "CacheAudit.h"
#include "support/TempDir.h"
#include "util/ZVHash.h"

namespace zivora::soak {
namespace {

const std::string kVideoUrl = "https://127.0.0.1:4443/files/ad-3s.mp4";
const std::string kImageUrl = "https://127.0.0.1:4443/files/close.png";

class CacheAuditTest : public ::testing::Test {
 protected:
  void cache(const std::string& url, const std::string& bytes) {
    std::ofstream(cache_.path() / (ZVHash::md5Hex(url) + ".mp4"), std::ios::binary) << bytes;
  }

  const std::string video_ = std::string(5000, 'v') + "end";
  CacheAudit audit_{{{kVideoUrl, video_}, {kImageUrl, "png"}}};
  test::TempDir cache_;
};

TEST_F(CacheAuditTest, WholeFilesAndTruePrefixesPass) {
  cache(kVideoUrl, video_);
  cache(kImageUrl, "pn");
  cache("https://elsewhere/x.mp4", "whatever");
  const auto result = audit_.audit(cache_.path());
  EXPECT_EQ(result.identical, 1u);
  EXPECT_EQ(result.partial, 1u);
  EXPECT_EQ(result.unknown, 1u);
  EXPECT_EQ(result.corrupt, 0u);
}

TEST_F(CacheAuditTest, OtherBytesOrExtraBytesAreCorrupt) {
  std::string flipped = video_;
  flipped[4000] = 'x';
  cache(kVideoUrl, flipped);                       // full size, other bytes
  cache(kImageUrl, "png" + std::string("\0", 1));  // longer than served
  const auto result = audit_.audit(cache_.path());
  EXPECT_EQ(result.corrupt, 2u);
  ASSERT_EQ(result.corruptNames.size(), 2u);

  std::string badPrefix = video_.substr(0, 10);
  badPrefix[0] = 'w';
  cache(kVideoUrl, badPrefix);  // a partial file whose bytes differ
  EXPECT_EQ(audit_.audit(cache_.path()).corrupt, 2u);
}

}  // namespace
}  // namespace zivora::soak
