#include "virtualpads/window/PenSampler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualpads {
namespace {

using testing::AllOf;
using testing::DoubleEq;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

auto isPen(double x, double y, double pressure, bool touch, std::uint32_t milliseconds) {
  return AllOf(Field("x", &PenState::x, DoubleEq(x)), Field("y", &PenState::y, DoubleEq(y)),
               Field("pressure", &PenState::pressure, DoubleEq(pressure)),
               Field("touch", &PenState::touch, touch),
               Field("milliseconds", &PenState::milliseconds, milliseconds));
}

TEST(PenSamplerTest, SendsThePressAtOnce) {
  PenSampler sampler;
  EXPECT_FALSE(sampler.down());
  EXPECT_THAT(sampler.press({0.25, 0.5, 0.75}, 1000),
              ElementsAre(isPen(0.25, 0.5, 0.75, true, 1000)));
  EXPECT_TRUE(sampler.down());
}

TEST(PenSamplerTest, SamplesAPenThatRestsEveryFiveMilliseconds) {
  PenSampler sampler;
  sampler.press({0.25, 0.5, 0.75}, 1000);
  EXPECT_THAT(sampler.sample(1004), IsEmpty());
  EXPECT_THAT(sampler.sample(1005), ElementsAre(isPen(0.25, 0.5, 0.75, true, 1005)));
  EXPECT_THAT(sampler.sample(1009), IsEmpty());
}

TEST(PenSamplerTest, IsNotLateAfterALateCall) {
  PenSampler sampler;
  sampler.press({0.25, 0.5, 0.75}, 1000);
  EXPECT_THAT(sampler.sample(1008), ElementsAre(isPen(0.25, 0.5, 0.75, true, 1005)));
  EXPECT_THAT(sampler.sample(1010), ElementsAre(isPen(0.25, 0.5, 0.75, true, 1010)));
}

TEST(PenSamplerTest, SpreadsAMoveEvenlyOverTheSamplesThatAreDue) {
  PenSampler sampler;
  sampler.press({0.0, 1.0, 0.5}, 0);
  sampler.move({0.5, 0.5, 1.0});
  sampler.move({1.0, 0.0, 0.25});
  EXPECT_THAT(sampler.sample(20),
              ElementsAre(isPen(0.25, 0.75, 0.4375, true, 5), isPen(0.5, 0.5, 0.375, true, 10),
                          isPen(0.75, 0.25, 0.3125, true, 15), isPen(1.0, 0.0, 0.25, true, 20)));
  EXPECT_THAT(sampler.sample(25), ElementsAre(isPen(1.0, 0.0, 0.25, true, 25)));
}

TEST(PenSamplerTest, LosesTheOlderSamplesOfALongPause) {
  PenSampler sampler;
  sampler.press({0.0, 0.0, 0.5}, 0);
  sampler.move({1.0, 0.0, 0.5});
  const auto samples = sampler.sample(1004);
  ASSERT_EQ(samples.size(), 20U);
  EXPECT_THAT(samples.front(), isPen(0.05, 0.0, 0.5, true, 905));
  EXPECT_THAT(samples.back(), isPen(1.0, 0.0, 0.5, true, 1000));
  EXPECT_THAT(sampler.sample(1005), ElementsAre(isPen(1.0, 0.0, 0.5, true, 1005)));
}

TEST(PenSamplerTest, EndsTheStrokeWhereThePointerWas) {
  PenSampler sampler;
  sampler.press({0.0, 0.0, 0.5}, 0);
  sampler.move({0.5, 0.0, 0.5});
  EXPECT_THAT(sampler.sample(5), ElementsAre(isPen(0.5, 0.0, 0.5, true, 5)));
  sampler.move({0.5, 0.25, 0.75});
  EXPECT_THAT(sampler.lift(8),
              ElementsAre(isPen(0.5, 0.25, 0.75, true, 8), isPen(0.5, 0.25, 0.0, false, 8)));
  EXPECT_FALSE(sampler.down());
}

TEST(PenSamplerTest, SendsWhatIsDueBeforeTheLift) {
  PenSampler sampler;
  sampler.press({0.0, 0.0, 0.5}, 0);
  sampler.move({1.0, 0.0, 0.5});
  EXPECT_THAT(sampler.lift(11),
              ElementsAre(isPen(0.5, 0.0, 0.5, true, 5), isPen(1.0, 0.0, 0.5, true, 10),
                          isPen(1.0, 0.0, 0.0, false, 11)));
}

TEST(PenSamplerTest, SendsNothingOfALiftedPen) {
  PenSampler sampler;
  EXPECT_THAT(sampler.sample(100), IsEmpty());
  EXPECT_THAT(sampler.lift(100), IsEmpty());
  sampler.press({0.0, 0.0, 0.5}, 100);
  sampler.lift(100);
  EXPECT_THAT(sampler.sample(200), IsEmpty());
  EXPECT_THAT(sampler.lift(200), IsEmpty());
}

TEST(PenSamplerTest, BeginsEachStrokeAnew) {
  PenSampler sampler;
  sampler.press({0.0, 0.0, 0.5}, 0);
  sampler.lift(3);
  EXPECT_THAT(sampler.press({1.0, 1.0, 1.0}, 1001), ElementsAre(isPen(1.0, 1.0, 1.0, true, 1001)));
  EXPECT_THAT(sampler.sample(1005), IsEmpty());
  EXPECT_THAT(sampler.sample(1006), ElementsAre(isPen(1.0, 1.0, 1.0, true, 1006)));
}

}  // namespace
}  // namespace virtualpads
