// The bus, as a test uses it.
#include "virtualpads/hidapi/VirtualBus.h"

#include <gmock/gmock.h>

#include <latch>
#include <stdexcept>
#include <thread>

#include "BusTest.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/UsbPad.h"
#include "virtualpads/VisionPad.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(BusTest, GivesEachPluggingAPortOfItsOwn) {
  const auto pad = makePad(PadKind::Usb);
  const auto first = bus.plug(pad);
  bus.unplug(first);
  const auto second = bus.plug(pad);
  EXPECT_NE(first, second);
  bus.reset();
  const auto third = bus.plug(pad);
  EXPECT_NE(first, third);
  EXPECT_NE(second, third);
}

TEST_F(BusTest, RefusesToPlugWhatIsNoPad) {
  EXPECT_THROW(bus.plug(nullptr), std::invalid_argument);
  EXPECT_THROW(bus.plug(makePad(PadKind::Usb), -1), std::invalid_argument);
}

TEST_F(BusTest, ThrowsForAPortThatIsNone) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  bus.reset();
  EXPECT_THROW(bus.unplug(port), std::out_of_range);
  EXPECT_THROW(bus.setAccessible(port, true), std::out_of_range);
  EXPECT_THROW(bus.send(port, {1}), std::out_of_range);
  EXPECT_THROW(bus.sendWhenRoom(port, {1}), std::out_of_range);
  EXPECT_THROW(bus.sendPen(port, {}), std::out_of_range);
  EXPECT_THROW(bus.waitUntilRead(port), std::out_of_range);
  EXPECT_THROW(bus.withModel(port, [](PadModel&) {}), std::out_of_range);
  EXPECT_THROW(static_cast<void>(bus.openHandles(port)), std::out_of_range);
  EXPECT_THROW(static_cast<void>(bus.waitUntilOpen(port)), std::out_of_range);
}

TEST_F(BusTest, LosesAReportThatNobodyCanRead) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  EXPECT_FALSE(bus.send(port, numbered(1)));
  EXPECT_FALSE(bus.sendWhenRoom(port, numbered(1)));
  EXPECT_FALSE(bus.sendPen(port, {}));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_FALSE(bus.send(port, {}));
  bus.unplug(port);
  EXPECT_FALSE(bus.send(port, numbered(1)));
  EXPECT_FALSE(bus.sendWhenRoom(port, numbered(1)));
  hid_close(dev);
}

TEST_F(BusTest, SendsAReportAsLongAsOneOfTheHandlesHasRoom) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const idle = hid_open(kVendor, kUsbPad, nullptr);
  for (int i = 0; i < 63; ++i) bus.send(port, numbered(i));
  hid_device* const reader = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_TRUE(bus.send(port, numbered(63)));
  EXPECT_EQ(read(reader, 0).bytes, numbered(63));
  hid_close(idle);
  hid_close(reader);
}

TEST_F(BusTest, LosesNothingWhenTheSenderWaitsForRoom) {
  constexpr int kReports = 5000;
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  auto sender = inBackground([&] {
    int sent = 0;
    for (int i = 0; i < kReports; ++i) sent += bus.sendWhenRoom(port, numbered(i)) ? 1 : 0;
    return sent;
  });
  for (int i = 0; i < kReports; ++i) ASSERT_EQ(read(dev, kForEver).bytes, numbered(i));
  EXPECT_EQ(sender.get(), kReports);
  hid_close(dev);
}

TEST_F(BusTest, EndsTheWaitForRoomWithAnUnplug) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  while (bus.send(port, numbered(0))) {
  }
  auto sender = inBackground([&] { return bus.sendWhenRoom(port, numbered(1)); });
  bus.unplug(port);
  EXPECT_FALSE(sender.get());
  hid_close(dev);
}

TEST_F(BusTest, EndsTheWaitForRoomWithAClose) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  while (bus.send(port, numbered(0))) {
  }
  auto sender = inBackground([&] { return bus.sendWhenRoom(port, numbered(1)); });
  hid_close(dev);
  EXPECT_FALSE(sender.get());
}

TEST_F(BusTest, SendsAPenAsThePadEncodesIt) {
  const auto port = bus.plug(makePad(PadKind::Ink));
  hid_device* const dev = hid_open(kVendor, kInkPad, nullptr);
  EXPECT_TRUE(bus.sendPen(port, {.x = 0.25, .y = 1, .pressure = 1, .touch = true}));
  EXPECT_TRUE(bus.sendPen(port, {.x = 0, .y = 0, .pressure = 0, .touch = false}));
  EXPECT_EQ(read(dev, 0).bytes, (Bytes{1, 0x21, 0x00, 0x20, 0xFF, 0x7F, 255, 0}));
  EXPECT_EQ(read(dev, 0).bytes, (Bytes{1, 0x20, 0, 0, 0, 0, 0, 1}));
  hid_close(dev);
}

TEST_F(BusTest, WaitsUntilAllReportsAreRead) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_TRUE(bus.waitUntilRead(port));
  bus.send(port, numbered(1));
  bus.send(port, numbered(2));
  auto waiter = inBackground([&] { return bus.waitUntilRead(port); });
  EXPECT_EQ(read(dev, 0).bytes, numbered(1));
  EXPECT_EQ(read(dev, 0).bytes, numbered(2));
  EXPECT_TRUE(waiter.get());
  hid_close(dev);
}

TEST_F(BusTest, DoesNotWaitForTheReadingOfAClosedOrUnpluggedPad) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  EXPECT_FALSE(bus.waitUntilRead(port));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  bus.unplug(port);
  EXPECT_FALSE(bus.waitUntilRead(port));
  hid_close(dev);
}

// The wait may begin before or after the loss. Many rounds make both cases occur.
TEST_F(BusTest, ReportsWhenUnreadReportsWereLostByAClose) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  for (int round = 0; round < 200; ++round) {
    hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
    bus.send(port, numbered(1));
    std::latch started(1);
    auto waiter = inBackground([&] {
      started.count_down();
      return bus.waitUntilRead(port);
    });
    started.wait();
    hid_close(dev);
    ASSERT_FALSE(waiter.get());
  }
}

TEST_F(BusTest, ReportsWhenUnreadReportsWereLostByAnUnplug) {
  for (int round = 0; round < 200; ++round) {
    const auto port = bus.plug(makePad(PadKind::Usb));
    hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
    bus.send(port, numbered(1));
    std::latch started(1);
    auto waiter = inBackground([&] {
      started.count_down();
      return bus.waitUntilRead(port);
    });
    started.wait();
    bus.unplug(port);
    ASSERT_FALSE(waiter.get());
    hid_close(dev);
  }
}

TEST_F(BusTest, ShowsTheModelAlsoAfterTheUnplug) {
  const auto port = bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  setFeature(dev, {4, 1}, 17);
  hid_close(dev);
  bus.unplug(port);
  int mode = 0;
  bus.withModel(port, [&](PadModel& pad) { mode = dynamic_cast<VisionPad&>(pad).mode(); });
  EXPECT_EQ(mode, 1);
}

TEST_F(BusTest, KeepsTheProgramsCallsAwayFromTheModelThatIsLookedAt) {
  const auto port = bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  std::future<int> caller;
  bus.withModel(port, [&](PadModel& pad) {
    caller = inBackground([&] { return setFeature(dev, {4, 1}, 17); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::SendFeature, 1));
    EXPECT_EQ(bus.count(HidCall::SendFeature), 0);
    EXPECT_EQ(dynamic_cast<VisionPad&>(pad).mode(), 0);
  });
  EXPECT_EQ(caller.get(), 17);
  hid_close(dev);
}

TEST_F(BusTest, FailsACallWhosePadIsUnpluggedWhileItIsBusy) {
  const auto port = bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  std::future<int> setter;
  std::future<int> getter;
  bus.withModel(port, [&](PadModel&) {
    setter = inBackground([&] { return setFeature(dev, {4, 1}, 17); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::SendFeature, 1));
    getter = inBackground([&] { return getFeature(dev, 4, 17); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::GetFeature, 1));
    bus.unplug(port);
  });
  EXPECT_EQ(setter.get(), -1);
  EXPECT_EQ(getter.get(), -1);
  hid_close(dev);
}

TEST_F(BusTest, ShortensTheTimeOutOfReads) {
  constexpr int kAnHour = 3'600'000;
  bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  bus.setReadTimeout(std::chrono::milliseconds(1));
  EXPECT_EQ(read(dev, kAnHour).result, 0);
  EXPECT_EQ(read(dev, kForEver).result, 0);
  // With the caller's own timeout again: this read must wait until the unplug.
  bus.setReadTimeout(std::chrono::milliseconds(0));
  bus.clearLog();
  auto reader = inBackground([&] { return read(dev, kAnHour); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  bus.reset();
  EXPECT_EQ(reader.get().result, -1);
}

TEST_F(BusTest, CountsAndWaitsForCalls) {
  bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  auto program = inBackground([&] {
    for (int i = 0; i < 3; ++i) read(dev, 0);
  });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 3));
  EXPECT_TRUE(bus.waitForReturned(HidCall::Read, 3));
  EXPECT_EQ(bus.count(HidCall::Read), 3);
  program.get();
  bus.clearLog();
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  EXPECT_THAT(bus.calls({HidCall::Read, HidCall::Open}), IsEmpty());
  read(dev, 0);
  EXPECT_EQ(bus.count(HidCall::Read), 1);
  EXPECT_EQ(bus.calls({HidCall::Read}).size(), 1U);
  hid_close(dev);
}

TEST_F(BusTest, ForgetsACallThatBeganBeforeTheLogWasCleared) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  auto reader = inBackground([&] { return read(dev, kForEver); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  bus.clearLog();
  hid_set_nonblocking(dev, 0);
  bus.send(port, numbered(1));
  EXPECT_EQ(reader.get().result, 6);
  EXPECT_THAT(bus.calls({HidCall::Read}), IsEmpty());
  EXPECT_THAT(bus.calls(), ElementsAre(CallRecord{HidCall::SetNonblocking, {}, 0, 0}));
  hid_close(dev);
}

TEST_F(BusTest, ReportsWhichHandlesAreOpen) {
  const auto usb = bus.plug(makePad(PadKind::Usb));
  const auto ink = bus.plug(makePad(PadKind::Ink));
  EXPECT_EQ(bus.openHandles(), 0);
  hid_device* const one = hid_open(kVendor, kUsbPad, nullptr);
  hid_device* const two = hid_open(kVendor, kUsbPad, nullptr);
  hid_device* const three = hid_open(kVendor, kInkPad, nullptr);
  EXPECT_EQ(bus.openHandles(), 3);
  EXPECT_EQ(bus.openHandles(usb), 2);
  EXPECT_EQ(bus.openHandles(ink), 1);
  bus.unplug(usb);
  EXPECT_EQ(bus.openHandles(usb), 2);
  hid_close(one);
  EXPECT_EQ(bus.openHandles(), 2);
  EXPECT_EQ(bus.openHandles(usb), 1);
  hid_close(two);
  hid_close(three);
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(BusTest, WaitsUntilAPadIsOpened) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  auto program = inBackground([&] { return hid_open(kVendor, kUsbPad, nullptr); });
  EXPECT_TRUE(bus.waitUntilOpen(port));
  EXPECT_EQ(bus.openHandles(port), 1);
  hid_close(program.get());
}

TEST_F(BusTest, ForgetsEverythingWithAReset) {
  bus.plug(makePad(PadKind::Usb));
  bus.fail(HidCall::Init, {.kind = Fault::Kind::Return, .value = 5}, 1, VirtualBus::kAlways);
  bus.failAny({.kind = Fault::Kind::Return, .value = 6}, 2, VirtualBus::kAlways);
  hid_close(hid_open(kVendor, kUsbPad, nullptr));
  hid_set_nonblocking(nullptr, 0);
  EXPECT_EQ(bus.misuses(), 1);
  bus.reset();
  EXPECT_EQ(bus.misuses(), 0);
  EXPECT_THAT(bus.calls(), IsEmpty());
  EXPECT_EQ(bus.count(HidCall::Open), 0);
  EXPECT_EQ(bus.openHandles(), 0);
  EXPECT_EQ(hid_init(), 0);
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
}

// Any use, on any thread, at any time: for the thread sanitizer.
TEST_F(BusTest, BearsEverythingAtOnce) {
  constexpr int kRounds = 200;
  bus.setReadTimeout(std::chrono::milliseconds(1));
  const auto pad = makePad(PadKind::Vision);
  auto port = bus.plug(pad);
  auto program = [&] {
    for (int i = 0; i < kRounds; ++i) {
      hid_free_enumeration(hid_enumerate(0, 0));
      hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
      std::thread reader([&] { read(dev, 1000); });
      setFeature(dev, {4, 1}, 17);
      getFeature(dev, 5, 17);
      hid_error(dev);
      hid_close(dev);
      reader.join();
    }
  };
  auto one = inBackground(program);
  auto other = inBackground(program);
  for (int i = 0; i < kRounds; ++i) {
    bus.sendPen(port, {.x = 0.5, .y = 0.5, .pressure = 0.5, .touch = true});
    bus.withModel(port, [](PadModel& model) { model.getFeature(3); });
    bus.unplug(port);
    port = bus.plug(pad);
  }
  one.get();
  other.get();
  EXPECT_EQ(bus.count(HidCall::Open), 2 * kRounds);
  EXPECT_EQ(bus.count(HidCall::Read), 2 * kRounds);
  EXPECT_EQ(bus.count(HidCall::Close), 2 * kRounds);
  EXPECT_EQ(bus.count(HidCall::SendFeature), 2 * kRounds);
  EXPECT_EQ(bus.openHandles(), 0);
}

}  // namespace
}  // namespace virtualpads
