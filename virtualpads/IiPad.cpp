#include "virtualpads/IiPad.h"

#include "virtualpads/Wire.h"

namespace virtualpads {

namespace {

constexpr std::uint16_t kMaxCoordinate = 32767;
constexpr std::uint8_t kMaxPressure = 127;

// The value of the bytes that the pad does not use.
constexpr std::uint8_t kUnused = 0x5A;

using enum PadReport::Way;

// The pen, then the clock.
constexpr PadReport kInput{Input, 1, 11, "Pen"};
namespace input {
constexpr std::size_t kPen = 1;
constexpr std::size_t kClock = 7;  // 32 bits, milliseconds

constexpr std::uint8_t kTouch = 0x01;
constexpr std::uint8_t kInRange = 0x20;
}  // namespace input

constexpr PadReport kSerial{Get, 2, 17, "Serial number"};
constexpr std::size_t kSerialNumber = 9;

// Little-endian.
constexpr PadReport kInformation{Get, 10, 55, "Pad information"};
namespace information {
constexpr std::size_t kWords1To4 = 1;
constexpr std::size_t kByte1 = 9;
constexpr std::size_t kWords5To6 = 10;
constexpr std::size_t kByte2 = 14;
constexpr std::size_t kValues = 15;
constexpr std::size_t kOverall = 23;  // each of the three: width ratio, then height ratio
constexpr std::size_t kFirstDeduction = 31;
constexpr std::size_t kSecondDeduction = 39;
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

IiPad::IiPad()
    : PadModel({.product = 0x1F,
                .name = "Vela II",
                .widthInches = 3.685,
                .heightInches = 2.23,
                .reports = {kInput, kSerial, kInformation}}),
      m_padInformation(kFactoryInformation),
      m_serialNumber(kFactorySerial) {}

Bytes IiPad::inputReport(const PenState& pen) {
  Bytes report = kInput.blank();
  putPen(report, input::kPen, input::kInRange | (pen.touch ? input::kTouch : 0),
         scaled(pen.x, 0, kMaxCoordinate), scaled(pen.y, 0, kMaxCoordinate),
         pressureByte(pen, kMaxPressure));
  putLe32(report, input::kClock, pen.milliseconds);
  return report;
}

PenState IiPad::penOf(const Bytes& report) {
  const auto pen = std::span(report).subspan(input::kPen);
  return {.x = le16(pen, penFields::kX) / static_cast<double>(kMaxCoordinate),
          .y = le16(pen, penFields::kY) / static_cast<double>(kMaxCoordinate),
          .pressure = pen[penFields::kPressure] / static_cast<double>(kMaxPressure),
          .touch = (pen[penFields::kState] & input::kTouch) != 0,
          .milliseconds =
              le16(report, input::kClock) | std::uint32_t{le16(report, input::kClock + 2)} << 16};
}

std::optional<Bytes> IiPad::getFeature(std::uint8_t reportId) {
  switch (reportId) {
    case kSerial.id:
      return kSerial.with(kSerialNumber, m_serialNumber, kUnused);
    case kInformation.id:
      return padInformationReport();
    default:
      return std::nullopt;
  }
}

Bytes IiPad::padInformationReport() const {
  Bytes report = kInformation.blank(kUnused);
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
