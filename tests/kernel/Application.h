// The application in its window, and the actions of a user.
#ifndef TESTS_KERNEL_APPLICATION_H
#define TESTS_KERNEL_APPLICATION_H

#include <QImage>
#include <QRect>
#include <vector>

#include "Desktop.h"
#include "Program.h"
#include "TestPads.h"

// The backend of hidapi that the application was built with, and the faces whose pads it reaches.
bool applicationUsesLibusb();
std::vector<Face> facesOfTheApplication();

// One thread only.
class Application {
 public:
  // Starts the application and waits until its window is painted.
  explicit Application(Desktop& desktop, bool unprivileged = false);

  // These use the keyboard only. The application processes the keys in order; their effect may come
  // after the function returns. During a reset it drops all keys, so what follows one waits.
  void choose(const TestPad& kind);
  void open();  // while idle
  // Waits until the connection opened by `open` is running. The pad's open event is not enough: the
  // kernel sends it a moment before it begins to queue reports for the program.
  void waitUntilConnected() const;
  void clear();  // while connected
  void reset();  // while connected
  void quit();

  Program& program() { return m_program; }

 private:
  void goToList();
  void pressButton(int tabulators);
  void waitForReset();

  Desktop& m_desktop;
  Program m_program;
  bool m_resetting = false;
};

// The drawing view in a picture of the window, by its black frame; empty when there is none.
QRect findView(const QImage& picture);
bool hasInk(const QImage& picture);

constexpr QRgb kInk = 0xFF0000FF;
constexpr QRgb kPaper = 0xFFFFFFFF;

#endif
