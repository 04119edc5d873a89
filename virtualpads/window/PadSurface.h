// The writing surface of a pad on the screen: shows what the surface shows and takes pen input.
// Over the surface, the pointer is a pen.
#ifndef VIRTUALPADS_WINDOW_PADSURFACE_H
#define VIRTUALPADS_WINDOW_PADSURFACE_H

#include <QElapsedTimer>
#include <QImage>
#include <QRect>
#include <QSinglePointEvent>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <optional>
#include <vector>

#include "virtualpads/window/PenSampler.h"

namespace virtualpads {

// What a surface shows.
struct SurfaceView {
  QImage picture;       // fills the surface and gives its proportions
  bool pixels = false;  // a display's pixels: enlarged by whole numbers, never smoothed
  std::optional<QRect> region = std::nullopt;  // a rectangle in the picture to mark
};

// Written on with the mouse's left button or the tip of a tablet's pen. GUI thread only.
class PadSurface : public QWidget {
  Q_OBJECT

 public:
  // The pressure of a mouse, which reports none.
  static constexpr double kMousePressure = 0.5;

  // `send` receives the samples written here, 200 a second while the pen is down. `name` is shown
  // on the case. All later views have a picture of the same size as the first.
  PadSurface(QString name, SurfaceView view, std::function<void(const PenState&)> send);

  void setView(SurfaceView view);
  // Where to mark the pen, whoever moves it. There is no mark while the pen is lifted.
  void setPen(const PenState& pen);

  // The place of the surface in the widget, inside the case.
  QRectF surfaceRect() const;

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void tabletEvent(QTabletEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  QSize sizeForSurface(int width) const;
  void showPointer(const QSinglePointEvent& event);
  void press(const QSinglePointEvent& event, double pressure);
  void move(const QSinglePointEvent& event, double pressure);
  void release(const QSinglePointEvent& event);
  void lift();
  PointerState pointerState(const QSinglePointEvent& event, double pressure) const;
  std::uint32_t now() const;
  void sendAll(const std::vector<PenState>& samples) const;

  const QString m_name;
  const std::function<void(const PenState&)> m_send;
  SurfaceView m_view;
  std::optional<PenState> m_pen;
  bool m_pointerIsPen = false;
  const QPointingDevice* m_writer = nullptr;  // the device whose pen is down
  QMetaObject::Connection m_writerGone;       // lifts the pen when its device is removed
  PenSampler m_sampler;
  QElapsedTimer m_clock;
  QTimer m_sampling;
};

}  // namespace virtualpads

#endif
