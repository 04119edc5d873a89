// The application as it is shipped, in a window on an X server, with pads on a real kernel.
//
// Leaves a picture of the window for each step in the current directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Application.h"
#include "Desktop.h"
#include "TestPads.h"
#include "virtualpads/InkPad.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtualpads::FeatureCall;
using virtualpads::FeatureFault;
using virtualpads::FeatureRequest;
using virtualpads::InkPad;
using virtualpads::UhidPad;

namespace {

// The drawing view of a pad: its size, and the points in it where the test stroke begins and ends.
// Ink is two pixels wide, so that the stroke fills the rows y - 1 and y.
struct View {
  QSize size;
  QPoint begin;
  QPoint end;
};

// 72 pixels an inch, rounded; and coordinates divided by 140 and 200, or by 4 and 7.
const std::array<View, 4> kViews{{
    {{265, 161}, {58, 81}, {175, 81}},
    {{265, 161}, {58, 81}, {175, 81}},
    {{224, 164}, {58, 81}, {175, 81}},
    {{324, 202}, {81, 100}, {243, 100}},
}};

// A request in the middle of Clear and of Reset, where the pad gets any.
struct Requests {
  std::optional<std::uint8_t> clear;
  std::optional<std::uint8_t> reset;
};

constexpr std::array<Requests, 4> kRequests{{{}, {}, {9, 9}, {18, 4}}};

Desktop& desktop() {
  static Desktop xvfb;
  return xvfb;
}

// From the surface's first quarter to its third, half-way down.
void writeStroke(UhidPad& pad) {
  for (int i = 0; i <= 20; ++i) {
    pad.sendPen({.x = 0.25 + 0.025 * i, .y = 0.5, .pressure = 0.5, .touch = true});
  }
  pad.sendPen({.x = 0.75, .y = 0.5, .pressure = 0, .touch = false});
}

class AppTest : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { app.choose(kind); }

  // Waits for the picture, keeps it, and returns it.
  QImage look(const std::string& step, const std::function<bool(const QImage&)>& wanted) {
    const QImage picture = desktop().waitForPicture(wanted);
    picture.save(QString::fromStdString(std::string(kind.name) + "-" + step + ".png"));
    return picture;
  }

  void openAndWait() {
    app.open();
    ASSERT_TRUE(pad->waitUntilOpen());
  }

  bool strokeIsThere(const QImage& picture) const {
    const QRect found = findView(picture);
    return !found.isEmpty() && picture.pixel(found.topLeft() + view.end - QPoint(1, 1)) == kInk;
  }

  void writeAndLook(const std::string& step) {
    writeStroke(*pad);
    expectStroke(look(step, [this](const QImage& picture) { return strokeIsThere(picture); }));
  }

  void expectStroke(const QImage& picture) const {
    const QRect found = findView(picture);
    EXPECT_EQ(found.size(), view.size);
    const auto at = [&](int x, int y) { return picture.pixel(found.topLeft() + QPoint(x, y)); };
    const auto [begin, end] = std::pair(view.begin, view.end);
    const int middle = (begin.x() + end.x()) / 2;
    for (const int x : {begin.x(), middle, end.x() - 1}) {
      EXPECT_EQ(at(x, begin.y() - 2), kPaper) << x;
      EXPECT_EQ(at(x, begin.y() - 1), kInk) << x;
      EXPECT_EQ(at(x, begin.y()), kInk) << x;
      EXPECT_EQ(at(x, begin.y() + 1), kPaper) << x;
    }
    EXPECT_EQ(at(begin.x() - 1, begin.y()), kPaper);
    EXPECT_EQ(at(end.x(), end.y()), kPaper);
  }

  void lookForNoInk(const std::string& step) {
    look(step, [](const QImage& picture) { return !hasInk(picture); });
  }

  const std::size_t index = static_cast<std::size_t>(GetParam());
  const TestPad& kind = kTestPads.at(index);
  const View& view = kViews.at(index);
  const Requests& requests = kRequests.at(index);
  std::unique_ptr<UhidPad> pad = plugged(kind.kind);
  Application app{desktop()};
};

TEST_P(AppTest, InkIsShownClearedAndShownAgain) {
  openAndWait();
  look("opened", [this](const QImage& picture) { return findView(picture).size() == view.size; });
  writeAndLook("written");
  app.clear();
  lookForNoInk("cleared");
  if (requests.clear) {
    EXPECT_TRUE(pad->waitForRequest([this](const FeatureRequest& request) {
      return request.call == FeatureCall::Set && request.bytes[0] == *requests.clear;
    }));
  }
  writeAndLook("written-after-clear");
  app.reset();
  EXPECT_TRUE(pad->waitUntilClosed());
  lookForNoInk("reset");
  openAndWait();
  writeAndLook("reopened");
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
  EXPECT_TRUE(pad->waitUntilClosed());
  EXPECT_THAT(app.program().lines(), IsEmpty());
}

TEST_P(AppTest, GoesOnAfterAnUnplugInEveryState) {
  // While it opens.
  openAndWait();
  pad->unplug();
  app.reset();

  // With the pen down; Clear is pressed when it is too late.
  replug(*pad);
  openAndWait();
  writeStroke(*pad);
  pad->unplug();
  app.clear();
  lookForNoInk("cleared-unplugged");
  app.reset();

  // During Clear.
  if (requests.clear) {
    replug(*pad);
    openAndWait();
    pad->fail(FeatureCall::Set, *requests.clear, {FeatureFault::Kind::Unplug});
    app.clear();
    EXPECT_TRUE(pad->waitUntilClosed());
    app.reset();
  }

  // During Reset. The ink proves that the application is done with the opening.
  replug(*pad);
  openAndWait();
  writeAndLook("before-reset");
  if (requests.reset) {
    pad->fail(FeatureCall::Set, *requests.reset, {FeatureFault::Kind::Unplug});
    app.reset();
    EXPECT_TRUE(pad->waitUntilClosed());
  } else {
    app.reset();
    pad->unplug();
  }

  replug(*pad);
  openAndWait();
  writeAndLook("replugged");
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
}

std::string padName(const ::testing::TestParamInfo<int>& parameter) {
  return kTestPads.at(static_cast<std::size_t>(parameter.param)).name;
}

INSTANTIATE_TEST_SUITE_P(Pads, AppTest, ::testing::Range(0, 4), padName);

// A pad whose state tells whether the application has left it as it should.
class AppEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    app.choose(kTestPads[2]);
    app.open();
    ASSERT_TRUE(pad->waitUntilOpen());
    // The last report of the setting-up.
    ASSERT_TRUE(
        pad->waitForRequest([this](const FeatureRequest&) { return model->layerState(2) == 1; }));
  }

  void expectEnd() {
    EXPECT_EQ(app.program().wait(), 0);
    EXPECT_TRUE(pad->waitUntilClosed());
    EXPECT_EQ(model->inkTrace(), (InkPad::InkTrace{0, 300}));
    EXPECT_EQ(model->layerState(2), 0);
  }

  const std::shared_ptr<InkPad> model = std::make_shared<InkPad>();
  std::unique_ptr<UhidPad> pad = plugged(model);
  Application app{desktop()};
};

TEST_F(AppEndTest, ClosingTheWindowResetsThePad) {
  desktop().closeWindow();
  expectEnd();
}

TEST_F(AppEndTest, TerminationResetsThePad) {
  app.program().signal(SIGTERM);
  expectEnd();
}

TEST_F(AppEndTest, KilledApplicationLeavesThePadToTheNextOne) {
  app.program().signal(SIGKILL);
  EXPECT_EQ(app.program().wait(), 128 + SIGKILL);
  EXPECT_TRUE(pad->waitUntilClosed());
  Application next(desktop());
  next.choose(kTestPads[2]);
  next.open();
  EXPECT_TRUE(pad->waitUntilOpen());
}

TEST(AppAloneTest, WithoutAPadOpenSaysSo) {
  const auto stranger = plugged(makeOtherPad());
  Application app(desktop());
  for (const TestPad& kind : kTestPads) {
    app.choose(kind);
    app.open();
  }
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
  EXPECT_THAT(app.program().lines(),
              ElementsAre("No device Vela USB found", "No device Vela II found",
                          "No device Vela Ink found", "No device Vela Vision found"));
}

// The window becomes connected all the same, on purpose; nothing may come of that but silence.
TEST(AppAloneTest, NodesWithoutPermissionAreNeverOpened) {
  std::vector<std::unique_ptr<UhidPad>> pads;
  Application app(desktop(), true);
  for (const TestPad& kind : kTestPads) {
    pads.push_back(plugged(kind.kind));
    app.choose(kind);
    app.open();
    app.clear();
    app.reset();
  }
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
  EXPECT_THAT(app.program().lines(),
              ElementsAre("velaii:opendevice failed", "ResetvelaInkDevice m_handle is -1",
                          "Velavision:OpenConnection failed"));
  for (const auto& pad : pads) {
    EXPECT_FALSE(pad->open());
    EXPECT_THAT(pad->requests(), IsEmpty());
  }
}

}  // namespace
