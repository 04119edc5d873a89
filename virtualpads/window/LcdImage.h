// The bitmaps of the ink pad's LCD as pictures.
#ifndef VIRTUALPADS_WINDOW_LCDIMAGE_H
#define VIRTUALPADS_WINDOW_LCDIMAGE_H

#include <QImage>

#include "virtualpads/InkPad.h"

namespace virtualpads {

struct LcdColors {
  QRgb light;
  QRgb dark;
};
inline constexpr LcdColors kLitLcd{0xFFE3EBD9, 0xFF1A2419};
inline constexpr LcdColors kUnlitLcd{0xFF98A293, 0xFF262C26};

// An independent picture of 320 x 240, one pixel for each pixel of the LCD.
inline QImage lcdImage(const InkPad::Picture& bitmap, const LcdColors& colors) {
  QImage image = QImage(bitmap.data(), InkPad::kLcdWidth, InkPad::kLcdHeight, InkPad::kLcdRowBytes,
                        QImage::Format_MonoLSB)
                     .copy();
  image.setColorTable({colors.light, colors.dark});
  return image;
}

}  // namespace virtualpads

#endif
