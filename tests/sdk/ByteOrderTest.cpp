// The fields of reports.
#include "ByteOrder.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>

namespace {

using Bytes2 = std::array<std::uint8_t, 2>;
using Bytes4 = std::array<std::uint8_t, 4>;

template <class Field, class Bytes>
Field read(const Bytes& bytes) {
  return std::bit_cast<Field>(bytes);
}

TEST(ByteOrderTest, LittleEndianHasTheLowByteFirst) {
  EXPECT_EQ(read<Le16>(Bytes2{0x12, 0x34}), 0x3412);
  EXPECT_EQ(read<Le16>(Bytes2{0x81, 0xFE}), 0xFE81);
  EXPECT_EQ(std::bit_cast<Bytes2>(Le16(0xFE01)), (Bytes2{0x01, 0xFE}));
}

TEST(ByteOrderTest, BigEndianHasTheHighByteFirst) {
  EXPECT_EQ(read<Be16>(Bytes2{0x12, 0x34}), 0x1234);
  EXPECT_EQ(read<Be16>(Bytes2{0x81, 0xFE}), 0x81FE);
  EXPECT_EQ(read<Be32>(Bytes4{0x12, 0x34, 0x56, 0x78}), 0x12345678U);
  EXPECT_EQ(read<Be32>(Bytes4{0x81, 0xFE, 0xFD, 0x9C}), 0x81FEFD9CU);
  EXPECT_EQ(std::bit_cast<Bytes2>(Be16(0xFE01)), (Bytes2{0xFE, 0x01}));
  EXPECT_EQ(std::bit_cast<Bytes4>(Be32(0x81FEFD9C)), (Bytes4{0x81, 0xFE, 0xFD, 0x9C}));
}

TEST(ByteOrderTest, SignedFieldsCarryTheSignInTheHighByte) {
  EXPECT_EQ(read<LeS16>(Bytes2{0x00, 0x80}), -32768);
  EXPECT_EQ(read<LeS16>(Bytes2{0xFE, 0xFF}), -2);
  EXPECT_EQ(read<LeS16>(Bytes2{0xFF, 0x7F}), 32767);
  EXPECT_EQ(read<LeS32>(Bytes4{0xFE, 0xFF, 0xFF, 0xFF}), -2);
  EXPECT_EQ(read<LeS32>(Bytes4{0x12, 0x34, 0x56, 0x78}), 0x78563412);
  EXPECT_EQ(std::bit_cast<Bytes2>(LeS16(-2)), (Bytes2{0xFE, 0xFF}));
}

TEST(ByteOrderTest, FieldsNeedNoAlignmentAndStartAtZero) {
  struct Report {
    std::uint8_t id = 1;
    Be32 field;
    Le16 last;
  };
  static_assert(sizeof(Report) == 7 && offsetof(Report, field) == 1 && offsetof(Report, last) == 5);
  const Report report;
  EXPECT_EQ(report.field, 0U);
  EXPECT_EQ(report.last, 0);
  // A constant expression reads and writes nothing outside the field.
  static_assert(Be16(0x1234) == 0x1234 && LeS32(-2) == -2);
}

}  // namespace
