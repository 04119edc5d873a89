// Captures what code writes to standard output and standard error.
#ifndef TESTS_SDK_SUPPORT_WRITTEN_H
#define TESTS_SDK_SUPPORT_WRITTEN_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "support/CapturedStream.h"

namespace support {

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
