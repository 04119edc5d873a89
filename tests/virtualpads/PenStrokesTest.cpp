#include "virtualpads/PenStrokes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

namespace virtualpads {
namespace {

using testing::DoubleNear;

double step(const std::vector<PenState>& samples, std::size_t i) {
  return std::hypot((samples[i].x - samples[i - 1].x) * 1.62, samples[i].y - samples[i - 1].y);
}

struct Movement {
  const char* name;
  std::vector<PenState> (*samples)();
  int strokes;
};

std::vector<PenState> anotherSignature() {
  return signature(7);
}

class PenStrokes : public testing::TestWithParam<Movement> {
 protected:
  const std::vector<PenState> samples = GetParam().samples();
};

INSTANTIATE_TEST_SUITE_P(All, PenStrokes,
                         testing::Values(Movement{"Signature", signature, 6},
                                         Movement{"AnotherSignature", anotherSignature, 6},
                                         Movement{"DiagonalLine", diagonalLine, 1},
                                         Movement{"EdgeRectangle", edgeRectangle, 1},
                                         Movement{"Spiral", spiral, 1}),
                         [](const auto& movement) { return movement.param.name; });

TEST_P(PenStrokes, StayOnTheSurface) {
  for (const PenState& pen : samples) {
    EXPECT_GE(pen.x, 0);
    EXPECT_LE(pen.x, 1);
    EXPECT_GE(pen.y, 0);
    EXPECT_LE(pen.y, 1);
  }
}

TEST_P(PenStrokes, AreSampledEveryFiveMillisecondsWithinAStroke) {
  EXPECT_EQ(samples.front().milliseconds, 0U);
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (samples[i - 1].touch) {
      EXPECT_EQ(samples[i].milliseconds, samples[i - 1].milliseconds + 5);
    } else {
      EXPECT_GT(samples[i].milliseconds, samples[i - 1].milliseconds + 5);
    }
  }
}

TEST_P(PenStrokes, EndEachStrokeWithALiftedPenAtTheSamePlace) {
  int strokes = 0;
  EXPECT_TRUE(samples.front().touch);
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (!samples[i].touch) {
      ++strokes;
      EXPECT_TRUE(samples[i - 1].touch);
      EXPECT_EQ(samples[i].x, samples[i - 1].x);
      EXPECT_EQ(samples[i].y, samples[i - 1].y);
      EXPECT_EQ(samples[i].pressure, 0);
    }
  }
  EXPECT_FALSE(samples.back().touch);
  EXPECT_EQ(strokes, GetParam().strokes);
}

TEST_P(PenStrokes, PressWhileTheyTouchAndLeastAtTheEndsOfAStroke) {
  const auto end = std::ranges::find(samples, false, &PenState::touch);
  const auto stroke = std::vector<PenState>(samples.begin(), end);
  for (const PenState& pen : stroke) {
    EXPECT_GT(pen.pressure, 0);
    EXPECT_LE(pen.pressure, 1);
  }
  const double middle = stroke[stroke.size() / 2].pressure;
  EXPECT_LT(stroke.front().pressure, 0.5 * middle);
  EXPECT_LT(stroke.back().pressure, 0.5 * middle);
}

TEST_P(PenStrokes, AreTheSameEachTime) {
  const std::vector<PenState> again = GetParam().samples();
  ASSERT_EQ(again.size(), samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(again[i].x, samples[i].x);
    EXPECT_EQ(again[i].y, samples[i].y);
    EXPECT_EQ(again[i].pressure, samples[i].pressure);
    EXPECT_EQ(again[i].touch, samples[i].touch);
    EXPECT_EQ(again[i].milliseconds, samples[i].milliseconds);
  }
}

// The model, and a hundred variations of it.
std::vector<std::vector<PenState>> signatures() {
  std::vector<std::vector<PenState>> all{signature()};
  for (std::uint32_t variation = 0; variation < 100; ++variation) {
    all.push_back(signature(variation));
  }
  return all;
}

TEST(Signature, SitsWellOnTheSurface) {
  for (const auto& samples : signatures()) {
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
}

TEST(Signature, TakesAsLongAsAPersonTakes) {
  for (const auto& samples : signatures()) {
    EXPECT_GE(samples.back().milliseconds, 2000U);
    EXPECT_LE(samples.back().milliseconds, 6000U);
  }
}

// A tenth of an inch on the smallest surface; longer steps would look like corners.
TEST(Signature, IsSampledDensely) {
  for (const auto& samples : signatures()) {
    for (std::size_t i = 1; i < samples.size(); ++i) {
      if (samples[i - 1].touch) {
        EXPECT_LT(step(samples, i), 0.045);
      }
    }
  }
}

// The end of each stroke.
std::vector<std::pair<double, double>> ends(const std::vector<PenState>& samples) {
  std::vector<std::pair<double, double>> places;
  for (const PenState& pen : samples) {
    if (!pen.touch) {
      places.emplace_back(pen.x, pen.y);
    }
  }
  return places;
}

TEST(Signature, DiffersALittleEachTime) {
  const auto model = ends(signature());
  std::set<std::vector<std::pair<double, double>>> written{model};
  std::set<std::uint32_t> durations;
  for (std::uint32_t variation = 0; variation < 100; ++variation) {
    const auto samples = signature(variation);
    const auto places = ends(samples);
    ASSERT_EQ(places.size(), 6U);
    for (std::size_t i = 0; i < places.size(); ++i) {
      EXPECT_NEAR(places[i].first, model[i].first, 0.06);
      EXPECT_NEAR(places[i].second, model[i].second, 0.06);
    }
    written.insert(places);
    durations.insert(samples.back().milliseconds);
  }
  EXPECT_EQ(written.size(), 101U);
  EXPECT_GT(*durations.rbegin() - *durations.begin(), 300U);
}

TEST(DiagonalLine, RunsFromCornerToCorner) {
  const std::vector<PenState> samples = diagonalLine();
  EXPECT_DOUBLE_EQ(samples.front().x, 0.1);
  EXPECT_DOUBLE_EQ(samples.front().y, 0.1);
  EXPECT_DOUBLE_EQ(samples.back().x, 0.9);
  EXPECT_DOUBLE_EQ(samples.back().y, 0.9);
  for (std::size_t i = 1; i < samples.size(); ++i) {
    EXPECT_DOUBLE_EQ(samples[i].x, samples[i].y);
    EXPECT_GE(samples[i].x, samples[i - 1].x);
  }
}

TEST(DiagonalLine, GetsGoingAndComesToRest) {
  const std::vector<PenState> samples = diagonalLine();
  const double middle = step(samples, samples.size() / 2);
  EXPECT_LT(step(samples, 1), 0.5 * middle);
  EXPECT_LT(step(samples, samples.size() - 2), 0.5 * middle);
}

TEST(EdgeRectangle, RunsAlongTheEdgeThroughTheCornersClockwise) {
  std::vector<std::pair<double, double>> corners;
  for (const PenState& pen : edgeRectangle()) {
    const bool atSide = pen.x == 0 || pen.x == 1;
    const bool atTopOrBottom = pen.y == 0 || pen.y == 1;
    EXPECT_TRUE(atSide || atTopOrBottom) << pen.x << ' ' << pen.y;
    const std::pair corner{pen.x, pen.y};
    if (atSide && atTopOrBottom && (corners.empty() || corners.back() != corner)) {
      corners.push_back(corner);
    }
  }
  EXPECT_THAT(corners,
              testing::ElementsAre(testing::Pair(0, 0), testing::Pair(1, 0), testing::Pair(1, 1),
                                   testing::Pair(0, 1), testing::Pair(0, 0)));
}

TEST(EdgeRectangle, PressesHarderDownwardsThanUpwards) {
  double downwards = 0;
  double upwards = 0;
  for (const PenState& pen : edgeRectangle()) {
    if (pen.y > 0.4 && pen.y < 0.6) {
      (pen.x == 1 ? downwards : upwards) = pen.pressure;
    }
  }
  EXPECT_GT(downwards, 0.7);
  EXPECT_LT(upwards, 0.4);
}

TEST(Spiral, WindsOutwardFromTheMiddle) {
  const std::vector<PenState> samples = spiral();
  EXPECT_DOUBLE_EQ(samples.front().x, 0.5);
  EXPECT_DOUBLE_EQ(samples.front().y, 0.5);
  EXPECT_THAT(samples.back().x, DoubleNear(0.5 + 0.4 / 1.62, 1e-9));
  EXPECT_THAT(samples.back().y, DoubleNear(0.5, 1e-9));
  double last = 0;
  for (const PenState& pen : samples) {
    const double radius = std::hypot((pen.x - 0.5) * 1.62, pen.y - 0.5);
    EXPECT_GE(radius, last - 1e-3);
    last = radius;
  }
}

TEST(Spiral, IsDrawnSlowerWhereItIsTighter) {
  const std::vector<PenState> samples = spiral();
  EXPECT_LT(step(samples, samples.size() / 8), 0.8 * step(samples, samples.size() * 3 / 4));
}

}  // namespace
}  // namespace virtualpads
