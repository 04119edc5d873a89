#include "DrawView.h"

#include <QAccessibleWidget>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>
#include <QThread>
#include <cmath>

#include "PixelFrame.h"

namespace {

constexpr double kUnitsPerInch = 72.0;
constexpr double kLineWidth = 2.0;

// The value, limited to the range from 0 to `most`; 0 for not-a-number.
double within(double most, double value) {
  return value > 0 ? std::fmin(value, most) : 0;
}

QRect rounded(const QRectF& frame) {
  return {qRound(frame.x()), qRound(frame.y()), qRound(frame.width()), qRound(frame.height())};
}

// Screen readers do not know what a custom widget is.
QAccessibleInterface* accessibleView(const QString& /*className*/, QObject* object) {
  auto* view = qobject_cast<DrawView*>(object);
  return view == nullptr ? nullptr : new QAccessibleWidget(view, QAccessible::Canvas);
}

}  // namespace

DrawView::DrawView(QWidget* parent) : QWidget(parent) {
  QAccessible::installFactory(accessibleView);
  m_redrawTimer.setSingleShot(true);
  m_redrawTimer.setTimerType(Qt::PreciseTimer);
  connect(&m_redrawTimer, &QTimer::timeout, this, &DrawView::redraw);
  connect(this, &DrawView::redrawRequested, this, &DrawView::redrawInTime, Qt::QueuedConnection);
}

void DrawView::setNeedsDisplay(bool needed) {
  if (!needed) return;
  if (QThread::currentThread() == thread())
    update();
  else if (!m_redrawPending.exchange(true))
    emit redrawRequested();
}

const QPainterPath& DrawView::path() {
  emptyInbox();
  return m_path;
}

bool DrawView::flipped() const {
  return true;
}

void DrawView::ClearContext() {
  emptyInbox();
  m_path.closeSubpath();
  m_path = {};  // not clear(), which leaves a point in the corner
}

void DrawView::SetMoveTo(std::int32_t x, std::int32_t ypos) {
  post({Step::Move, x, ypos});
}

void DrawView::SetLineTo(std::int32_t x, std::int32_t ypos) {
  post({Step::Line, x, ypos});
  setNeedsDisplay(true);
}

void DrawView::drawRect(QPainter& painter, const QRect& /*dirty*/) {
  setbgwhite(painter);
  QPen ink = painter.pen();
  ink.setColor(Qt::blue);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.strokePath(path(), ink);
}

void DrawView::resize(double w, double height) {
  const QRectF old = frame();
  const double newWidth = w * kUnitsPerInch;
  const double newHeight = height * kUnitsPerInch;
  const double newX = std::fabs(old.x() - (newWidth - old.width()) * 0.5);
  const double newY = std::fabs(old.y() - (newHeight - old.height()) * 0.5);
  m_frame.setSize({within(QWIDGETSIZE_MAX, newWidth), within(QWIDGETSIZE_MAX, newHeight)});
  m_frame.moveTo(within(QWIDGETSIZE_MAX - m_frame.width(), newX),
                 within(QWIDGETSIZE_MAX - m_frame.height(), newY));
  setGeometry(rounded(m_frame));
  emit frameChanged(m_frame);
}

void DrawView::setbgwhite(QPainter& painter) {
  painter.setRenderHint(QPainter::Antialiasing, false);  // crisp at fractional scales too
  painter.fillRect(bounds(), Qt::white);
  painter.setPen({Qt::black, kLineWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin});
  // Deliberate: not stroked with the pen, which would leave half of its width outside the view.
  paintPixelFrame(painter, rect(), kLineWidth, Qt::black);
}

QRectF DrawView::frame() const {
  // The form and layouts place the widget directly. Then only its geometry is known.
  return rounded(m_frame) == geometry() ? m_frame : QRectF(geometry());
}

QRectF DrawView::bounds() const {
  return rect();
}

void DrawView::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  drawRect(painter, event->rect());
  m_lastPaint = Clock::now();
}

// The pen sends many samples per frame. A redraw for each would show no more and use a whole core.
void DrawView::redrawInTime() {
  using std::chrono::ceil, std::chrono::milliseconds;
  const std::chrono::duration<double> frame(1 / screen()->refreshRate());
  const auto wait = ceil<milliseconds>(m_lastPaint + frame - Clock::now());
  if (wait > milliseconds(0))
    m_redrawTimer.start(wait);
  else
    redraw();
}

void DrawView::redraw() {
  m_redrawPending = false;
  update();
}

void DrawView::post(PathStep step) {
  const std::lock_guard lock(m_inboxMutex);
  m_inbox.push_back(step);
}

void DrawView::emptyInbox() {
  {
    const std::lock_guard lock(m_inboxMutex);
    m_emptied.swap(m_inbox);
  }
  for (const PathStep& step : m_emptied)
    if (step.step == Step::Move)
      m_path.moveTo(step.x, step.y);
    else if (m_path.elementCount() > 0)  // otherwise the path would draw a line from its corner
      m_path.lineTo(step.x, step.y);
  m_emptied.clear();
}
