#include "virtualpads/VisionPad.h"

#include <algorithm>

#include "virtualpads/ReportDescriptor.h"
#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr double kWidthInches = 4.5;
constexpr double kHeightInches = 2.8;

// Input report, big-endian. A lifted pen is reported by x, y and pressure all zero.
namespace input {
constexpr std::uint8_t kId = 1;
constexpr std::size_t kKind = 1;
constexpr std::size_t kX = 2;
constexpr std::size_t kY = 4;
constexpr std::size_t kPressure = 6;
constexpr std::size_t kClock = 8;  // 32 bits, milliseconds
constexpr std::size_t kLength = 17;

constexpr std::uint8_t kPenData = 0x80;
}  // namespace input

// Feature report: the serial number. Get only.
namespace serial {
constexpr std::uint8_t kId = 2;
constexpr std::size_t kNumber = 1;
constexpr std::size_t kLength = 34;
}  // namespace serial

// Feature report: reading it resets the pad. Get only.
namespace resetReport {
constexpr std::uint8_t kId = 3;
constexpr std::size_t kLength = 17;
}  // namespace resetReport

// Feature report: the mode. Get and set.
namespace modeReport {
constexpr std::uint8_t kId = 4;
constexpr std::size_t kMode = 1;
constexpr std::size_t kLength = 17;
}  // namespace modeReport

// Feature report: the pad information, big-endian. Get only.
namespace information {
constexpr std::uint8_t kId = 12;
constexpr std::size_t kMaxX = 1;
constexpr std::size_t kMaxY = 3;
constexpr std::size_t kMaxPressure = 5;
constexpr std::size_t kMinX = 7;
constexpr std::size_t kMinY = 9;
constexpr std::size_t kMinPressure = 11;
constexpr std::size_t kAspect = 13;  // 32 bits each: numerator, divisor
constexpr std::size_t kWidth = 21;   // 16 bits each: numerator, divisor
constexpr std::size_t kHeight = 25;
constexpr std::size_t kLength = 65;
}  // namespace information

// Feature report: the ink region. Get and set.
namespace inkRegionReport {
constexpr std::uint8_t kId = 17;
constexpr std::size_t kRegion = 1;
constexpr std::size_t kLength = 34;
static_assert(kRegion + VisionPad::kInkRegionBytes == kLength);
}  // namespace inkRegionReport

// Feature report: clear the ink. Set only.
namespace clearReport {
constexpr std::uint8_t kId = 18;
constexpr std::size_t kLength = 17;
}  // namespace clearReport

// Feature report: keep-alive, sent while the program listens. Set only.
namespace keepAlive {
constexpr std::uint8_t kId = 26;
constexpr std::size_t kLength = 17;
}  // namespace keepAlive

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

Bytes emptyReport(std::uint8_t id, std::size_t length) {
  Bytes report(length);
  report[0] = id;
  return report;
}

void putRatio16(Bytes& report, std::size_t at, VisionPad::Ratio ratio) {
  putBe16(report, at, static_cast<std::uint16_t>(ratio.numerator));
  putBe16(report, at + 2, static_cast<std::uint16_t>(ratio.divisor));
}

}  // namespace

VisionPad::VisionPad()
    : m_padInformation(kFactoryInformation),
      m_serialNumber(kFactorySerial),
      m_inkRegion(kFactoryInkRegion) {}

PadModel::Identity VisionPad::identity() const {
  return {0x04DF, 0x38, "Vela Vision"};
}

double VisionPad::widthInches() const {
  return kWidthInches;
}

double VisionPad::heightInches() const {
  return kHeightInches;
}

std::span<const std::uint8_t> VisionPad::reportDescriptor() const {
  using enum DeclaredReport::Kind;
  static const Bytes descriptor =
      virtualpads::reportDescriptor({{Input, input::kId, input::kLength},
                                     {Feature, serial::kId, serial::kLength},
                                     {Feature, resetReport::kId, resetReport::kLength},
                                     {Feature, modeReport::kId, modeReport::kLength},
                                     {Feature, information::kId, information::kLength},
                                     {Feature, inkRegionReport::kId, inkRegionReport::kLength},
                                     {Feature, clearReport::kId, clearReport::kLength},
                                     {Feature, keepAlive::kId, keepAlive::kLength}});
  return descriptor;
}

Bytes VisionPad::inputReport(const PenState& pen) {
  Bytes report = emptyReport(input::kId, input::kLength);
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
    case serial::kId: {
      Bytes report = emptyReport(serial::kId, serial::kLength);
      std::ranges::copy(m_serialNumber, report.begin() + serial::kNumber);
      return report;
    }
    case resetReport::kId:
      ++m_resets;
      return emptyReport(resetReport::kId, resetReport::kLength);
    case modeReport::kId: {
      Bytes report = emptyReport(modeReport::kId, modeReport::kLength);
      report[modeReport::kMode] = m_mode;
      return report;
    }
    case information::kId:
      return padInformationReport();
    case inkRegionReport::kId: {
      Bytes report = emptyReport(inkRegionReport::kId, inkRegionReport::kLength);
      std::ranges::copy(m_inkRegion, report.begin() + inkRegionReport::kRegion);
      return report;
    }
    default:
      return std::nullopt;
  }
}

bool VisionPad::setFeature(std::span<const std::uint8_t> report) {
  const auto is = [&](std::uint8_t id, std::size_t length) {
    return report.size() == length && report[0] == id;
  };
  if (is(modeReport::kId, modeReport::kLength)) {
    m_mode = report[modeReport::kMode];
    return true;
  }
  if (is(inkRegionReport::kId, inkRegionReport::kLength)) {
    std::ranges::copy(report.subspan(inkRegionReport::kRegion), m_inkRegion.begin());
    return true;
  }
  if (is(clearReport::kId, clearReport::kLength)) {
    ++m_clears;
    return true;
  }
  if (is(keepAlive::kId, keepAlive::kLength)) {
    ++m_keepAlives;
    return true;
  }
  return false;
}

Bytes VisionPad::padInformationReport() const {
  Bytes report = emptyReport(information::kId, information::kLength);
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
