// The ink pad: a pen pad over a monochrome LCD of 320 x 240 pixels with three picture layers, a
// backlight, and ink that the pad itself draws under the pen.
//
// In a picture each row is 40 bytes, top row first; the least significant bit of a byte is its
// leftmost pixel (as in an XBM file), and a set bit is a dark pixel.
#ifndef VIRTUALPADS_INKPAD_H
#define VIRTUALPADS_INKPAD_H

#include <array>
#include <cstddef>

#include "virtualpads/PadModel.h"

namespace virtualpads {

class InkPad : public PadModel {
 public:
  static constexpr int kLcdWidth = 320;
  static constexpr int kLcdHeight = 240;
  static constexpr int kLcdRowBytes = 40;
  static constexpr int kLayers = 3;

  using Picture = std::array<std::uint8_t, kLcdHeight * kLcdRowBytes>;
  using Options = std::array<std::uint8_t, 16>;
  using SerialNumber = std::array<std::uint8_t, 8>;

  // LCD pixels, the edges included.
  struct Rectangle {
    int left;
    int top;
    int right;
    int bottom;
    bool operator==(const Rectangle&) const = default;
  };

  struct InkTrace {
    int mode;  // 0 to 3; 0 draws no ink
    int value;
    bool operator==(const InkTrace&) const = default;
  };

  struct Backlight {
    int mode;  // 0 to 3
    bool on;
    int value;
    bool operator==(const Backlight&) const = default;
  };

  InkPad();

  // Also draws the pad's own ink.
  Bytes inputReport(const PenState& pen) override;
  std::optional<Bytes> getFeature(std::uint8_t reportId) override;
  bool setFeature(std::span<const std::uint8_t> report) override;

  // The current option block, and the known parts of it.
  const Options& options() const { return m_options; }
  InkTrace inkTrace() const;
  Rectangle inkingRegion() const;
  Backlight backlight() const;
  int layerState(int layer) const;  // 0 to 3; 0 hides the layer

  const Picture& layer(int layer) const { return m_layers.at(static_cast<std::size_t>(layer)); }
  const Picture& ink() const { return m_ink; }
  // What the LCD shows: the layers that are not hidden, with the ink over them.
  Picture lcdImage() const;
  static bool isDark(const Picture& picture, int x, int y);

  // The values of all clear reports so far, oldest first.
  const std::vector<std::uint16_t>& clears() const { return m_clears; }

  // In wire order.
  const SerialNumber& serialNumber() const { return m_serialNumber; }
  void setSerialNumber(const SerialNumber& serialNumber) { m_serialNumber = serialNumber; }

 private:
  struct Pixel {
    int x;
    int y;
  };

  bool setPictureBand(std::span<const std::uint8_t> report);
  void movePen(const PenState& pen);
  void drawInkLine(Pixel from, Pixel to);
  void drawInkPixel(Pixel pixel);

  Options m_options;
  SerialNumber m_serialNumber;
  std::array<Picture, kLayers> m_layers{};
  Picture m_ink{};
  std::optional<Pixel> m_penDownAt;
  std::vector<std::uint16_t> m_clears;
  std::uint8_t m_sequence = 0;
};

}  // namespace virtualpads

#endif
