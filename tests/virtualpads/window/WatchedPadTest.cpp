#include "virtualpads/window/WatchedPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "virtualpads/VisionPad.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Direction = WatchedPad::FeatureReport::Direction;

class WatchedPadTest : public testing::Test {
 protected:
  WatchedPadTest() {
    pad.watch([this](const WatchedPad::Event& event) { events.push_back(event); });
  }

  const WatchedPad::FeatureReport& feature(std::size_t n) const {
    return std::get<WatchedPad::FeatureReport>(events.at(n));
  }

  std::shared_ptr<VisionPad> model = std::make_shared<VisionPad>();
  WatchedPad pad{model};
  std::vector<WatchedPad::Event> events;
};

TEST_F(WatchedPadTest, IsThePadBehind) {
  EXPECT_EQ(pad.identity().vendor, 0x04DF);
  EXPECT_EQ(pad.identity().product, 0x38);
  EXPECT_EQ(pad.identity().name, "Vela Vision");
  EXPECT_EQ(pad.widthInches(), 4.5);
  EXPECT_EQ(pad.heightInches(), 2.8);
  EXPECT_TRUE(std::ranges::equal(pad.reportDescriptor(), model->reportDescriptor()));
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(WatchedPadTest, AnnouncesInputReports) {
  const Bytes report =
      pad.inputReport({.x = 1, .y = 1, .pressure = 1, .touch = true, .milliseconds = 258});
  EXPECT_THAT(report,
              ElementsAre(1, 0x80, 0x05, 0x14, 0x05, 0x78, 0x03, 0xFF, 0, 0, 1, 2, 0, 0, 0, 0, 0));
  ASSERT_EQ(events.size(), 1U);
  const auto& input = std::get<WatchedPad::InputReport>(events[0]);
  EXPECT_EQ(input.bytes, report);
  EXPECT_EQ(input.pen.x, 1);
  EXPECT_EQ(input.pen.milliseconds, 258U);
  EXPECT_TRUE(input.pen.touch);
}

TEST_F(WatchedPadTest, AnnouncesAcceptedFeatureReports) {
  Bytes mode(17);
  mode[0] = 4;
  mode[1] = 1;
  EXPECT_TRUE(pad.setFeature(mode));
  EXPECT_EQ(model->mode(), 1);
  EXPECT_EQ(pad.getFeature(4), mode);

  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(feature(0).direction, Direction::Set);
  EXPECT_TRUE(feature(0).accepted);
  EXPECT_EQ(feature(0).bytes, mode);
  EXPECT_EQ(feature(1).direction, Direction::Get);
  EXPECT_TRUE(feature(1).accepted);
  EXPECT_EQ(feature(1).bytes, mode);
}

TEST_F(WatchedPadTest, AnnouncesRefusedFeatureReports) {
  EXPECT_FALSE(pad.setFeature(Bytes{4, 1}));
  EXPECT_EQ(pad.getFeature(99), std::nullopt);

  ASSERT_EQ(events.size(), 2U);
  EXPECT_FALSE(feature(0).accepted);
  EXPECT_THAT(feature(0).bytes, ElementsAre(4, 1));
  EXPECT_FALSE(feature(1).accepted);
  EXPECT_THAT(feature(1).bytes, ElementsAre(99));
}

TEST_F(WatchedPadTest, ShowsTheModel) {
  const PadModel* seen = nullptr;
  pad.look([&](const PadModel& behind) { seen = &behind; });
  EXPECT_EQ(seen, model.get());
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
