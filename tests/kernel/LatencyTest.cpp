// Measures how long a pen sample takes from the kernel (a HID device, or the host controller of a
// USB device) to the callback and to the ink in the window, compared with hidapi alone in the same
// boot. Prints the figures in lines that bench/report reads. Asserts only that every sample
// arrives.
//
// kernel-latency SAMPLES: that many samples for each figure but those of the ink.
#include <gtest/gtest.h>
#include <hidapi.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "Application.h"
#include "Client.h"
#include "Desktop.h"
#include "TestPads.h"

using virtualpads::KernelPad;
using virtualpads::PadKind;

namespace {

using Clock = std::chrono::steady_clock;  // the monotonic clock, as in the client

constexpr std::chrono::milliseconds kSampleInterval{5};  // 200 a second, as a pad samples

int samples = 0;

std::int64_t now() {
  return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

// Prints the median and the 99th percentile of differences in nanoseconds.
void report(const char* what, const TestPad& kind, Face face, const std::vector<std::int64_t>& from,
            const std::vector<std::int64_t>& to) {
  ASSERT_EQ(from.size(), to.size());
  std::vector<std::int64_t> taken;
  for (std::size_t i = 0; i < from.size(); ++i) taken.push_back(to[i] - from[i]);
  std::ranges::sort(taken);
  const auto percentile = [&](std::size_t percent) {
    return static_cast<double>(taken[(taken.size() * percent + 99) / 100 - 1]) / 1000;
  };
  std::printf("%-7s %-5s %-22s median %8.0f us, 99th percentile %8.0f us, %zu samples\n", kind.name,
              nameOf(face), what, percentile(50), percentile(99), taken.size());
}

// Sends the samples at a pad's pace and returns when each was handed to the kernel. `waitForNext`
// returns when the reader has received one more sample. It delays the pen when the reader is so far
// behind that the kernel would drop reports.
std::vector<std::int64_t> sendAtPace(KernelPad& pad, const TestPad& kind,
                                     const std::function<void()>& waitForNext) {
  std::vector<std::int64_t> sent;
  auto next = Clock::now();
  for (int n = 0; n < samples; ++n) {
    if (n >= kUnreadReports) waitForNext();
    std::this_thread::sleep_until(next += kSampleInterval);
    sent.push_back(now());
    pad.send(kind.report(n));
  }
  return sent;
}

class LatencyTest : public ::testing::TestWithParam<std::tuple<std::size_t, Face>> {
 protected:
  const TestPad& kind = kTestPads.at(std::get<0>(GetParam()));
  const Face face = std::get<1>(GetParam());
  std::unique_ptr<KernelPad> pad = plugged(kind.kind, face);
};

TEST_P(LatencyTest, HidapiAlone) {
  hid_device* const device = hid_open_path(pad->waitForNode().c_str());
  ASSERT_NE(device, nullptr);
  ASSERT_TRUE(pad->waitUntilOpen());
  std::vector<std::int64_t> arrived;
  std::counting_semaphore<> unclaimed(0);  // samples that arrived but were not waited for
  std::thread reader([&] {
    std::array<unsigned char, 64> bytes{};
    while (std::ssize(arrived) < samples &&
           hid_read_timeout(device, bytes.data(), bytes.size(), 10000) > 0) {
      arrived.push_back(now());
      unclaimed.release();
    }
  });
  const auto sent = sendAtPace(*pad, kind, [&] { unclaimed.acquire(); });
  reader.join();
  hid_close(device);
  report("to a hidapi reader", kind, face, sent, arrived);
}

TEST_P(LatencyTest, Callback) {
  Client client;
  client.connect(kind);
  ASSERT_TRUE(pad->waitUntilOpen());
  std::size_t nextLine = client.lineCount();
  const auto sent = sendAtPace(*pad, kind, [&] { nextLine = client.waitForSamples(1, nextLine); });
  client.waitForSamples(kUnreadReports, nextLine);
  std::vector<std::int64_t> called;
  for (const Client::Received& received : client.received()) called.push_back(received.nanoseconds);
  report("to the callback", kind, face, sent, called);
}

INSTANTIATE_TEST_SUITE_P(Pads, LatencyTest, eachPadOn(faces()), nameOfPadOn<Face>);

// The pen moves to the right in steps of three pixels. The last pixel of each step is polled
// without a pause until it is blue.
class LatencyToTheWindowTest : public ::testing::TestWithParam<Face> {};

TEST_P(LatencyToTheWindowTest, Ink) {
  constexpr int kRow = 80;
  constexpr int kFirstColumn = 10;
  constexpr int kStep = 3;
  constexpr int kSteps = 70;
  constexpr std::chrono::seconds kInkLimit{60};
  const TestPad& kind = kTestPads[0];
  const auto pad = plugged(kind.kind, GetParam());
  Desktop desktop;
  Application app(desktop);
  app.choose(kind);
  app.open();
  // The middle of the range that the application scales to that column and row.
  const auto moveTo = [&](int column) {
    pad->sendPen({.x = (column + 0.5) * 140 / 32767,
                  .y = (kRow + 0.5) * 200 / 32767,
                  .pressure = 0.5,
                  .touch = true});
  };
  app.waitUntilConnected();
  // Two points, for a first piece of ink: from then on the view stays where it is in the window.
  moveTo(kFirstColumn);
  moveTo(kFirstColumn + kStep);
  const QPoint view = findView(desktop.waitForPicture(hasInk)).topLeft();
  std::vector<std::int64_t> sent;
  std::vector<std::int64_t> seen;
  for (int step = 2; step <= kSteps; ++step) {
    const int column = kFirstColumn + step * kStep;
    const QPoint end = view + QPoint(column - 1, kRow);
    ASSERT_EQ(desktop.pixel(end), kPaper);
    std::this_thread::sleep_for(kSampleInterval);
    sent.push_back(now());
    moveTo(column);
    const auto limit = Clock::now() + kInkLimit;
    while (desktop.pixel(end) != kInk)
      ASSERT_TRUE(Clock::now() < limit) << "no ink in column " << column;
    seen.push_back(now());
  }
  report("to the ink", kind, GetParam(), sent, seen);
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Faces, LatencyToTheWindowTest,
                         ::testing::ValuesIn(facesOfTheApplication()),
                         [](const auto& parameter) { return nameOf(parameter.param); });

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc == 2) samples = std::atoi(argv[1]);
  if (samples <= kUnreadReports) {
    std::fprintf(stderr, "usage: kernel-latency SAMPLES, more than %d\n", kUnreadReports);
    return EXIT_FAILURE;
  }
  return RUN_ALL_TESTS();
}
