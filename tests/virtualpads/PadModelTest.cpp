#include "virtualpads/PadModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

namespace virtualpads {
namespace {

struct Described {
  PadKind kind;
  std::uint16_t product;
  const char* name;
  double widthInches;
  double heightInches;
  Bytes reports;  // as the report descriptor declares them
};

void PrintTo(const Described& pad, std::ostream* out) {
  *out << pad.name;
}

class PadDescriptionTest : public testing::TestWithParam<Described> {};

TEST_P(PadDescriptionTest, IsThatOfTheDataSheet) {
  const auto pad = makePad(GetParam().kind);
  EXPECT_EQ(pad->description().vendor, 1247);
  EXPECT_EQ(pad->description().product, GetParam().product);
  EXPECT_EQ(pad->description().name, GetParam().name);
  EXPECT_EQ(pad->description().widthInches, GetParam().widthInches);
  EXPECT_EQ(pad->description().heightInches, GetParam().heightInches);
  // A collection for a vendor's application, of bytes from 0 to 255.
  Bytes descriptor{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01,
                   0x15, 0x00, 0x26, 0xFF, 0x00, 0x75, 0x08};
  descriptor.insert(descriptor.end(), GetParam().reports.begin(), GetParam().reports.end());
  descriptor.push_back(0xC0);
  EXPECT_THAT(pad->reportDescriptor(), testing::ElementsAreArray(descriptor));
}

// Of each report: its id (0x85) if it is numbered, a usage (0x09), the number of its bytes behind
// the id (0x96), and whether it is an input (0x81) or a feature report (0xB1).
INSTANTIATE_TEST_SUITE_P(
    Pads, PadDescriptionTest,
    testing::Values(Described{PadKind::Usb,
                              18,
                              "Vela USB",
                              3.685,
                              2.23,  //
                              {0x09, 0x02, 0x96, 6, 0, 0x81, 0x02}},
                    Described{PadKind::Ii, 31, "Vela II", 3.685, 2.23, {0x85, 1,  0x09, 0x02, 0x96,
                                                                        10,   0,  0x81, 0x02,  //
                                                                        0x85, 2,  0x09, 0x03, 0x96,
                                                                        16,   0,  0xB1, 0x02,  //
                                                                        0x85, 10, 0x09, 0x04, 0x96,
                                                                        54,   0,  0xB1, 0x02}},
                    Described{PadKind::Ink,
                              48,
                              "Vela Ink",
                              3.11,
                              2.28,
                              {0x85, 1, 0x09, 0x02, 0x96, 7,    0,    0x81, 0x02,  //
                               0x85, 3, 0x09, 0x03, 0x96, 16,   0,    0xB1, 0x02,  //
                               0x85, 6, 0x09, 0x04, 0x96, 8,    0,    0xB1, 0x02,  //
                               0x85, 7, 0x09, 0x05, 0x96, 0x67, 0x09, 0xB1, 0x02,  // 2407
                               0x85, 9, 0x09, 0x06, 0x96, 2,    0,    0xB1, 0x02}},
                    Described{PadKind::Vision,
                              56,
                              "Vela Vision",
                              4.5,
                              2.8,
                              {0x85, 1,  0x09, 0x02, 0x96, 16, 0, 0x81, 0x02,  //
                               0x85, 2,  0x09, 0x03, 0x96, 33, 0, 0xB1, 0x02,  //
                               0x85, 3,  0x09, 0x04, 0x96, 16, 0, 0xB1, 0x02,  //
                               0x85, 4,  0x09, 0x05, 0x96, 16, 0, 0xB1, 0x02,  //
                               0x85, 12, 0x09, 0x06, 0x96, 64, 0, 0xB1, 0x02,  //
                               0x85, 17, 0x09, 0x07, 0x96, 33, 0, 0xB1, 0x02,  //
                               0x85, 18, 0x09, 0x08, 0x96, 16, 0, 0xB1, 0x02,  //
                               0x85, 26, 0x09, 0x09, 0x96, 16, 0, 0xB1, 0x02}}));

TEST(MakePadTest, MakesANewPadEachTime) {
  const auto one = makePad(PadKind::Vision);
  const auto other = makePad(PadKind::Vision);
  Bytes setMode(17);
  setMode[0] = 4;
  setMode[1] = 1;
  ASSERT_TRUE(one->setFeature(setMode));
  EXPECT_EQ((*one->getFeature(4))[1], 1);
  EXPECT_EQ((*other->getFeature(4))[1], 0);
}

TEST(MakePadTest, ThrowsForAKindThatIsNone) {
  EXPECT_THROW(makePad(static_cast<PadKind>(-1)), std::invalid_argument);
}

}  // namespace
}  // namespace virtualpads
