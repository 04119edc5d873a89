// The application in its window, and what a user does to it.
#ifndef TESTS_KERNEL_APPLICATION_H
#define TESTS_KERNEL_APPLICATION_H

#include <QImage>
#include <QRect>
#include <cstddef>

#include "Desktop.h"
#include "Program.h"
#include "TestPads.h"

// One thread only.
class Application {
 public:
  // Starts it and waits for its window.
  explicit Application(Desktop& desktop, bool unprivileged = false);

  // By the keyboard alone. The application takes the keys one after the other: what they do has not
  // come about when these return. While a reset goes on it takes none, so what follows one waits.
  void choose(const TestPad& kind);
  void open();  // while idle
  // Waits until the connection that `open` opens runs. That the pad knows of it is not enough: the
  // kernel tells the pad a moment before it begins to keep reports for the program.
  void waitUntilConnected() const;
  void clear();  // while connected
  void reset();  // while connected
  void quit();

  Program& program() { return m_program; }

 private:
  void goToList();
  void pressButton(int tabulators);
  void waitForReset();
  static QImage resetButton(const QImage& window);

  Desktop& m_desktop;
  Program m_program;
  std::size_t m_idleThreads = 0;
  QImage m_disabled;  // the Reset button as it looks then
  bool m_resetting = false;
};

// The drawing view in a picture of the window, by its black frame; empty when there is none.
QRect findView(const QImage& picture);
bool hasInk(const QImage& picture);

constexpr QRgb kInk = 0xFF0000FF;
constexpr QRgb kPaper = 0xFFFFFFFF;

#endif
