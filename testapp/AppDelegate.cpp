#include "AppDelegate.h"

#include <memory>

#include "MainWindowController.h"

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
  if (MainWindowController* controller = m_mainWindowController) {
    controller->QuitNow(sender);
  }
}
