#include "virtualpads/InkPad.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr std::uint16_t kMaxCoordinate = 32767;
constexpr std::uint8_t kMaxPressure = 255;

using enum PadReport::Way;

// The pen, then a sequence number.
constexpr PadReport kInput{Input, 1, 8, "Pen"};
namespace input {
constexpr std::size_t kPen = 1;
constexpr std::size_t kSequence = 7;

constexpr std::uint8_t kTouch = 0x01;
constexpr std::uint8_t kInRange = 0x20;
}  // namespace input

constexpr PadReport kOptions{GetAndSet, 3, 17, "Options"};
constexpr std::size_t kOptionBlock = 1;

// The option block, little-endian. Bits without a name here have a meaning of the pad's own.
namespace option {
constexpr std::size_t kInkTrace = 1;  // bits 0-1: mode
constexpr std::size_t kInkTraceValue = 2;
constexpr std::size_t kRegionLeft = 5;  // 16 bits
constexpr std::size_t kRegionTop = 7;   // 8 bits
constexpr std::size_t kRegionRight = 8;
constexpr std::size_t kRegionBottom = 10;
constexpr std::size_t kBacklight = 11;  // bits 0-1: mode, bit 2: switch
constexpr std::size_t kBacklightValue = 12;
constexpr std::size_t kLayerStates = 14;  // bits 2-3, 4-5, 6-7: layers 0, 1, 2

constexpr int kTwoBits = 0x03;
constexpr int kBacklightSwitch = 0x04;
}  // namespace option

constexpr PadReport kSerial{Get, 6, 9, "Serial number"};
constexpr std::size_t kSerialNumber = 1;

// Sixty rows of a layer's picture.
constexpr PadReport kPictureBand{Set, 7, 2408, "Picture band"};
namespace pictureBand {
constexpr std::size_t kLayer = 1;
constexpr std::size_t kFirstRow = 3;
constexpr std::size_t kRows = 8;

constexpr int kRowCount = 60;
static_assert(kRows + kRowCount * InkPad::kLcdRowBytes == kPictureBand.length);
}  // namespace pictureBand

// Clears the ink.
constexpr PadReport kClear{Set, 9, 3, "Clear"};
constexpr std::size_t kClearValue = 1;  // 16 bits, little-endian

// Ink trace off (300), inking region the whole LCD, backlight on in mode 0 (500), all layers
// hidden.
constexpr InkPad::Options kFactoryOptions{0x03, 0x14, 0x2C, 0x01, 0x08, 0x00, 0x00, 0x00,
                                          0x3F, 0x01, 0xEF, 0x24, 0xF4, 0x01, 0x01, 0x7C};

constexpr InkPad::SerialNumber kFactorySerial{0x31, 0x42, 0x53, 0x64, 0x75, 0x86, 0x97, 0xA8};

std::size_t byteOfPixel(int x, int y) {
  return static_cast<std::size_t>(y) * InkPad::kLcdRowBytes + static_cast<std::size_t>(x) / 8;
}

std::uint8_t bitOfPixel(int x) {
  return static_cast<std::uint8_t>(1 << (x % 8));
}

}  // namespace

InkPad::InkPad()
    : PadModel({.product = 0x30,
                .name = "Vela Ink",
                .widthInches = 3.11,
                .heightInches = 2.28,
                .reports = {kInput, kOptions, kSerial, kPictureBand, kClear}}),
      m_options(kFactoryOptions),
      m_serialNumber(kFactorySerial) {}

Bytes InkPad::inputReport(const PenState& pen) {
  movePen(pen);
  Bytes report = kInput.blank();
  putPen(report, input::kPen, input::kInRange | (pen.touch ? input::kTouch : 0),
         scaled(pen.x, 0, kMaxCoordinate), scaled(pen.y, 0, kMaxCoordinate),
         pressureByte(pen, kMaxPressure));
  report[input::kSequence] = m_sequence++;
  return report;
}

std::optional<Bytes> InkPad::getFeature(std::uint8_t reportId) {
  switch (reportId) {
    case kOptions.id:
      return kOptions.with(kOptionBlock, m_options);
    case kSerial.id:
      return kSerial.with(kSerialNumber, m_serialNumber);
    default:
      return std::nullopt;
  }
}

bool InkPad::setFeature(std::span<const std::uint8_t> report) {
  if (kOptions.matches(report)) {
    std::ranges::copy(report.subspan(kOptionBlock), m_options.begin());
    return true;
  }
  if (kPictureBand.matches(report)) return setPictureBand(report);
  if (kClear.matches(report)) {
    m_clears.push_back(le16(report, kClearValue));
    m_ink = {};
    return true;
  }
  return false;
}

bool InkPad::setPictureBand(std::span<const std::uint8_t> report) {
  if (report[pictureBand::kLayer] >= kLayers ||
      report[pictureBand::kFirstRow] > kLcdHeight - pictureBand::kRowCount)
    return false;
  std::ranges::copy(report.subspan(pictureBand::kRows),
                    m_layers[report[pictureBand::kLayer]].begin() +
                        report[pictureBand::kFirstRow] * kLcdRowBytes);
  return true;
}

InkPad::InkTrace InkPad::inkTrace() const {
  return {.mode = m_options[option::kInkTrace] & option::kTwoBits,
          .value = le16(m_options, option::kInkTraceValue)};
}

InkPad::Rectangle InkPad::inkingRegion() const {
  return {.left = le16(m_options, option::kRegionLeft),
          .top = m_options[option::kRegionTop],
          .right = le16(m_options, option::kRegionRight),
          .bottom = m_options[option::kRegionBottom]};
}

InkPad::Backlight InkPad::backlight() const {
  return {.mode = m_options[option::kBacklight] & option::kTwoBits,
          .on = (m_options[option::kBacklight] & option::kBacklightSwitch) != 0,
          .value = le16(m_options, option::kBacklightValue)};
}

int InkPad::layerState(int layer) const {
  return m_options[option::kLayerStates] >> (2 + 2 * layer) & option::kTwoBits;
}

InkPad::Picture InkPad::lcdImage() const {
  Picture image = m_ink;
  for (int index = 0; index < kLayers; ++index)
    if (layerState(index) != 0)
      std::ranges::transform(image, layer(index), image.begin(), std::bit_or<>());
  return image;
}

bool InkPad::isDark(const Picture& picture, int x, int y) {
  return (picture.at(byteOfPixel(x, y)) & bitOfPixel(x)) != 0;
}

void InkPad::movePen(const PenState& pen) {
  if (!pen.touch) {
    m_penDownAt.reset();
    return;
  }
  const Pixel to{scaled(pen.x, 0, kLcdWidth - 1), scaled(pen.y, 0, kLcdHeight - 1)};
  if (inkTrace().mode != 0) drawInkLine(m_penDownAt.value_or(to), to);
  m_penDownAt = to;
}

void InkPad::drawInkLine(Pixel from, Pixel to) {
  const int steps = std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), 1});
  for (int step = 0; step <= steps; ++step) {
    const double part = static_cast<double>(step) / steps;
    drawInkPixel({static_cast<int>(std::lround(std::lerp(from.x, to.x, part))),
                  static_cast<int>(std::lround(std::lerp(from.y, to.y, part)))});
  }
}

void InkPad::drawInkPixel(Pixel pixel) {
  const Rectangle region = inkingRegion();
  if (pixel.x >= region.left && pixel.x <= region.right && pixel.y >= region.top &&
      pixel.y <= region.bottom)
    m_ink[byteOfPixel(pixel.x, pixel.y)] |= bitOfPixel(pixel.x);
}

}  // namespace virtualpads
