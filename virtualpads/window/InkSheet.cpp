#include "virtualpads/window/InkSheet.h"

#include <QPainter>
#include <QSizeF>

namespace virtualpads {

namespace {

constexpr double kPixelsPerInch = 200;
constexpr double kThinnest = 2;  // pixels, with no pressure
constexpr double kThickest = 6;

}  // namespace

InkSheet::InkSheet(const PadModel& pad, QColor ink)
    : m_sheet(
          (QSizeF(pad.description().widthInches, pad.description().heightInches) * kPixelsPerInch)
              .toSize(),
          QImage::Format_ARGB32_Premultiplied),
      m_ink(ink) {
  wipe();
}

void InkSheet::movePen(const PenState& pen, bool inking) {
  if (!pen.touch) {
    m_penDownAt.reset();
    return;
  }
  const QPointF to(pen.x * m_sheet.width(), pen.y * m_sheet.height());
  if (inking) {
    QPainter painter(&m_sheet);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(m_ink, kThinnest + pen.pressure * (kThickest - kThinnest), Qt::SolidLine,
                        Qt::RoundCap));
    const QPointF from = m_penDownAt.value_or(to);
    if (from == to)
      painter.drawPoint(to);
    else
      painter.drawLine(from, to);
  }
  m_penDownAt = to;
}

void InkSheet::wipe() {
  m_sheet.fill(Qt::transparent);
}

QImage InkSheet::picture(QColor paper) const {
  QImage picture(m_sheet.size(), QImage::Format_RGB32);
  picture.fill(paper);
  QPainter(&picture).drawImage(0, 0, m_sheet);
  return picture;
}

}  // namespace virtualpads
