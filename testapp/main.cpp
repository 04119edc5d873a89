#include <QApplication>
#include <cstdio>

#include "AppDelegate.h"
#include "TerminationSignals.h"

int main(int argc, char** argv) {
  // Whoever reads standard output through a pipe gets each line when it is printed.
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
