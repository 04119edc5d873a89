#include "virtualpads/IiPad.h"

#include <algorithm>

#include "virtualpads/ReportDescriptor.h"
#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr double kWidthInches = 3.685;
constexpr double kHeightInches = 2.23;

constexpr std::uint16_t kMaxCoordinate = 32767;
constexpr std::uint8_t kMaxPressure = 127;

// The value of the bytes that the pad does not use.
constexpr std::uint8_t kUnused = 0x5A;

// Input report, little-endian.
namespace input {
constexpr std::uint8_t kId = 1;
constexpr std::size_t kPenState = 1;
constexpr std::size_t kX = 2;
constexpr std::size_t kY = 4;
constexpr std::size_t kPressure = 6;
constexpr std::size_t kClock = 7;  // 32 bits, milliseconds
constexpr std::size_t kLength = 11;

constexpr std::uint8_t kTouch = 0x01;
constexpr std::uint8_t kInRange = 0x20;
}  // namespace input

// Feature report: the serial number. Get only.
namespace serial {
constexpr std::uint8_t kId = 2;
constexpr std::size_t kNumber = 9;
constexpr std::size_t kLength = 17;
}  // namespace serial

// Feature report: the pad information, little-endian. Get only.
namespace information {
constexpr std::uint8_t kId = 10;
constexpr std::size_t kWords1To4 = 1;
constexpr std::size_t kByte1 = 9;
constexpr std::size_t kWords5To6 = 10;
constexpr std::size_t kByte2 = 14;
constexpr std::size_t kValues = 15;
constexpr std::size_t kOverall = 23;  // each of the three: width ratio, then height ratio
constexpr std::size_t kFirstDeduction = 31;
constexpr std::size_t kSecondDeduction = 39;
constexpr std::size_t kLength = 55;
}  // namespace information

constexpr IiPad::PadInformation kFactoryInformation{
    .words = {0x0102, 0x0304, 0x0506, 0x0708, 0x0A0B, 0x0C0D},
    .bytes = {0x09, 0x0E},
    .values = {100'000, -100'000},
    .width = {{4125, 1000}, {5, 20}, {19, 100}},   // 4.125 - 0.25 - 0.19 = 3.685
    .height = {{2570, 1000}, {3, 20}, {19, 100}},  // 2.57 - 0.15 - 0.19 = 2.23
};

constexpr IiPad::SerialNumber kFactorySerial{0x27, 0x18, 0x09, 0xFA, 0xEB, 0xDC, 0xCD, 0xBE};

void putRatios(Bytes& report, std::size_t at, IiPad::Ratio width, IiPad::Ratio height) {
  putLe16(report, at, width.numerator);
  putLe16(report, at + 2, width.divisor);
  putLe16(report, at + 4, height.numerator);
  putLe16(report, at + 6, height.divisor);
}

}  // namespace

IiPad::IiPad() : m_padInformation(kFactoryInformation), m_serialNumber(kFactorySerial) {}

PadModel::Identity IiPad::identity() const {
  return {0x04DF, 0x1F, "Vela II"};
}

double IiPad::widthInches() const {
  return kWidthInches;
}

double IiPad::heightInches() const {
  return kHeightInches;
}

std::span<const std::uint8_t> IiPad::reportDescriptor() const {
  using enum DeclaredReport::Kind;
  static const Bytes descriptor =
      virtualpads::reportDescriptor({{Input, input::kId, input::kLength},
                                     {Feature, serial::kId, serial::kLength},
                                     {Feature, information::kId, information::kLength}});
  return descriptor;
}

Bytes IiPad::inputReport(const PenState& pen) {
  Bytes report(input::kLength);
  report[0] = input::kId;
  report[input::kPenState] = input::kInRange | (pen.touch ? input::kTouch : 0);
  putLe16(report, input::kX, scaled(pen.x, 0, kMaxCoordinate));
  putLe16(report, input::kY, scaled(pen.y, 0, kMaxCoordinate));
  report[input::kPressure] = pressureByte(pen, kMaxPressure);
  putLe32(report, input::kClock, pen.milliseconds);
  return report;
}

PenState IiPad::penOf(const Bytes& report) {
  return {.x = le16(report, input::kX) / static_cast<double>(kMaxCoordinate),
          .y = le16(report, input::kY) / static_cast<double>(kMaxCoordinate),
          .pressure = report[input::kPressure] / static_cast<double>(kMaxPressure),
          .touch = (report[input::kPenState] & input::kTouch) != 0,
          .milliseconds =
              le16(report, input::kClock) | std::uint32_t{le16(report, input::kClock + 2)} << 16};
}

std::optional<Bytes> IiPad::getFeature(std::uint8_t reportId) {
  switch (reportId) {
    case serial::kId:
      return serialNumberReport();
    case information::kId:
      return padInformationReport();
    default:
      return std::nullopt;
  }
}

bool IiPad::setFeature(std::span<const std::uint8_t>) {
  return false;
}

Bytes IiPad::serialNumberReport() const {
  Bytes report(serial::kLength, kUnused);
  report[0] = serial::kId;
  std::ranges::copy(m_serialNumber, report.begin() + serial::kNumber);
  return report;
}

Bytes IiPad::padInformationReport() const {
  Bytes report(information::kLength, kUnused);
  report[0] = information::kId;
  const auto& [words, bytes, values, width, height] = m_padInformation;
  for (std::size_t i = 0; i < 4; ++i) putLe16(report, information::kWords1To4 + 2 * i, words[i]);
  report[information::kByte1] = bytes[0];
  putLe16(report, information::kWords5To6, words[4]);
  putLe16(report, information::kWords5To6 + 2, words[5]);
  report[information::kByte2] = bytes[1];
  putLe32(report, information::kValues, static_cast<std::uint32_t>(values[0]));
  putLe32(report, information::kValues + 4, static_cast<std::uint32_t>(values[1]));
  putRatios(report, information::kOverall, width.overall, height.overall);
  putRatios(report, information::kFirstDeduction, width.firstDeduction, height.firstDeduction);
  putRatios(report, information::kSecondDeduction, width.secondDeduction, height.secondDeduction);
  return report;
}

}  // namespace virtualpads
