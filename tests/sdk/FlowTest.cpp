// Large numbers of samples under disturbances: connections that close while the pen moves, slow
// callbacks, a shared queue. The interleavings are explored in interleavings/.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PenRecordQueue.h"
#include "support/PadTest.h"
#include "velausb.h"
#include "virtualpads/PadModel.h"

namespace {

using support::Bytes;
using support::comesTrue;
using support::penRecorder;
using support::recordPen;
using support::Sample;
using virtualpads::makePad;
using virtualpads::PadKind;

// Reports that are sent repeatedly, and the resulting samples. Their number has no divisor in
// common with the 127 numbers, so a lost report cannot go unnoticed.
struct Known {
  Bytes report;
  Sample sample;  // without its number
};

const std::array<Known, 8>& knownReports() {
  static const std::array<Known, 8> reports{{
      {{0x20, 0x5A, 0x00, 0x2D, 0x00, 0x01}, {0, 0, 1, 1, 0}},            // 90, 45
      {{0x20, 0x4E, 0x02, 0x27, 0x01, 0x10}, {16383, 16383, 16, 1, 0}},   // 590, 295
      {{0x20, 0x42, 0x04, 0x21, 0x02, 0x7F}, {32767, 32767, 127, 1, 0}},  // 1090, 545
      {{0x20, 0xBE, 0x00, 0x5F, 0x00, 0x20}, {3276, 3276, 32, 1, 0}},     // 190, 95
      {{0x00, 0x22, 0x01, 0x91, 0x00, 0x00}, {6553, 6553, 0, 0, 0}},      // 290, 145
      {{0x20, 0x86, 0x01, 0xC3, 0x00, 0x33}, {9830, 9830, 51, 1, 0}},     // 390, 195
      {{0x21, 0xEA, 0x01, 0xF5, 0x00, 0x34}, {13106, 13106, 52, 0, 0}},   // 490, 245
      {{0x20, 0x5B, 0x00, 0x2E, 0x00, 0x02}, {32, 65, 2, 1, 0}},          // 91, 46
  }};
  return reports;
}

const Known& known(std::size_t position) {
  return knownReports()[position % 8];
}

// The number after `sequence`.
unsigned following(unsigned sequence) {
  return sequence == 127 ? 1 : sequence + 1;
}

// A driver that is not left connected when a test fails.
class UsbDriver : public velausb {
 public:
  ~UsbDriver() override { CloseConnection(); }
};

class FlowTest : public support::PadTest {
 protected:
  FlowTest() { penRecorder<1>().reset(); }

  ~FlowTest() override { EXPECT_EQ(pUSBDataHandler, nullptr); }

  void plugUsbPad() { plug(makePad(PadKind::Usb)); }

  // Checks that these are the first known reports, complete and in order.
  void expectKnown(const std::vector<Sample>& samples) {
    if (samples.empty()) return;
    unsigned sequence = samples.front().sequence;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      Sample expected = known(i).sample;
      expected.sequence = sequence;
      ASSERT_EQ(samples[i], expected) << "sample " << i;
      sequence = following(sequence);
    }
  }
};

// A pen that moves on the pad until it is stopped.
class MovingPen {
 public:
  MovingPen(support::VirtualBus& bus, support::VirtualBus::Port port)
      : m_thread([this, &bus, port] {
          for (std::size_t i = 0; !m_stop; ++i)
            if (!bus.sendWhenRoom(port, known(i).report)) std::this_thread::yield();
        }) {}
  ~MovingPen() { stop(); }
  MovingPen(const MovingPen&) = delete;
  MovingPen& operator=(const MovingPen&) = delete;

  void stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
  }

 private:
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

TEST_F(FlowTest, AHundredThousandReportsArriveCompleteAndInOrder) {
  constexpr std::size_t kReports = 100'000;
  plugUsbPad();
  UsbDriver driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  for (std::size_t i = 0; i < kReports; ++i) ASSERT_TRUE(bus.sendWhenRoom(port, known(i).report));
  ASSERT_TRUE(recorder.waitFor(kReports));
  driver.CloseConnection();
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_EQ(samples.size(), kReports);
  expectKnown(samples);
}

TEST_F(FlowTest, AConnectionClosesWhileReportsStream) {
  for (int round = 0; round < 10; ++round) {
    recorder.reset();
    plugUsbPad();
    UsbDriver driver;
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    MovingPen pen(bus, port);
    ASSERT_TRUE(recorder.waitFor(500));
    std::thread closing([&] { driver.CloseConnection(); });
    ASSERT_TRUE(comesTrue([&] { return !driver.GetRunningState(); }));
    const std::size_t delivered = recorder.count();
    pen.stop();
    closing.join();
    EXPECT_EQ(recorder.count(), delivered);
    expectKnown(recorder.samples());
    bus.unplug(port);
  }
}

TEST_F(FlowTest, ASlowCallbackHoldsTheReadingUpNowhereAndTheCloseOnlyOnce) {
  constexpr std::chrono::milliseconds kWork{50};
  constexpr int kReports = 500;
  recorder.reset([kWork] { std::this_thread::sleep_for(kWork); });
  plugUsbPad();
  UsbDriver driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  for (int i = 0; i < kReports; ++i)
    ASSERT_TRUE(bus.sendWhenRoom(port, known(static_cast<std::size_t>(i)).report));
  ASSERT_TRUE(bus.waitUntilRead(port));  // the queue has grown
  driver.CloseConnection();
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_LT(samples.size(), kReports / 2);
  expectKnown(samples);
}

// Two driver objects of one kind share the queue, and so the first one's callback.

class SharedFlowTest : public FlowTest, public testing::WithParamInterface<bool> {
 protected:
  bool firstClosesFirst() const { return GetParam(); }
  velausb& closedFirst() { return firstClosesFirst() ? *first : *second; }
  velausb& closedLast() { return firstClosesFirst() ? *second : *first; }

  void openBoth() {
    plugUsbPad();
    ASSERT_EQ(first->OpenConnection(recordPen<0>), 1);
    ASSERT_EQ(second->OpenConnection(recordPen<1>), 1);
  }

  ~SharedFlowTest() override { EXPECT_EQ(penRecorder<1>().count(), 0U); }

  std::unique_ptr<UsbDriver> first = std::make_unique<UsbDriver>();
  std::unique_ptr<UsbDriver> second = std::make_unique<UsbDriver>();
};

INSTANTIATE_TEST_SUITE_P(ClosingOrders, SharedFlowTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& order) {
                           return std::string(order.param ? "FirstCloses" : "SecondCloses");
                         });

TEST_P(SharedFlowTest, TheFirstCallbackGetsTheSamplesOfBoth) {
  openBoth();
  EXPECT_TRUE(waitForThreads(6));
  // Both drivers have the pad open, so each report is read twice.
  send("20 4E 02 27 01 05");
  ASSERT_TRUE(recorder.waitFor(2));
  const std::vector<Sample> samples = recorder.samples();
  for (const Sample& sample : samples)
    EXPECT_EQ(sample, (Sample{16383, 16383, 5, 1, sample.sequence}));
  EXPECT_TRUE(samples[1].sequence == following(samples[0].sequence) ||
              samples[0].sequence == following(samples[1].sequence));
  closedFirst().CloseConnection();
  closedLast().CloseConnection();
  EXPECT_TRUE(waitForThreads(0));
}

TEST_P(SharedFlowTest, ClosingEitherEndsTheDeliveryForBoth) {
  openBoth();
  closedFirst().CloseConnection();
  EXPECT_EQ(pUSBDataHandler, nullptr);
  EXPECT_TRUE(closedLast().GetRunningState());
  send("20 4E 02 27 01 05");
  EXPECT_TRUE(bus.waitUntilRead(port));
  closedLast().CloseConnection();
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_P(SharedFlowTest, AConnectionOpenedInBetweenHasItsOwnQueue) {
  openBoth();
  closedFirst().CloseConnection();
  UsbDriver third;
  ASSERT_EQ(third.OpenConnection(recordPen<0>), 1);
  send("20 4E 02 27 01 05");
  // The pad is read by the third and by the one that is still open.
  ASSERT_TRUE(recorder.waitFor(2));
  closedLast().CloseConnection();
  EXPECT_EQ(pUSBDataHandler, nullptr);
  third.CloseConnection();
  EXPECT_EQ(recorder.count(), 2U);
}

}  // namespace
