// vela-virtual-pad as it is shipped, on a real kernel. This test is the program that has the pad
// open. Saves a picture of the window in the current directory.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/kernel/Desktop.h"
#include "tests/kernel/Program.h"
#include "virtualpads/Recording.h"
#include "virtualpads/kernel/FileDescriptor.h"
#include "virtualpads/usb/VhciPort.h"

// Last, because their macros use common names.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace {

using testing::ElementsAre;
using virtualpads::Bytes;
using virtualpads::FileDescriptor;

constexpr int kPatienceMilliseconds = 30000;

// Waits for the program to print the pad's node and returns it.
std::string nodeOf(const Program& program, const std::string& pad) {
  const std::string begin = pad + " is plugged in at ";
  const auto number =
      program.waitForLine([&](const std::string& line) { return line.starts_with(begin); });
  const std::string rest = program.lines().at(number).substr(begin.size());
  return rest.substr(0, rest.find(';'));
}

class Node {
 public:
  explicit Node(const std::string& path) : m_file(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    if (!m_file) throw std::runtime_error("cannot open " + path);
  }

  Bytes read() const {
    pollfd watched{m_file.get(), POLLIN, 0};
    std::array<std::uint8_t, 64> buffer;
    if (poll(&watched, 1, kPatienceMilliseconds) != 1) throw std::runtime_error("no report came");
    const auto count = ::read(m_file.get(), buffer.data(), buffer.size());
    return {buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0)};
  }

  bool setFeature(Bytes report) const {
    return ioctl(m_file.get(), HIDIOCSFEATURE(report.size()), report.data()) ==
           static_cast<int>(report.size());
  }

 private:
  FileDescriptor m_file;
};

TEST(ReplayTest, SendsTheReportsToWhoeverOpensThePad) {
  std::ofstream("replay.hid") << "R: 1 06\nN: Vela II\nI: 3 04df 001f\n"
                                 "E: 000000.000000 11 01 21 00 40 00 20 40 00 00 00 00\n"
                                 "E: 000000.005000 11 01 21 01 40 02 20 41 05 00 00 00\n"
                                 "E: 000000.010000 11 01 20 01 40 02 20 00 0a 00 00 00\n";
  Program program(VELA_VIRTUAL_PAD, {.arguments = {"ii", "--replay", "replay.hid"}});
  const std::string path = nodeOf(program, "Vela II");
  {
    const Node node(path);
    EXPECT_THAT(node.read(), ElementsAre(1, 0x21, 0, 0x40, 0, 0x20, 0x40, 0, 0, 0, 0));
    EXPECT_THAT(node.read(), ElementsAre(1, 0x21, 1, 0x40, 2, 0x20, 0x41, 5, 0, 0, 0));
    EXPECT_THAT(node.read(), ElementsAre(1, 0x20, 1, 0x40, 2, 0x20, 0, 10, 0, 0, 0));
    program.waitForLine("sent; waiting for the program to close the pad");
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
  }
  EXPECT_EQ(program.wait(), 0);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

ProgramOptions replayOnUsb() {
  std::ofstream("usb.hid") << "R: 1 06\nN: Vela II\nI: 3 04df 001f\n"
                              "E: 000000.000000 11 01 21 00 40 00 20 40 00 00 00 00\n";
  return {.arguments = {"ii", "--usb", "--replay", "usb.hid"}};
}

TEST(ReplayTest, IsThatOfAUsbDeviceOnDemand) {
  Program program(VELA_VIRTUAL_PAD, replayOnUsb());
  if (!virtualpads::vhciIsThere()) GTEST_SKIP() << "this kernel has no vhci-hcd";
  const std::string path = nodeOf(program, "Vela II");
  const std::filesystem::path interface =
      std::filesystem::canonical("/sys/class/hidraw" + path.substr(path.rfind('/')) + "/device/..");
  EXPECT_EQ(std::filesystem::canonical(interface / "driver").filename(), "usbhid");
  {
    const Node node(path);
    EXPECT_THAT(node.read(), ElementsAre(1, 0x21, 0, 0x40, 0, 0x20, 0x40, 0, 0, 0, 0));
    program.waitForLine("sent; waiting for the program to close the pad");
  }
  EXPECT_EQ(program.wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(interface));
}

// Only in a guest, where no other devices need the module. modprobe gets it by its configuration,
// for there is no tree of modules, unless the host has the same kernel.
TEST(ModuleTest, IsLoadedWhereModprobeFindsIt) {
  const char* const modules = std::getenv("GUEST_MODULES");
  if (modules == nullptr || !virtualpads::vhciIsThere())
    GTEST_SKIP() << "this is not a guest with vhci-hcd";
  ASSERT_EQ(syscall(SYS_delete_module, "vhci_hcd", O_NONBLOCK), 0);
  ASSERT_FALSE(virtualpads::vhciIsThere());
  utsname kernel{};
  uname(&kernel);
  if (!std::filesystem::exists(std::string("/lib/modules/") + kernel.release)) {
    Program program(VELA_VIRTUAL_PAD, replayOnUsb());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_THAT(
        program.lines(),
        ElementsAre("vela-virtual-pad: the kernel's virtual USB host controller is missing; "
                    "root loads its module: modprobe vhci-hcd"));
    std::filesystem::create_directories("/run/modprobe.d");
    std::ofstream("/run/modprobe.d/vhci-hcd.conf")
        << "install vhci-hcd /sbin/insmod " << modules << "/vhci-hcd.ko\n";
  }
  const Program program(VELA_VIRTUAL_PAD, replayOnUsb());
  EXPECT_EQ(access(nodeOf(program, "Vela II").c_str(), F_OK), 0);
  EXPECT_TRUE(virtualpads::vhciIsThere());
}

TEST(ReplayTest, WarnsOfReportsThatNobodyCouldGet) {
  std::ofstream("lost.hid") << "R: 1 06\nN: Vela USB\nI: 3 04df 0012\n"
                               "E: 000000.000000 6 20 4e 02 27 01 40\n"
                               "E: 000002.000000 6 00 4e 02 27 01 00\n";
  Program program(VELA_VIRTUAL_PAD, {.arguments = {"usb", "--replay", "lost.hid"}});
  Node(nodeOf(program, "Vela USB")).read();
  program.waitForLine("vela-virtual-pad: lost 1 of 2 reports: no program had the pad open");
  EXPECT_EQ(program.wait(), 1);
}

// The program belongs to another user and is in a home directory that its user may not enter.
TEST(PermissionTest, IsMissedInOneClearLine) {
  char home[] = "/tmp/home-XXXXXX";
  ASSERT_NE(mkdtemp(home), nullptr);
  const std::string path = std::string(home) + "/vela-virtual-pad";
  std::filesystem::copy_file(VELA_VIRTUAL_PAD, path);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  Program program(
      path,
      {.arguments = {"ink"}, .environment = {"QT_QPA_PLATFORM=offscreen"}, .unprivileged = true});
  program.waitForLine(
      "vela-virtual-pad: no permission to open /dev/uhid; to get it until the next boot, run: "
      "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a permanent rule)");
  EXPECT_EQ(program.wait(), 1);
  std::filesystem::remove_all(home);
}

TEST(PermissionTest, IsMissedForAUsbDeviceInOneClearLine) {
  if (!virtualpads::vhciIsThere()) GTEST_SKIP() << "this kernel has no vhci-hcd";
  Program program(VELA_VIRTUAL_PAD, {.arguments = {"ink", "--usb"},
                                     .environment = {"QT_QPA_PLATFORM=offscreen"},
                                     .unprivileged = true});
  program.waitForLine(
      "vela-virtual-pad: only root may plug in USB devices; use sudo, or leave out --usb");
  EXPECT_EQ(program.wait(), 1);
}

// Five open files are enough for the pad, but leave none for the events about its node.
TEST(ReplayTest, ReportsThatTheNodeCannotBeFound) {
  std::ofstream("unfound.hid") << "R: 1 06\nN: Vela USB\nI: 3 04df 0012\n";
  Program program("/usr/bin/prlimit", {.arguments = {"--nofile=5", VELA_VIRTUAL_PAD, "usb",
                                                     "--replay", "unfound.hid"}});
  program.waitForLine(
      "vela-virtual-pad: cannot find the pad's /dev/hidraw node: listening for devices: Too many "
      "open files");
  EXPECT_EQ(program.wait(), 1);
}

TEST(RecordTest, ReportsAFileThatCannotBeWritten) {
  Program program(VELA_VIRTUAL_PAD, {.arguments = {"ink", "--record", "/missing/file"},
                                     .environment = {"QT_QPA_PLATFORM=offscreen"}});
  program.waitForLine("vela-virtual-pad: /missing/file: No such file or directory");
  EXPECT_EQ(program.wait(), 1);
}

class Mouse {
 public:
  explicit Mouse(const std::string& display) : m_display(XOpenDisplay(display.c_str())) {
    if (m_display == nullptr) throw std::runtime_error("no connection to the X server");
  }

  void move(QPoint to) {
    XTestFakeMotionEvent(m_display.get(), -1, to.x(), to.y(), CurrentTime);
    XSync(m_display.get(), False);
  }
  void press() { button(True); }
  void release() { button(False); }

 private:
  struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
  };

  void button(Bool down) {
    XTestFakeButtonEvent(m_display.get(), 1, down, CurrentTime);
    XSync(m_display.get(), False);
  }

  std::unique_ptr<Display, CloseDisplay> m_display;
};

// The LCD in a picture of the window, while all of it is light.
QRect findLcd(const QImage& picture) {
  QRect lcd;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x)
      if (picture.pixel(x, y) == 0xFFE3EBD9) lcd |= QRect(x, y, 1, 1);
  }
  return lcd;
}

TEST(WindowTest, TakesThePenAndShowsWhatAProgramPutOnThePad) {
  Desktop desktop;
  Program program(VELA_VIRTUAL_PAD,
                  {.arguments = {"ink", "--record", "drawn.hid"},
                   .environment = {"DISPLAY=" + desktop.name(), "QT_QPA_PLATFORM=xcb",
                                   "XDG_RUNTIME_DIR=/tmp"}});
  const std::string path = nodeOf(program, "Vela Ink");
  desktop.waitForWindow("Vela Ink (virtual pad) at " + path);
  const QRect lcd = findLcd(
      desktop.waitForPicture([](const QImage& picture) { return !findLcd(picture).isEmpty(); }));
  ASSERT_EQ(lcd.size(), QSize(320, 240));

  std::vector<Bytes> received;
  {
    const Node node(path);
    // Sent at once: the kernel queues only 63 unread reports.
    auto stroke = std::async(std::launch::async, [&node] {
      std::vector<Bytes> reports;
      do {
        reports.push_back(node.read());
      } while ((reports.back().at(1) & 1) != 0);
      return reports;
    });
    Mouse mouse(desktop.name());
    mouse.move(lcd.topLeft() + QPoint(80, 120));
    mouse.press();
    for (int x = 80; x <= 240; x += 4) mouse.move(lcd.topLeft() + QPoint(x, 120));
    mouse.release();
    received = stroke.get();

    // A black first row on a layer that is not hidden.
    Bytes band(2408);
    band[0] = 7;
    std::fill_n(band.begin() + 8, 40, std::uint8_t{0xFF});
    EXPECT_TRUE(node.setFeature(band));
    EXPECT_TRUE(node.setFeature({3, 0, 0, 0, 0, 0, 0, 0, 0, 0x3F, 1, 0xEF, 4, 0, 0, 4, 0}));
  }
  desktop
      .waitForPicture([&](const QImage& picture) {
        return picture.pixel(lcd.topLeft()) == 0xFF1A2419 &&
               picture.pixel(lcd.topRight()) == 0xFF1A2419 &&
               picture.pixel(lcd.topLeft() + QPoint(0, 1)) == 0xFFE3EBD9;
      })
      .save("window.png");

  desktop.closeWindow();
  EXPECT_EQ(program.wait(), 0);
  EXPECT_NE(access(path.c_str(), F_OK), 0);

  const auto recording = virtualpads::readRecording("drawn.hid");
  EXPECT_EQ(recording.product, 0x30);
  std::vector<Bytes> recorded;
  std::ranges::transform(recording.events, std::back_inserter(recorded),
                         &virtualpads::Recording::Event::report);
  EXPECT_EQ(recorded, received);
  // 80 of 320 and 240 of 320 pixels, of 32767.
  EXPECT_EQ(received.front()[2] | received.front()[3] << 8, 8192);
  EXPECT_EQ(received.back()[2] | received.back()[3] << 8, 24575);
}

}  // namespace
