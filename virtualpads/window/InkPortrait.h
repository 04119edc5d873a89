// The ink pad: its LCD with the picture layers, the backlight, the inking region and the ink.
#ifndef VIRTUALPADS_WINDOW_INKPORTRAIT_H
#define VIRTUALPADS_WINDOW_INKPORTRAIT_H

#include <array>

#include "virtualpads/InkPad.h"
#include "virtualpads/window/PadPortrait.h"

namespace virtualpads {

// A thumbnail of one of the bitmaps that make up the LCD's picture.
class LcdThumbnail : public QWidget {
 public:
  LcdThumbnail();

  // The bitmap is pale while the LCD does not show it.
  void setBitmap(const QImage& bitmap, bool visible);

  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QImage m_bitmap;
  bool m_visible = false;
};

class InkPortrait : public PadPortrait {
 public:
  explicit InkPortrait(const PadModel& pad);

  void showState(const PadModel& pad) override;
  SurfaceView surface() const override;

 private:
  struct Bitmap {
    LcdThumbnail* thumbnail;
    QLabel* caption;
  };

  SurfaceView m_surface;
  QLabel* m_backlight;
  QLabel* m_inkTrace;
  QLabel* m_inkingRegion;
  QLabel* m_clears;
  QLabel* m_serialNumber;
  std::array<Bitmap, InkPad::kLayers> m_layers;
  Bitmap m_ink;
};

}  // namespace virtualpads

#endif
