#ifndef TESTAPP_PADAREA_H
#define TESTAPP_PADAREA_H

#include <QScrollArea>

// The part of the window that holds the drawing view: centred, or scrolled where there is no room
// for it. Its widget is a page as large as the view. On the page lies the canvas, the view's
// parent, so that the view covers the page wherever its frame is. GUI thread only.
class PadArea : public QScrollArea {
  Q_OBJECT

 public:
  // Starts with room for the view of any of the four pads.
  explicit PadArea(QWidget* parent = nullptr);

  // Moves the canvas to suit a new place of the view on it. A view that does not fit is scrolled to
  // the corner where writing begins.
  void showView(QWidget& canvas, const QRect& view);

  // Limits the window to a screen of that size. The area may become lower where the window needs
  // it.
  void keepWithin(const QSize& screen);

 protected:
  bool event(QEvent* event) override;
};

#endif
