#ifndef TESTAPP_BUSY_H
#define TESTAPP_BUSY_H

#include <QObject>

// Marks a slow operation on the GUI thread: while it exists, the pointer is the waiting one, and
// clicks and key presses are dropped. GUI thread only.
class Busy : public QObject {
  Q_OBJECT

 public:
  // Returns when all pending painting is on the screen.
  Busy();

  // Drops the input that has arrived in the meantime.
  ~Busy() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
};

#endif
