// What the application does when it starts and when it ends. For the GUI thread.
#ifndef TESTAPP_APPDELEGATE_H
#define TESTAPP_APPDELEGATE_H

#include <QObject>

class QApplication;
class QCoreApplication;

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  using QObject::QObject;

  // Lets the application call its delegate: applicationWillTerminate once, when it ends, and
  // applicationShouldTerminateAfterLastWindowClosed.
  void attach(QApplication& application);

  // Makes the main window controller, shows its window, publishes it in m_mainWindowController and
  // sets its buttons.
  void applicationDidFinishLaunching(QObject* notification);

  // Resets, so that the connection and the provider are closed before the process ends, and asks
  // the application once more to end. That request has no effect: it is ending already.
  void applicationWillTerminate(QObject* notification);

  // True: closing the window ends the application.
  bool applicationShouldTerminateAfterLastWindowClosed(QCoreApplication* application);

 public slots:
  // Does what the controller's QuitNow does; nothing while there is no controller.
  void QuitNow(QObject* sender);
};

#endif
