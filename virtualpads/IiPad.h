// The pad II: a pen pad without a display that describes its own geometry and carries a serial
// number.
#ifndef VIRTUALPADS_IIPAD_H
#define VIRTUALPADS_IIPAD_H

#include <array>

#include "virtualpads/PadModel.h"

namespace virtualpads {

class IiPad : public PadModel {
 public:
  struct Ratio {
    std::uint16_t numerator;
    std::uint16_t divisor;
    bool operator==(const Ratio&) const = default;
  };

  // A dimension in inches: an overall size less two deductions.
  struct Extent {
    Ratio overall;
    Ratio firstDeduction;
    Ratio secondDeduction;
    bool operator==(const Extent&) const = default;
  };

  // What the pad reports about itself. Only the two extents have a known meaning.
  struct PadInformation {
    std::array<std::uint16_t, 6> words;
    std::array<std::uint8_t, 2> bytes;
    std::array<std::int32_t, 2> values;
    Extent width;
    Extent height;
    bool operator==(const PadInformation&) const = default;
  };

  using SerialNumber = std::array<std::uint8_t, 8>;

  IiPad();

  Bytes inputReport(const PenState& pen) override;
  // The pen state of such a report, which has all its bytes.
  static PenState penOf(const Bytes& report);
  std::optional<Bytes> getFeature(std::uint8_t reportId) override;

  const PadInformation& padInformation() const { return m_padInformation; }
  void setPadInformation(const PadInformation& information) { m_padInformation = information; }

  // In wire order.
  const SerialNumber& serialNumber() const { return m_serialNumber; }
  void setSerialNumber(const SerialNumber& serialNumber) { m_serialNumber = serialNumber; }

 private:
  Bytes padInformationReport() const;

  PadInformation m_padInformation;
  SerialNumber m_serialNumber;
};

}  // namespace virtualpads

#endif
