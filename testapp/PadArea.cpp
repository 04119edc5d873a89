#include "PadArea.h"

#include <QAccessibleWidget>
#include <QEvent>
#include <QPainter>
#include <QScrollBar>

#include "PixelFrame.h"

namespace {

constexpr QSize kLargestView(324, 202);  // the vision pad's
constexpr int kBorder = 2;

// Screen readers treat a scroll area as a mere filler, but this one takes the focus.
QAccessibleInterface* accessibleArea(const QString& /*className*/, QObject* object) {
  auto* area = qobject_cast<PadArea*>(object);
  return area == nullptr ? nullptr : new QAccessibleWidget(area, QAccessible::Pane);
}

}  // namespace

PadArea::PadArea(QWidget* parent) : QScrollArea(parent) {
  QAccessible::installFactory(accessibleArea);
  setFrameStyle(QFrame::Box | QFrame::Plain);
  setLineWidth(kBorder);
  setMinimumSize(kLargestView.grownBy({kBorder, kBorder, kBorder, kBorder}));
}

void PadArea::showView(QWidget& canvas, const QRect& view) {
  canvas.setGeometry(-view.x(), -view.y(), view.right() + 1, view.bottom() + 1);
  widget()->resize(view.size());
  horizontalScrollBar()->setValue(0);
  verticalScrollBar()->setValue(0);
}

void PadArea::keepWithin(const QSize& screen) {
  // The controls above take more width than the area.
  if (window()->minimumSizeHint().height() > screen.height()) setMinimumHeight(0);
  window()->resize(window()->size().boundedTo(screen));
}

bool PadArea::event(QEvent* event) {
  if (event->type() != QEvent::Paint) return QScrollArea::event(event);
  // Not drawn by the style: its lines are uneven at fractional scale factors and do not mark the
  // focus.
  QPainter painter(this);
  if (hasFocus())
    paintPixelFrame(painter, rect(), kBorder, palette().color(QPalette::Highlight));
  else
    paintPixelFrame(painter, rect(), kBorder / 2.0, palette().color(QPalette::Mid));
  return true;
}
