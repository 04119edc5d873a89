// The slot of a virtual function in its class's table.
#ifndef TESTS_SDK_SUPPORT_VIRTUALSLOT_H
#define TESTS_SDK_SUPPORT_VIRTUALSLOT_H

#include <bit>
#include <cstddef>

namespace support {

// Counted from 0; a virtual destructor takes two slots.
template <class Function>
std::size_t virtualSlot(Function function) {
  // As the C++ ABI of Linux and macOS lays out a pointer to a member function.
  struct Representation {
    std::size_t pointer;
    std::ptrdiff_t adjustment;
  };
  return std::bit_cast<Representation>(function).pointer / sizeof(void*);
}

}  // namespace support

#endif
