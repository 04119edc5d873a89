#ifndef TESTAPP_TERMINATIONSIGNALS_H
#define TESTAPP_TERMINATIONSIGNALS_H

#include <QObject>

// Lets the signals that end programs leave no pad open: SIGINT, SIGTERM and, unless the process was
// started to outlive its terminal, SIGHUP become a Qt signal on the GUI thread, once. A second one
// ends the process at once, for a pen that lies on the pad keeps the close waiting. A line that
// nobody reads any more is lost without SIGPIPE. Make one for the process, after the application
// object.
class TerminationSignals : public QObject {
  Q_OBJECT

 public:
  explicit TerminationSignals(QObject* parent = nullptr);

 signals:
  // The application is to end.
  void received(QObject* sender);
};

#endif
