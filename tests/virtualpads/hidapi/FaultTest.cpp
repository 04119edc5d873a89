// What happens to a call that meets a fault.
#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "BusTest.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;

constexpr Fault returning(int value) {
  return {.kind = Fault::Kind::Return, .value = value};
}
constexpr Fault shortened(int value) {
  return {.kind = Fault::Kind::Short, .value = value};
}
constexpr Fault kLate{.kind = Fault::Kind::Late};
constexpr Fault kUnplug{.kind = Fault::Kind::Unplug};

class FaultTest : public BusTest {
 protected:
  int mode() {
    int result = 0;
    bus.withModel(port, [&](PadModel&) { result = pad->mode(); });
    return result;
  }
};

TEST_F(FaultTest, ReturnGivesTheValueAndThePadHearsNothing) {
  bus.fail(HidCall::SendFeature, returning(-1));
  EXPECT_EQ(setFeature(dev, {4, 1}), -1);
  EXPECT_EQ(pad->mode(), 0);
  bus.fail(HidCall::GetFeature, returning(0));
  EXPECT_EQ(getFeature(dev, 3), 0);
  EXPECT_EQ(pad->resets(), 0);
  bus.fail(HidCall::Read, returning(-1));
  bus.send(port, numbered(1));
  EXPECT_EQ(read(dev, kForEver).result, -1);
  EXPECT_EQ(read(dev, kForEver).bytes, numbered(1));
  bus.fail(HidCall::Write, returning(3));
  const unsigned char report[3] = {1, 2, 3};
  EXPECT_EQ(hid_write(dev, report, 3), 3);
}

TEST_F(FaultTest, ReturnGivesTheValueOfCallsWithoutReports) {
  bus.fail(HidCall::Init, returning(-1));
  EXPECT_EQ(hid_init(), -1);
  bus.fail(HidCall::Exit, returning(-2));
  EXPECT_EQ(hid_exit(), -2);
  bus.fail(HidCall::SetNonblocking, returning(-3));
  EXPECT_EQ(hid_set_nonblocking(dev, 0), -3);
}

TEST_F(FaultTest, ReturnGivesNullForAPointer) {
  bus.fail(HidCall::Open, returning(7));
  EXPECT_EQ(hid_open(kVendor, kVisionPad, nullptr), nullptr);
  EXPECT_EQ(bus.openHandles(), 1);
  bus.fail(HidCall::Enumerate, returning(7));
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
}

TEST_F(FaultTest, ReturnDoesNotKeepAHandleOpen) {
  bus.fail(HidCall::Close, returning(-1));
  close();
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(FaultTest, ReturnDoesNotKeepAnEnumeration) {
  hid_device_info* const list = hid_enumerate(0, 0);
  ASSERT_NE(list, nullptr);
  bus.fail(HidCall::FreeEnumeration, returning(-1));
  hid_free_enumeration(list);  // the address sanitizer would report leaks
  EXPECT_EQ(bus.count(HidCall::FreeEnumeration), 1);
}

TEST_F(FaultTest, ShortCutsWhatIsDelivered) {
  bus.fail(HidCall::Read, shortened(2));
  bus.send(port, {1, 2, 3, 4});
  bus.send(port, {5, 6, 7, 8});
  EXPECT_EQ(read(dev, 0), (ReadResult{2, {1, 2}}));
  EXPECT_EQ(read(dev, 0), (ReadResult{4, {5, 6, 7, 8}}));
  bus.fail(HidCall::GetFeature, shortened(3));
  unsigned char buffer[5] = {17, 0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(hid_get_feature_report(dev, buffer, 5), 3);
  EXPECT_THAT(buffer, ElementsAre(17, 0x10, 0x00, 0xEE, 0xEE));
}

TEST_F(FaultTest, ShortGivesTheWholeReportToThePad) {
  bus.fail(HidCall::SendFeature, shortened(1));
  EXPECT_EQ(setFeature(dev, {4, 1}), 1);
  EXPECT_EQ(pad->mode(), 1);
}

TEST_F(FaultTest, ShortDoesNotMakeAFailureASuccess) {
  bus.fail(HidCall::GetFeature, shortened(0));
  EXPECT_EQ(getFeature(dev, 5), -1);
}

TEST_F(FaultTest, ShortLeavesEntriesOutOfAnEnumeration) {
  bus.plug(makePad(PadKind::Usb), 3);
  bus.fail(HidCall::Enumerate, shortened(2));
  hid_device_info* const list = hid_enumerate(0, 0);
  ASSERT_NE(list, nullptr);
  ASSERT_NE(list->next, nullptr);
  EXPECT_EQ(list->next->next, nullptr);
  hid_free_enumeration(list);
}

TEST_F(FaultTest, LateDoesItsWorkAndReturnsWhenItIsLet) {
  bus.fail(HidCall::SendFeature, kLate);
  auto caller = inBackground([&] { return setFeature(dev, {4, 1}); });
  while (mode() != 1) std::this_thread::yield();
  EXPECT_EQ(setFeature(dev, {4, 2}), 17);  // other calls are not delayed
  EXPECT_EQ(bus.count(HidCall::SendFeature), 1);
  bus.releaseLateCalls();
  EXPECT_EQ(caller.get(), 17);
  EXPECT_EQ(mode(), 2);
}

TEST_F(FaultTest, LateHoldsBackAReadThatHasItsReport) {
  bus.fail(HidCall::Read, kLate);
  bus.send(port, numbered(1));
  auto reader = inBackground([this] { return read(dev, kForEver); });
  EXPECT_TRUE(bus.waitUntilRead(port));
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  bus.releaseLateCalls();
  EXPECT_EQ(reader.get().bytes, numbered(1));
}

TEST_F(FaultTest, LateCallsAfterTheReleaseAreNotHeldBack) {
  bus.fail(HidCall::GetFeature, kLate, 1, VirtualBus::kAlways);
  bus.releaseLateCalls();
  EXPECT_EQ(getFeature(dev, 4), 17);
  bus.fail(HidCall::GetFeature, kLate, 1, VirtualBus::kAlways);
  auto caller = inBackground([&] { return getFeature(dev, 4); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::GetFeature, 2));
  EXPECT_EQ(bus.count(HidCall::GetFeature), 1);
  bus.releaseLateCalls();
  EXPECT_EQ(caller.get(), 17);
}

TEST_F(FaultTest, ResetLetsLateCallsReturn) {
  bus.fail(HidCall::Read, kLate);
  bus.send(port, numbered(1));
  auto reader = inBackground([this] { return read(dev, kForEver); });
  EXPECT_TRUE(bus.waitUntilRead(port));
  bus.reset();
  EXPECT_EQ(reader.get().bytes, numbered(1));
}

TEST_F(FaultTest, UnplugFailsTheCallThatMeetsIt) {
  bus.fail(HidCall::SendFeature, kUnplug);
  EXPECT_EQ(setFeature(dev, {4, 1}), -1);
  EXPECT_EQ(pad->mode(), 0);
  EXPECT_EQ(getFeature(dev, 4), -1);
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
}

TEST_F(FaultTest, UnplugFailsARead) {
  bus.send(port, numbered(1));
  bus.fail(HidCall::Read, kUnplug);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  EXPECT_FALSE(bus.send(port, numbered(2)));
}

TEST_F(FaultTest, UnplugFailsAnOpenAndTakesOnlyThatPad) {
  bus.plug(makePad(PadKind::Usb));
  bus.fail(HidCall::Open, kUnplug);
  EXPECT_EQ(hid_open(kVendor, kVisionPad, nullptr), nullptr);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  hid_device* const other = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_NE(other, nullptr);
  hid_close(other);
}

TEST_F(FaultTest, UnplugLetsCallsThatCannotFailDoTheirWork) {
  bus.fail(HidCall::SetNonblocking, kUnplug);
  EXPECT_EQ(hid_set_nonblocking(dev, 0), 0);
  EXPECT_EQ(getFeature(dev, 4), -1);
  const auto again = bus.plug(pad);
  hid_device* const second = hid_open(kVendor, kVisionPad, nullptr);
  bus.fail(HidCall::Close, kUnplug);
  hid_close(second);
  EXPECT_EQ(bus.openHandles(again), 0);
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
}

TEST_F(FaultTest, UnplugTakesAllPadsInACallThatIsForNone) {
  for (const HidCall call :
       {HidCall::Init, HidCall::Exit, HidCall::Enumerate, HidCall::FreeEnumeration}) {
    bus.plug(makePad(PadKind::Usb));
    bus.plug(makePad(PadKind::Ink));
    bus.clearLog();
    bus.fail(call, kUnplug);
    hid_init();
    hid_free_enumeration(hid_enumerate(0, 0));
    hid_exit();
    EXPECT_EQ(hid_enumerate(0, 0), nullptr);
    hid_free_enumeration(nullptr);
  }
  EXPECT_EQ(read(dev, kForEver).result, -1);
}

TEST_F(FaultTest, MeetsTheNthCallOfItsKindAndSoManyAfterIt) {
  bus.fail(HidCall::GetFeature, returning(-5), 2, 2);
  EXPECT_EQ(getFeature(dev, 4), 17);
  EXPECT_EQ(setFeature(dev, {4, 1}), 17);
  EXPECT_EQ(getFeature(dev, 4), -5);
  EXPECT_EQ(getFeature(dev, 4), -5);
  EXPECT_EQ(getFeature(dev, 4), 17);
}

TEST_F(FaultTest, MeetsAllCallsFromTheNthOn) {
  bus.fail(HidCall::GetFeature, returning(-5), 2, VirtualBus::kAlways);
  EXPECT_EQ(getFeature(dev, 4), 17);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(getFeature(dev, 4), -5);
}

TEST_F(FaultTest, CountsFromTheMomentItWasAsked) {
  getFeature(dev, 4);
  bus.fail(HidCall::GetFeature, returning(-5));
  bus.clearLog();
  EXPECT_EQ(getFeature(dev, 4), -5);
}

TEST_F(FaultTest, AddsUp) {
  bus.fail(HidCall::GetFeature, returning(-5), 1);
  bus.fail(HidCall::GetFeature, returning(-6), 3);
  EXPECT_EQ(getFeature(dev, 4), -5);
  EXPECT_EQ(getFeature(dev, 4), 17);
  EXPECT_EQ(getFeature(dev, 4), -6);
  bus.fail(HidCall::GetFeature, returning(-7));
  bus.fail(HidCall::GetFeature, returning(-8));
  bus.fail(HidCall::GetFeature, kUnplug);
  EXPECT_EQ(getFeature(dev, 4), -8);
  EXPECT_EQ(getFeature(dev, 4), -1);
}

TEST_F(FaultTest, RefusesWhatMakesNoSense) {
  EXPECT_THROW(bus.fail(HidCall::Read, returning(0), 0), std::invalid_argument);
  EXPECT_THROW(bus.fail(HidCall::Read, returning(0), 1, 0), std::invalid_argument);
  EXPECT_THROW(bus.fail(HidCall::Read, returning(0), 1, -2), std::invalid_argument);
  EXPECT_THROW(bus.fail(HidCall::Read, shortened(-1)), std::invalid_argument);
}

}  // namespace
}  // namespace virtualpads
