#ifndef TESTAPP_TERMINATIONSIGNALS_H
#define TESTAPP_TERMINATIONSIGNALS_H

#include <QObject>

// From the moment it is made, no signal that ends programs leaves a pad open: SIGINT, SIGTERM and,
// unless the process was started to outlive its terminal, SIGHUP become a Qt signal on the GUI
// thread, and a line that nobody reads any more is lost without SIGPIPE. Make one for the process,
// after the application object.
class TerminationSignals : public QObject {
  Q_OBJECT

 public:
  explicit TerminationSignals(QObject* parent = nullptr);

 signals:
  void received(QObject* sender);
};

#endif
