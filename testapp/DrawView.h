// The drawing area of the main window: a white field with a black frame, and all ink received since
// it was last cleared, in blue.
#ifndef TESTAPP_DRAWVIEW_H
#define TESTAPP_DRAWVIEW_H

#include <QPainterPath>
#include <QRectF>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

// View units are the toolkit's device-independent pixels; the origin is the top left corner and y
// grows downward. SetMoveTo, SetLineTo and setNeedsDisplay may be called on any thread, everything
// else on the GUI thread only. No operation fails.
class DrawView : public QWidget {
  Q_OBJECT

 public:
  explicit DrawView(QWidget* parent = nullptr);

  // A flag of the view that nothing reads or writes. The strokes go by the global of this name.
  std::int8_t firstPoint = 0;

  // Requests a redraw; all requests up to the redraw are one. On the GUI thread the next event
  // brings it. On any other thread the screen's pace is kept: it comes once the last one is a
  // frame of the screen old. False requests nothing.
  virtual void setNeedsDisplay(bool needed);

  // All ink since the last ClearContext, in the order of the calls of SetMoveTo and SetLineTo.
  virtual const QPainterPath& path();

  // Always true: y grows downward.
  virtual bool flipped() const;

  // Drops all ink that came before the call. Does not ask for a redraw.
  virtual void ClearContext();

  // Ends the stroke and goes to a point without ink. Does not ask for a redraw.
  virtual void SetMoveTo(std::int32_t x, std::int32_t ypos);

  // Continues the stroke to a point and asks for a redraw. With no point to start from, as after a
  // ClearContext, it draws nothing.
  virtual void SetLineTo(std::int32_t x, std::int32_t ypos);

  // Paints the whole view, whatever part of it is dirty.
  virtual void drawRect(QPainter& painter, const QRect& dirty);

  // Gives the view the size of a pad, in inches; the view takes 72 units for each. The centre
  // stays, except that an origin which would become negative is mirrored to its absolute value;
  // that is meant. Any double is allowed: the frame is kept within what the toolkit can hold.
  virtual void resize(double w, double height);

  // Paints the white field and its frame, and leaves the painter with a pen as wide as the ink.
  virtual void setbgwhite(QPainter& painter);

  // The place in the parent widget, in fractions of a unit. The widget's geometry is this, rounded.
  QRectF frame() const;

  // The view's own area.
  QRectF bounds() const;

 signals:
  // Another frame was set by resize().
  void frameChanged(const QRectF& frame);

  // From any thread: the view is to be repainted. For the view itself.
  void redrawRequested();

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  enum class Step : std::uint8_t { Move, Line };
  struct PathStep {
    Step step;
    std::int32_t x;
    std::int32_t y;
  };

  using Clock = std::chrono::steady_clock;

  void post(PathStep step);
  void emptyInbox();
  void redrawInTime();
  void redraw();

  QRectF m_frame;

  QPainterPath m_path;  // the ink's only store; for the GUI thread

  // What is not in the path yet, from any thread.
  std::mutex m_inboxMutex;
  std::vector<PathStep> m_inbox;
  std::vector<PathStep> m_emptied;  // the inbox's memory, used in turn

  std::atomic<bool> m_redrawPending = false;  // of a thread other than the GUI thread
  QTimer m_redrawTimer;                       // runs until that request is met
  Clock::time_point m_lastPaint;  // its end, so that the window's events have their turn
};

#endif
