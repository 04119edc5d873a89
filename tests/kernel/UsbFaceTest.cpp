// The USB face on a real kernel: what its USB core and usbhid make of a pad, and the faults of a
// wire. Without the SDK and without hidapi.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "TestPads.h"
#include "tests/support/Patience.h"
#include "virtualpads/usb/VhciPad.h"

namespace virtualpads {
namespace {

using support::comesTrue;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using Clock = std::chrono::steady_clock;

namespace fs = std::filesystem;

constexpr int kReadLimit = 10000;  // milliseconds; only a failing test waits this long
constexpr std::chrono::seconds kKernelsTimeOut{5};

std::string contents(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

class UsbFaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!vhciIsThere()) GTEST_SKIP() << "this kernel has no vhci-hcd";
    plug(pad);
  }

  void plug(VhciPad& which) {
    replug(which);
    node = which.waitForNode();
    interface = fs::canonical("/sys/class/hidraw/" + fs::path(node).filename().string() + "/device")
                    .parent_path();
    device = interface.parent_path();
    // The kernel describes the endpoint last.
    EXPECT_TRUE(comesTrue([this] { return fs::exists(interface / "ep_81/type"); }));
  }

  void open() {
    file = FileDescriptor(::open(node.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(file) << node;
  }

  // The next report; empty after an error.
  Bytes read() const {
    pollfd watched{file.get(), POLLIN, 0};
    EXPECT_EQ(poll(&watched, 1, kReadLimit), 1);
    Bytes report(64);
    const ssize_t count = ::read(file.get(), report.data(), report.size());
    report.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return report;
  }

  // The report, or the error number as its only byte.
  Bytes getFeature(std::uint8_t id, std::size_t length) const {
    Bytes report(length);
    report[0] = id;
    const int count = ioctl(file.get(), HIDIOCGFEATURE(report.size()), report.data());
    if (count < 0) return {static_cast<std::uint8_t>(errno)};
    report.resize(static_cast<std::size_t>(count));
    return report;
  }

  // 0 or the error number.
  int setFeature(Bytes report) const {
    return ioctl(file.get(), HIDIOCSFEATURE(report.size()), report.data()) < 0 ? errno : 0;
  }

  // The node by which libusb opens the device.
  std::string usbNode() const {
    char name[32];
    std::snprintf(name, sizeof name, "/dev/bus/usb/%03d/%03d",
                  std::stoi(contents(device / "busnum")), std::stoi(contents(device / "devnum")));
    return name;
  }

  void waitForPowerStatus(const std::string& status) const {
    EXPECT_TRUE(comesTrue([&] { return contents(device / "power/runtime_status") == status; }));
  }

  VhciPad pad{makePad(PadKind::Ii)};
  std::string node;
  fs::path interface;
  fs::path device;
  FileDescriptor file;
};

TEST_F(UsbFaceTest, PadIsAUsbDeviceThatUsbhidDrives) {
  EXPECT_EQ(contents(device / "idVendor"), "04df");
  EXPECT_EQ(contents(device / "idProduct"), "001f");
  EXPECT_EQ(contents(device / "product"), "Vela II");
  EXPECT_EQ(contents(device / "speed"), "12");
  EXPECT_EQ(contents(device / "bMaxPower"), "100mA");
  EXPECT_EQ(contents(interface / "bInterfaceClass"), "03");
  EXPECT_EQ(contents(interface / "ep_81/bInterval"), "01");
  EXPECT_EQ(contents(interface / "ep_81/type"), "Interrupt");
  EXPECT_EQ(fs::canonical(interface / "driver").filename(), "usbhid");
  EXPECT_EQ(access(usbNode().c_str(), F_OK), 0);
}

TEST_F(UsbFaceTest, StalledRequestIsABrokenPipe) {
  open();
  EXPECT_THAT(getFeature(3, 17), ElementsAre(EPIPE));  // the pad has no such report
  EXPECT_EQ(setFeature({10, 0, 0}), EPIPE);
  EXPECT_THAT(getFeature(2, 17), SizeIs(17));
}

TEST_F(UsbFaceTest, TransferThatNeverCompletesTimesOut) {
  open();
  pad.fail(FeatureCall::Get, 2, FeatureFault::Late);
  const auto begin = Clock::now();
  EXPECT_THAT(getFeature(2, 17), ElementsAre(ETIMEDOUT));
  EXPECT_GE(Clock::now() - begin, kKernelsTimeOut - std::chrono::milliseconds(50));
  EXPECT_THAT(getFeature(2, 17), SizeIs(17));
}

TEST_F(UsbFaceTest, UnplugDuringAControlTransferFailsItAtOnce) {
  open();
  pad.fail(FeatureCall::Get, 2, FeatureFault::Unplug);
  const auto begin = Clock::now();
  EXPECT_THAT(getFeature(2, 17), ElementsAre(EPROTO));
  EXPECT_LT(Clock::now() - begin, kKernelsTimeOut);
  pad.unplug();
  EXPECT_THAT(getFeature(2, 17), ElementsAre(ENODEV));
  // The kernel deletes its folder a moment after its last event.
  EXPECT_TRUE(comesTrue([this] { return !fs::exists(device); }));
  EXPECT_NE(access(node.c_str(), F_OK), 0);
}

TEST_F(UsbFaceTest, UnplugBetweenTwoInputReportsEndsTheReading) {
  open();
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({1, 0x21, 1, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(read(), ElementsAre(1, 0x21, 1, 0, 0, 0, 0, 0, 0, 0, 0));
  pad.unplug();
  EXPECT_THAT(read(), SizeIs(0));
}

TEST_F(UsbFaceTest, InputReportThatIsTooLongIsLostAndTheNextOneArrives) {
  open();
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send(Bytes(40, 1));
  // usbhid waits before it polls again.
  pad.send({1, 0x21, 2, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(read(), ElementsAre(1, 0x21, 2, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(UsbFaceTest, PadWorksOnAfterAResetOfItsPort) {
  open();
  ASSERT_TRUE(pad.waitUntilOpen());
  {
    const FileDescriptor usb(::open(usbNode().c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(ioctl(usb.get(), USBDEVFS_RESET), 0);
  }
  EXPECT_TRUE(pad.waitUntilOpen());
  pad.send({1, 0x21, 3, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(read(), ElementsAre(1, 0x21, 3, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(getFeature(2, 17), SizeIs(17));
}

TEST_F(UsbFaceTest, PortOfAClosedPadIsSuspendedAndResumedByOpening) {
  std::ofstream(device / "power/autosuspend_delay_ms") << "0";
  std::ofstream(device / "power/control") << "auto";
  waitForPowerStatus("suspended");
  open();
  EXPECT_EQ(contents(device / "power/runtime_status"), "active");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({1, 0x21, 4, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(read(), ElementsAre(1, 0x21, 4, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(getFeature(2, 17), SizeIs(17));
  file = FileDescriptor();
  EXPECT_TRUE(pad.waitUntilClosed());
  waitForPowerStatus("suspended");
}

TEST_F(UsbFaceTest, SlowIntervalRulesThePace) {
  constexpr std::uint8_t kSlow = 10;
  pad.unplug();
  VhciPad slow(makePad(PadKind::Ii), kSlow);
  plug(slow);
  EXPECT_EQ(contents(interface / "ep_81/bInterval"), "0a");
  open();
  ASSERT_TRUE(slow.waitUntilOpen());
  const auto begin = Clock::now();
  for (std::uint8_t i = 0; i < 11; ++i) slow.send({1, 0x21, i, 0, 0, 0, 0, 0, 0, 0, 0});
  for (std::uint8_t i = 0; i < 11; ++i)
    EXPECT_THAT(read(), ElementsAre(1, 0x21, i, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(99));
}

}  // namespace
}  // namespace virtualpads
