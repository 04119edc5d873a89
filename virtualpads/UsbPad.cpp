#include "virtualpads/UsbPad.h"

#include "virtualpads/ReportDescriptor.h"
#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr double kWidthInches = 3.685;
constexpr double kHeightInches = 2.23;

// The raw coordinates of the edges of the surface.
constexpr std::uint16_t kLeft = 90;
constexpr std::uint16_t kRight = 1090;
constexpr std::uint16_t kTop = 45;
constexpr std::uint16_t kBottom = 545;
constexpr std::uint8_t kMaxPressure = 127;

// Input report, not numbered, little-endian.
namespace input {
constexpr std::size_t kPenState = 0;
constexpr std::size_t kX = 1;
constexpr std::size_t kY = 3;
constexpr std::size_t kPressure = 5;
constexpr std::size_t kLength = 6;

constexpr std::uint8_t kTouch = 0x20;
constexpr std::uint8_t kLifted = 0x00;
}  // namespace input

}  // namespace

PadModel::Identity UsbPad::identity() const {
  return {0x04DF, 0x12, "Vela USB"};
}

double UsbPad::widthInches() const {
  return kWidthInches;
}

double UsbPad::heightInches() const {
  return kHeightInches;
}

std::span<const std::uint8_t> UsbPad::reportDescriptor() const {
  using enum DeclaredReport::Kind;
  static const Bytes descriptor = virtualpads::reportDescriptor({{Input, 0, input::kLength}});
  return descriptor;
}

Bytes UsbPad::inputReport(const PenState& pen) {
  Bytes report(input::kLength);
  report[input::kPenState] = pen.touch ? input::kTouch : input::kLifted;
  putLe16(report, input::kX, scaled(pen.x, kLeft, kRight));
  putLe16(report, input::kY, scaled(pen.y, kTop, kBottom));
  report[input::kPressure] = pressureByte(pen, kMaxPressure);
  return report;
}

std::optional<Bytes> UsbPad::getFeature(std::uint8_t) {
  return std::nullopt;
}

bool UsbPad::setFeature(std::span<const std::uint8_t>) {
  return false;
}

}  // namespace virtualpads
