#include "DrawView.h"

#include <QPaintEvent>
#include <QPainter>
#include <array>
#include <cmath>

#include "PixelCanvas.h"

namespace {

constexpr double kUnitsPerInch = 72.0;
constexpr double kLineWidth = 2.0;

// The value, or the nearer end of 0 to `most` when it is outside; 0 for not-a-number.
double within(double most, double value) {
  return value > 0 ? std::fmin(value, most) : 0;
}

QRect rounded(const QRectF& frame) {
  return {qRound(frame.x()), qRound(frame.y()), qRound(frame.width()), qRound(frame.height())};
}

// Strokes the path. A pen leaves strokes of a single segment each, many thousands in the end, most
// of them where there is ink enough already: those are passed over, for they would not change a
// pixel.
void strokeInk(PixelCanvas& canvas, const QPainterPath& path, const QPen& pen) {
  std::array<QLineF, 64> segments;
  int count = 0;
  QPainter& painter = canvas.painter();
  painter.setPen(pen);
  const auto drawSegments = [&] {
    painter.drawLines(segments.data(), count);
    count = 0;
  };
  const double reach = pen.widthF() / 2;
  const QRgb colour = pen.color().rgb();
  for (int begin = 0, end = 0; begin < path.elementCount(); begin = end) {
    end = begin + 1;
    while (end < path.elementCount() && path.elementAt(end).isLineTo()) ++end;
    if (end - begin == 2) {
      const QLineF segment(path.elementAt(begin), path.elementAt(begin + 1));
      const QRectF touched =
          QRectF(segment.p1(), segment.p2()).normalized().adjusted(-reach, -reach, reach, reach);
      if (segment.p1() == segment.p2() || canvas.isAll(touched, colour)) continue;
      segments[static_cast<std::size_t>(count++)] = segment;
      if (count == std::ssize(segments)) drawSegments();
    } else if (end - begin > 2) {
      QPainterPath stroke(path.elementAt(begin));
      for (int i = begin + 1; i < end; ++i) stroke.lineTo(path.elementAt(i));
      painter.strokePath(stroke, pen);
    }
  }
  drawSegments();
}

}  // namespace

DrawView::DrawView(QWidget* parent) : QWidget(parent) {
  connect(
      this, &DrawView::redrawRequested, this,
      [this] {
        m_redrawPending = false;
        update();
      },
      Qt::QueuedConnection);
}

void DrawView::setNeedsDisplay(bool needed) {
  if (needed && !m_redrawPending.exchange(true)) {
    emit redrawRequested();
  }
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
  PixelCanvas canvas(painter, bounds());
  setbgwhite(canvas.painter());
  QPen ink = canvas.painter().pen();
  ink.setColor(Qt::blue);
  canvas.painter().setRenderHint(QPainter::Antialiasing);
  strokeInk(canvas, path(), ink);
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
  painter.drawRect(bounds());
}

QRectF DrawView::frame() const {
  // The form and layouts place the widget without telling; then its geometry is all there is.
  return rounded(m_frame) == geometry() ? m_frame : QRectF(geometry());
}

QRectF DrawView::bounds() const {
  return rect();
}

void DrawView::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  drawRect(painter, event->rect());
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
  for (const PathStep& step : m_emptied) {
    if (step.step == Step::Move) {
      m_path.moveTo(step.x, step.y);
    } else if (m_path.elementCount() > 0) {  // else the path would draw a line from its corner
      m_path.lineTo(step.x, step.y);
    }
  }
  m_emptied.clear();
}
