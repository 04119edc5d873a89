#include "TrackedHeap.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "Scheduler.h"

#if defined(__SANITIZE_ADDRESS__)
#define VELA_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELA_ADDRESS_SANITIZER
#endif
#endif

#ifdef VELA_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace {

// Before each block. Only one thread at a time allocates: that is what the scheduler is for.
struct alignas(16) Header {
  Header* next;
  Header* previous;
  std::size_t size;
  bool live;
  bool counted;
};
static_assert(sizeof(Header) % 16 == 0);

Header blocks{&blocks, &blocks, 0, true, false};  // the live ones, as a ring
bool counting = false;
thread_local bool testCode = false;

#ifdef VELA_ADDRESS_SANITIZER

void* memory(std::size_t size) {
  return std::malloc(size);
}

void release(Header* header) {
  std::free(header);
}

#else

constexpr std::size_t kArenaSize = std::size_t{512} << 20;
constexpr std::size_t kUnit = 16;
constexpr unsigned char kFresh = 0xA5;
constexpr unsigned char kReleased = 0xDD;

struct Arena {
  // Pages that are not touched cost nothing.
  static std::byte* mapped(std::size_t size) {
    void* const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) std::abort();
    return static_cast<std::byte*>(pages);
  }

  std::byte* const begin = mapped(kArenaSize);
  std::byte* const released = mapped(kArenaSize / kUnit);  // by unit: 1 after the release
  std::size_t used = 0;
};

Arena& arena() {
  static Arena instance;
  return instance;
}

std::size_t wholeUnits(std::size_t size) {
  return (size + kUnit - 1) / kUnit * kUnit;
}

void* memory(std::size_t size) {
  const std::size_t whole = wholeUnits(size);
  if (arena().used + whole > kArenaSize) return nullptr;
  void* const block = arena().begin + arena().used;
  arena().used += whole;
  return std::memset(block, kFresh, size);
}

void release(Header* header) {
  std::memset(header + 1, kReleased, header->size);
  const auto unit = static_cast<std::size_t>(reinterpret_cast<std::byte*>(header) - arena().begin);
  std::memset(arena().released + unit / kUnit, 1,
              wholeUnits(sizeof(Header) + header->size) / kUnit);
}

#endif

void* allocate(std::size_t size) {
  auto* const header = static_cast<Header*>(memory(sizeof(Header) + size));
  if (header == nullptr) std::abort();
  *header = {blocks.next, &blocks, size, true, counting && !testCode};
  blocks.next->previous = header;
  blocks.next = header;
  return header + 1;
}

void deallocate(void* block) {
  if (block == nullptr) return;
  auto* const header = static_cast<Header*>(block) - 1;
  if (!header->live) support::fail("memory was released twice");
  header->live = false;
  header->next->previous = header->previous;
  header->previous->next = header->next;
  support::forgetLocks(block, header->size);
  release(header);
}

}  // namespace

namespace support {

TestCode::TestCode(bool isTest) : m_before(std::exchange(testCode, isTest)) {}

TestCode::~TestCode() {
  testCode = m_before;
}

bool isTestCode() {
  return testCode;
}

void startTracking() {
  counting = true;
}

void visitLiveBlocks(void (*visit)(const void* address, std::size_t size, void* argument),
                     void* argument) {
  for (const Header* header = blocks.previous; header != &blocks; header = header->previous)
    if (header->counted) visit(header + 1, header->size, argument);
}

#ifdef VELA_ADDRESS_SANITIZER

bool isReleased(const void* address) {
  return __asan_address_is_poisoned(address) != 0;
}

void checkReleasedMemory() {}  // the sanitizer has

#else

bool isReleased(const void* address) {
  const auto* const byte = static_cast<const std::byte*>(address);
  if (byte < arena().begin || byte >= arena().begin + arena().used) return false;
  return arena().released[static_cast<std::size_t>(byte - arena().begin) / kUnit] != std::byte{0};
}

void checkReleasedMemory() {
  const std::byte* const end = arena().begin + arena().used;
  for (const std::byte* at = arena().begin; at < end;) {
    const auto* const header = reinterpret_cast<const Header*>(at);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(header + 1);
    if (!header->live && !std::all_of(bytes, bytes + header->size,
                                      [](unsigned char byte) { return byte == kReleased; }))
      fail("released memory was written to");
    at += wholeUnits(sizeof(Header) + header->size);
  }
}

#endif

}  // namespace support

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  deallocate(block);
}
void operator delete[](void* block) noexcept {
  deallocate(block);
}
void operator delete(void* block, std::size_t) noexcept {
  deallocate(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  deallocate(block);
}
