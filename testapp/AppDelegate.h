// What the application does when it starts and when it ends. GUI thread only.
#ifndef TESTAPP_APPDELEGATE_H
#define TESTAPP_APPDELEGATE_H

#include <QObject>

class QApplication;
class QCoreApplication;

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  using QObject::QObject;

  // Connects the application to its delegate: it calls applicationWillTerminate once, when it ends,
  // and uses applicationShouldTerminateAfterLastWindowClosed.
  void attach(QApplication& application);

  // Creates the main window controller, shows its window, publishes it in m_mainWindowController
  // and sets its buttons.
  void applicationDidFinishLaunching(QObject* notification);

  // Performs a reset, so that the connection and the provider are closed before the process ends,
  // then asks the application to end again. That request has no effect: the application is ending
  // already.
  void applicationWillTerminate(QObject* notification);

  // True: closing the window ends the application.
  bool applicationShouldTerminateAfterLastWindowClosed(QCoreApplication* application);

 public slots:
  // Calls the controller's QuitNow. Does nothing while there is no controller.
  void QuitNow(QObject* sender);
};

#endif
