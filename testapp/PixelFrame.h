#ifndef TESTAPP_PIXELFRAME_H
#define TESTAPP_PIXELFRAME_H

class QColor;
class QPainter;
class QRect;

// Paints a frame along the inside of `area`, `width` units wide. It is made of whole pixels of the
// device, the same number on each side, whatever the scale factor. The painter must not be rotated.
void paintPixelFrame(QPainter& painter, const QRect& area, double width, const QColor& colour);

#endif
