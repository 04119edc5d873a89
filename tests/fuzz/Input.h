// The fuzzer's bytes, taken one after the other.
#ifndef TESTS_FUZZ_INPUT_H
#define TESTS_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

using ByteSpan = std::span<const std::uint8_t>;

class Input {
 public:
  explicit Input(ByteSpan bytes) : m_bytes(bytes) {}

  bool empty() const { return m_bytes.empty(); }

  // Up to `count` bytes; fewer when no more are left.
  ByteSpan take(std::size_t count) {
    const ByteSpan taken = m_bytes.first(std::min(count, m_bytes.size()));
    m_bytes = m_bytes.subspan(taken.size());
    return taken;
  }

  // Zero when none is left.
  std::uint8_t byte() {
    const ByteSpan taken = take(1);
    return taken.empty() ? std::uint8_t{0} : taken[0];
  }

  // Any value of the type.
  template <class Value>
  Value value() {
    Value value{};
    const ByteSpan taken = take(sizeof value);
    std::copy(taken.begin(), taken.end(), reinterpret_cast<std::uint8_t*>(&value));
    return value;
  }

  // Any int.
  int number() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    return static_cast<int>(value);
  }

 private:
  ByteSpan m_bytes;
};

}  // namespace fuzz

#endif
