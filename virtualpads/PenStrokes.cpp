#include "virtualpads/PenStrokes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <numbers>
#include <optional>
#include <random>
#include <utility>

namespace virtualpads {

namespace {

struct Point {
  double x;
  double y;
};

using Path = std::vector<Point>;

// Distances are measured in heights of the surface, so that a circle is round.
constexpr double kAspect = 1.62;

double distance(Point a, Point b) {
  return std::hypot((b.x - a.x) * kAspect, b.y - a.y);
}

Point mixed(Point a, Point b, double part) {
  return {std::lerp(a.x, b.x, part), std::lerp(a.y, b.y, part)};
}

// A smooth curve through the points, as a fine polyline: a centripetal Catmull-Rom spline, which
// adds no loops at sharp turns.
Path smooth(const Path& points) {
  constexpr int kSteps = 24;
  Path curve;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const Point p1 = points[i];
    const Point p2 = points[i + 1];
    const Point p0 = i > 0 ? points[i - 1] : mixed(p1, p2, -1);
    const Point p3 = i + 2 < points.size() ? points[i + 2] : mixed(p1, p2, 2);
    const double t1 = std::sqrt(distance(p0, p1));
    const double t2 = t1 + std::sqrt(distance(p1, p2));
    const double t3 = t2 + std::sqrt(distance(p2, p3));
    for (int step = 0; step < kSteps; ++step) {
      const double t = std::lerp(t1, t2, static_cast<double>(step) / kSteps);
      const Point a1 = mixed(p0, p1, t / t1);
      const Point a2 = mixed(p1, p2, (t - t1) / (t2 - t1));
      const Point a3 = mixed(p2, p3, (t - t2) / (t3 - t2));
      const Point b1 = mixed(a1, a2, t / t2);
      const Point b2 = mixed(a2, a3, (t - t1) / (t3 - t1));
      curve.push_back(mixed(b1, b2, (t - t1) / (t2 - t1)));
    }
  }
  curve.push_back(points.back());
  return curve;
}

Path straight(Point from, Point to) {
  constexpr int kSteps = 100;
  Path line;
  for (int step = 0; step <= kSteps; ++step) {
    line.push_back(mixed(from, to, static_cast<double>(step) / kSteps));
  }
  return line;
}

double turnAt(const Path& path, std::size_t i) {
  const Point a = path[i - 1];
  const Point b = path[i];
  const Point c = path[i + 1];
  const double before = std::atan2(b.y - a.y, (b.x - a.x) * kAspect);
  const double after = std::atan2(c.y - b.y, (c.x - b.x) * kAspect);
  return std::abs(std::remainder(after - before, 2 * std::numbers::pi));
}

// Radians of turn per surface height at each point, smoothed over its neighbours.
std::vector<double> curvature(const Path& path) {
  constexpr std::size_t kReach = 6;
  std::vector<double> turns(path.size());
  for (std::size_t i = 1; i + 1 < path.size(); ++i) {
    turns[i] = turnAt(path, i);
  }
  std::vector<double> result(path.size());
  for (std::size_t i = 0; i < path.size(); ++i) {
    const std::size_t from = i > kReach ? i - kReach : 0;
    const std::size_t to = std::min(i + kReach, path.size() - 1);
    double turn = 0;
    double length = 0;
    for (std::size_t j = from; j < to; ++j) {
      turn += turns[j + 1];
      length += distance(path[j], path[j + 1]);
    }
    result[i] = turn / length;
  }
  return result;
}

// Collects the samples of a pen that moves like a hand: slower in curves and at the ends of a path,
// with more pressure downwards and in the middle of a stroke.
class Hand {
 public:
  // `pace` multiplies the pace of the usual hand.
  explicit Hand(double pace = 1) : m_pace(pace) {}

  // Moves along the whole path with the pen touching.
  void draw(const Path& path) {
    const std::vector<double> seconds = timesAlong(path);
    const double duration = seconds.back() / m_pace;
    const auto count = static_cast<int>(std::ceil(duration * 1000 / kMillisecondsPerSample));
    std::size_t at = 0;
    for (int sample = 0; sample < count; ++sample) {
      const double time = seconds.back() * sample / count;
      while (seconds[at + 1] <= time) {
        ++at;
      }
      const double part = (time - seconds[at]) / (seconds[at + 1] - seconds[at]);
      touch(mixed(path[at], path[at + 1], part));
    }
    touch(path.back());
  }

  // Ends the stroke; the next one begins `pause` milliseconds later.
  void lift(std::uint32_t pause) {
    press();
    PenState up = m_samples.back();
    up.touch = false;
    up.pressure = 0;
    up.milliseconds = m_clock;
    m_samples.push_back(up);
    m_clock += pause;
    m_strokeBegin = m_samples.size();
  }

  std::vector<PenState> samples() && { return std::move(m_samples); }

 private:
  // The speed of a hand grows with the cube root of the radius.
  static std::vector<double> timesAlong(const Path& path) {
    constexpr double kTopSpeed = 5.0;  // surface heights per second
    constexpr double kStartSpeed = 1.0;
    constexpr double kRamp = 0.12;  // surface heights to get up to speed
    const std::vector<double> bend = curvature(path);
    std::vector<double> way(path.size());
    for (std::size_t i = 1; i < path.size(); ++i) {
      way[i] = way[i - 1] + distance(path[i - 1], path[i]);
    }
    std::vector<double> seconds(path.size());
    for (std::size_t i = 1; i < path.size(); ++i) {
      const double fromEnd = std::min(way[i], way.back() - way[i]);
      const double ramp = std::min(1.0, kStartSpeed / kTopSpeed + fromEnd / kRamp);
      const double speed = kTopSpeed * ramp / std::cbrt(1 + bend[i]);
      seconds[i] = seconds[i - 1] + (way[i] - way[i - 1]) / speed;
    }
    return seconds;
  }

  void touch(Point point) {
    m_samples.push_back({.x = point.x, .y = point.y, .touch = true, .milliseconds = m_clock});
    m_clock += kMillisecondsPerSample;
  }

  // Sets the pressure of the stroke's samples.
  void press() {
    constexpr double kMiddle = 0.55;
    constexpr double kDownward = 0.25;
    constexpr double kInertia = 0.85;
    constexpr double kRise = 10;  // samples
    constexpr double kFall = 16;
    const std::size_t end = m_samples.size();
    double force = kMiddle;
    for (std::size_t i = m_strokeBegin; i < end; ++i) {
      const PenState& before = m_samples[i > m_strokeBegin ? i - 1 : i];
      const double step =
          std::hypot((m_samples[i].x - before.x) * kAspect, m_samples[i].y - before.y);
      const double downward = step > 0 ? (m_samples[i].y - before.y) / step : 0;
      force = std::lerp(kMiddle + kDownward * downward, force, kInertia);
      const double landing = 0.25 + static_cast<double>(i - m_strokeBegin) / kRise;
      const double leaving = 0.15 + static_cast<double>(end - 1 - i) / kFall;
      m_samples[i].pressure = force * std::min({landing, leaving, 1.0});
    }
  }

  const double m_pace;
  std::vector<PenState> m_samples;
  std::size_t m_strokeBegin = 0;
  std::uint32_t m_clock = 0;
};

// The signature is written in x-heights of its small letters: x to the right, y up from the
// baseline.
using Letter = std::vector<Point>;

const Letter kCapitalA = {{-0.55, 0.35}, {-0.35, 0.02}, {0.25, 0.75}, {0.95, 2.1}, {1.2, 2.75},
                          {1.22, 2.6},   {1.12, 1.5},   {1.1, 0.5},   {1.3, 0.0},  {1.65, 0.35}};
const Letter kBarOfA = {{0.1, 0.95}, {0.6, 1.12}, {1.75, 1.2}};

const Letter kCapitalM = {{-0.5, 1.9}, {-0.25, 2.2}, {0.0, 1.9},  {0.0, 1.0},  {-0.12, 0.0},
                          {0.1, 1.0},  {0.55, 2.3},  {0.78, 2.5}, {0.82, 1.7}, {0.8, 0.25},
                          {1.0, 1.0},  {1.5, 2.2},   {1.75, 2.3}, {1.78, 1.5}, {1.75, 0.5},
                          {1.95, 0.0}, {2.3, 0.3}};
const Letter kI = {{0.3, 0.95}, {0.27, 0.4}, {0.42, 0.02}, {0.75, 0.3}};
const Letter kL = {{0.4, 1.2},  {0.62, 2.2}, {0.48, 2.55}, {0.27, 2.0},
                   {0.17, 0.9}, {0.3, 0.05}, {0.7, 0.3}};
const Letter kE = {{0.42, 0.62}, {0.42, 1.02}, {0.14, 0.8}, {0.1, 0.3}, {0.36, 0.0}, {0.8, 0.3}};
const Letter kT = {{0.28, 1.0}, {0.45, 1.85}, {0.36, 1.1}, {0.3, 0.4}, {0.45, 0.02}, {0.8, 0.35}};

const Letter kTheDot = {{0.6, 1.66}, {0.66, 1.74}, {0.74, 1.78}};
const Letter kBarOfTs = {{-0.35, 1.42}, {0.4, 1.5}, {1.6, 1.62}, {2.3, 1.85}};
const Letter kTail = {{0.45, 0.42}, {1.2, 0.98}};
const Letter kFlourish = {{9.9, -0.42},  {7.0, -0.52}, {3.6, -0.88}, {1.5, -1.42}, {0.75, -1.5},
                          {0.85, -1.12}, {2.2, -1.02}, {4.6, -1.22}, {7.2, -1.18}, {9.0, -0.82}};

// A letter at its place in the writing.
struct Placed {
  const Letter& letter;
  double x;
  double size;
};

// How one signature differs from the model: by random numbers, or not at all.
class Mood {
 public:
  Mood() = default;
  explicit Mood(std::uint32_t variation) : m_random(std::in_place, variation) {
    constexpr double kSize = 0.03;
    constexpr double kSlant = 0.05;
    constexpr double kRise = 0.02;
    constexpr double kPace = 0.1;
    m_size = 1 + around(kSize);
    m_slant = around(kSlant);
    m_rise = around(kRise);
    m_pace = 1 + around(kPace);
  }

  double pace() const { return m_pace; }

  // Milliseconds between two strokes.
  std::uint32_t pause(double usual) {
    constexpr double kHesitation = 0.2;
    return static_cast<std::uint32_t>(usual * (1 + around(kHesitation)));
  }

  Path written(std::initializer_list<Placed> letters) {
    constexpr double kUnsteadiness = 0.05;  // x-heights
    Path points;
    for (const auto& [letter, x, size] : letters) {
      for (const Point p : letter) {
        const double right = x + p.x * size + around(kUnsteadiness);
        const double up = p.y * size + around(kUnsteadiness);
        points.push_back(onSurface({right, up}));
      }
    }
    return smooth(points);
  }

 private:
  // A random number between -most and most. The distributions of the standard library differ
  // between systems.
  double around(double most) {
    if (!m_random) return 0;
    const auto number = static_cast<double>((*m_random)());
    return most * (2 * number / static_cast<double>(std::mt19937::max()) - 1);
  }

  // A point of the writing on the surface: slanted, rising slightly, well centred.
  Point onSurface(Point p) const {
    constexpr double kXHeight = 0.12;  // surface heights
    constexpr double kSlant = 0.3;
    constexpr double kRise = 0.07;
    const double across = (p.x + (kSlant + m_slant) * p.y) * kXHeight * m_size;
    const double up = p.y * kXHeight * m_size + across * (kRise + m_rise);
    return {0.12 + across / kAspect, 0.625 - up};
  }

  std::optional<std::mt19937> m_random;
  double m_size = 1;
  double m_slant = 0;
  double m_rise = 0;
  double m_pace = 1;
};

std::vector<PenState> signedIn(Mood mood) {
  Hand hand(mood.pace());
  hand.draw(mood.written({{kCapitalA, 0.3, 1.0}}));
  hand.lift(mood.pause(120));
  hand.draw(mood.written({{kBarOfA, 0.3, 1.0}}));
  hand.lift(mood.pause(180));
  hand.draw(mood.written({{kCapitalM, 3.0, 1.0},
                          {kI, 5.3, 0.95},
                          {kL, 5.95, 1.0},
                          {kE, 6.6, 0.95},
                          {kT, 7.3, 0.95},
                          {kT, 7.95, 0.9},
                          {kE, 8.65, 0.85},
                          {kTail, 9.35, 1.0}}));
  hand.lift(mood.pause(140));
  hand.draw(mood.written({{kTheDot, 5.3, 1.0}}));
  hand.lift(mood.pause(130));
  hand.draw(mood.written({{kBarOfTs, 7.3, 1.0}}));
  hand.lift(mood.pause(200));
  hand.draw(mood.written({{kFlourish, 0.0, 1.0}}));
  hand.lift(0);
  return std::move(hand).samples();
}

}  // namespace

std::vector<PenState> signature() {
  return signedIn(Mood());
}

std::vector<PenState> signature(std::uint32_t variation) {
  return signedIn(Mood(variation));
}

std::vector<PenState> diagonalLine() {
  Hand hand;
  hand.draw(straight({0.1, 0.1}, {0.9, 0.9}));
  hand.lift(0);
  return std::move(hand).samples();
}

std::vector<PenState> edgeRectangle() {
  Hand hand;
  hand.draw(straight({0, 0}, {1, 0}));
  hand.draw(straight({1, 0}, {1, 1}));
  hand.draw(straight({1, 1}, {0, 1}));
  hand.draw(straight({0, 1}, {0, 0}));
  hand.lift(0);
  return std::move(hand).samples();
}

std::vector<PenState> spiral() {
  constexpr int kTurns = 3;
  constexpr int kPointsPerTurn = 72;
  constexpr double kOuterRadius = 0.4;  // surface heights
  Path path;
  for (int i = 0; i <= kTurns * kPointsPerTurn; ++i) {
    const double angle = 2 * std::numbers::pi * i / kPointsPerTurn;
    const double radius = kOuterRadius * i / (kTurns * kPointsPerTurn);
    path.push_back({0.5 + radius * std::cos(angle) / kAspect, 0.5 + radius * std::sin(angle)});
  }
  Hand hand;
  hand.draw(path);
  hand.lift(0);
  return std::move(hand).samples();
}

}  // namespace virtualpads
