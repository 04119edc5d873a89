// The application in a real window of an X server. Input comes from the server's own mouse and
// keyboard; the results are read from its screen.
#include <gmock/gmock.h>
#include <signal.h>

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include "DeskProcess.h"

namespace {

const QColor kWhite(255, 255, 255);
const QColor kBlack(0, 0, 0);
const QColor kBlue(0, 0, 255);

class DisplayTest : public testing::TestWithParam<double> {
 protected:
  static double scale() { return GetParam(); }

  static QProcessEnvironment environment() {
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_SCALE_FACTOR", QString::number(scale()));
    return environment;
  }

  static void run(const QString& program, const QStringList& arguments) {
    ASSERT_EQ(QProcess::execute(program, arguments), 0) << program.toStdString();
  }

  QPoint where(const std::string& widget) {
    const auto place = QString::fromStdString(desk.order("where " + widget)).split(' ');
    return {place.value(0).toInt(), place.value(1).toInt()};
  }

  static void clickAt(const QPoint& place) {
    run("xdotool", {"mousemove", "--sync", QString::number(place.x()), QString::number(place.y()),
                    "click", "1"});
  }

  void click(const std::string& widget) { clickAt(where(widget)); }

  void press(const QString& key) {
    run("xdotool",
        {"windowfocus", "--sync", QString::fromStdString(desk.order("window")), "key", key});
  }

  QImage screen() {
    const QString path = directory.filePath("screen.png");
    run("import", {"-window", "root", path});
    return QImage(path).convertToFormat(QImage::Format_RGB32);
  }

  // Waits until that pixel of the screen has that colour.
  bool waitForPixel(const QPoint& place, const QColor& colour) {
    for (int i = 0; i < 300; ++i)
      if (screen().pixelColor(place) == colour) return true;
    return false;
  }

  QTemporaryDir directory;
  DeskProcess desk{environment()};
};

TEST_P(DisplayTest, PersonSignsClearsSignsAgainAndQuits) {
  const std::string port = desk.order("plug 0");
  click("m_OpenButton");
  ASSERT_EQ(desk.order("wait-enabled m_ResetButton"), "done");
  desk.writeLine(port);

  // The view is 265 by 161 units, so its middle pixel is at (132, 80) of it.
  const QPoint middle = where("m_drawview");
  const auto at = [&](int x, int y) { return middle + QPoint(x - 132, y - 80) * scale(); };
  ASSERT_TRUE(waitForPixel(at(100, 80), kBlue));
  QImage seen = screen();
  EXPECT_EQ(seen.pixelColor(at(60, 80)), kBlue);
  EXPECT_EQ(seen.pixelColor(at(173, 80)), kBlue);
  EXPECT_EQ(seen.pixelColor(at(55, 80)), kWhite);
  EXPECT_EQ(seen.pixelColor(at(178, 80)), kWhite);
  EXPECT_EQ(seen.pixelColor(at(100, 76)), kWhite);
  EXPECT_EQ(seen.pixelColor(at(100, 85)), kWhite);
  EXPECT_EQ(seen.pixelColor(at(1, 80)), kBlack);
  EXPECT_EQ(seen.pixelColor(at(3, 80)), kWhite);

  click("m_ClearButton");
  ASSERT_TRUE(waitForPixel(at(100, 80), kWhite));
  desk.writeLine(port);
  ASSERT_TRUE(waitForPixel(at(100, 80), kBlue));

  press("alt+r");
  ASSERT_EQ(desk.order("wait-enabled m_OpenButton"), "done");
  ASSERT_TRUE(waitForPixel(at(100, 80), kWhite));

  press("alt+o");
  ASSERT_EQ(desk.order("wait-enabled m_ResetButton"), "done");
  press("ctrl+q");
  desk.expectQuietEnd("opened 2, closed 2, open 0, providers 0");
}

TEST_P(DisplayTest, ProviderIsChosenInTheListWithTheMouse) {
  desk.order("plug 3");
  click("m_prolist");
  press("End");
  press("Return");
  click("m_OpenButton");
  ASSERT_EQ(desk.order("wait-enabled m_ResetButton"), "done");
  desk.order("close");
  desk.expectQuietEnd("opened 1, closed 1, open 0, providers 0");
}

// Open is enabled once the pad is closed. It does not receive an earlier click.
TEST_P(DisplayTest, ClickWhileThePadIsClosedDoesNothing) {
  const std::string port = desk.openPad();
  const QPoint open = where("m_OpenButton");
  desk.order("keep-moving " + port);
  click("m_ResetButton");
  clickAt(open);
  desk.signal(SIGUSR2);
  ASSERT_EQ(desk.order("wait-enabled m_OpenButton"), "done");
  EXPECT_EQ(desk.order("providers"), "0");
  desk.order("close");
  desk.expectQuietEnd("opened 1, closed 1, open 0, providers 0");
}

INSTANTIATE_TEST_SUITE_P(Scales, DisplayTest, testing::Values(1, 1.5, 2));

}  // namespace
