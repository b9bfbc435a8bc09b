#include <gtest/gtest.h>

#include "ui/UIColorUtilities.h"
#include "util/ZVException.h"

namespace zivora::ui {
namespace {

void expectColor(const Color& c, double red, double green, double blue, double alpha) {
  EXPECT_DOUBLE_EQ(c.red, red);
  EXPECT_DOUBLE_EQ(c.green, green);
  EXPECT_DOUBLE_EQ(c.blue, blue);
  EXPECT_DOUBLE_EQ(c.alpha, alpha);
}

TEST(UIColorUtilitiesTest, EveryLengthGivesWhiteWithItsAlpha) {
  expectColor(UIColorUtilities::colorWithHexString("#fff"), 1, 1, 1, 1);
  expectColor(UIColorUtilities::colorWithHexString("#8fff"), 1, 1, 1, 0x88 / 255.0);
  expectColor(UIColorUtilities::colorWithHexString("#ffffff"), 1, 1, 1, 1);
  expectColor(UIColorUtilities::colorWithHexString("#80ffffff"), 1, 1, 1, 0x80 / 255.0);
  expectColor(UIColorUtilities::colorWithHexString("ffffff"), 1, 1, 1, 1);
}

TEST(UIColorUtilitiesTest, ComponentsComeInAlphaRedGreenBlueOrder) {
  expectColor(UIColorUtilities::colorWithHexString("#d0000000"), 0, 0, 0, 0xd0 / 255.0);
  expectColor(UIColorUtilities::colorWithHexString("#30B236"), 0x30 / 255.0, 0xb2 / 255.0,
              0x36 / 255.0, 1);
  expectColor(UIColorUtilities::colorWithHexString("#1234"), 0x22 / 255.0, 0x33 / 255.0,
              0x44 / 255.0, 0x11 / 255.0);
  // Every "#" goes, wherever it stands, and case does not matter.
  expectColor(UIColorUtilities::colorWithHexString("#82#82#82"), 0x82 / 255.0, 0x82 / 255.0,
              0x82 / 255.0, 1);
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
