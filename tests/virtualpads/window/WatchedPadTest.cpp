#include "virtualpads/window/WatchedPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "virtualpads/VisionPad.h"

namespace virtualpads {
namespace {

using testing::IsEmpty;

class WatchedPadTest : public testing::Test {
 protected:
  WatchedPadTest() {
    pad.watch([this](const WatchedPad::Event& event) { events.push_back(event); });
  }

  std::shared_ptr<VisionPad> model = std::make_shared<VisionPad>();
  WatchedPad pad{model};
  std::vector<WatchedPad::Event> events;
};

TEST_F(WatchedPadTest, IsThePadBehind) {
  EXPECT_EQ(pad.description().name, "Vela Vision");
  EXPECT_EQ(pad.reportDescriptor(), model->reportDescriptor());
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(WatchedPadTest, NotifiesNobodyAnyMore) {
  pad.watch({});
  pad.getFeature(3);
  EXPECT_THAT(events, IsEmpty());
  EXPECT_EQ(model->resets(), 1);
}

TEST_F(WatchedPadTest, SerialisesItsCallers) {
  Bytes keepAlive(17);
  keepAlive[0] = 26;
  const auto send = [&] {
    for (int i = 0; i < 1000; ++i) pad.setFeature(keepAlive);
  };
  std::thread first(send);
  std::thread second(send);
  first.join();
  second.join();
  EXPECT_EQ(model->keepAlives(), 2000);
  EXPECT_EQ(events.size(), 2000U);
}

}  // namespace
}  // namespace virtualpads
