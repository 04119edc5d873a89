// The vision pad: a pen pad over a display, with modes, an ink region and a keep-alive.
#ifndef VIRTUALPADS_VISIONPAD_H
#define VIRTUALPADS_VISIONPAD_H

#include <array>
#include <cstddef>

#include "virtualpads/PadModel.h"

namespace virtualpads {

class VisionPad : public PadModel {
 public:
  struct Range {
    std::uint16_t low;
    std::uint16_t high;
    bool operator==(const Range&) const = default;
  };

  struct Ratio {
    std::uint32_t numerator;
    std::uint32_t divisor;
    bool operator==(const Ratio&) const = default;
  };

  // What the pad reports about itself.
  struct PadInformation {
    Range x;
    Range y;
    Range pressure;
    Ratio aspect;  // width to height
    Ratio width;   // inches; both numbers have 16 bits on the wire
    Ratio height;
    bool operator==(const PadInformation&) const = default;
  };

  // The reports that change what the pad shows.
  static constexpr PadReport kReset{PadReport::Way::Get, 3, 17, "Reset"};  // resets when it is read
  static constexpr PadReport kMode{PadReport::Way::GetAndSet, 4, 17, "Mode"};
  static constexpr PadReport kClear{PadReport::Way::Set, 18, 17, "Clear"};  // clears the ink
  // Sent while the program listens.
  static constexpr PadReport kKeepAlive{PadReport::Way::Set, 26, 17, "Keep-alive"};

  static constexpr std::size_t kInkRegionBytes = 33;
  using InkRegion = std::array<std::uint8_t, kInkRegionBytes>;
  using SerialNumber = std::array<std::uint8_t, 16>;

  VisionPad();

  Bytes inputReport(const PenState& pen) override;
  std::optional<Bytes> getFeature(std::uint8_t reportId) override;
  bool setFeature(std::span<const std::uint8_t> report) override;

  int mode() const { return m_mode; }
  // The ink region report without its id.
  const InkRegion& inkRegion() const { return m_inkRegion; }
  void setInkRegion(const InkRegion& region) { m_inkRegion = region; }

  // How often the report was read or sent.
  int resets() const { return m_resets; }
  int clears() const { return m_clears; }
  int keepAlives() const { return m_keepAlives; }

  const PadInformation& padInformation() const { return m_padInformation; }
  void setPadInformation(const PadInformation& information) { m_padInformation = information; }

  const SerialNumber& serialNumber() const { return m_serialNumber; }
  void setSerialNumber(const SerialNumber& serialNumber) { m_serialNumber = serialNumber; }

 private:
  Bytes padInformationReport() const;

  PadInformation m_padInformation;
  SerialNumber m_serialNumber;
  InkRegion m_inkRegion;
  std::uint8_t m_mode = 0;
  int m_resets = 0;
  int m_clears = 0;
  int m_keepAlives = 0;
};

}  // namespace virtualpads

#endif
