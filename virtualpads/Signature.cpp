#include "virtualpads/Signature.h"

#include <cmath>
#include <numbers>
#include <random>
#include <string_view>

#include "virtualpads/IiPad.h"
#include "virtualpads/Recording.h"

namespace virtualpads {

namespace {

constexpr std::string_view kRecording =
#include "signature.hid.inc"
    ;

std::vector<PenState> recordedSignature() {
  std::vector<PenState> samples;
  for (const auto& event : parseRecording(kRecording).events)
    samples.push_back(IiPad::penOf(event.report));
  return samples;
}

}  // namespace

std::vector<PenState> signature(std::uint32_t variation) {
  std::vector<PenState> samples = recordedSignature();
  if (variation == 0) return samples;

  // A random number between -most and most. The distributions of the standard library differ
  // between systems.
  std::mt19937 random(variation);
  const auto around = [&random](double most) {
    const auto number = static_cast<double>(random());
    return most * (2 * number / static_cast<double>(std::mt19937::max()) - 1);
  };
  constexpr double kAspect = 1.62;  // distances are in heights of the surface
  const double size = 1 + around(0.03);
  const double slant = around(0.05);
  const double rise = around(0.02);
  const double pace = 1 + around(0.1);
  const double phaseX = around(std::numbers::pi);
  const double phaseY = around(std::numbers::pi);
  for (PenState& pen : samples) {
    const double right = (pen.x - 0.5) * kAspect;
    const double down = pen.y - 0.5;
    // The waves bend the surface, and with it each letter in its own way.
    pen.x = 0.5 + (right * size - down * slant + 0.008 * std::sin(14 * down + phaseX)) / kAspect;
    pen.y = 0.5 + down * size - right * rise + 0.01 * std::sin(11 * right + phaseY);
    pen.milliseconds = static_cast<std::uint32_t>(std::lround(pen.milliseconds / pace));
  }
  return samples;
}

}  // namespace virtualpads
