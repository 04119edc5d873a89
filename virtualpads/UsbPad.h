// The USB pad: a pen pad without a display, one short input report for each pen sample, nothing
// else.
#ifndef VIRTUALPADS_USBPAD_H
#define VIRTUALPADS_USBPAD_H

#include "virtualpads/PadModel.h"

namespace virtualpads {

class UsbPad : public PadModel {
 public:
  UsbPad();

  Bytes inputReport(const PenState& pen) override;
};

}  // namespace virtualpads

#endif
