// Counts what the program has from operator new, and can make it fail. For programs that are built
// with AllocationCount.cpp.
#ifndef TESTS_SDK_SUPPORT_ALLOCATIONCOUNT_H
#define TESTS_SDK_SUPPORT_ALLOCATIONCOUNT_H

namespace support {

// Allocations that have not been deleted, in all threads.
long liveAllocations();

// Makes the n-th allocation from now on (1 is the next one), by whatever thread, throw
// std::bad_alloc.
void failAllocation(int nth);

}  // namespace support

#endif
