// Where the application's window and the pad's fit on a screen.
#ifndef VIRTUALPADS_DEMONSTRATION_SIDEBYSIDE_H
#define VIRTUALPADS_DEMONSTRATION_SIDEBYSIDE_H

#include <QPoint>
#include <QRect>
#include <QSize>

namespace demonstration {

struct Places {
  QPoint application;
  QPoint pad;
};

// The pad's window stands to the right of the application's, at the same height. Where that is not
// within `screen` the pad's moves up and the application's to the left, as far as needed; a window
// begins on the screen even where they are too large for it. All are frames of windows.
Places sideBySide(const QRect& screen, const QRect& application, QSize pad);

}  // namespace demonstration

#endif
