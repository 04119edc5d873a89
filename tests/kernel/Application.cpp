#include "Application.h"

#include <X11/keysym.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace {

constexpr QRgb kFrame = 0xFF000000;
constexpr int kLeastWidth = 200;              // of the view; nothing else has a black line as long
constexpr QRect kResetText{360, 30, 45, 18};  // a part of the Reset button, with its text

// A directory that is the user's alone, as the toolkit expects one.
std::string runtimeDirectory(uid_t user) {
  char path[] = "/tmp/kernel-test-XXXXXX";
  if (mkdtemp(path) == nullptr || chown(path, user, user) != 0)
    throw std::system_error(errno, std::generic_category(), path);
  return path;
}

// A row of a picture from the X server. QImage::pixel takes an emulated processor long.
std::span<const QRgb> row(const QImage& picture, int y) {
  return {reinterpret_cast<const QRgb*>(picture.constScanLine(y)),
          static_cast<std::size_t>(picture.width())};
}

// The server leaves the highest byte undefined.
constexpr QRgb opaque(QRgb pixel) {
  return pixel | 0xFF000000;
}

// Its text is black then, else grey.
bool resetIsEnabled(const QImage& window) {
  for (int y = kResetText.top(); y <= kResetText.bottom(); ++y) {
    for (int x = kResetText.left(); x <= kResetText.right(); ++x)
      if (qGray(window.pixel(x, y)) < 64) return true;
  }
  return false;
}

}  // namespace

bool applicationUsesLibusb() {
  return std::string_view(HIDAPI_BACKEND) == "libusb";
}

std::vector<Face> facesOfTheApplication() {
  if (applicationUsesLibusb()) return {Face::Usb};
  return faces();
}

// Without a bus address, the toolkit would start a message bus for each application.
Application::Application(Desktop& desktop, bool unprivileged)
    : m_desktop(desktop),
      m_program(TESTAPP, {.environment = {"DISPLAY=" + desktop.name(), "QT_QPA_PLATFORM=xcb",
                                          "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
                                          "XDG_RUNTIME_DIR=" +
                                              runtimeDirectory(unprivileged ? kNobody : getuid())},
                          .unprivileged = unprivileged}) {
  m_desktop.waitForWindow("Vela Pad Test");
  // Until it is painted, the window is black, and so would be the text of Reset.
  m_desktop.waitForPicture([](const QImage& window) { return findView(window).x() > 0; });
}

void Application::choose(const TestPad& kind) {
  goToList();
  m_desktop.press(XK_Home);
  for (int i = 0; i < kind.provider; ++i) m_desktop.press(XK_Down);
}

void Application::open() {
  pressButton(1);
}

void Application::waitUntilConnected() const {
  m_desktop.waitForPicture(resetIsEnabled);
}

void Application::clear() {
  pressButton(1);
}

void Application::reset() {
  m_desktop.waitForPicture(resetIsEnabled);
  pressButton(2);
  m_resetting = true;
}

void Application::quit() {
  waitForReset();
  m_desktop.press(XK_Control_L, XK_q);
}

void Application::goToList() {
  waitForReset();
  m_desktop.press(XK_Alt_L, XK_p);
}

// A button's own shortcut would press it only a moment later. So the focus is moved from the list
// with the Tab key, which skips disabled buttons.
void Application::pressButton(int tabulators) {
  goToList();
  for (int i = 0; i < tabulators; ++i) m_desktop.press(XK_Tab);
  m_desktop.press(XK_space);
}

void Application::waitForReset() {
  if (!m_resetting) return;
  // The window takes keys again before it paints the button disabled.
  m_desktop.waitForPicture([](const QImage& window) { return !resetIsEnabled(window); });
  m_resetting = false;
}

QRect findView(const QImage& picture) {
  for (int y = 0; y < picture.height(); ++y) {
    const auto line = row(picture, y);
    const auto run = std::ranges::search_n(line, kLeastWidth, kFrame, {}, opaque);
    if (run.empty()) continue;
    const auto isFrame = [](QRgb pixel) { return opaque(pixel) == kFrame; };
    const auto end = std::find_if_not(run.begin(), line.end(), isFrame);
    const auto x = static_cast<std::size_t>(run.begin() - line.begin());
    int height = 1;
    while (y + height < picture.height() && isFrame(row(picture, y + height)[x])) ++height;
    return {static_cast<int>(x), y, static_cast<int>(end - run.begin()), height};
  }
  return {};
}

bool hasInk(const QImage& picture) {
  for (int y = 0; y < picture.height(); ++y)
    if (std::ranges::count(row(picture, y), kInk, opaque) != 0) return true;
  return false;
}
