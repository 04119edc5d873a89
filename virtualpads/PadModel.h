// What all virtual pads have in common: their description, the format of their reports, and their
// answers to feature reports. The faces (hidapi, the kernel, the USB) put any model behind
// a real interface; they know nothing of a particular pad.
#ifndef VIRTUALPADS_PADMODEL_H
#define VIRTUALPADS_PADMODEL_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "virtualpads/PadReport.h"

namespace virtualpads {

// The pen over the writing surface at one moment.
struct PenState {
  double x = 0;         // 0 (left edge) to 1 (right edge); values outside are off the surface
  double y = 0;         // 0 (top edge) to 1 (bottom edge)
  double pressure = 0;  // 0 to 1 (the hardest the pad can report)
  bool touch = false;   // the pen tip is down
  std::uint32_t milliseconds = 0;  // the pad's own clock
};

// What a kind of pad is, apart from the state that one of them is in.
struct PadDescription {
  std::uint16_t vendor = 0x04DF;
  std::uint16_t product = 0;
  std::string name{};      // the product string
  double widthInches = 0;  // of the writing surface, for a window that shows it
  double heightInches = 0;
  std::vector<PadReport> reports{};  // in the order of the report descriptor, features by id
};

// A pad in software. A model is not thread-safe: its user (a face, a window) serialises the calls.
class PadModel {
 public:
  virtual ~PadModel() = default;

  const PadDescription& description() const { return m_description; }
  // The HID report descriptor of the description's reports.
  const Bytes& reportDescriptor() const { return m_reportDescriptor; }

  // The input report for a pen state, as a read of the hidraw node delivers it (the report id first
  // where the pad numbers its reports). Advances any counter that the pad puts into its reports.
  virtual Bytes inputReport(const PenState& pen) = 0;

  // The answer to a get-feature request, report id first; nothing when the pad has no such report
  // (the request stalls).
  virtual std::optional<Bytes> getFeature(std::uint8_t reportId);

  // Takes a set-feature report, report id first. False when the pad refuses it (unknown id, wrong
  // length); its state is then unchanged.
  virtual bool setFeature(std::span<const std::uint8_t> report);

 protected:
  explicit PadModel(PadDescription description);

 private:
  PadDescription m_description;
  Bytes m_reportDescriptor;
};

enum class PadKind { Usb, Ii, Ink, Vision };

// A new pad of that kind in its factory state.
std::shared_ptr<PadModel> makePad(PadKind kind);

}  // namespace virtualpads

#endif
