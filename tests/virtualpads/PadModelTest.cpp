#include "virtualpads/PadModel.h"

#include <gtest/gtest.h>

#include "virtualpads/IiPad.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/UsbPad.h"
#include "virtualpads/VisionPad.h"

namespace virtualpads {
namespace {

TEST(MakePad, MakesThePadOfTheKind) {
  EXPECT_TRUE(dynamic_cast<UsbPad*>(makePad(PadKind::Usb).get()));
  EXPECT_TRUE(dynamic_cast<IiPad*>(makePad(PadKind::Ii).get()));
  EXPECT_TRUE(dynamic_cast<InkPad*>(makePad(PadKind::Ink).get()));
  EXPECT_TRUE(dynamic_cast<VisionPad*>(makePad(PadKind::Vision).get()));
}

TEST(MakePad, MakesANewPadEachTime) {
  const auto one = makePad(PadKind::Vision);
  const auto other = makePad(PadKind::Vision);
  Bytes setMode(17);
  setMode[0] = 4;
  setMode[1] = 1;
  ASSERT_TRUE(one->setFeature(setMode));
  EXPECT_EQ((*one->getFeature(4))[1], 1);
  EXPECT_EQ((*other->getFeature(4))[1], 0);
}

TEST(MakePad, ThrowsForAKindThatIsNone) {
  EXPECT_THROW(makePad(static_cast<PadKind>(4)), std::invalid_argument);
}

}  // namespace
}  // namespace virtualpads
