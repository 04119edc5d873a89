#ifndef TESTAPP_PIXELFRAME_H
#define TESTAPP_PIXELFRAME_H

class QColor;
class QPainter;
class QRect;

// Paints a frame along the inside of `area`, `width` units wide. The frame consists of whole device
// pixels, the same number on each side, at every scale factor. The painter must not be rotated.
void paintPixelFrame(QPainter& painter, const QRect& area, double width, const QColor& colour);

#endif
