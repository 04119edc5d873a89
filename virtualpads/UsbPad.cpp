#include "virtualpads/UsbPad.h"

#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

// The raw coordinates of the edges of the surface.
constexpr std::uint16_t kLeft = 90;
constexpr std::uint16_t kRight = 1090;
constexpr std::uint16_t kTop = 45;
constexpr std::uint16_t kBottom = 545;
constexpr std::uint8_t kMaxPressure = 127;

// The state and position of the pen, and nothing else.
constexpr PadReport kInput{PadReport::Way::Input, 0, 6, "Pen"};
constexpr std::uint8_t kTouch = 0x20;
constexpr std::uint8_t kLifted = 0x00;

}  // namespace

UsbPad::UsbPad()
    : PadModel({.product = 0x12,
                .name = "Vela USB",
                .widthInches = 3.685,
                .heightInches = 2.23,
                .reports = {kInput}}) {}

Bytes UsbPad::inputReport(const PenState& pen) {
  Bytes report = kInput.blank();
  putPen(report, 0, pen.touch ? kTouch : kLifted, scaled(pen.x, kLeft, kRight),
         scaled(pen.y, kTop, kBottom), pressureByte(pen, kMaxPressure));
  return report;
}

}  // namespace virtualpads
