#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> live{0};
std::atomic<int> untilFailure{0};

}  // namespace

namespace support {

long liveAllocations() {
  return live;
}

void failAllocation(int nth) {
  untilFailure = nth;
}

}  // namespace support

void* operator new(std::size_t size) {
  if (untilFailure > 0 && --untilFailure == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  ++live;
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory != nullptr) --live;
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}
