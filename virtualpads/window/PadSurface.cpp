#include "virtualpads/window/PadSurface.h"

#include <QMouseEvent>
#include <QPainter>
#include <QTabletEvent>
#include <algorithm>
#include <cmath>
#include <utility>

namespace virtualpads {

namespace {

// The case around the surface, in the widget's units.
constexpr QMargins kCase(22, 22, 22, 44);
constexpr int kNameHeight = 44;
constexpr double kCaseRadius = 12;
const QColor kCaseColor(0x3A, 0x40, 0x49);
const QColor kCaseEdge(0x5C, 0x65, 0x72);
const QColor kNameColor(0xD5, 0xDA, 0xE0);
const QColor kRegionColor(0x2F, 0x6F, 0xD6);
const QColor kPenColor(0xD9, 0x48, 0x0F);

constexpr int kComfortableWidth = 640;
constexpr int kSmallestWidth = 320;

// The tip is the lower left corner.
QCursor penCursor(double devicePixelRatio) {
  constexpr int kSize = 24;
  QPixmap picture(QSize(kSize, kSize) * devicePixelRatio);
  picture.setDevicePixelRatio(devicePixelRatio);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(Qt::white, 1));
  painter.setBrush(Qt::black);
  painter.drawPolygon(QPolygonF({{0.5, 23.5}, {3, 16}, {17, 2}, {22, 7}, {8, 21}}));
  painter.drawLine(QPointF(3, 16), QPointF(8, 21));
  painter.end();
  return QCursor(picture, 0, kSize - 1);
}

}  // namespace

PadSurface::PadSurface(QString name, SurfaceView view, std::function<void(const PenState&)> send)
    : m_name(std::move(name)), m_send(std::move(send)), m_view(std::move(view)) {
  setMouseTracking(true);
  setTabletTracking(true);
  setObjectName("padSurface");
  setAccessibleName("Writing surface");
  m_clock.start();
  m_sampling.setTimerType(Qt::PreciseTimer);
  m_sampling.setInterval(PenSampler::kPeriod);
  connect(&m_sampling, &QTimer::timeout, this, [this] { sendAll(m_sampler.sample(now())); });
}

void PadSurface::setView(SurfaceView view) {
  m_view = std::move(view);
  update();
}

void PadSurface::setPen(const PenState& pen) {
  m_pen = pen.touch ? std::optional(pen) : std::nullopt;
  update();
}

// In whole device pixels, so that a display's pixels stay equally large.
QRectF PadSurface::surfaceRect() const {
  const double ratio = devicePixelRatioF();
  const QRectF room = QRectF(rect().marginsRemoved(kCase));
  const QSizeF picture = m_view.picture.size();
  double scale = ratio * std::min(room.width() / picture.width(), room.height() / picture.height());
  if (m_view.pixels && scale > 1) scale = std::floor(scale);
  const double width = std::round(picture.width() * scale);
  const double height = std::round(picture.height() * scale);
  const double left = std::round(room.center().x() * ratio - width / 2);
  const double top = std::round(room.center().y() * ratio - height / 2);
  return {left / ratio, top / ratio, width / ratio, height / ratio};
}

QSize PadSurface::sizeHint() const {
  return sizeForSurface(kComfortableWidth);
}

QSize PadSurface::minimumSizeHint() const {
  return sizeForSurface(kSmallestWidth);
}

QSize PadSurface::sizeForSurface(int width) const {
  const QSize picture = m_view.picture.size();
  return QSize(width, width * picture.height() / picture.width()).grownBy(kCase);
}

void PadSurface::paintEvent(QPaintEvent*) {
  const QRectF surface = surfaceRect();
  const QRectF outline = surface.marginsAdded(QMarginsF(kCase)).adjusted(0.5, 0.5, -0.5, -0.5);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(kCaseEdge);
  painter.setBrush(kCaseColor);
  painter.drawRoundedRect(outline, kCaseRadius, kCaseRadius);
  painter.setPen(kNameColor);
  painter.drawText(QRectF(surface.left(), surface.bottom(), surface.width(), kNameHeight),
                   Qt::AlignCenter, m_name);

  painter.setRenderHint(QPainter::SmoothPixmapTransform, !m_view.pixels);
  painter.drawImage(surface, m_view.picture);

  painter.setClipRect(surface);
  painter.setBrush(Qt::NoBrush);
  if (m_view.region) {
    const double scale = surface.width() / m_view.picture.width();
    painter.setPen(QPen(kRegionColor, 1, Qt::DashLine));
    painter.drawRect(QRectF(QPointF(m_view.region->topLeft()) * scale + surface.topLeft(),
                            QSizeF(m_view.region->size()) * scale));
  }
  if (m_pen) {
    const QPointF at(surface.left() + m_pen->x * surface.width(),
                     surface.top() + m_pen->y * surface.height());
    painter.setPen(QPen(Qt::white, 4));
    painter.drawEllipse(at, 6, 6);
    painter.setPen(QPen(kPenColor, 2));
    painter.drawEllipse(at, 6, 6);
  }
}

void PadSurface::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) press(*event, kMousePressure);
}

void PadSurface::mouseMoveEvent(QMouseEvent* event) {
  showPointer(*event);
  move(*event, kMousePressure);
}

void PadSurface::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) release(*event);
}

// Accepts all tablet events, because Qt turns unaccepted ones into mouse events.
void PadSurface::tabletEvent(QTabletEvent* event) {
  event->accept();
  if (event->type() == QEvent::TabletMove) {
    showPointer(*event);
    move(*event, event->pressure());
  } else if (event->button() != Qt::LeftButton) {
    return;
  } else if (event->type() == QEvent::TabletPress) {
    press(*event, event->pressure());
  } else {
    release(*event);
  }
}

void PadSurface::hideEvent(QHideEvent*) {
  lift();
}

void PadSurface::showPointer(const QSinglePointEvent& event) {
  const bool pen = surfaceRect().contains(event.position());
  if (pen == m_pointerIsPen) return;
  m_pointerIsPen = pen;
  if (pen)
    setCursor(penCursor(devicePixelRatioF()));
  else
    unsetCursor();
}

void PadSurface::press(const QSinglePointEvent& event, double pressure) {
  if (m_writer == event.pointingDevice()) lift();  // the desktop did not deliver the lift
  if (m_writer != nullptr || !surfaceRect().contains(event.position())) return;
  m_writer = event.pointingDevice();
  m_writerGone = connect(m_writer, &QObject::destroyed, this, &PadSurface::lift);
  sendAll(m_sampler.press(pointerState(event, pressure), now()));
  m_sampling.start();
}

void PadSurface::move(const QSinglePointEvent& event, double pressure) {
  if (m_writer == event.pointingDevice()) m_sampler.move(pointerState(event, pressure));
}

void PadSurface::release(const QSinglePointEvent& event) {
  if (m_writer == event.pointingDevice()) lift();
}

void PadSurface::lift() {
  m_writer = nullptr;
  disconnect(m_writerGone);
  m_sampling.stop();
  sendAll(m_sampler.lift(now()));
}

PointerState PadSurface::pointerState(const QSinglePointEvent& event, double pressure) const {
  const QRectF surface = surfaceRect();
  return {std::clamp((event.position().x() - surface.left()) / surface.width(), 0.0, 1.0),
          std::clamp((event.position().y() - surface.top()) / surface.height(), 0.0, 1.0),
          pressure};
}

std::uint32_t PadSurface::now() const {
  return static_cast<std::uint32_t>(m_clock.elapsed());
}

void PadSurface::sendAll(const std::vector<PenState>& samples) const {
  for (const PenState& sample : samples) m_send(sample);
}

}  // namespace virtualpads
