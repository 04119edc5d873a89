#include "virtualpads/Signature.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

namespace virtualpads {
namespace {

using testing::DoubleNear;

TEST(SignatureTest, BeginsAndEndsAsRecorded) {
  const std::vector<PenState> samples = signature(0);
  EXPECT_EQ(samples.size(), 618U);
  // E: 000000.000000 11 01 21 fc 0d c7 4a 11 ...
  EXPECT_DOUBLE_EQ(samples.front().x, 0x0DFC / 32767.0);
  EXPECT_DOUBLE_EQ(samples.front().y, 0x4AC7 / 32767.0);
  EXPECT_DOUBLE_EQ(samples.front().pressure, 0x11 / 127.0);
  EXPECT_TRUE(samples.front().touch);
  EXPECT_EQ(samples.front().milliseconds, 0U);
  // E: 000003.830000 11 01 20 5c 62 2e 53 00 ...
  EXPECT_DOUBLE_EQ(samples.back().x, 0x625C / 32767.0);
  EXPECT_DOUBLE_EQ(samples.back().y, 0x532E / 32767.0);
  EXPECT_EQ(samples.back().pressure, 0);
  EXPECT_FALSE(samples.back().touch);
  EXPECT_EQ(samples.back().milliseconds, 3830U);
}

class EachSignatureTest : public testing::TestWithParam<std::uint32_t> {
 protected:
  const std::vector<PenState> samples = signature(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Variations, EachSignatureTest, testing::Range(0U, 101U));

TEST_P(EachSignatureTest, SitsWellOnTheSurface) {
  const auto [left, right] = std::ranges::minmax(samples, {}, &PenState::x);
  const auto [top, bottom] = std::ranges::minmax(samples, {}, &PenState::y);
  EXPECT_GE(left.x, 0.05);
  EXPECT_LE(right.x, 0.95);
  EXPECT_GE(top.y, 0.05);
  EXPECT_LE(bottom.y, 0.95);
  EXPECT_THAT((left.x + right.x) / 2, DoubleNear(0.5, 0.05));
  EXPECT_THAT((top.y + bottom.y) / 2, DoubleNear(0.5, 0.05));
  EXPECT_GT(right.x - left.x, 0.75);
}

TEST_P(EachSignatureTest, TakesAsLongAsAPersonTakes) {
  EXPECT_GE(samples.back().milliseconds, 2000U);
  EXPECT_LE(samples.back().milliseconds, 6000U);
}

TEST_P(EachSignatureTest, HasSixStrokesThatEndWithALiftedPenAtTheSamePlace) {
  int strokes = 0;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    EXPECT_GT(samples[i].milliseconds, samples[i - 1].milliseconds);
    if (samples[i].touch) continue;
    ++strokes;
    EXPECT_TRUE(samples[i - 1].touch);
    EXPECT_EQ(samples[i].x, samples[i - 1].x);
    EXPECT_EQ(samples[i].y, samples[i - 1].y);
    EXPECT_EQ(samples[i].pressure, 0);
  }
  EXPECT_EQ(strokes, 6);
}

// A tenth of an inch on the smallest surface; longer steps would look like corners.
TEST_P(EachSignatureTest, IsSampledDensely) {
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (!samples[i - 1].touch) continue;
    const double right = (samples[i].x - samples[i - 1].x) * 1.62;
    EXPECT_LT(std::hypot(right, samples[i].y - samples[i - 1].y), 0.045);
  }
}

TEST(SignatureTest, DiffersALittleEachTime) {
  const std::vector<PenState> recorded = signature(0);
  std::set<std::pair<double, double>> beginnings;
  std::set<std::uint32_t> durations;
  for (std::uint32_t variation = 1; variation <= 100; ++variation) {
    const std::vector<PenState> samples = signature(variation);
    ASSERT_EQ(samples.size(), recorded.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
      EXPECT_NEAR(samples[i].x, recorded[i].x, 0.06);
      EXPECT_NEAR(samples[i].y, recorded[i].y, 0.06);
      EXPECT_EQ(samples[i].pressure, recorded[i].pressure);
    }
    beginnings.emplace(samples.front().x, samples.front().y);
    durations.insert(samples.back().milliseconds);
  }
  EXPECT_EQ(beginnings.size(), 100U);
  EXPECT_GT(*durations.rbegin() - *durations.begin(), 300U);
}

// The spacing of two letters changes too, not only the size and the place of the whole.
TEST(SignatureTest, HasEachLetterSlightlyDifferent) {
  const std::vector<PenState> recorded = signature(0);
  const std::vector<PenState> again = signature(1);
  const auto shift = [&](std::size_t i) { return again[i].y - recorded[i].y; };
  EXPECT_GT(std::abs(shift(300) - (shift(200) + shift(400)) / 2), 0.002);
}

TEST(SignatureTest, IsTheSameForTheSameNumber) {
  const std::vector<PenState> once = signature(7);
  const std::vector<PenState> again = signature(7);
  ASSERT_EQ(once.size(), again.size());
  for (std::size_t i = 0; i < once.size(); ++i) {
    EXPECT_EQ(once[i].x, again[i].x);
    EXPECT_EQ(once[i].y, again[i].y);
    EXPECT_EQ(once[i].milliseconds, again[i].milliseconds);
  }
}

}  // namespace
}  // namespace virtualpads
