// vela-display-probe: exits with 0 when a program with a window finds its display, else with 1.
// Without a display the toolkit would abort the program.
#include <QGuiApplication>
#include <cstdlib>

int main(int argc, char** argv) {
  qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString&) {
    if (type == QtFatalMsg) std::_Exit(1);
  });
  const QGuiApplication application(argc, argv);
  return 0;
}
