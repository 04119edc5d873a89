#ifndef TESTAPP_TERMINATIONSIGNALS_H
#define TESTAPP_TERMINATIONSIGNALS_H

#include <QObject>

// Ends the application on a signal so that no pad stays open: the first SIGINT, SIGTERM or, unless
// the process was started to outlive its terminal, SIGHUP becomes a Qt signal on the GUI thread. A
// second one ends the process at once, because a pen on the pad delays the close. SIGPIPE is
// ignored: a line that nobody reads any more is lost. Create one for the process, after the
// application object.
class TerminationSignals : public QObject {
  Q_OBJECT

 public:
  explicit TerminationSignals(QObject* parent = nullptr);

 signals:
  // The application should end.
  void received(QObject* sender);
};

#endif
