#include "virtualpads/InkPad.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

#include "virtualpads/ReportDescriptor.h"
#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr double kWidthInches = 3.11;
constexpr double kHeightInches = 2.28;

constexpr std::uint16_t kMaxCoordinate = 32767;
constexpr std::uint8_t kMaxPressure = 255;

// Input report, little-endian.
namespace input {
constexpr std::uint8_t kId = 1;
constexpr std::size_t kPenState = 1;
constexpr std::size_t kX = 2;
constexpr std::size_t kY = 4;
constexpr std::size_t kPressure = 6;
constexpr std::size_t kSequence = 7;
constexpr std::size_t kLength = 8;

constexpr std::uint8_t kTouch = 0x01;
constexpr std::uint8_t kInRange = 0x20;
}  // namespace input

// Feature report: the option block. Get and set.
namespace optionsReport {
constexpr std::uint8_t kId = 3;
constexpr std::size_t kBlock = 1;
constexpr std::size_t kLength = 17;
}  // namespace optionsReport

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

// Feature report: the serial number. Get only.
namespace serial {
constexpr std::uint8_t kId = 6;
constexpr std::size_t kNumber = 1;
constexpr std::size_t kLength = 9;
}  // namespace serial

// Feature report: sixty rows of a layer's picture. Set only.
namespace pictureBand {
constexpr std::uint8_t kId = 7;
constexpr std::size_t kLayer = 1;
constexpr std::size_t kFirstRow = 3;
constexpr std::size_t kRows = 8;
constexpr std::size_t kLength = 2408;

constexpr int kRowCount = 60;
static_assert(kRows + kRowCount * InkPad::kLcdRowBytes == kLength);
}  // namespace pictureBand

// Feature report: clear the ink, little-endian. Set only.
namespace clearReport {
constexpr std::uint8_t kId = 9;
constexpr std::size_t kValue = 1;
constexpr std::size_t kLength = 3;
}  // namespace clearReport

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

InkPad::InkPad() : m_options(kFactoryOptions), m_serialNumber(kFactorySerial) {}

PadModel::Identity InkPad::identity() const {
  return {0x04DF, 0x30, "Vela Ink"};
}

double InkPad::widthInches() const {
  return kWidthInches;
}

double InkPad::heightInches() const {
  return kHeightInches;
}

std::span<const std::uint8_t> InkPad::reportDescriptor() const {
  using enum DeclaredReport::Kind;
  static const Bytes descriptor =
      virtualpads::reportDescriptor({{Input, input::kId, input::kLength},
                                     {Feature, optionsReport::kId, optionsReport::kLength},
                                     {Feature, serial::kId, serial::kLength},
                                     {Feature, pictureBand::kId, pictureBand::kLength},
                                     {Feature, clearReport::kId, clearReport::kLength}});
  return descriptor;
}

Bytes InkPad::inputReport(const PenState& pen) {
  movePen(pen);
  Bytes report(input::kLength);
  report[0] = input::kId;
  report[input::kPenState] = input::kInRange | (pen.touch ? input::kTouch : 0);
  putLe16(report, input::kX, scaled(pen.x, 0, kMaxCoordinate));
  putLe16(report, input::kY, scaled(pen.y, 0, kMaxCoordinate));
  report[input::kPressure] = pressureByte(pen, kMaxPressure);
  report[input::kSequence] = m_sequence++;
  return report;
}

std::optional<Bytes> InkPad::getFeature(std::uint8_t reportId) {
  switch (reportId) {
    case optionsReport::kId: {
      Bytes report(optionsReport::kLength);
      report[0] = optionsReport::kId;
      std::ranges::copy(m_options, report.begin() + optionsReport::kBlock);
      return report;
    }
    case serial::kId: {
      Bytes report(serial::kLength);
      report[0] = serial::kId;
      std::ranges::copy(m_serialNumber, report.begin() + serial::kNumber);
      return report;
    }
    default:
      return std::nullopt;
  }
}

bool InkPad::setFeature(std::span<const std::uint8_t> report) {
  switch (report.empty() ? 0 : report[0]) {
    case optionsReport::kId:
      return setOptions(report);
    case pictureBand::kId:
      return setPictureBand(report);
    case clearReport::kId:
      return clear(report);
    default:
      return false;
  }
}

bool InkPad::setOptions(std::span<const std::uint8_t> report) {
  if (report.size() != optionsReport::kLength) return false;
  std::ranges::copy(report.subspan(optionsReport::kBlock), m_options.begin());
  return true;
}

bool InkPad::setPictureBand(std::span<const std::uint8_t> report) {
  if (report.size() != pictureBand::kLength || report[pictureBand::kLayer] >= kLayers ||
      report[pictureBand::kFirstRow] > kLcdHeight - pictureBand::kRowCount)
    return false;
  std::ranges::copy(report.subspan(pictureBand::kRows),
                    m_layers[report[pictureBand::kLayer]].begin() +
                        report[pictureBand::kFirstRow] * kLcdRowBytes);
  return true;
}

bool InkPad::clear(std::span<const std::uint8_t> report) {
  if (report.size() != clearReport::kLength) return false;
  m_clears.push_back(le16(report, clearReport::kValue));
  m_ink = {};
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
