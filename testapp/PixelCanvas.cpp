#include "PixelCanvas.h"

#include <QPaintEngine>
#include <algorithm>
#include <cmath>

namespace {

constexpr double kMostPixels = 1 << 24;  // 64 MiB

}  // namespace

PixelCanvas::PixelCanvas(QPainter& target, const QRectF& area) : m_target(target) {
  const QTransform toDevice = target.deviceTransform();
  QRectF place = toDevice.mapRect(area);
  // A large view that is scrolled shows a small part of itself.
  const QRegion visible = target.paintEngine()->systemClip();
  if (!visible.isEmpty()) place &= visible.boundingRect();
  if (toDevice.type() > QTransform::TxScale || place.isEmpty() ||
      place.width() * place.height() > kMostPixels) {
    return;
  }
  const QRect pixels = place.toAlignedRect();
  m_origin = pixels.topLeft();
  m_toPixels = toDevice * QTransform::fromTranslate(-m_origin.x(), -m_origin.y());
  m_image = QImage(pixels.size(), QImage::Format_ARGB32_Premultiplied);
  m_image.fill(Qt::transparent);
  m_painter.begin(&m_image);
  m_painter.setTransform(m_toPixels);
}

PixelCanvas::~PixelCanvas() {
  if (m_image.isNull()) return;
  m_painter.end();
  m_target.save();
  // In pixels of the device, whatever is between them and the target's coordinates.
  m_target.setWorldTransform(QTransform::fromTranslate(m_origin.x(), m_origin.y()) *
                             m_target.deviceTransform().inverted() * m_target.worldTransform());
  m_target.drawImage(QPointF(0, 0), m_image);
  m_target.restore();
}

bool PixelCanvas::isAll(const QRectF& rectangle, QRgb colour) const {
  if (m_image.isNull()) return false;
  const auto inside = [](double pixel, int end) {
    return static_cast<int>(std::clamp(pixel, 0.0, static_cast<double>(end)));
  };
  const double left = rectangle.left() * m_toPixels.m11() + m_toPixels.dx();
  const double right = rectangle.right() * m_toPixels.m11() + m_toPixels.dx();
  const double top = rectangle.top() * m_toPixels.m22() + m_toPixels.dy();
  const double bottom = rectangle.bottom() * m_toPixels.m22() + m_toPixels.dy();
  const int firstX = inside(std::floor(left), m_image.width());
  const int endX = inside(std::ceil(right), m_image.width());
  const int endY = inside(std::ceil(bottom), m_image.height());
  for (int y = inside(std::floor(top), m_image.height()); y < endY; ++y) {
    const auto* row = reinterpret_cast<const QRgb*>(m_image.constScanLine(y));
    if (!std::all_of(row + firstX, row + endX, [=](QRgb pixel) { return pixel == colour; })) {
      return false;
    }
  }
  return true;
}
