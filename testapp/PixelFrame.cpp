#include "PixelFrame.h"

#include <QColor>
#include <QPainter>
#include <QRegion>

void paintPixelFrame(QPainter& painter, const QRect& area, double width, const QColor& colour) {
  const QTransform toDevice = painter.deviceTransform();
  const QRectF place = toDevice.mapRect(QRectF(area));
  // Each edge is rounded by itself, as the toolkit does when it clips a widget.
  const QRect outside(QPoint(qRound(place.left()), qRound(place.top())),
                      QPoint(qRound(place.right()) - 1, qRound(place.bottom()) - 1));
  const int pixels = qRound(width * toDevice.m11());
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing, false);
  // Paint in device pixels, whatever the painter's coordinates.
  painter.setWorldTransform(toDevice.inverted() * painter.worldTransform());
  for (const QRect& side :
       QRegion(outside).subtracted(outside.adjusted(pixels, pixels, -pixels, -pixels)))
    painter.fillRect(side, colour);
  painter.restore();
}
