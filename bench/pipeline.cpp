// How long a pen sample takes from hid_read_timeout to the callback, what the queue costs, and how
// it recovers from a callback that stalled. Uses the USB pad's driver.
//
// The functions of hidapi that the driver calls are defined here: reports come from memory, so that
// the SDK and the system's threads are measured without a device.
#include <benchmark/benchmark.h>
#include <hidapi.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "PenRecordQueue.h"
#include "velausb.h"

struct hid_device_ {};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::array<unsigned char, 6> kPenDown{0x20, 0x4E, 0x02, 0x27, 0x01, 0x40};

// The source of hid_read_timeout's reports.
class Source {
 public:
  // Supplies `count` reports, `interval` apart.
  void supply(long count, std::chrono::microseconds interval) {
    {
      const std::lock_guard lock(m_mutex);
      m_delivered = 0;
      m_wanted = count;
      m_next = Clock::now();
      m_interval = interval;
      m_left = count;
    }
    m_changed.notify_all();
  }

  // Makes all further reads fail, so that the connection closes.
  void end() {
    {
      const std::lock_guard lock(m_mutex);
      m_ended = true;
    }
    m_changed.notify_all();
  }

  void begin() { m_ended = false; }

  int read(unsigned char* data) {
    if (m_left == 0) {
      std::unique_lock lock(m_mutex);
      m_changed.wait(lock, [this] { return m_left > 0 || m_ended; });
      if (m_left == 0) return 0;
    }
    std::this_thread::sleep_until(m_next);
    m_next += m_interval;
    --m_left;
    std::memcpy(data, kPenDown.data(), kPenDown.size());
    readReturns = Clock::now();
    return static_cast<int>(kPenDown.size());
  }

  // Called in the callback.
  void noteDelivery() {
    callbackBegins = Clock::now();
    if (++m_delivered < m_wanted) return;
    // Locked, so that the waiting thread cannot miss the change between its test and its wait.
    const std::lock_guard lock(m_mutex);
    m_changed.notify_all();
  }

  // The number of reports that have been read but not delivered.
  long waiting() const { return m_wanted - m_left - m_delivered; }

  void waitForDelivery() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_delivered >= m_wanted; });
  }

  // Of the last sample.
  std::atomic<Clock::time_point> readReturns{};
  std::atomic<Clock::time_point> callbackBegins{};

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::atomic<long> m_left{0};
  std::atomic<long> m_wanted{0};
  std::atomic<long> m_delivered{0};
  std::atomic<bool> m_ended{false};
  Clock::time_point m_next{};  // these two are set before reports come
  std::chrono::microseconds m_interval{0};
};

Source source;

std::atomic<bool> stalled{false};  // while true, the callback does not return

void onPen(int32_t /*x*/, int32_t /*y*/, int32_t /*pressure*/, uint8_t /*touch*/,
           uint32_t /*timestamp*/, uint32_t /*sequenceNumber*/) {
  source.noteDelivery();
  stalled.wait(true);
}

// A connection to the pad that reads from the source.
class Connection {
 public:
  Connection() {
    source.begin();
    m_driver.OpenConnection(onPen);
  }
  ~Connection() {
    source.end();
    m_driver.CloseConnection();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

 private:
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
    const Connection connection;
    PlainPoll plain;
    for ([[maybe_unused]] auto _ : state) {
      std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
      plain.set();
      source.supply(1, std::chrono::microseconds{0});
      source.waitForDelivery();
      const std::chrono::duration<double> delay =
          source.callbackBegins.load() - source.readReturns.load();
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
  constexpr std::chrono::seconds kAfter{5};
  constexpr long kReportsPerSecond = 1'000;
  const Connection connection;
  for ([[maybe_unused]] auto _ : state) {
    stalled = true;
    source.supply((kStall + kAfter).count() * kReportsPerSecond, std::chrono::milliseconds{1});
    std::this_thread::sleep_for(kStall);
    state.counters["waiting"] = static_cast<double>(source.waiting());
    const auto begin = Clock::now();
    stalled = false;
    stalled.notify_all();
    while (source.waiting() >= 10) usleep(100);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    source.waitForDelivery();
  }
}
BENCHMARK(recoveryFromAStall)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

extern "C" {

int hid_init() {
  return 0;
}

int hid_exit() {
  return 0;
}

hid_device* hid_open(unsigned short /*vid*/, unsigned short /*pid*/, const wchar_t* /*serial*/) {
  static hid_device device;
  return &device;
}

void hid_close(hid_device* /*device*/) {}

int hid_set_nonblocking(hid_device* /*device*/, int /*nonblock*/) {
  return 0;
}

int hid_read_timeout(hid_device* /*device*/, unsigned char* data, size_t /*length*/,
                     int /*milliseconds*/) {
  return source.read(data);
}

// The driver of the USB pad does not call the following functions.
hid_device_info* hid_enumerate(unsigned short /*vid*/, unsigned short /*pid*/) {
  std::abort();
}

void hid_free_enumeration(hid_device_info* /*devices*/) {
  std::abort();
}

int hid_write(hid_device* /*device*/, const unsigned char* /*data*/, size_t /*length*/) {
  std::abort();
}

int hid_get_feature_report(hid_device* /*device*/, unsigned char* /*data*/, size_t /*length*/) {
  std::abort();
}

int hid_send_feature_report(hid_device* /*device*/, const unsigned char* /*data*/,
                            size_t /*length*/) {
  std::abort();
}

}  // extern "C"

BENCHMARK_MAIN();
