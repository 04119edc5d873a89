#include "AppDelegate.h"

#include <QApplication>
#include <memory>

#include "MainWindowController.h"

void AppDelegate::attach(QApplication& application) {
  // Deliberate: single-shot. applicationWillTerminate requests the end a second time, and newer
  // versions of Qt emit aboutToQuit again for each request. The connection is removed before the
  // first call, so no further request reaches the delegate.
  connect(
      &application, &QCoreApplication::aboutToQuit, this,
      [this, &application] { applicationWillTerminate(&application); }, Qt::SingleShotConnection);
  QApplication::setQuitOnLastWindowClosed(
      applicationShouldTerminateAfterLastWindowClosed(&application));
}

void AppDelegate::applicationDidFinishLaunching(QObject* /*notification*/) {
  auto controller = std::make_unique<MainWindowController>();
  controller->showWindow(this);
  delete m_mainWindowController.exchange(controller.release());
  m_mainWindowController.load()->initButtons();
}

void AppDelegate::applicationWillTerminate(QObject* notification) {
  QuitNow(notification);
}

bool AppDelegate::applicationShouldTerminateAfterLastWindowClosed(
    QCoreApplication* /*application*/) {
  return true;
}

void AppDelegate::QuitNow(QObject* sender) {
  if (MainWindowController* controller = m_mainWindowController) controller->QuitNow(sender);
}
