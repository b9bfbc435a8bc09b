#include <gtest/gtest.h>

#include "ui/UIColorUtilities.h"
#include "util/ZVException.h"

namespace zivora::ui {
namespace {

// Components come in alpha, red, green, blue order; every "#" goes,
// wherever it stands, and case does not matter.
TEST(UIColorUtilitiesTest, EveryLengthIsReadInAlphaRedGreenBlueOrder) {
  struct Case {
    const char* hex;
    int red, green, blue, alpha;
  };
  for (const Case& c : {Case{"#fff", 255, 255, 255, 255},
                        {"#8fff", 255, 255, 255, 0x88},
                        {"#ffffff", 255, 255, 255, 255},
                        {"#80ffffff", 255, 255, 255, 0x80},
                        {"ffffff", 255, 255, 255, 255},
                        {"#d0000000", 0, 0, 0, 0xd0},
                        {"#30B236", 0x30, 0xb2, 0x36, 255},
                        {"#1234", 0x22, 0x33, 0x44, 0x11},
                        {"#82#82#82", 0x82, 0x82, 0x82, 255}}) {
    SCOPED_TRACE(c.hex);
    const Color got = UIColorUtilities::colorWithHexString(c.hex);
    EXPECT_DOUBLE_EQ(got.red, c.red / 255.0);
    EXPECT_DOUBLE_EQ(got.green, c.green / 255.0);
    EXPECT_DOUBLE_EQ(got.blue, c.blue / 255.0);
    EXPECT_DOUBLE_EQ(got.alpha, c.alpha / 255.0);
  }
}

TEST(UIColorUtilitiesTest, DigitsAreReadOnlyAsFarAsTheScannerGoes) {
  EXPECT_DOUBLE_EQ(UIColorUtilities::colorComponentFrom("ZZ", 0, 2), 0);
  EXPECT_DOUBLE_EQ(UIColorUtilities::colorComponentFrom("AZ", 0, 2), 0xa / 255.0);
  EXPECT_DOUBLE_EQ(UIColorUtilities::colorComponentFrom("A", 0, 1), 0xaa / 255.0);
}

TEST(UIColorUtilitiesTest, AnyOtherLengthRaisesTheNamedError) {
  for (const char* bad : {"#fffff", "", "#", "#fffffffff", "#ff"}) {
    try {
      UIColorUtilities::colorWithHexString(bad);
      ADD_FAILURE() << bad << " was accepted";
    } catch (const ZVException& e) {
      EXPECT_EQ(e.name(), "Invalid color value");
      EXPECT_EQ(e.reason(), std::string("Color value ") + bad +
                                " is invalid.  It should be a hex value of the form #RBG, "
                                "#ARGB, #RRGGBB, or #AARRGGBB");
    }
  }
}

}  // namespace
}  // namespace zivora::ui
