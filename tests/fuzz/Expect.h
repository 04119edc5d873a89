// Properties that a fuzz target checks for every input.
#ifndef TESTS_FUZZ_EXPECT_H
#define TESTS_FUZZ_EXPECT_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Standard error as it was at the start; libFuzzer is configured to close the program's own.
inline std::FILE* const complaints = fdopen(dup(STDERR_FILENO), "w");

// Ends the program, which counts as a finding, if the property does not hold.
inline void expect(bool holds, const char* claim, const char* file = __builtin_FILE(),
                   int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(complaints, "%s:%d: this does not hold: %s\n", file, line, claim);
  std::fflush(complaints);
  std::abort();
}

}  // namespace fuzz

#endif
