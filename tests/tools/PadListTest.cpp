// packaging/pads.list against the facade and the models.
#include "PadList.h"

#include <gtest/gtest.h>

#include <iterator>

#include "giivela.h"
#include "virtualpads/PadModel.h"

namespace {

TEST(PadListTest, HasTheProvidersInTheirOrder) {
  gIIVela vela;
  ASSERT_EQ(std::ssize(kPadList), vela.GetNumProviders());
  for (short row = 0; row < vela.GetNumProviders(); ++row) {
    EXPECT_STREQ(kPadList[row].classId, vela.GetProviderClassID(row));
    EXPECT_STREQ(kPadList[row].name, vela.GetProviderDescription(row));
  }
}

TEST(PadListTest, HasTheModelsInTheirOrder) {
  for (std::size_t row = 0; row < std::size(kPadList); ++row) {
    const auto pad = virtualpads::makePad(virtualpads::PadKind(row));
    EXPECT_EQ(kPadList[row].product, pad->description().product);
    EXPECT_EQ(kPadList[row].name, pad->description().name);
  }
}

}  // namespace
