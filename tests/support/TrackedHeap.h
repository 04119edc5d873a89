// The heap of a program that runs under the scheduler: operator new and delete that know what is
// left, what was released twice and what was written after its release. Released memory is not used
// again.
#ifndef TESTS_SUPPORT_TRACKEDHEAP_H
#define TESTS_SUPPORT_TRACKEDHEAP_H

#include <cstddef>

namespace support {

// While one exists, the thread runs code of the test: what it allocates is not counted, and basic
// blocks are no decisions. CodeUnderTest is the opposite, for a call from within. A new thread runs
// code under test.
class TestCode {
 public:
  TestCode() : TestCode(true) {}
  ~TestCode();
  TestCode(const TestCode&) = delete;
  TestCode& operator=(const TestCode&) = delete;

 protected:
  explicit TestCode(bool isTest);

 private:
  bool m_before;
};

class CodeUnderTest : TestCode {
 public:
  CodeUnderTest() : TestCode(false) {}
};

// Whether the thread runs code of the test.
bool isTestCode();

// Whether the address is in released memory.
bool isReleased(const void* address);

// Fails the run if released memory has been written to.
void checkReleasedMemory();

// Calls visit(address, size) for each counted block of the run that has not been released.
void visitLiveBlocks(void (*visit)(const void* address, std::size_t size, void* argument),
                     void* argument);

// Counting begins: for the start of a run.
void startTracking();

}  // namespace support

#endif
