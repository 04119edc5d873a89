// Captures what code writes to standard output and standard error.
#ifndef TESTS_SDK_SUPPORT_WRITTEN_H
#define TESTS_SDK_SUPPORT_WRITTEN_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <ostream>
#include <stdexcept>
#include <string>

namespace support {

// What the process writes to standard output or standard error, by any means.
class CapturedStream {
 public:
  // `stream` is stdout or stderr. It is redirected to a temporary file until destruction.
  explicit CapturedStream(std::FILE* stream) : m_stream(stream), m_file(std::tmpfile()) {
    std::fflush(m_stream);
    m_saved = dup(fileno(m_stream));
    if (m_file == nullptr || m_saved < 0 || dup2(fileno(m_file), fileno(m_stream)) < 0)
      throw std::runtime_error("CapturedStream");
  }

  ~CapturedStream() {
    std::fflush(m_stream);
    dup2(m_saved, fileno(m_stream));
    close(m_saved);
    std::fclose(m_file);
  }

  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;

  // Everything written so far.
  std::string text() const {
    std::fflush(m_stream);
    std::string text;
    char part[256];
    ssize_t length = 0;
    while ((length = pread(fileno(m_file), part, sizeof part, static_cast<off_t>(text.size()))) > 0)
      text.append(part, static_cast<std::size_t>(length));
    return text;
  }

 private:
  std::FILE* m_stream;
  std::FILE* m_file;
  int m_saved = -1;
};

struct Written {
  std::string out;
  std::string err;
  bool operator==(const Written&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Written& written) {
  return stream << "standard output \"" << written.out << "\", standard error \"" << written.err
                << '"';
}

inline const Written kNothingWritten{};

// Runs `action` and returns what the whole process wrote meanwhile. Assertions belong outside,
// because their messages would be captured too.
template <class Action>
Written writtenBy(Action action) {
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  action();
  return {out.text(), err.text()};
}

// The same; the action has to return `expected`.
template <class Expected, class Action>
Written writtenBy(Expected expected, Action action) {
  Expected result{};
  const Written written = writtenBy([&] { result = action(); });
  EXPECT_EQ(result, expected);
  return written;
}

}  // namespace support

#endif
