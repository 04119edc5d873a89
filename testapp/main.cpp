#include <QApplication>
#include <cstdio>

#include "AppDelegate.h"
#include "TerminationSignals.h"

int main(int argc, char** argv) {
  // Each line reaches the reader of a pipe when it is printed.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

  QApplication application(argc, argv);
  AppDelegate delegate;
  TerminationSignals terminationSignals;
  QObject::connect(&terminationSignals, &TerminationSignals::received, &delegate,
                   &AppDelegate::QuitNow);

  delegate.attach(application);
  delegate.applicationDidFinishLaunching(&application);
  return QApplication::exec();
}
