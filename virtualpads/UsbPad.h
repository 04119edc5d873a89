// The USB pad: a pen pad without a display, one short input report for each pen sample, nothing
// else.
#ifndef VIRTUALPADS_USBPAD_H
#define VIRTUALPADS_USBPAD_H

#include "virtualpads/PadModel.h"

namespace virtualpads {

class UsbPad : public PadModel {
 public:
  Identity identity() const override;
  double widthInches() const override;
  double heightInches() const override;
  std::span<const std::uint8_t> reportDescriptor() const override;
  Bytes inputReport(const PenState& pen) override;
  std::optional<Bytes> getFeature(std::uint8_t reportId) override;
  bool setFeature(std::span<const std::uint8_t> report) override;
};

}  // namespace virtualpads

#endif
