// Where the windows of the application and the pad fit on a screen.
#ifndef DEMONSTRATION_SIDEBYSIDE_H
#define DEMONSTRATION_SIDEBYSIDE_H

#include <QPoint>
#include <QRect>
#include <QSize>

namespace demonstration {

struct Places {
  QPoint application;
  QPoint pad;
};

// The pad's window is to the right of the application's, at the same height. Where that does not
// fit within `screen`, the pad's window moves up and the application's moves left, as far as
// needed. A window that is too large still begins on the screen. All rectangles and sizes are those
// of window frames.
Places sideBySide(const QRect& screen, const QRect& application, QSize pad);

}  // namespace demonstration

#endif
