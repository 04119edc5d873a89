#include "virtualpads/Recording.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <span>
#include <system_error>
#include <utility>

namespace virtualpads {

namespace {

using std::chrono::microseconds;

constexpr std::size_t kLargestFile = std::size_t{64} << 20;
constexpr unsigned kBusUsb = 3;
constexpr std::size_t kMicrosecondDigits = 6;

// The kernel accepts no longer descriptor or report.
constexpr unsigned kMostBytes = 4096;
constexpr const char* kByteCountExpected = "a number of bytes from 1 to 4096 is expected";

constexpr const char* kByteExpected = "a byte as two hexadecimal digits is expected";

// One line of the text, read from left to right.
class Line {
 public:
  Line(std::string_view text, std::size_t number) : m_text(text), m_number(number) {}

  [[noreturn]] void fail(const char* complaint) const {
    throw RecordingError(m_number, m_position + 1, complaint);
  }

  bool empty() const { return m_text.empty(); }
  bool isComment() const { return m_text.starts_with('#'); }

  // The letter before the colon that each line begins with; zero when there is none.
  char key() const { return m_text.size() >= 2 && m_text[1] == ':' ? m_text[0] : '\0'; }
  void skipKey() { m_position = 2; }

  // The rest of the line without surrounding blanks.
  std::string_view rest() {
    skipBlanks();
    const auto end = m_text.find_last_not_of(kBlanks);
    return m_position == m_text.size() ? "" : m_text.substr(m_position, end + 1 - m_position);
  }

  // Reads the next word as a number.
  unsigned number(int base, unsigned lowest, unsigned highest, const char* complaint) {
    const std::string_view word = peekWord();
    const auto value = toNumber(word, base);
    if (!value || *value < lowest || *value > highest) fail(complaint);
    m_position += word.size();
    return *value;
  }

  // Reads a decimal count and that many bytes in hexadecimal.
  Bytes bytes() {
    Bytes bytes(number(10, 1, kMostBytes, kByteCountExpected));
    for (auto& byte : bytes) {
      if (peekWord().size() != 2) fail(kByteExpected);
      byte = static_cast<std::uint8_t>(number(16, 0, 0xFF, kByteExpected));
    }
    return bytes;
  }

  microseconds time(microseconds earliest) {
    const std::string_view word = peekWord();
    const auto point = std::min(word.find('.'), word.size());
    const auto fraction = word.substr(std::min(point + 1, word.size()));
    const auto seconds = toNumber(word.substr(0, point), 10);
    const auto micros = toNumber(fraction, 10);
    if (fraction.size() != kMicrosecondDigits || !seconds || !micros)
      fail("a time as seconds.microseconds is expected");
    const auto time = std::chrono::seconds(*seconds) + microseconds(*micros);
    if (time < earliest) fail("the time goes back");
    m_position += word.size();
    return time;
  }

  void expectEnd() {
    if (!peekWord().empty()) fail("the line should end here");
  }

 private:
  static constexpr std::string_view kBlanks = " \t";

  void skipBlanks() {
    m_position = std::min(m_text.find_first_not_of(kBlanks, m_position), m_text.size());
  }

  std::string_view peekWord() {
    skipBlanks();
    const auto end = std::min(m_text.find_first_of(kBlanks, m_position), m_text.size());
    return m_text.substr(m_position, end - m_position);
  }

  static std::optional<unsigned> toNumber(std::string_view digits, int base) {
    unsigned value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
  }

  std::string_view m_text;
  std::size_t m_number;
  std::size_t m_position = 0;
};

class Parser {
 public:
  Recording parse(std::string_view text) {
    std::size_t number = 0;
    while (!text.empty()) {
      const auto end = std::min(text.find('\n'), text.size());
      take(Line(text.substr(0, end), ++number));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (const char* missing = missingLine()) throw RecordingError(number + 1, 1, missing);
    return std::move(m_recording);
  }

 private:
  void take(Line line) {
    if (line.empty() || line.isComment()) return;
    const char key = line.key();
    if (key == '\0' || std::string_view("RNIPDE").find(key) == std::string_view::npos)
      line.fail("a line begins with R:, N:, I:, P:, D:, E: or #");
    switch (key) {
      case 'R':
        once(m_hasDescriptor, line);
        m_recording.descriptor = line.bytes();
        line.expectEnd();
        break;
      case 'N':
        once(m_hasName, line);
        m_recording.name = line.rest();
        break;
      case 'I':
        once(m_hasIds, line);
        m_recording.bus = id(line);
        m_recording.vendor = id(line);
        m_recording.product = id(line);
        line.expectEnd();
        break;
      case 'D':
        line.skipKey();
        line.number(10, 0, 0,
                    "only device 0 is expected: recordings of several devices are not supported");
        line.expectEnd();
        break;
      case 'E':
        if (const char* missing = missingLine()) line.fail(missing);
        line.skipKey();
        takeEvent(line);
        break;
      default:  // P: where the device was plugged in, which is not needed here
        break;
    }
  }

  void takeEvent(Line& line) {
    auto& events = m_recording.events;
    const microseconds time = line.time(events.empty() ? microseconds::zero() : events.back().time);
    events.push_back({time, line.bytes()});
    line.expectEnd();
  }

  static void once(bool& has, Line& line) {
    if (std::exchange(has, true)) line.fail("this line appears twice");
    line.skipKey();
  }

  static std::uint16_t id(Line& line) {
    return static_cast<std::uint16_t>(
        line.number(16, 0, 0xFFFF, "a number from 0 to ffff in hexadecimal is expected"));
  }

  const char* missingLine() const {
    if (!m_hasDescriptor) return "the R: line is missing";
    if (!m_hasName) return "the N: line is missing";
    return m_hasIds ? nullptr : "the I: line is missing";
  }

  Recording m_recording;
  bool m_hasDescriptor = false;
  bool m_hasName = false;
  bool m_hasIds = false;
};

void appendBytes(std::string& text, std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  text += std::to_string(bytes.size());
  for (const auto byte : bytes) text += {' ', kDigits[byte >> 4], kDigits[byte & 0x0F]};
  text += '\n';
}

std::string formatted(const char* format, auto... values) {
  char text[64];
  const int length = std::snprintf(text, sizeof text, format, values...);
  return {text, static_cast<std::size_t>(length)};
}

}  // namespace

RecordingError::RecordingError(std::size_t line, std::size_t column, const std::string& complaint)
    : std::runtime_error("line " + std::to_string(line) + ", column " + std::to_string(column) +
                         ": " + complaint),
      m_line(line),
      m_column(column) {}

Recording parseRecording(std::string_view text) {
  return Parser().parse(text);
}

Recording readRecording(const std::filesystem::path& file) {
  const auto fail = [&file](int error) {
    throw std::system_error(error, std::generic_category(), file.string());
  };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"),
                                                               std::fclose);
  if (!stream) fail(errno);
  std::string text;
  char block[1 << 16];
  while (const auto count = std::fread(block, 1, sizeof block, stream.get())) {
    text.append(block, count);
    if (text.size() > kLargestFile) fail(EFBIG);
  }
  if (std::ferror(stream.get()) != 0) fail(errno);
  return parseRecording(text);
}

RecordingWriter::RecordingWriter(std::ostream& out, const PadDescription& pad,
                                 std::span<const std::uint8_t> descriptor)
    : m_out(out) {
  std::string head = "# input reports of a virtual pad\nD: 0\nR: ";
  appendBytes(head, descriptor);
  head += "N: " + pad.name + "\n";
  head += formatted("I: %x %04x %04x\n", kBusUsb, unsigned{pad.vendor}, unsigned{pad.product});
  m_out << head << std::flush;
}

bool RecordingWriter::write(microseconds time, const Bytes& report) {
  const long long since = (time - m_begin.value_or(time)).count();
  m_begin = m_begin.value_or(time);
  std::string line = formatted("E: %06lld.%06lld ", since / 1'000'000, since % 1'000'000);
  appendBytes(line, report);
  m_out << line << std::flush;
  return m_out.good();
}

}  // namespace virtualpads
