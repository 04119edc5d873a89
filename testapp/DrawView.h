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

  // Nothing reads or writes this flag. The strokes use the global of the same name.
  std::int8_t firstPoint = 0;

  // Requests a redraw. Requests made before the redraw are merged into one. From the GUI thread,
  // the redraw comes with the next event. From any other thread, it keeps the pace of the screen:
  // it comes once the last redraw is one frame of the screen old. False requests nothing.
  virtual void setNeedsDisplay(bool needed);

  // All ink since the last ClearContext, in the order of the calls of SetMoveTo and SetLineTo.
  virtual const QPainterPath& path();

  // Always true: y grows downward.
  virtual bool flipped() const;

  // Drops all ink that was drawn before the call. Does not request a redraw.
  virtual void ClearContext();

  // Ends the stroke and moves to a point without drawing. Does not request a redraw.
  virtual void SetMoveTo(std::int32_t x, std::int32_t ypos);

  // Continues the stroke to a point and requests a redraw. Draws nothing when there is no point to
  // start from, as after ClearContext.
  virtual void SetLineTo(std::int32_t x, std::int32_t ypos);

  // Paints the whole view, whatever part of it is dirty.
  virtual void drawRect(QPainter& painter, const QRect& dirty);

  // Gives the view the size of a pad in inches, at 72 view units per inch. The centre stays in
  // place. Deliberate: an origin that would become negative is replaced by its absolute value. Any
  // double is allowed: the frame is kept within what the toolkit can hold.
  virtual void resize(double w, double height);

  // Paints the white field and its frame, and leaves the painter with a pen as wide as the ink.
  virtual void setbgwhite(QPainter& painter);

  // The place in the parent widget, with fractions of a unit. The widget's geometry is this,
  // rounded.
  QRectF frame() const;

  // The view's own area.
  QRectF bounds() const;

 signals:
  // resize() has set another frame.
  void frameChanged(const QRectF& frame);

  // Requests a repaint, from any thread. For use by the view itself.
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

  QPainterPath m_path;  // the ink's only store; GUI thread only

  // Steps from any thread that are not in the path yet.
  std::mutex m_inboxMutex;
  std::vector<PathStep> m_inbox;
  std::vector<PathStep> m_emptied;  // swapped with the inbox to reuse its memory

  std::atomic<bool> m_redrawPending = false;  // requested by a thread other than the GUI thread
  QTimer m_redrawTimer;                       // runs until that request is met
  Clock::time_point m_lastPaint;  // when it ended, so that the window's events get a turn
};

#endif
