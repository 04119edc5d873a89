#include "virtualpads/VisionPad.h"

#include <algorithm>

#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

using enum PadReport::Way;

// Big-endian. A lifted pen is reported by x, y and pressure all zero.
constexpr PadReport kInput{Input, 1, 17, "Pen"};
namespace input {
constexpr std::size_t kKind = 1;
constexpr std::size_t kX = 2;
constexpr std::size_t kY = 4;
constexpr std::size_t kPressure = 6;
constexpr std::size_t kClock = 8;  // 32 bits, milliseconds

constexpr std::uint8_t kPenData = 0x80;
}  // namespace input

constexpr PadReport kSerial{Get, 2, 34, "Serial number"};
constexpr std::size_t kSerialNumber = 1;

constexpr std::size_t kModeValue = 1;  // in kMode

// Big-endian.
constexpr PadReport kInformation{Get, 12, 65, "Pad information"};
namespace information {
constexpr std::size_t kMaxX = 1;
constexpr std::size_t kMaxY = 3;
constexpr std::size_t kMaxPressure = 5;
constexpr std::size_t kMinX = 7;
constexpr std::size_t kMinY = 9;
constexpr std::size_t kMinPressure = 11;
constexpr std::size_t kAspect = 13;  // 32 bits each: numerator, divisor
constexpr std::size_t kWidth = 21;   // 16 bits each: numerator, divisor
constexpr std::size_t kHeight = 25;
}  // namespace information

constexpr PadReport kInkRegion{GetAndSet, 17, 34, "Ink region"};
constexpr std::size_t kRegion = 1;
static_assert(kRegion + VisionPad::kInkRegionBytes == kInkRegion.length);

constexpr VisionPad::PadInformation kFactoryInformation{.x = {0, 1300},
                                                        .y = {0, 1400},
                                                        .pressure = {0, 1023},
                                                        .aspect = {45, 28},
                                                        .width = {45, 10},
                                                        .height = {28, 10}};

constexpr VisionPad::SerialNumber kFactorySerial{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                                                 0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE};

constexpr VisionPad::InkRegion kFactoryInkRegion{0x10, 0x00, 0x0A, 0x00, 0x14, 0x05, 0x0A, 0x05,
                                                 0x64, 0x01, 0x02, 0x03, 0x04, 0x05, 0x01, 0xF4};

void putRatio16(Bytes& report, std::size_t at, VisionPad::Ratio ratio) {
  putBe16(report, at, static_cast<std::uint16_t>(ratio.numerator));
  putBe16(report, at + 2, static_cast<std::uint16_t>(ratio.divisor));
}

}  // namespace

VisionPad::VisionPad()
    : PadModel({.product = 0x38,
                .name = "Vela Vision",
                .widthInches = 4.5,
                .heightInches = 2.8,
                .reports = {kInput, kSerial, kReset, kMode, kInformation, kInkRegion, kClear,
                            kKeepAlive}}),
      m_padInformation(kFactoryInformation),
      m_serialNumber(kFactorySerial),
      m_inkRegion(kFactoryInkRegion) {}

Bytes VisionPad::inputReport(const PenState& pen) {
  Bytes report = kInput.blank();
  report[input::kKind] = input::kPenData;
  if (pen.touch) {
    const auto& [x, y, pressure, aspect, width, height] = m_padInformation;
    putBe16(report, input::kX, scaled(pen.x, x.low, x.high));
    putBe16(report, input::kY, scaled(pen.y, y.low, y.high));
    // A touching pen never reports pressure 0: in the corner that would mean a lifted pen.
    const std::uint16_t value = scaled(pen.pressure, pressure.low, pressure.high);
    putBe16(report, input::kPressure, std::max<std::uint16_t>(value, 1));
  }
  putBe32(report, input::kClock, pen.milliseconds);
  return report;
}

std::optional<Bytes> VisionPad::getFeature(std::uint8_t reportId) {
  switch (reportId) {
    case kSerial.id:
      return kSerial.with(kSerialNumber, m_serialNumber);
    case kReset.id:
      ++m_resets;
      return kReset.blank();
    case kMode.id:
      return kMode.with(kModeValue, std::span(&m_mode, 1));
    case kInformation.id:
      return padInformationReport();
    case kInkRegion.id:
      return kInkRegion.with(kRegion, m_inkRegion);
    default:
      return std::nullopt;
  }
}

bool VisionPad::setFeature(std::span<const std::uint8_t> report) {
  if (kMode.matches(report))
    m_mode = report[kModeValue];
  else if (kInkRegion.matches(report))
    std::ranges::copy(report.subspan(kRegion), m_inkRegion.begin());
  else if (kClear.matches(report))
    ++m_clears;
  else if (kKeepAlive.matches(report))
    ++m_keepAlives;
  else
    return false;
  return true;
}

Bytes VisionPad::padInformationReport() const {
  Bytes report = kInformation.blank();
  const auto& [x, y, pressure, aspect, width, height] = m_padInformation;
  putBe16(report, information::kMaxX, x.high);
  putBe16(report, information::kMaxY, y.high);
  putBe16(report, information::kMaxPressure, pressure.high);
  putBe16(report, information::kMinX, x.low);
  putBe16(report, information::kMinY, y.low);
  putBe16(report, information::kMinPressure, pressure.low);
  putBe32(report, information::kAspect, aspect.numerator);
  putBe32(report, information::kAspect + 4, aspect.divisor);
  putRatio16(report, information::kWidth, width);
  putRatio16(report, information::kHeight, height);
  return report;
}

}  // namespace virtualpads
