// The pad II, the ink pad and the vision pad under load, and two driver objects of one kind.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "PenRecordQueue.h"
#include "VisionRecordQueue.h"
#include "support/PadTest.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velavision.h"
#include "virtualpads/PadModel.h"

namespace {

using support::Bytes;
using support::comesTrue;
using support::HidCall;
using support::recordPen;
using support::Sample;
using virtualpads::makePad;
using virtualpads::PadKind;

constexpr std::uint8_t low(int value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

constexpr std::uint8_t high(int value) {
  return static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

// Each kind has 32,749 different reports in a row (a prime number), so that a lost, duplicated or
// misplaced report is detected. The pen is down in all but every fifth.
constexpr int kPeriod = 32749;

constexpr int xOf(int report) {
  return report % kPeriod;
}

constexpr int yOf(int report) {
  return kPeriod - report % kPeriod;
}

constexpr bool isUp(int report) {
  return report % 5 == 4;
}

struct Ii {
  using Driver = velaii;
  static constexpr PadKind kPad = PadKind::Ii;
  static constexpr auto& kQueue = pDataHandler;

  static Bytes report(int i) {
    const std::uint8_t touch = isUp(i) ? 0xFE : 0x01;
    return {0x01,         touch, low(xOf(i)), high(xOf(i)), low(yOf(i)), high(yOf(i)),
            low(i % 128), 0x77,  0x77,        0x77,         0x77};
  }
  static Sample sample(int i, unsigned first) {
    return {xOf(i), yOf(i), i % 128, isUp(i) ? 0 : 1,
            (first - 1 + static_cast<unsigned>(i)) % 127 + 1};
  }
};

struct Ink {
  using Driver = velainkusb;
  static constexpr PadKind kPad = PadKind::Ink;
  static constexpr auto& kQueue = pInkDataHandler;

  static Bytes report(int i) {
    const std::uint8_t touch = isUp(i) ? 0xFE : 0x01;
    return {0x01,        touch,        low(xOf(i)),  high(xOf(i)),
            low(yOf(i)), high(yOf(i)), low(i % 256), low(i)};
  }
  static Sample sample(int i, unsigned /*first*/) {
    return {xOf(i), yOf(i), i % 256, isUp(i) ? 0 : 1, static_cast<unsigned>(i % 256)};
  }
};

struct Vision {
  using Driver = velavision;
  static constexpr PadKind kPad = PadKind::Vision;
  static constexpr auto& kQueue = pVisionDataHandler;

  static Bytes report(int i) {
    if (isUp(i)) return {0x01, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, high(i), low(i)};
    return {0x01, 0x80, high(xOf(i)), low(xOf(i)), high(yOf(i)), low(yOf(i)), 0x03, 0x01,
            0,    0,    high(i),      low(i)};
  }
  static std::uint32_t timeStamp(int i) { return static_cast<std::uint32_t>(i); }
  // A lifted pen is at the position of the report before.
  static Sample sample(int i, unsigned first) {
    const unsigned sequence = (first + static_cast<unsigned>(i)) % 256;
    if (isUp(i)) return {xOf(i - 1), yOf(i - 1), 0, 0, sequence};
    return {xOf(i), yOf(i), 0x0301, 1, sequence};
  }
};

template <class Kind>
class PadsFlowTest : public support::PadTest {
 protected:
  using Driver = typename Kind::Driver;

  ~PadsFlowTest() override {
    EXPECT_EQ(Kind::kQueue, nullptr);
    EXPECT_TRUE(waitForThreads(0));
  }

  void plugPad() { plug(makePad(Kind::kPad)); }
};

using Kinds = testing::Types<Ii, Ink, Vision>;
TYPED_TEST_SUITE(PadsFlowTest, Kinds);

TYPED_TEST(PadsFlowTest, FiftyThousandReportsArriveCompleteAndInOrder) {
  constexpr int kReports = 50'000;
  this->plugPad();
  typename TypeParam::Driver driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  bool sent = true;
  for (int i = 0; i < kReports; ++i)
    sent = this->bus.sendWhenRoom(this->port, TypeParam::report(i)) && sent;
  EXPECT_TRUE(sent);
  EXPECT_TRUE(this->recorder.waitFor(kReports));
  driver.CloseConnection();
  const std::vector<Sample> samples = this->recorder.samples();
  ASSERT_EQ(samples.size(), 50'000U);
  const unsigned first = samples[0].sequence;
  for (int i = 0; i < kReports; ++i)
    ASSERT_EQ(samples[static_cast<std::size_t>(i)], TypeParam::sample(i, first)) << "sample " << i;
  if constexpr (requires { &TypeParam::timeStamp; }) {
    const std::vector<std::uint32_t> stamps = this->recorder.timeStamps();
    for (int i = 0; i < kReports; ++i)
      ASSERT_EQ(stamps[static_cast<std::size_t>(i)], TypeParam::timeStamp(i)) << "sample " << i;
  }
}

TYPED_TEST(PadsFlowTest, ConnectionClosesWhileThePenMoves) {
  this->bus.setReadTimeout(this->kLongTimeout);  // however slow the pen is, it does not rest
  this->plugPad();
  typename TypeParam::Driver driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  std::atomic<bool> stop{false};
  std::thread pen([&] {
    for (int i = 0; !stop; ++i) this->bus.sendWhenRoom(this->port, TypeParam::report(i));
  });
  EXPECT_TRUE(this->recorder.waitFor(1000));
  std::thread closing([&] { EXPECT_EQ(driver.CloseConnection(), 0); });
  EXPECT_TRUE(comesTrue([&] { return !driver.GetRunningState(); }));
  const std::size_t delivered = this->recorder.count();
  EXPECT_TRUE(this->bus.waitForReturned(HidCall::Read,
                                        this->bus.count(HidCall::Read) + 100));  // it reads on
  this->bus.setReadTimeout(this->kShortTimeout);
  EXPECT_TRUE(this->bus.waitForReturned(HidCall::Read, this->bus.count(HidCall::Read) + 2));
  stop = true;
  pen.join();
  closing.join();
  EXPECT_EQ(this->recorder.count(), delivered);
}

// Both drivers have the pad open, so each reads the report. The queue and its callback belong to
// the first one.
TYPED_TEST(PadsFlowTest, SecondObjectOfTheKindDeliversToTheFirstOnesCallback) {
  support::penRecorder<1>().reset();
  this->plugPad();
  typename TypeParam::Driver first;
  typename TypeParam::Driver second;
  ASSERT_EQ(first.OpenConnection(recordPen), 1);
  ASSERT_EQ(second.OpenConnection(support::recordPen<1>), 1);
  ASSERT_TRUE(this->bus.sendWhenRoom(this->port, TypeParam::report(0)));
  EXPECT_TRUE(this->recorder.waitFor(2));
  EXPECT_EQ(second.CloseConnection(), 0);
  EXPECT_EQ(TypeParam::kQueue, nullptr);
  EXPECT_EQ(first.CloseConnection(), 0);
  EXPECT_EQ(this->recorder.count(), 2U);
  EXPECT_EQ(support::penRecorder<1>().count(), 0U);
}

// A driver object serves one connection; in a second one it reads only until its first time-out.
TYPED_TEST(PadsFlowTest, RunningStateDoesNotComeBack) {
  this->plugPad();
  typename TypeParam::Driver driver;
  for (const int threads : {3, 2}) {
    EXPECT_EQ(driver.OpenConnection(recordPen), 1);
    EXPECT_EQ(driver.GetRunningState(), threads == 3);
    EXPECT_TRUE(this->waitForThreads(threads));
    driver.CloseConnection();
    EXPECT_FALSE(driver.GetRunningState());
  }
}

// The first request of an ink pad that is opened before main begins, as a static object of a client
// may do. The other static objects of this program need no initialisation.
const Bytes kSentBeforeMain = [] {
  support::VirtualBus& bus = support::VirtualBus::instance();
  bus.setReadTimeout(std::chrono::milliseconds(1));
  bus.plug(makePad(PadKind::Ink));
  velainkusb driver;
  driver.OpenConnection(nullptr);
  driver.CloseConnection();
  const auto sent = bus.calls({HidCall::SendFeature});
  return sent.empty() ? Bytes{} : sent.front().bytes;
}();

TEST(InkBeforeMainTest, PictureIsThere) {
  ASSERT_EQ(kSentBeforeMain.size(), 2408U);
  EXPECT_EQ(kSentBeforeMain[1], 1);  // the layer
}

}  // namespace
