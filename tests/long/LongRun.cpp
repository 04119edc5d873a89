// vela-long-run: the SDK on virtual pads for a long time. Each sample has to arrive in order and
// unchanged, and nothing may grow: threads, file descriptors, memory.
#include <getopt.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <thread>

#include "giivela.h"
#include "support/AllocationCount.h"
#include "support/Patience.h"
#include "support/ProcessState.h"
#include "support/Reports.h"
#include "virtualpads/PadModel.h"
#include "virtualpads/Wire.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using support::comesTrue;
using support::hex;
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

// Seven reports that are sent repeatedly, and the resulting samples. Seven has no divisor in common
// with the cycle of sample numbers, so that a lost or duplicated sample is detected.
constexpr std::size_t kKnownReports = 7;

struct Known {
  std::string_view report;
  int x;
  int y;
  int pressure;
  int touch;
};

struct Pad {
  PadKind kind;
  const char* name;
  const char* classId;
  std::size_t reportSize;
  std::array<Known, kKnownReports> known;
  void (*number)(Bytes& report,
                 std::uint32_t number);  // writes the number where the pad has its own
  std::uint32_t (*following)(std::uint32_t sequence);
};

void unnumbered(Bytes& /*report*/, std::uint32_t /*number*/) {}

std::uint32_t cyclic127(std::uint32_t sequence) {
  return sequence == 127 ? 1 : sequence + 1;
}

std::uint32_t cyclic256(std::uint32_t sequence) {
  return sequence == 255 ? 0 : sequence + 1;
}

constexpr Pad kPads[] = {
    {PadKind::Usb,
     "Vela USB",
     "7FCD95128763436E874740972EE28EFD",
     6,
     {{{"20 5A 00 2D 00 01", 0, 0, 1, 1},             // 90, 45
       {"20 4E 02 27 01 10", 16383, 16383, 16, 1},    // 590, 295
       {"20 42 04 21 02 7F", 32767, 32767, 127, 1},   // 1090, 545
       {"20 BE 00 5F 00 20", 3276, 3276, 32, 1},      // 190, 95
       {"00 22 01 91 00 00", 6553, 6553, 0, 0},       // 290, 145
       {"20 86 01 C3 00 33", 9830, 9830, 51, 1},      // 390, 195
       {"21 EA 01 F5 00 34", 13106, 13106, 52, 0}}},  // 490, 245
     unnumbered,
     cyclic127},
    {PadKind::Ii,
     "Vela II",
     "C1AF33B2529E4D2DB885DAF2780009EE",
     11,
     {{{"01 01 10 00 20 00 05", 16, 32, 5, 1},
       {"01 01 FF 7F 00 40 7F", 32767, 16384, 127, 1},
       {"01 01 02 01 04 03 10", 258, 772, 16, 1},
       {"01 01 00 90 02 00 01", -28672, 2, 1, 1},
       {"01 FE 01 02 03 04 00", 513, 1027, 0, 0},
       {"01 01 00 00 00 00 03", 0, 0, 3, 1},
       {"01 00 00 10 00 20 00", 4096, 8192, 0, 0}}},
     unnumbered,
     cyclic127},
    {PadKind::Ink,
     "Vela Ink",
     "98C174D36D2A450996DBD5B34FA7A561",
     8,
     {{{"01 01 10 00 20 00 05", 16, 32, 5, 1},
       {"01 01 FF 7F 00 40 FF", 32767, 16384, 255, 1},
       {"01 01 02 01 04 03 10", 258, 772, 16, 1},
       {"01 01 00 90 02 00 01", -28672, 2, 1, 1},
       {"01 FE 01 02 03 04 00", 513, 1027, 0, 0},
       {"01 01 00 00 00 00 03", 0, 0, 3, 1},
       {"01 00 00 10 00 20 00", 4096, 8192, 0, 0}}},
     [](Bytes& report, std::uint32_t number) { report[7] = static_cast<std::uint8_t>(number); },
     cyclic256},
    {PadKind::Vision,
     "Vela Vision",
     "3F2DE94B14D448719DFE5359EF03652A",
     17,
     {{{"01 80 00 01 00 02 00 03", 1, 2, 3, 1},
       {"01 80 01 00 02 00 03 00", 256, 512, 768, 1},
       {"01 80 9C 40 00 07 00 01", 40000, 7, 1, 1},
       {"01 80 00 00 00 00 00 00", 40000, 7, 0, 0},  // where the pen was lifted
       {"01 80 00 00 00 05 00 01", 0, 5, 1, 1},
       {"01 80 00 05 00 00 00 01", 5, 0, 1, 1},
       {"01 80 00 00 00 00 00 00", 5, 0, 0, 0}}},
     [](Bytes& report, std::uint32_t number) { virtualpads::putBe32(report, 8, number); },
     cyclic256},
};

// The state of the callback's checks. `delivered` and `wrong` may be read on any thread; the rest
// belongs to the callback while a connection is open.
struct Delivery {
  const Pad* pad = nullptr;
  std::atomic<long> delivered{0};
  std::atomic<long> wrong{-1};  // the first wrong sample, from 0
  std::uint32_t lastSequence = 0;
  std::atomic<bool> stalled{false};  // the callback does not return while it is

  void begin(const Pad& of) {
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
  const Pad& pad = *delivery.pad;
  const Known& known = pad.known[static_cast<std::size_t>(number) % kKnownReports];
  const bool inSequence = number == 0 || sequence == pad.following(delivery.lastSequence);
  const bool inTime =
      pad.kind != PadKind::Vision || timeStamp == static_cast<std::uint32_t>(number);
  const bool right = x == known.x && y == known.y && pressure == known.pressure &&
                     touch == known.touch && inSequence && inTime;
  if (!right && delivery.wrong < 0) delivery.wrong = number;
  delivery.lastSequence = sequence;
  delivery.delivered = number + 1;
}

Bytes reportOf(const Pad& pad, long number) {
  Bytes report =
      hex(pad.known[static_cast<std::size_t>(number) % kKnownReports].report, pad.reportSize);
  pad.number(report, static_cast<std::uint32_t>(number));
  return report;
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
  explicit Connection(const Pad& pad) {
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
bool send(Connection& connection, const Pad& pad, long first, long last) {
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

bool runSamples(const Pad& pad, long count) {
  constexpr long kWarmUp = 10'000;
  delivery.begin(pad);
  Connection connection(pad);
  bool ran = send(connection, pad, 0, kWarmUp);
  const Memory begin = Memory::now();
  const Clock::time_point beginTime = Clock::now();
  ran = ran && send(connection, pad, kWarmUp, kWarmUp + count);
  const double seconds = secondsSince(beginTime);
  std::printf("%s: %ld samples in %.1f s, %.0f a second, after %ld to warm up\n", pad.name, count,
              seconds, static_cast<double>(count) / seconds, kWarmUp);
  ran = reportDelivery(kWarmUp + count) && ran;
  return reportGrowth(begin, kAllocationsAllowed) && ran;
}

// One connection with one sample. False if the sample does not arrive or if a thread or file
// descriptor leaks.
bool runCycle(const Pad& pad) {
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

bool runCycles(const Pad& pad, long count) {
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
      pad.name, done, count, secondsSince(beginTime), ran ? "" : ", but the NEXT FAILED");
  return reportGrowth(begin, 0) && ran;
}

bool runStall(const Pad& pad, double seconds) {
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
      pad.name, stalledFor, kReportsPerSecond, lost, before, secondsSince(begin) - stalledFor);
  return reportDelivery(count) && delivered && lost == 0 && before == 0;
}

template <class Run>
bool forEachPad(Run run) {
  bool ran = true;
  for (const Pad& pad : kPads) {
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
  if (samples > 0) ran = forEachPad([&](const Pad& pad) { return runSamples(pad, samples); });
  if (cycles > 0) ran = forEachPad([&](const Pad& pad) { return runCycles(pad, cycles); }) && ran;
  if (stall > 0) ran = forEachPad([&](const Pad& pad) { return runStall(pad, stall); }) && ran;
  std::puts(ran ? "all as it should be" : "NOT as it should be");
  return ran ? 0 : 1;
}
