// Handing out the ranges of a pad.
#include "DataRanges.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(DataRangesTest, AreWrittenInTheirOrder) {
  std::array<int, 6> got{};
  EXPECT_TRUE(writeDataRanges({11, 12, 13, 14, 15, 16}, &got[0], &got[1], &got[2], &got[3], &got[4],
                              &got[5]));
  EXPECT_EQ(got, (std::array{11, 12, 13, 14, 15, 16}));
}

TEST(DataRangesTest, OneNullTargetLeavesTheOthersUntouched) {
  for (std::size_t missing = 0; missing < 6; ++missing) {
    std::array<int, 6> got{-1, -1, -1, -1, -1, -1};
    std::array<int*, 6> target{};
    for (std::size_t i = 0; i < 6; ++i) target[i] = i != missing ? &got[i] : nullptr;
    EXPECT_FALSE(writeDataRanges({11, 12, 13, 14, 15, 16}, target[0], target[1], target[2],
                                 target[3], target[4], target[5]));
    EXPECT_EQ(got, (std::array{-1, -1, -1, -1, -1, -1})) << missing;
  }
}

}  // namespace
