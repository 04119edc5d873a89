#include "SideBySide.h"

#include <algorithm>

namespace demonstration {

namespace {

constexpr int kGap = 12;

// The position nearest to `wanted` at which the length ends before `end`, if it can without
// beginning before `begin`.
int within(int begin, int end, int wanted, int length) {
  return std::max(begin, std::min(wanted, end - length));
}

}  // namespace

Places sideBySide(const QRect& screen, const QRect& application, QSize pad) {
  const int right = screen.x() + screen.width();
  const int bottom = screen.y() + screen.height();
  const int both = application.width() + kGap + pad.width();
  const int left = within(screen.x(), right, application.x(), both);
  return {{left, application.y()},
          {within(screen.x(), right, left + application.width() + kGap, pad.width()),
           within(screen.y(), bottom, application.y(), pad.height())}};
}

}  // namespace demonstration
