// The fields of reports.
#include "ByteOrder.h"

#include <gtest/gtest.h>

namespace {

constexpr unsigned char kBytes[] = {0x12, 0x34, 0x56, 0x78};
constexpr unsigned char kHigh[] = {0x81, 0xFE, 0xFD, 0x9C};

TEST(ByteOrderTest, LittleEndianPutsTheLowByteFirst) {
  EXPECT_EQ(le16(kBytes), 0x3412);
  EXPECT_EQ(le16(kBytes + 1), 0x5634);
  EXPECT_EQ(le32(kBytes), 0x78563412U);
  EXPECT_EQ(le16(kHigh), 0xFE81);
  EXPECT_EQ(le32(kHigh), 0x9CFDFE81U);
}

TEST(ByteOrderTest, BigEndianPutsTheHighByteFirst) {
  EXPECT_EQ(be16(kBytes), 0x1234);
  EXPECT_EQ(be16(kBytes + 1), 0x3456);
  EXPECT_EQ(be32(kBytes), 0x12345678U);
  EXPECT_EQ(be16(kHigh), 0x81FE);
  EXPECT_EQ(be32(kHigh), 0x81FEFD9CU);
}

TEST(ByteOrderTest, SignedFieldsCarryTheSignInTheLastByte) {
  constexpr unsigned char kLowest[] = {0x00, 0x80};
  constexpr unsigned char kMinusTwo[] = {0xFE, 0xFF, 0xFF, 0xFF};
  constexpr unsigned char kHighest[] = {0xFF, 0x7F};
  EXPECT_EQ(signedLe16(kLowest), -32768);
  EXPECT_EQ(signedLe16(kMinusTwo), -2);
  EXPECT_EQ(signedLe16(kHighest), 32767);
  EXPECT_EQ(signedLe32(kMinusTwo), -2);
  EXPECT_EQ(signedLe32(kBytes), 0x78563412);
}

TEST(ByteOrderTest, WritesTwoBytesAndNoMore) {
  unsigned char bytes[4] = {0xAA, 0xAA, 0xAA, 0xAA};
  putLe16(bytes + 1, 0x1234);
  EXPECT_EQ(bytes[0], 0xAA);
  EXPECT_EQ(bytes[1], 0x34);
  EXPECT_EQ(bytes[2], 0x12);
  EXPECT_EQ(bytes[3], 0xAA);
  putBe16(bytes + 1, 0xFE01);
  EXPECT_EQ(bytes[0], 0xAA);
  EXPECT_EQ(bytes[1], 0xFE);
  EXPECT_EQ(bytes[2], 0x01);
  EXPECT_EQ(bytes[3], 0xAA);
}

TEST(ByteOrderTest, SwapsTheTwoBytes) {
  EXPECT_EQ(swapBytes(0x1234), 0x3412);
  EXPECT_EQ(swapBytes(0x00FF), 0xFF00);
}

}  // namespace
