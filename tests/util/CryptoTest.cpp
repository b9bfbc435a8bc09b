#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "util/Crypto.h"

namespace zivora {
namespace {

TEST(Crypto, Base64PadsEveryTailLengthAndKeepsBinaryBytes) {
  EXPECT_EQ(Crypto::base64(""), "");
  EXPECT_EQ(Crypto::base64("f"), "Zg==");
  EXPECT_EQ(Crypto::base64("fo"), "Zm8=");
  EXPECT_EQ(Crypto::base64("foo"), "Zm9v");
  EXPECT_EQ(Crypto::base64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(Crypto::base64(std::string("\0\xff\xfe", 3)), "AP/+");
  // A long receipt stays on one line.
  EXPECT_EQ(Crypto::base64(std::string(300, 'a')).find('\n'), std::string::npos);
}

// The digest of known texts is checked through its hex form with the hashes.
TEST(Crypto, Md5ReadsEmbeddedNulsAndRandomBytesFillTheWholeBuffer) {
  auto embeddedNul = Crypto::md5(std::string_view("a\0b", 3));
  ASSERT_TRUE(embeddedNul);
  EXPECT_NE(*embeddedNul, *Crypto::md5("a"));

  // Two 4 KiB draws that were both left zero at the tail, or came out
  // equal, would mean a short fill.
  std::vector<std::uint8_t> first(4096), second(4096);
  ASSERT_TRUE(Crypto::randomBytes(first));
  ASSERT_TRUE(Crypto::randomBytes(second));
  EXPECT_NE(first, second);
  EXPECT_FALSE(std::all_of(first.end() - 64, first.end(), [](auto b) { return b == 0; }));
  EXPECT_TRUE(Crypto::randomBytes({}));
}

}  // namespace
}  // namespace zivora
