#include "Busy.h"

#include <QApplication>
#include <QEvent>

Busy::Busy() {
  QApplication::setOverrideCursor(Qt::WaitCursor);
  qApp->installEventFilter(this);
  // The first pass paints; the second sends what was painted to the window system.
  for (int i = 0; i < 2; ++i) QApplication::processEvents();
}

Busy::~Busy() {
  QApplication::processEvents();
  QApplication::restoreOverrideCursor();
}

bool Busy::eventFilter(QObject* /*watched*/, QEvent* event) {
  return event->isInputEvent() || event->type() == QEvent::Shortcut;
}
