// The bus, as a test uses it.
#include "virtualpads/hidapi/VirtualBus.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "BusTest.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using VirtualBusTest = BusTest;

TEST_F(VirtualBusTest, GivesEachPluggingAPortOfItsOwn) {
  bus.unplug(port);
  const auto second = bus.plug(pad);
  bus.reset();
  const auto third = bus.plug(pad);
  EXPECT_NE(port, second);
  EXPECT_NE(port, third);
  EXPECT_NE(second, third);
}

TEST_F(VirtualBusTest, ThrowsForAMistakeOfTheCaller) {
  EXPECT_THROW(bus.plug(nullptr), std::invalid_argument);
  EXPECT_THROW(bus.plug(pad, -1), std::invalid_argument);
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

TEST_F(VirtualBusTest, LosesAReportThatNobodyCanRead) {
  const auto closed = bus.plug(makePad(PadKind::Usb));
  EXPECT_FALSE(bus.send(closed, numbered(1)));
  EXPECT_FALSE(bus.sendWhenRoom(closed, numbered(1)));
  EXPECT_FALSE(bus.sendPen(closed, {}));
  EXPECT_FALSE(bus.waitUntilRead(closed));
  EXPECT_FALSE(bus.send(port, {}));
  bus.unplug(port);
  EXPECT_FALSE(bus.send(port, numbered(1)));
  EXPECT_FALSE(bus.sendWhenRoom(port, numbered(1)));
  EXPECT_FALSE(bus.waitUntilRead(port));
}

TEST_F(VirtualBusTest, SendsAReportAsLongAsOneOfTheHandlesHasRoom) {
  for (int i = 0; i < 63; ++i) bus.send(port, numbered(i));
  hid_device* const reader = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_TRUE(bus.send(port, numbered(63)));
  EXPECT_EQ(read(reader, 0).bytes, numbered(63));
  hid_close(reader);
}

TEST_F(VirtualBusTest, TheWaitForRoomEndsWithARead) {
  while (bus.send(port, numbered(0))) {
  }
  auto sender = inBackground([&] { return bus.sendWhenRoom(port, numbered(1)); });
  EXPECT_EQ(read(dev, 0).bytes, numbered(0));
  EXPECT_TRUE(sender.get());
  for (int i = 0; i < 62; ++i) EXPECT_EQ(read(dev, 0).bytes, numbered(0));
  EXPECT_EQ(read(dev, 0).bytes, numbered(1));
}

TEST_F(VirtualBusTest, TheWaitForRoomEndsWithAnUnplugOrAClose) {
  for (const bool unplugs : {false, true}) {
    hid_device* const reader = hid_open(kVendor, kVisionPad, nullptr);
    while (bus.send(port, numbered(0))) {
    }
    auto sender = inBackground([&] { return bus.sendWhenRoom(port, numbered(1)); });
    close();
    if (unplugs) bus.unplug(port);
    hid_close(reader);
    EXPECT_FALSE(sender.get());
  }
}

TEST_F(VirtualBusTest, SendsAPenAsThePadEncodesIt) {
  EXPECT_TRUE(bus.sendPen(
      port, {.x = 1, .y = 0.5, .pressure = 1, .touch = true, .milliseconds = 0x01020304}));
  EXPECT_EQ(read(dev, 0).bytes,
            (Bytes{1, 0x80, 0x05, 0x14, 0x02, 0xBC, 0x03, 0xFF, 1, 2, 3, 4, 0, 0, 0, 0, 0}));
}

TEST_F(VirtualBusTest, WaitsUntilAllReportsAreRead) {
  EXPECT_TRUE(bus.waitUntilRead(port));
  bus.send(port, numbered(1));
  bus.send(port, numbered(2));
  auto waiter = inBackground([&] { return bus.waitUntilRead(port); });
  EXPECT_EQ(read(dev, 0).bytes, numbered(1));
  EXPECT_EQ(read(dev, 0).bytes, numbered(2));
  EXPECT_TRUE(waiter.get());
}

// Whether the wait begins before or after the loss.
TEST_F(VirtualBusTest, ReportsWhenUnreadReportsWereLost) {
  bus.send(port, numbered(1));
  auto waiter = inBackground([&] { return bus.waitUntilRead(port); });
  close();
  EXPECT_FALSE(waiter.get());
  dev = hid_open(kVendor, kVisionPad, nullptr);
  bus.send(port, numbered(1));
  waiter = inBackground([&] { return bus.waitUntilRead(port); });
  bus.unplug(port);
  EXPECT_FALSE(waiter.get());
}

TEST_F(VirtualBusTest, ShowsTheModelAlsoAfterTheUnplug) {
  bus.unplug(port);
  const PadModel* shown = nullptr;
  bus.withModel(port, [&](PadModel& model) { shown = &model; });
  EXPECT_EQ(shown, pad.get());
}

TEST_F(VirtualBusTest, KeepsTheProgramsCallsAwayFromTheModelThatIsLookedAt) {
  std::future<int> caller;
  bus.withModel(port, [&](PadModel&) {
    caller = inBackground([&] { return setFeature(dev, {4, 1}); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::SendFeature, 1));
    EXPECT_EQ(bus.count(HidCall::SendFeature), 0);
    EXPECT_EQ(pad->mode(), 0);
  });
  EXPECT_EQ(caller.get(), 17);
}

TEST_F(VirtualBusTest, FailsACallWhosePadIsUnpluggedWhileItIsBusy) {
  std::future<int> setter;
  std::future<int> getter;
  bus.withModel(port, [&](PadModel&) {
    setter = inBackground([&] { return setFeature(dev, {4, 1}); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::SendFeature, 1));
    getter = inBackground([&] { return getFeature(dev, 4); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::GetFeature, 1));
    bus.unplug(port);
  });
  EXPECT_EQ(setter.get(), -1);
  EXPECT_EQ(getter.get(), -1);
}

TEST_F(VirtualBusTest, ShortensTheTimeOutOfReads) {
  constexpr int kAnHour = 3'600'000;
  bus.setReadTimeout(std::chrono::milliseconds(1));
  EXPECT_EQ(read(dev, kAnHour).result, 0);
  EXPECT_EQ(read(dev, kForEver).result, 0);
  // With the caller's own timeout again: this read must wait until the unplug.
  bus.setReadTimeout(std::chrono::milliseconds(0));
  auto reader = waitingRead();
  bus.reset();
  EXPECT_EQ(reader.get().result, -1);
}

TEST_F(VirtualBusTest, CountsAndWaitsForCalls) {
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
}

TEST_F(VirtualBusTest, ForgetsACallThatBeganBeforeTheLogWasCleared) {
  auto reader = waitingRead();
  bus.clearLog();
  hid_set_nonblocking(dev, 0);
  bus.send(port, numbered(1));
  EXPECT_EQ(reader.get().result, 6);
  EXPECT_THAT(bus.calls({HidCall::Read}), IsEmpty());
  EXPECT_THAT(bus.calls(), ElementsAre(CallRecord{HidCall::SetNonblocking, {}, 0, 0}));
}

TEST_F(VirtualBusTest, ReportsWhichHandlesAreOpen) {
  const auto ink = bus.plug(makePad(PadKind::Ink));
  auto program = inBackground([] { return hid_open(kVendor, kInkPad, nullptr); });
  EXPECT_TRUE(bus.waitUntilOpen(ink));
  hid_device* const second = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(bus.openHandles(), 3);
  EXPECT_EQ(bus.openHandles(port), 2);
  EXPECT_EQ(bus.openHandles(ink), 1);
  bus.unplug(port);
  EXPECT_EQ(bus.openHandles(port), 2);
  hid_close(second);
  EXPECT_EQ(bus.openHandles(), 2);
  EXPECT_EQ(bus.openHandles(port), 1);
  hid_close(program.get());
  close();
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(VirtualBusTest, ForgetsEverythingWithAReset) {
  bus.fail(HidCall::Init, {.kind = Fault::Kind::Return, .value = 5}, 1, VirtualBus::kAlways);
  close();
  hid_set_nonblocking(nullptr, 0);
  EXPECT_EQ(bus.misuses(), 1);
  bus.reset();
  EXPECT_EQ(bus.misuses(), 0);
  EXPECT_THAT(bus.calls(), IsEmpty());
  EXPECT_EQ(bus.count(HidCall::Close), 0);
  EXPECT_EQ(hid_init(), 0);
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
}

// Any use, on any thread, at any time: for the thread sanitizer.
TEST_F(VirtualBusTest, BearsEverythingAtOnce) {
  constexpr int kRounds = 200;
  bus.setReadTimeout(std::chrono::milliseconds(1));
  auto program = [&] {
    for (int i = 0; i < kRounds; ++i) {
      hid_free_enumeration(hid_enumerate(0, 0));
      hid_device* const opened = hid_open(kVendor, kVisionPad, nullptr);
      std::thread reader([&] { read(opened, 1000); });
      setFeature(opened, {4, 1});
      getFeature(opened, 5);
      hid_close(opened);
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
  for (const HidCall call : {HidCall::Open, HidCall::Read, HidCall::Close, HidCall::SendFeature})
    EXPECT_EQ(bus.count(call), 2 * kRounds);
}

}  // namespace
}  // namespace virtualpads
