// An X server without a monitor, with a program's window, simulated input and screenshots.
#ifndef TESTS_KERNEL_DESKTOP_H
#define TESTS_KERNEL_DESKTOP_H

#include <QImage>
#include <QRect>
#include <functional>
#include <memory>
#include <string>

#include "Program.h"

struct _XDisplay;

// A key's name, as in X11/keysym.h.
using KeyName = unsigned long;

// One thread only. Operations that wait throw std::runtime_error after 120 s.
class Desktop {
 public:
  // Starts Xvfb.
  Desktop();

  // ":N", for the DISPLAY of a program.
  const std::string& name() const { return m_name; }

  // Waits for a top-level window with that title and gives it the keyboard. There is one at a time.
  void waitForWindow(const std::string& title);

  // Presses and releases a key, such as XK_o, while another one, such as XK_Alt_L, is held down.
  void press(KeyName key);
  void press(KeyName held, KeyName key);
  // Requests the window to close, as the close button in a window's frame does.
  void closeWindow();

  // The window as it looks now.
  QImage picture() const;
  // The same for a single pixel, which is much faster.
  QRgb pixel(QPoint point) const;
  // Looks at the picture, and again after each change, until it is as wanted, and returns it.
  QImage waitForPicture(const std::function<bool(const QImage&)>& wanted) const;

 private:
  struct CloseDisplay {
    void operator()(_XDisplay* display) const;
  };

  QImage picture(QRect part) const;

  Program m_server;
  std::string m_name;
  std::unique_ptr<_XDisplay, CloseDisplay> m_display;
  unsigned long m_window = 0;
  unsigned long m_damage = 0;  // of the window: the server's record of changes
};

#endif
