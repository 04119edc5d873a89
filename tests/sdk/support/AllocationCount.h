// Counts the program's allocations with operator new and can make them fail. For programs that are
// built with AllocationCount.cpp.
#ifndef TESTS_SDK_SUPPORT_ALLOCATIONCOUNT_H
#define TESTS_SDK_SUPPORT_ALLOCATIONCOUNT_H

namespace support {

// Allocations that have not been deleted, in all threads.
long liveAllocations();

// Makes the n-th allocation from now on (1 is the next one) throw std::bad_alloc, on any thread.
void failAllocation(int nth);

}  // namespace support

#endif
