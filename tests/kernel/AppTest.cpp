// The application as it is shipped, in a window on an X server, with pads on a real kernel.
//
// Saves a picture of the window for each step in the current directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Application.h"
#include "Desktop.h"
#include "MovingPen.h"
#include "TestPads.h"
#include "virtualpads/InkPad.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtualpads::FeatureCall;
using virtualpads::FeatureRequest;
using virtualpads::InkPad;
using virtualpads::KernelPad;

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

// Requests in the middle of Open, and one each in the middle of Clear and of the closing, if the
// pad gets any.
struct Requests {
  std::vector<Request> open{};
  std::optional<Request> clear{};
  std::optional<Request> close{};
};

const std::array<Requests, 4> kRequests{{
    {},
    // The size request; the connection is already open.
    {.open = {{FeatureCall::Get, 10}}},
    // A band of the picture; the option block.
    {.open = {{FeatureCall::Set, 7}, {FeatureCall::Get, 3}},
     .clear = Request{FeatureCall::Set, 9},
     .close = Request{FeatureCall::Set, 9}},
    // The reset, without which the opening is aborted; the pad information.
    {.open = {{FeatureCall::Get, 3}, {FeatureCall::Get, 12}},
     .clear = Request{FeatureCall::Set, 18},
     .close = Request{FeatureCall::Set, 4}},
}};

Desktop& desktop() {
  static Desktop xvfb;
  return xvfb;
}

// From the surface's first quarter to its third, half-way down. The pen stays there.
void drawStroke(KernelPad& pad) {
  for (int i = 0; i <= 20; ++i)
    pad.sendPen({.x = 0.25 + 0.025 * i, .y = 0.5, .pressure = 0.5, .touch = true});
}

void writeStroke(KernelPad& pad) {
  drawStroke(pad);
  pad.sendPen({.x = 0.75, .y = 0.5, .pressure = 0, .touch = false});
}

// A pen that goes to and fro a quarter down, clear of the stroke.
MovingPen movingPen(KernelPad& pad) {
  return MovingPen([&pad](int n) {
    pad.sendPen({.x = 0.25 + 0.0005 * n, .y = 0.25, .pressure = 0.5, .touch = true});
  });
}

class AppTest : public ::testing::TestWithParam<std::tuple<std::size_t, Face>> {
 protected:
  void SetUp() override { app.choose(kind); }

  // Waits for the picture, keeps it, and returns it.
  QImage look(const std::string& step, const std::function<bool(const QImage&)>& wanted) {
    const QImage picture = desktop().waitForPicture(wanted);
    const std::string file = std::string(kind.name) + "-" + nameOf(face) + "-" + step + ".png";
    // Without compression, which takes an emulated processor long.
    picture.save(QString::fromStdString(file), nullptr, 100);
    return picture;
  }

  void openAndWait() {
    app.open();
    app.waitUntilConnected();
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

  const std::size_t index = std::get<0>(GetParam());
  const Face face = std::get<1>(GetParam());
  const TestPad& kind = kTestPads.at(index);
  const View& view = kViews.at(index);
  const Requests& requests = kRequests.at(index);
  std::unique_ptr<KernelPad> pad = plugged(kind.kind, face);
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
      return request.call == requests.clear->call && request.bytes[0] == requests.clear->reportId;
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

class AppUnplugTest : public AppTest {
 protected:
  // A fault has unplugged the pad.
  void expectUnplug() {
    EXPECT_TRUE(
        pad->waitForRequest([](const FeatureRequest& request) { return !request.accepted; }));
    EXPECT_FALSE(pad->plugged());
    pad->unplug();  // waits until the kernel has noticed
    pad->clearRequests();
  }

  // Starts from the idle application without a pad. It responds, and works after the pad is plugged
  // in again.
  void goOn(const std::string& after) {
    const std::size_t from = app.program().lineCount();
    app.open();
    app.program().waitForLine(
        [](const std::string& line) { return line.starts_with("No device "); }, from);
    lookForNoInk("unplugged-" + after);
    replug(*pad);
    // A running libusb learns from udevd that a pad has come, after the pad has its node.
    if (applicationUsesLibusb()) {
      EXPECT_EQ(std::system("udevadm settle"), 0);
    }
    openAndWait();
    writeAndLook("replugged-" + after);
  }

  // The ink up to the pen's position is visible before the remaining reports are sent.
  void writeWithThePenDown() {
    drawStroke(*pad);
    look("pen-down", [this](const QImage& picture) { return strokeIsThere(picture); });
    for (int i = 0; i < 20; ++i)
      pad->sendPen({.x = 0.75, .y = 0.5, .pressure = 0.5, .touch = true});
  }

  void unplugDuringOpen() {
    for (const Request& request : requests.open) {
      app.reset();
      EXPECT_TRUE(pad->waitUntilClosed());
      unplugAt(*pad, request);
      app.open();
      expectUnplug();
      app.reset();
      goOn("open");
    }
    if (requests.open.empty()) {
      app.reset();
      EXPECT_TRUE(pad->waitUntilClosed());
      // Opening sends no request to this pad. Only the open node is visible from outside, so the
      // application's progress at the time of the unplug may vary.
      app.open();
      EXPECT_TRUE(pad->waitUntilOpen());
      pad->unplug();
      app.reset();
      goOn("open");
    }
  }

  void unplugDuringClear() {
    const MovingPen pen = movingPen(*pad);
    if (requests.clear) {
      unplugAt(*pad, *requests.clear);
      app.clear();
      expectUnplug();
    } else {
      // Clear sends no request to this pad. Its first visible effect is that the stroke disappears.
      app.clear();
      look("clearing", [this](const QImage& picture) { return !strokeIsThere(picture); });
      pad->unplug();
    }
  }

  void unplugDuringReset() {
    if (requests.close) {
      unplugAt(*pad, *requests.close);
      app.reset();
      expectUnplug();
      goOn("reset");
    }
    unplugWhileItWaitsForThePen([this] { app.reset(); });
    goOn("reset-pen-moving");
  }

  // Closing lasts until the pen rests. By then only the reading thread of the connection is left.
  void unplugWhileItWaitsForThePen(const std::function<void()>& close) {
    const MovingPen pen = movingPen(*pad);
    look("moving", hasInk);
    const std::vector<pid_t> threads = app.program().threads();
    close();
    app.program().waitUntilEnded(threads, kConnectionThreads - 1);
    EXPECT_TRUE(pad->open());
    pad->unplug();
  }

  void expectEndAndNextOne(const std::string& after) {
    EXPECT_EQ(app.program().wait(), 0);
    replug(*pad);
    Application next(desktop());
    next.choose(kind);
    next.open();
    next.waitUntilConnected();
    writeAndLook("next-after-" + after);
  }
};

// One application runs through all of them.
TEST_P(AppUnplugTest, InEveryState) {
  if (applicationUsesLibusb() && access("/run/udev/control", F_OK) != 0)
    GTEST_SKIP() << "a running libusb learns only from udevd that a pad has come back";
  openAndWait();
  look("opened", [this](const QImage& picture) { return findView(picture).size() == view.size; });
  pad->unplug();
  app.reset();
  goOn("idle");

  writeWithThePenDown();
  pad->unplug();
  app.clear();
  lookForNoInk("cleared-unplugged");
  app.reset();
  goOn("pen-down");

  unplugDuringOpen();
  unplugDuringClear();
  app.reset();
  goOn("clear");

  unplugDuringReset();
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
}

class AppUnplugAtTheEndTest : public AppUnplugTest {};

// At a request of the closing, if there is one.
TEST_P(AppUnplugAtTheEndTest, DuringQuit) {
  openAndWait();
  writeAndLook("before-quit");
  if (requests.close) {
    unplugAt(*pad, *requests.close);
    app.quit();
    expectUnplug();
  } else {
    unplugWhileItWaitsForThePen([this] { app.quit(); });
  }
  expectEndAndNextOne("quit");
}

TEST_P(AppUnplugAtTheEndTest, WhileTheWindowCloses) {
  openAndWait();
  unplugWhileItWaitsForThePen([] { desktop().closeWindow(); });
  expectEndAndNextOne("closed");
}

// One face is enough: AppUnplugTest opens, writes, clears and resets on each.
Face firstFace() {
  return facesOfTheApplication().front();
}

INSTANTIATE_TEST_SUITE_P(Pads, AppTest, eachPadOn<Face>({firstFace()}), nameOfPadOn<Face>);
INSTANTIATE_TEST_SUITE_P(Pads, AppUnplugTest, eachPadOn(facesOfTheApplication()),
                         nameOfPadOn<Face>);
INSTANTIATE_TEST_SUITE_P(Pads, AppUnplugAtTheEndTest, eachPadOn<Face>({firstFace()}),
                         nameOfPadOn<Face>);

// A pad whose state shows whether the application has left it correctly.
class AppEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    app.choose(kTestPads[2]);
    app.open();
    ASSERT_TRUE(pad->waitUntilOpen());
    // The last report of the set-up.
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
  std::unique_ptr<KernelPad> pad = plugged(model, firstFace());
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
  const auto stranger = plugged(makeOtherPad(), firstFace());
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

// Deliberate: the window still becomes connected. Nothing else may happen.
TEST(AppAloneTest, NodesWithoutPermissionAreNeverOpened) {
  std::vector<std::unique_ptr<KernelPad>> pads;
  Application app(desktop(), true);
  for (const TestPad& kind : kTestPads) {
    pads.push_back(plugged(kind.kind, firstFace()));
    app.choose(kind);
    app.open();
    app.clear();
    app.reset();
  }
  app.quit();
  EXPECT_EQ(app.program().wait(), 0);
  EXPECT_THAT(app.program().lines(),
              ElementsAre("velaii:opendevice failed", "Velavision:OpenConnection failed"));
  for (const auto& pad : pads) {
    EXPECT_FALSE(pad->open());
    EXPECT_THAT(pad->requests(), IsEmpty());
  }
}

}  // namespace
