// Recordings of input reports, as plain text that people and other HID programs read: the format of
// the kernel community's HID recorder. docs/virtual-pads.md describes it line by line.
#ifndef VIRTUALPADS_RECORDING_H
#define VIRTUALPADS_RECORDING_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

struct Recording {
  struct Event {
    std::chrono::microseconds time;  // never earlier than that of the event before
    Bytes report;                    // 1 to 4096 bytes, as a read of the hidraw node delivers it
    bool operator==(const Event&) const = default;
  };

  std::string name;
  std::uint16_t bus = 0;
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  Bytes descriptor;
  std::vector<Event> events;

  bool operator==(const Recording&) const = default;
};

// A text that is not a recording. what() reports where and why: "line 4, column 12: ...".
class RecordingError : public std::runtime_error {
 public:
  RecordingError(std::size_t line, std::size_t column, const std::string& complaint);

  std::size_t line() const { return m_line; }  // from 1; one past the last line when one is missing
  std::size_t column() const { return m_column; }  // from 1, in bytes

 private:
  std::size_t m_line;
  std::size_t m_column;
};

// Any thread. Throws RecordingError when the text is not a recording.
Recording parseRecording(std::string_view text);

// Reads a file of up to 64 MiB. Any thread. Throws std::system_error when it can't be read or is
// larger, RecordingError when it is not a recording.
Recording readRecording(const std::filesystem::path& file);

// Writes a recording as the reports arrive. What has been written is complete at any moment, so
// nothing is lost when the program is ended. Not thread-safe.
class RecordingWriter {
 public:
  // Writes the head, which describes the pad. `out` must outlive the writer.
  RecordingWriter(std::ostream& out, const PadDescription& pad,
                  std::span<const std::uint8_t> descriptor);

  // Appends a report. `time` may start anywhere and never goes back; the recording's own time
  // starts with its first report. False when the stream has failed.
  bool write(std::chrono::microseconds time, const Bytes& report);

 private:
  std::ostream& m_out;
  std::optional<std::chrono::microseconds> m_begin;
};

}  // namespace virtualpads

#endif
