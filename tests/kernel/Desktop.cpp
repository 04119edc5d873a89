#include "Desktop.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xdamage.h>
#include <poll.h>

#include <chrono>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kWaitLimit{120};

std::string titleOf(Display* display, Window window) {
  char* text = nullptr;
  if (XFetchName(display, window, &text) == 0) return {};
  std::string title = text;
  XFree(text);
  return title;
}

// Windows may disappear while they are examined; the resulting errors are ignored.
int ignoreError(Display*, XErrorEvent*) {
  return 0;
}

// Waits until the server has sent an event. False on a time-out.
bool waitForEvent(Display* display, Clock::time_point limit) {
  while (XPending(display) == 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now()).count();
    pollfd connection{ConnectionNumber(display), POLLIN, 0};
    if (left <= 0 || poll(&connection, 1, static_cast<int>(left)) == 0) return false;
  }
  return true;
}

}  // namespace

void Desktop::CloseDisplay::operator()(_XDisplay* display) const {
  XCloseDisplay(display);
}

// Without GLX, the server loads no renderer, which takes seconds on an emulated processor.
Desktop::Desktop()
    : m_server("/usr/bin/Xvfb",
               {.arguments = {"-displayfd", "1", "-ac", "-nolisten", "tcp", "-extension", "GLX",
                              "-screen", "0", "800x600x24"}}) {
  const std::size_t number = m_server.waitForLine([](const std::string& line) {
    return !line.empty() && line.find_first_not_of("0123456789") == std::string::npos;
  });
  m_name = ":" + m_server.lines()[number];
  m_display.reset(XOpenDisplay(m_name.c_str()));
  if (m_display == nullptr) throw std::runtime_error("no connection to the X server");
  XSetErrorHandler(ignoreError);
  XSelectInput(m_display.get(), DefaultRootWindow(m_display.get()), SubstructureNotifyMask);
}

void Desktop::waitForWindow(const std::string& title) {
  const auto limit = Clock::now() + kWaitLimit;
  while (waitForEvent(m_display.get(), limit)) {
    XEvent event;
    XNextEvent(m_display.get(), &event);
    if (event.type == MapNotify && titleOf(m_display.get(), event.xmap.window) == title) {
      m_window = event.xmap.window;
      m_damage = XDamageCreate(m_display.get(), m_window, XDamageReportNonEmpty);
      XSetInputFocus(m_display.get(), m_window, RevertToPointerRoot, CurrentTime);
      XSync(m_display.get(), False);
      return;
    }
  }
  throw std::runtime_error("no window with the title " + title);
}

void Desktop::press(KeyName key) {
  const KeyCode code = XKeysymToKeycode(m_display.get(), key);
  XTestFakeKeyEvent(m_display.get(), code, True, CurrentTime);
  XTestFakeKeyEvent(m_display.get(), code, False, CurrentTime);
  XFlush(m_display.get());
}

void Desktop::press(KeyName held, KeyName key) {
  const KeyCode code = XKeysymToKeycode(m_display.get(), held);
  XTestFakeKeyEvent(m_display.get(), code, True, CurrentTime);
  press(key);
  XTestFakeKeyEvent(m_display.get(), code, False, CurrentTime);
  XFlush(m_display.get());
}

void Desktop::closeWindow() {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = m_window;
  event.xclient.message_type = XInternAtom(m_display.get(), "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] =
      static_cast<long>(XInternAtom(m_display.get(), "WM_DELETE_WINDOW", False));
  XSendEvent(m_display.get(), m_window, False, NoEventMask, &event);
  XFlush(m_display.get());
}

QImage Desktop::picture(QRect part) const {
  XImage* const image =
      XGetImage(m_display.get(), m_window, part.x(), part.y(), static_cast<unsigned>(part.width()),
                static_cast<unsigned>(part.height()), AllPlanes, ZPixmap);
  if (image == nullptr) throw std::runtime_error("the window is not on the screen");
  const QImage copy = QImage(reinterpret_cast<const uchar*>(image->data), image->width,
                             image->height, image->bytes_per_line, QImage::Format_RGB32)
                          .copy();
  XDestroyImage(image);
  return copy;
}

QImage Desktop::picture() const {
  XWindowAttributes attributes{};
  XGetWindowAttributes(m_display.get(), m_window, &attributes);
  return picture({0, 0, attributes.width, attributes.height});
}

QRgb Desktop::pixel(QPoint point) const {
  return picture(QRect(point, QSize(1, 1))).pixel(0, 0);
}

QImage Desktop::waitForPicture(const std::function<bool(const QImage&)>& wanted) const {
  const auto limit = Clock::now() + kWaitLimit;
  do {
    // Drops the events so far. After the subtraction, the next change makes another one.
    XSync(m_display.get(), True);
    XDamageSubtract(m_display.get(), m_damage, None, None);
    QImage now = picture();
    if (wanted(now)) return now;
  } while (waitForEvent(m_display.get(), limit));
  throw std::runtime_error("the picture did not come");
}
