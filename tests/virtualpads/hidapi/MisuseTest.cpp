// Calls that would be undefined behaviour in the real hidapi are counted.
#include <memory>
#include <utility>

#include "BusTest.h"

namespace virtualpads {
namespace {

constexpr Fault kLate{.kind = Fault::Kind::Late};
constexpr std::uint8_t kNoSuchReport = 5;

class MisuseTest : public BusTest {
 protected:
  // A feature call that fails once the late calls are released.
  std::future<int> lateFailure() {
    bus.fail(HidCall::GetFeature, kLate);
    auto caller = inBackground([this] { return getFeature(dev, kNoSuchReport); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::GetFeature, ++m_lateFailures));
    return caller;
  }

 private:
  long m_lateFailures = 0;
};

TEST_F(MisuseTest, FailuresOneAfterTheOtherAreFine) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);
    EXPECT_EQ(setFeature(dev, {kNoSuchReport}), -1);
    EXPECT_EQ(read(dev, 0).result, 0);
  }
  bus.unplug(port);
  EXPECT_EQ(read(dev, 0).result, -1);
  EXPECT_EQ(read(dev, 0).result, -1);
  close();
  EXPECT_EQ(bus.misuses(), 0);
}

TEST_F(MisuseTest, ACallDuringAnotherIsFineWhileThereIsNoErrorText) {
  auto reader = waitingRead();
  EXPECT_EQ(getFeature(dev, 4), 17);
  EXPECT_EQ(setFeature(dev, {4, 1}), 17);
  EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);  // sets the text as its last act
  bus.unplug(port);
  EXPECT_EQ(reader.get().result, -1);  // replaces it
  close();
  EXPECT_EQ(bus.misuses(), 0);
}

TEST_F(MisuseTest, ACallThatFreesTheTextDuringAnotherIsAMisuse) {
  auto reader = waitingRead();
  EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);
  EXPECT_EQ(bus.misuses(), 0);
  EXPECT_EQ(getFeature(dev, 4), 17);
  EXPECT_EQ(bus.misuses(), 1);
  EXPECT_EQ(setFeature(dev, {4, 1}), 17);  // the text is freed
  EXPECT_EQ(bus.misuses(), 1);
  EXPECT_EQ(setFeature(dev, {kNoSuchReport}), -1);
  EXPECT_EQ(setFeature(dev, {4, 1}), 17);
  EXPECT_EQ(bus.misuses(), 2);
  bus.unplug(port);
  reader.get();
}

TEST_F(MisuseTest, AReadThatFreesTheTextDuringAFeatureCallIsAMisuse) {
  auto feature = lateFailure();
  bus.unplug(port);
  EXPECT_EQ(read(dev, 0).result, -1);
  EXPECT_EQ(bus.misuses(), 0);
  EXPECT_EQ(read(dev, 0).result, -1);
  EXPECT_EQ(bus.misuses(), 1);
  bus.releaseLateCalls();
  EXPECT_EQ(feature.get(), -1);
  EXPECT_EQ(bus.misuses(), 1);
}

TEST_F(MisuseTest, TwoThatFailWhileTheTextIsSetAreAMisuse) {
  auto reader = waitingRead();
  auto one = lateFailure();
  auto other = lateFailure();
  bus.unplug(port);
  EXPECT_EQ(reader.get().result, -1);
  EXPECT_EQ(bus.misuses(), 0);
  bus.releaseLateCalls();
  one.get();
  other.get();
  EXPECT_EQ(bus.misuses(), 1);
}

TEST_F(MisuseTest, AWriteFreesTheTextWhenItEnds) {
  const unsigned char report[1] = {0};
  EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);
  EXPECT_EQ(hid_write(dev, report, 1), -1);
  EXPECT_EQ(bus.misuses(), 0);
  bus.fail(HidCall::Write, {.kind = Fault::Kind::Return, .value = 1});
  EXPECT_EQ(hid_write(dev, report, 1), 1);
  auto reader = waitingRead();
  EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);
  bus.fail(HidCall::Write, kLate);
  auto writer = inBackground([&] { return hid_write(dev, report, 1); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::Write, 3));
  EXPECT_EQ(bus.misuses(), 0);
  bus.releaseLateCalls();
  EXPECT_EQ(writer.get(), -1);
  EXPECT_EQ(bus.misuses(), 1);
  bus.unplug(port);
  reader.get();
}

TEST_F(MisuseTest, EachHandleHasATextOfItsOwn) {
  hid_device* const other = hid_open(kVendor, kVisionPad, nullptr);
  auto reader = waitingRead();
  EXPECT_EQ(getFeature(other, kNoSuchReport), -1);
  EXPECT_EQ(getFeature(other, 4), 17);
  EXPECT_EQ(bus.misuses(), 0);
  bus.unplug(port);
  reader.get();
  hid_close(other);
}

TEST_F(MisuseTest, SetNonblockingLeavesTheTextAlone) {
  auto reader = waitingRead();
  EXPECT_EQ(getFeature(dev, kNoSuchReport), -1);
  EXPECT_EQ(hid_set_nonblocking(dev, 0), 0);
  EXPECT_EQ(bus.misuses(), 0);
  bus.unplug(port);
  reader.get();
}

TEST_F(MisuseTest, ANullHandle) {
  unsigned char buffer[17] = {4};
  EXPECT_EQ(hid_read_timeout(nullptr, buffer, 17, 0), -1);
  EXPECT_EQ(bus.misuses(), 1);
  EXPECT_EQ(hid_write(nullptr, buffer, 17), -1);
  EXPECT_EQ(bus.misuses(), 2);
  EXPECT_EQ(hid_get_feature_report(nullptr, buffer, 17), -1);
  EXPECT_EQ(bus.misuses(), 3);
  EXPECT_EQ(hid_send_feature_report(nullptr, buffer, 17), -1);
  EXPECT_EQ(bus.misuses(), 4);
  EXPECT_EQ(hid_set_nonblocking(nullptr, 0), -1);
  EXPECT_EQ(bus.misuses(), 5);
}

TEST_F(MisuseTest, CloseAcceptsNull) {
  hid_close(nullptr);
  EXPECT_EQ(bus.misuses(), 0);
}

TEST_F(MisuseTest, AClosedHandle) {
  hid_close(dev);
  EXPECT_EQ(bus.misuses(), 0);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  EXPECT_EQ(bus.misuses(), 1);
  EXPECT_EQ(getFeature(dev, 4), -1);
  EXPECT_EQ(bus.misuses(), 2);
  EXPECT_EQ(setFeature(dev, {4}), -1);
  EXPECT_EQ(bus.misuses(), 3);
  EXPECT_EQ(hid_set_nonblocking(dev, 0), -1);
  EXPECT_EQ(bus.misuses(), 4);
  hid_close(dev);
  EXPECT_EQ(bus.misuses(), 5);
}

TEST_F(MisuseTest, AClosedHandleIsNotGivenOutAgain) {
  hid_close(dev);
  hid_device* const other = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_NE(other, dev);
  EXPECT_EQ(getFeature(other, 4), 17);
  EXPECT_EQ(bus.misuses(), 0);
  hid_close(other);
}

TEST_F(MisuseTest, AHandleFromBeforeTheReset) {
  hid_close(dev);
  bus.reset();
  EXPECT_EQ(getFeature(dev, 4), -1);
  EXPECT_EQ(bus.misuses(), 1);
}

TEST_F(MisuseTest, AClosingWhileAReadWaits) {
  auto reader = waitingRead();
  hid_close(dev);
  EXPECT_EQ(bus.misuses(), 1);
  EXPECT_EQ(reader.get().result, -1);
}

}  // namespace
}  // namespace virtualpads
