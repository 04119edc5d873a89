#ifndef TESTAPP_PADAREA_H
#define TESTAPP_PADAREA_H

#include <QScrollArea>

// The part of the window in which the drawing view lies: in its middle, or scrolled where there is
// no room for it. Its widget is a page as large as the view; on it lies the canvas, the view's
// parent, so that the view covers the page wherever it has its frame. For the GUI thread.
class PadArea : public QScrollArea {
  Q_OBJECT

 public:
  // Begins with room for the view of each of the four pads.
  explicit PadArea(QWidget* parent = nullptr);

  // Lays the canvas anew for another place of the view on it. What does not fit is scrolled to the
  // corner where writing begins.
  void showView(QWidget& canvas, const QRect& view);

  // Lets the area be as small as its window needs on a screen of that size.
  void keepWithin(const QSize& screen);

 protected:
  bool event(QEvent* event) override;
};

#endif
