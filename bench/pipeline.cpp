// How long a pen sample takes from hid_read_timeout to the callback, what the queue costs, and how
// it recovers from a callback that stalled. Uses the USB pad's driver, on a virtual pad, so that
// the SDK and the system's threads are measured without a device.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "PenRecordQueue.h"
#include "velausb.h"
#include "virtualpads/hidapi/VirtualBus.h"

struct hid_device_;

namespace {

using Clock = std::chrono::steady_clock;
using virtualpads::VirtualBus;

std::atomic<Clock::time_point> readReturned{};   // of the last report
std::atomic<Clock::time_point> callbackBegan{};  // of the last sample
std::atomic<long> delivered{0};
std::atomic<bool> stalled{false};  // while true, the callback does not return

void onPen(int32_t /*x*/, int32_t /*y*/, int32_t /*pressure*/, uint8_t /*touch*/,
           uint32_t /*timestamp*/, uint32_t /*sequenceNumber*/) {
  callbackBegan = Clock::now();
  ++delivered;
  delivered.notify_all();
  stalled.wait(true);
}

void waitForDelivery(long count) {
  for (long now = delivered; now < count; now = delivered) delivered.wait(now);
}

// A connection to a pad.
class Connection {
 public:
  Connection() {
    delivered = 0;
    m_driver.OpenConnection(onPen);
  }
  ~Connection() {
    m_bus.unplug(m_port);
    m_driver.CloseConnection();
    m_bus.reset();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void sendReport() { m_bus.sendWhenRoom(m_port, {0x20, 0x4E, 0x02, 0x27, 0x01, 0x40}); }

 private:
  VirtualBus& m_bus = VirtualBus::instance();
  VirtualBus::Port m_port = m_bus.plug(virtualpads::makePad(virtualpads::PadKind::Usb));
  velausb m_driver;
};

// A plain loop that looks for a report every 500 microseconds: the shortest delay that such polling
// can have on this machine.
class PlainPoll {
 public:
  ~PlainPoll() {
    m_stop = true;
    m_thread.join();
  }

  void set() {
    m_setAt = Clock::now();
    m_set = true;
  }

  double waitForDelay() {
    while (m_set) usleep(100);
    return std::chrono::duration<double>(m_seenAt.load() - m_setAt.load()).count();
  }

 private:
  void poll() {
    while (!m_stop) {
      if (m_set) {
        m_seenAt = Clock::now();
        m_set = false;
      } else {
        usleep(500);
      }
    }
  }

  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_set{false};
  std::atomic<Clock::time_point> m_setAt{};
  std::atomic<Clock::time_point> m_seenAt{};
  std::thread m_thread{&PlainPoll::poll, this};
};

double milliseconds(std::vector<double>& seconds, double portion) {
  std::sort(seconds.begin(), seconds.end());
  const auto last = static_cast<double>(seconds.size() - 1);
  return 1000 * seconds[static_cast<std::size_t>(portion * last)];
}

// The delay from the return of hid_read_timeout to the start of the callback, with an empty queue.
// Reports come at random times, the same for the plain loop.
void delayToCallback(benchmark::State& state) {
  std::vector<double> delays;
  std::vector<double> plainDelays;
  std::mt19937 random(20);  // any seed will do
  std::uniform_int_distribution<int> pause(2'000, 6'000);
  {
    Connection connection;
    PlainPoll plain;
    long sent = 0;
    for ([[maybe_unused]] auto _ : state) {
      std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
      plain.set();
      connection.sendReport();
      waitForDelivery(++sent);
      const std::chrono::duration<double> delay = callbackBegan.load() - readReturned.load();
      delays.push_back(delay.count());
      plainDelays.push_back(plain.waitForDelay());
      state.SetIterationTime(delay.count());
    }
  }
  state.counters["median_ms"] = milliseconds(delays, 0.5);
  state.counters["p99_ms"] = milliseconds(delays, 0.99);
  state.counters["plain_median_ms"] = milliseconds(plainDelays, 0.5);
  state.counters["plain_p99_ms"] = milliseconds(plainDelays, 0.99);
}
BENCHMARK(delayToCallback)->UseManualTime()->Iterations(2'000)->Unit(benchmark::kMillisecond);

// Appends a sample to the queue and takes one out, with that many waiting in it: each append walks
// along all of them.
void costOfSample(benchmark::State& state) {
  CDataHandler queue(nullptr);
  const PEN_DATA sample{};
  for (long i = 0; i < state.range(0); ++i) queue.SetRecord(CDataHandler::recordOf(sample));
  for ([[maybe_unused]] auto _ : state) {
    queue.SetRecord(CDataHandler::recordOf(sample));
    delete queue.GetRecord(true);
  }
  while (PEN_DATA* const left = queue.GetRecord(true)) delete left;
}
BENCHMARK(costOfSample)->ArgName("waiting")->Arg(0)->Arg(64)->Arg(1'000);

// 1,000 reports a second while the callback stalls for 30 seconds and then continues; the pad keeps
// sending all the time. Measures the time from the end of the stall until fewer than ten samples
// wait. Returns only when every sample has been delivered.
void recoveryFromAStall(benchmark::State& state) {
  constexpr std::chrono::seconds kStall{30};
  constexpr long kReports = 35'000;
  for ([[maybe_unused]] auto _ : state) {
    Connection connection;
    stalled = true;
    std::atomic<long> sent{0};
    std::thread pad([&] {
      const auto begin = Clock::now();
      while (sent < kReports) {
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(sent));
        connection.sendReport();
        ++sent;
      }
    });
    std::this_thread::sleep_for(kStall);
    const auto waiting = [&sent] { return sent - delivered; };
    state.counters["waiting"] = static_cast<double>(waiting());
    const auto begin = Clock::now();
    stalled = false;
    stalled.notify_all();
    while (waiting() >= 10) usleep(100);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    pad.join();
    waitForDelivery(kReports);
  }
}
BENCHMARK(recoveryFromAStall)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

extern "C" {

int __real_hid_read_timeout(hid_device_* device, unsigned char* data, size_t length,
                            int milliseconds);
int __wrap_hid_read_timeout(hid_device_* device, unsigned char* data, size_t length,
                            int milliseconds);
int __wrap_hid_read_timeout(hid_device_* device, unsigned char* data, size_t length,
                            int milliseconds) {
  const int result = __real_hid_read_timeout(device, data, length, milliseconds);
  if (result > 0) readReturned = Clock::now();
  return result;
}

}  // extern "C"

BENCHMARK_MAIN();
