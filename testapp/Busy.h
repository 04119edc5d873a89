#ifndef TESTAPP_BUSY_H
#define TESTAPP_BUSY_H

#include <QObject>

// While it exists, the application does something that takes long on the GUI thread: the pointer
// is the waiting one, and what is clicked or typed meanwhile is dropped. For the GUI thread.
class Busy : public QObject {
  Q_OBJECT

 public:
  // Returns once everything that is waiting to be painted is on the screen.
  Busy();

  // Drops the input that has come meanwhile.
  ~Busy() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
};

#endif
