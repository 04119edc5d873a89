// The input reports of a pad, as a stream of reads from the first to the last of a connection. The
// callback's arguments are compared with the pad's table of the report, sample by sample.
//
// The fuzzer's bytes: a byte that selects the outcome of the next read, then the bytes of its
// report.
//
//   0 to 7F   a whole report
//   80 to FD  a part of a report, which is 80 plus its length (none is a time-out)
//   FE        a time-out
//   FF        an error
//
// A report for which too few bytes are left is a short one.
//
// A pad gives reportSize, Driver, whether it has a clock of its own, and `sample`: what the
// callback should be given for a read of at least one byte. The numbers of samples continue over
// all connections of a process, here as in the SDK.
#ifndef TESTS_FUZZ_REPORTS_H
#define TESTS_FUZZ_REPORTS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "Device.h"
#include "Expect.h"
#include "Input.h"

namespace fuzz {

// The arguments of a callback. The time stamp is set only for a pad that has a clock of its own.
struct Sample {
  std::int32_t x;
  std::int32_t y;
  std::int32_t pressure;
  std::uint8_t touch;
  std::uint32_t sequence;
  std::uint32_t timeStamp = 0;
  bool operator==(const Sample&) const = default;
};

// The signal thread is not needed, and only the processing thread needs to be a real thread.
inline constexpr std::array kSignalFirst{Start::Refused, Start::RunAtOnce, Start::Started};
inline constexpr std::array kReadingFirst{Start::RunAtOnce, Start::Refused, Start::Started};

// Written on the processing thread; read when that thread has nothing left to deliver.
inline std::vector<Sample> delivered;

struct Read {
  ByteSpan report;
  int result;
};

inline std::vector<Read> readsFrom(Input input, std::size_t reportSize) {
  std::vector<Read> reads;
  while (!input.empty()) {
    const std::uint8_t kind = input.byte();
    if (kind >= 0xFE) {
      reads.push_back({{}, kind == 0xFF ? -1 : 0});
    } else {
      const ByteSpan report = input.take(kind < 0x80 ? reportSize : (kind - 0x80U) % reportSize);
      reads.push_back({report, static_cast<int>(report.size())});
    }
  }
  return reads;
}

// Runs the reading loop where it is started, and ends it after the last read.
template <class Pad>
class ReportingDevice : public Device {
 public:
  ReportingDevice(typename Pad::Driver& driver, std::vector<Read> reads)
      : Device(Pad::starts), m_driver(driver), m_reads(std::move(reads)) {}

  int read(std::span<std::uint8_t> buffer) override {
    expect(buffer.size() == Pad::reportSize, "a whole report is asked for");
    if (m_next == m_reads.size()) {
      m_driver.SetRunningFalse();
      return 0;
    }
    const Read& read = m_reads[m_next++];
    std::copy(read.report.begin(), read.report.end(), buffer.begin());
    return read.result;
  }

  // A vision pad opens only if it reports mode 1.
  int getFeature(std::span<std::uint8_t> report) override {
    std::fill(report.begin() + 1, report.end(), std::uint8_t{1});
    return static_cast<int>(report.size());
  }

  int setFeature(std::span<const std::uint8_t> report) override {
    return static_cast<int>(report.size());
  }

  bool allRead() const { return m_next == m_reads.size(); }

 private:
  typename Pad::Driver& m_driver;
  std::vector<Read> m_reads;
  std::size_t m_next = 0;
};

template <class Pad>
int feedReports(ByteSpan bytes) {
  const std::vector<Read> reads = readsFrom(Input(bytes), Pad::reportSize);
  Pad pad;
  std::vector<Sample> expected;
  for (const Read& read : reads) {
    if (read.report.empty()) continue;
    if (const std::optional<Sample> sample = pad.sample(read.report)) expected.push_back(*sample);
  }

  delivered.clear();
  typename Pad::Driver driver;
  ReportingDevice<Pad> device(driver, reads);
  const auto handler = [](std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
                          std::uint32_t timeStamp, std::uint32_t sequence) {
    delivered.push_back({x, y, pressure, touch, sequence, Pad::hasClock ? timeStamp : 0});
  };
  expect(driver.OpenConnection(handler) == 1, "the pad opens");
  expect(device.allRead(), "reading goes on whatever comes");
  device.waitForIdleThread();
  expect(delivered.size() <= reads.size(), "no read gives more than one sample");
  expect(delivered == expected, "the samples are those of the reports, in their order");
  expect(driver.CloseConnection() == 0, "the pad closes");
  expect(delivered.size() == expected.size(), "nothing is delivered at the close");
  return 0;
}

}  // namespace fuzz

#endif
