#ifndef TESTAPP_TERMINATIONSIGNALS_H
#define TESTAPP_TERMINATIONSIGNALS_H

#include <QObject>

// Turns SIGINT and SIGTERM, from the moment it is made, into a Qt signal on the GUI thread. Make
// one for the process, after the application object.
class TerminationSignals : public QObject {
  Q_OBJECT

 public:
  explicit TerminationSignals(QObject* parent = nullptr);

 signals:
  void received(QObject* sender);
};

#endif
