// What vela-capture accepts as a signature, and the format it writes. The formats themselves are
// tested in capture_test.sh.
#include "Signature.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(SignatureTest, IsEmptyUntilThePenTouchesTheSurface) {
  Signature signature;
  EXPECT_TRUE(signature.empty());
  signature.samples.push_back(
      {.x = 5, .y = 5, .pressure = 0, .touch = 0, .timestamp = 0, .sequenceNumber = 0});
  EXPECT_TRUE(signature.empty());
  signature.samples.push_back(
      {.x = 5, .y = 5, .pressure = 1, .touch = 1, .timestamp = 0, .sequenceNumber = 0});
  signature.samples.push_back(
      {.x = 5, .y = 5, .pressure = 0, .touch = 0, .timestamp = 0, .sequenceNumber = 0});
  EXPECT_FALSE(signature.empty());
}

TEST(FormatTest, GoesByTheEndingInEitherCase) {
  EXPECT_NE(writerFor("a.svg"), nullptr);
  EXPECT_EQ(writerFor("a.SVG"), writerFor("b.svg"));
  EXPECT_NE(writerFor("a.svg"), writerFor("a.png"));
  EXPECT_EQ(writerFor("svg"), nullptr);
  EXPECT_EQ(writerFor("a.svg/a"), nullptr);
  EXPECT_EQ(writerFor("a.svgz"), nullptr);
}

TEST(AxisTest, NeedsALengthAndARange) {
  EXPECT_TRUE((Axis{0, 1300, 4.5}.usable()));
  EXPECT_FALSE((Axis{1300, 1300, 4.5}.usable()));
  EXPECT_FALSE((Axis{0, 1300, 0}.usable()));
  EXPECT_FALSE((Axis{0, 1300, std::numeric_limits<double>::infinity()}.usable()));
}

}  // namespace
