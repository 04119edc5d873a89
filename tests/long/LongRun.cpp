// vela-long-run: the SDK on virtual pads for a long time. Each sample has to arrive in order and
// unchanged, and nothing may grow: threads, file descriptors, memory.
#include <getopt.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "giivela.h"
#include "sdk/support/AllocationCount.h"
#include "sdk/support/ProcessState.h"
#include "support/PadTable.h"
#include "support/Patience.h"
#include "support/Reports.h"
#include "virtualpads/PadModel.h"
#include "virtualpads/Wire.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using support::comesTrue;
using support::hex;
using support::PadRow;
using support::Pen;
using support::PenReport;
using virtualpads::Bytes;
using virtualpads::PadKind;
using virtualpads::VirtualBus;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    "usage: vela-long-run [--samples COUNT] [--cycles COUNT] [--stall SECONDS]\n"
    "                     [--resident-allowed KIB]\n"
    "  --samples COUNT   sends so many samples to each pad and checks each that arrives\n"
    "  --cycles COUNT    opens and closes each pad so often\n"
    "  --stall SECONDS   lets the callback stall so long while each pad sends 400 reports a "
    "second\n"
    "  --resident-allowed KIB\n"
    "                    how much the resident memory may grow (4096)\n";

constexpr int kReportsPerSecond = 400;

// The allowed growth from the beginning of a run to its end. The resident memory partly depends on
// the system; the allocations are those of the virtual bus's log of the reads.
constexpr long kHeapBytesAllowed = 65'536;
constexpr long kAllocationsAllowed = 16;
long residentKibAllowed = 4'096;

// The reports of a pad's stroke are sent repeatedly. Their number has no divisor in common with the
// cycle of sample numbers, so that a lost or duplicated sample is detected.
const PenReport& knownReport(const PadRow& pad, long number) {
  return pad.stroke[static_cast<std::size_t>(number) % pad.stroke.size()];
}

// With the number where the pad has its own.
Bytes reportOf(const PadRow& pad, long number) {
  Bytes report = hex(knownReport(pad, number).bytes, static_cast<std::size_t>(pad.reportSize));
  if (pad.kind == PadKind::Ink) report[7] = static_cast<std::uint8_t>(number);
  if (pad.kind == PadKind::Vision)
    virtualpads::putBe32(report, 8, static_cast<std::uint32_t>(number));
  return report;
}

std::uint32_t following(const PadRow& pad, std::uint32_t sequence) {
  if (pad.kind == PadKind::Ink || pad.kind == PadKind::Vision) return (sequence + 1) % 256;
  return sequence == 127 ? 1 : sequence + 1;
}

// The state of the callback's checks. `delivered` and `wrong` may be read on any thread; the rest
// belongs to the callback while a connection is open.
struct Delivery {
  const PadRow* pad = nullptr;
  std::atomic<long> delivered{0};
  std::atomic<long> wrong{-1};  // the first wrong sample, from 0
  std::uint32_t lastSequence = 0;
  std::atomic<bool> stalled{false};  // the callback does not return while it is

  void begin(const PadRow& of) {
    pad = &of;
    delivered = 0;
    wrong = -1;
  }
};
Delivery delivery;

void onPen(std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
           std::uint32_t timeStamp, std::uint32_t sequence) {
  delivery.stalled.wait(true);
  const long number = delivery.delivered;
  const PadRow& pad = *delivery.pad;
  const bool inSequence = number == 0 || sequence == following(pad, delivery.lastSequence);
  const bool inTime =
      pad.kind != PadKind::Vision || timeStamp == static_cast<std::uint32_t>(number);
  const bool right =
      Pen{x, y, pressure, touch} == knownReport(pad, number).pen && inSequence && inTime;
  if (!right && delivery.wrong < 0) delivery.wrong = number;
  delivery.lastSequence = sequence;
  delivery.delivered = number + 1;
}

struct Memory {
  long heapBytes;
  long residentKib;
  long allocations;

  static Memory now() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return {static_cast<long>(mallinfo2().uordblks), resident * (sysconf(_SC_PAGESIZE) / 1024),
            support::liveAllocations()};
  }
};

// Prints the growth since the beginning. False if it exceeds the limit.
bool reportGrowth(const Memory& begin, long allocationsAllowed) {
  const Memory end = Memory::now();
  const auto within = [](const char* what, long growth, long allowed) {
    std::printf("    %s %+ld (allowed +%ld)%s\n", what, growth, allowed,
                growth > allowed ? " TOO MUCH" : "");
    return growth <= allowed;
  };
  bool flat = within("heap bytes", end.heapBytes - begin.heapBytes, kHeapBytesAllowed);
  flat = within("allocations", end.allocations - begin.allocations, allocationsAllowed) && flat;
  flat = within("resident KiB", end.residentKib - begin.residentKib, residentKibAllowed) && flat;
  return flat;
}

bool reportDelivery(long sent) {
  const bool complete = delivery.delivered == sent;
  const bool right = delivery.wrong < 0;
  std::printf("    %ld sent, %ld delivered%s\n", sent, delivery.delivered.load(),
              !complete ? " NOT ALL"
              : right   ? ", all in order and as sent"
                        : "");
  if (!right) std::printf("    sample %ld is WRONG\n", delivery.wrong.load());
  return complete && right;
}

// A pad that is plugged in and open.
class Connection {
 public:
  explicit Connection(const PadRow& pad) {
    bus.setReadTimeout(std::chrono::milliseconds(1));
    port = bus.plug(virtualpads::makePad(pad.kind));
    vela.OpenProvider(std::string(pad.classId).data());
    vela.RegisterEventHandler(onPen);
    vela.OpenConnection();
  }

  ~Connection() {
    vela.CloseConnection();
    vela.CloseProvider();
    bus.reset();
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  VirtualBus& bus = VirtualBus::instance();
  VirtualBus::Port port = 0;

 private:
  gIIVela vela;
};

bool waitForDelivery(long count) {
  return comesTrue([count] { return delivery.delivered >= count; });
}

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Sends the samples from `first` up to but not including `last`, never far ahead of the callback,
// because its queue would grow. False if they are not delivered.
bool send(Connection& connection, const PadRow& pad, long first, long last) {
  constexpr long kStride = 1'000;
  constexpr long kFarAhead = 5 * kStride;
  for (long number = first; number < last; ++number) {
    if (number % kStride == 0) {
      connection.bus.clearLog();
      if (!waitForDelivery(number - kFarAhead)) return false;
    }
    if (!connection.bus.sendWhenRoom(connection.port, reportOf(pad, number))) return false;
  }
  const bool delivered = waitForDelivery(last);
  connection.bus.clearLog();
  return delivered;
}

bool runSamples(const PadRow& pad, long count) {
  constexpr long kWarmUp = 10'000;
  delivery.begin(pad);
  Connection connection(pad);
  bool ran = send(connection, pad, 0, kWarmUp);
  const Memory begin = Memory::now();
  const Clock::time_point beginTime = Clock::now();
  ran = ran && send(connection, pad, kWarmUp, kWarmUp + count);
  const double seconds = secondsSince(beginTime);
  std::printf("%s: %ld samples in %.1f s, %.0f a second, after %ld to warm up\n", pad.provider,
              count, seconds, static_cast<double>(count) / seconds, kWarmUp);
  ran = reportDelivery(kWarmUp + count) && ran;
  return reportGrowth(begin, kAllocationsAllowed) && ran;
}

// One connection with one sample. False if the sample does not arrive or if a thread or file
// descriptor leaks.
bool runCycle(const PadRow& pad) {
  const long threads = support::threadCount();
  const long files = support::fileDescriptorCount();
  delivery.begin(pad);
  bool delivered = false;
  {
    Connection connection(pad);
    delivered = connection.bus.send(connection.port, reportOf(pad, 0)) && waitForDelivery(1);
  }
  // A joined thread may be visible a moment longer.
  const bool ended = comesTrue([threads] { return support::threadCount() <= threads; });
  return delivered && delivery.wrong < 0 && ended && support::fileDescriptorCount() == files;
}

bool runCycles(const PadRow& pad, long count) {
  constexpr long kWarmUp = 10;
  bool ran = true;
  for (long cycle = 0; ran && cycle < kWarmUp; ++cycle) ran = runCycle(pad);
  const Memory begin = Memory::now();
  const Clock::time_point beginTime = Clock::now();
  long done = 0;
  while (ran && done < count) {
    ran = runCycle(pad);
    if (ran) ++done;
  }
  std::printf(
      "%s: %ld of %ld connections opened and closed in %.1f s, each with its sample, no\n"
      "    thread and no file descriptor more after any%s\n",
      pad.provider, done, count, secondsSince(beginTime), ran ? "" : ", but the NEXT FAILED");
  return reportGrowth(begin, 0) && ran;
}

bool runStall(const PadRow& pad, double seconds) {
  delivery.begin(pad);
  delivery.stalled = true;
  Connection connection(pad);
  const long count = static_cast<long>(seconds * kReportsPerSecond);
  long lost = 0;
  const Clock::time_point begin = Clock::now();
  for (long number = 0; number < count; ++number) {
    std::this_thread::sleep_until(begin + number * std::chrono::microseconds(1'000'000) /
                                              kReportsPerSecond);
    if (!connection.bus.send(connection.port, reportOf(pad, number))) ++lost;
  }
  const long before = delivery.delivered;
  const double stalledFor = secondsSince(begin);
  delivery.stalled = false;
  delivery.stalled.notify_all();
  const bool delivered = waitForDelivery(count);
  std::printf(
      "%s: a callback that stalls for %.1f s at %d reports a second: %ld reports lost,\n"
      "    %ld delivered meanwhile, the rest within %.3f s after\n",
      pad.provider, stalledFor, kReportsPerSecond, lost, before, secondsSince(begin) - stalledFor);
  return reportDelivery(count) && delivered && lost == 0 && before == 0;
}

template <class Run>
bool forEachPad(Run run) {
  bool ran = true;
  for (const PadRow& pad : support::padTable()) {
    ran = run(pad) && ran;
    std::fflush(stdout);
  }
  return ran;
}

// A positive number, or the program ends.
double numberIn(const char* text) {
  char* end = nullptr;
  const double number = std::strtod(text, &end);
  if (*end == '\0' && number > 0 && number < 1e12) return number;
  std::fputs(kUsage, stderr);
  std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  long samples = 0;
  long cycles = 0;
  double stall = 0;
  static const option options[] = {{"samples", required_argument, nullptr, 's'},
                                   {"cycles", required_argument, nullptr, 'c'},
                                   {"stall", required_argument, nullptr, 't'},
                                   {"resident-allowed", required_argument, nullptr, 'r'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
  for (int option; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    switch (option) {
      case 's':
        samples = static_cast<long>(numberIn(optarg));
        break;
      case 'c':
        cycles = static_cast<long>(numberIn(optarg));
        break;
      case 't':
        stall = numberIn(optarg);
        break;
      case 'r':
        residentKibAllowed = static_cast<long>(numberIn(optarg));
        break;
      default:
        std::fputs(kUsage, option == 'h' ? stdout : stderr);
        return option == 'h' ? 0 : 2;
    }
  }
  if (optind != argc || (samples == 0 && cycles == 0 && stall == 0)) {
    std::fputs(kUsage, stderr);
    return 2;
  }

  std::thread([] {}).join();  // the thread sanitizer starts its own thread with the first one
  bool ran = true;
  if (samples > 0) ran = forEachPad([&](const PadRow& pad) { return runSamples(pad, samples); });
  if (cycles > 0)
    ran = forEachPad([&](const PadRow& pad) { return runCycles(pad, cycles); }) && ran;
  if (stall > 0) ran = forEachPad([&](const PadRow& pad) { return runStall(pad, stall); }) && ran;
  std::puts(ran ? "all as it should be" : "NOT as it should be");
  return ran ? 0 : 1;
}
