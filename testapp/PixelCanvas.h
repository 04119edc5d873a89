// An area of a painter as pixels of its own: painted like the area itself, and looked at meanwhile.
#ifndef TESTAPP_PIXELCANVAS_H
#define TESTAPP_PIXELCANVAS_H

#include <QImage>
#include <QPainter>
#include <QRectF>
#include <QTransform>

// The pixels are exactly those that the area has on the target's device, at any scale factor, so
// that what is painted looks as if it had been painted on the target. For the target's thread. No
// operation fails; see painter().
class PixelCanvas {
 public:
  // Begins transparent. `target` must outlive the canvas.
  PixelCanvas(QPainter& target, const QRectF& area);

  // Puts the pixels onto the target.
  ~PixelCanvas();

  PixelCanvas(const PixelCanvas&) = delete;
  PixelCanvas& operator=(const PixelCanvas&) = delete;

  // What to paint with, in the target's coordinates; begins without pen and hints of the target. It
  // is the target itself where the area is turned or has more pixels than can sensibly be kept.
  QPainter& painter() { return m_image.isNull() ? m_target : m_painter; }

  // Whether all pixels that the rectangle touches have that colour already, so that painting it
  // there changes nothing; false where that cannot be told. The rectangle is in the target's
  // coordinates and may lie outside the area, where there are no pixels.
  bool isAll(const QRectF& rectangle, QRgb colour) const;

 private:
  QPainter& m_target;
  QTransform m_toPixels;  // from the target's coordinates to the image's
  QPoint m_origin;        // of the image, in pixels of the target's device
  QImage m_image;         // null where the target itself is painted
  QPainter m_painter;
};

#endif
