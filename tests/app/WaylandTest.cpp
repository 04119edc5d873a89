// The application in a window of a Wayland compositor. The results are read from the compositor's
// screen. The compositor is weston without a monitor and has neither mouse nor keyboard, so the
// buttons are pressed from inside the application.
#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QLibraryInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cstdio>
#include <ostream>

#include "DeskProcess.h"

namespace {

const QColor kWhite(255, 255, 255);
const QColor kBlack(0, 0, 0);
const QColor kBlue(0, 0, 255);

class Weston {
 public:
  explicit Weston(int scale) {
    m_environment.insert("XDG_RUNTIME_DIR", m_directory.path());
    m_environment.insert("WAYLAND_DISPLAY", kSocket);
    m_environment.insert("XDG_PICTURES_DIR", m_directory.path());
    m_process.setProcessEnvironment(m_environment);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    // Without --debug, screenshots are not allowed.
    const QString arguments =
        "--backend=headless-backend.so --use-pixman --width=1280 --height=1024 --scale=%1 "
        "--socket=%2 --no-config --idle-time=0 --debug";
    m_process.start("weston", arguments.arg(scale).arg(kSocket).split(' '));
    // Weston continues to write its log after it has created the socket.
    while (!QFile::exists(m_directory.filePath(kSocket))) {
      if (!m_process.waitForReadyRead()) {
        ADD_FAILURE() << "weston has not started: " << m_log.toStdString();
        return;
      }
      m_log += m_process.readAll();
    }
  }

  ~Weston() {
    m_process.terminate();
    m_process.waitForFinished();
  }

  Weston(const Weston&) = delete;
  Weston& operator=(const Weston&) = delete;

  // The environment for a program that shows its windows there.
  const QProcessEnvironment& environment() const { return m_environment; }

  QImage screen() const {
    QProcess shooter;
    shooter.setProcessEnvironment(m_environment);
    shooter.setWorkingDirectory(m_directory.path());
    shooter.start("weston-screenshooter", QStringList());
    EXPECT_TRUE(shooter.waitForFinished());
    EXPECT_EQ(shooter.exitCode(), 0);
    QDir pictures(m_directory.path(), "wayland-screenshot-*.png");
    const QString name = pictures.entryList().value(0);
    const QImage seen(pictures.filePath(name));
    EXPECT_FALSE(seen.isNull());
    pictures.remove(name);
    return seen.convertToFormat(QImage::Format_RGB32);
  }

 private:
  static constexpr auto kSocket = "wayland-test";

  QTemporaryDir m_directory;
  QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
  QProcess m_process;
  QByteArray m_log;
};

// The bounding rectangle of the pixels of that colour.
QRect extent(const QImage& picture, const QColor& colour) {
  QRect found;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x)
      if (picture.pixel(x, y) == colour.rgb()) found |= QRect(x, y, 1, 1);
  }
  return found;
}

struct Scale {
  int compositor;
  double application;  // on top of the compositor's
  double sum;
};

void PrintTo(const Scale& scale, std::ostream* out) {
  *out << scale.compositor << " times " << scale.application;
}

class WaylandTest : public testing::TestWithParam<Scale> {
 protected:
  QProcessEnvironment environment() const {
    auto environment = weston.environment();
    environment.insert("QT_QPA_PLATFORM", "wayland");
    environment.insert("QT_SCALE_FACTOR", QString::number(GetParam().application));
    return environment;
  }

  // Waits until the screen shows ink.
  testing::AssertionResult waitForInk() {
    for (int i = 0; i < 300; ++i) {
      seen = weston.screen();
      ink = extent(seen, kBlue);
      if (!ink.isEmpty()) return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no ink";
  }

  // In view units the line is 117 by 2. To its left are 56 white units and then the view's black
  // frame; to its right are 88. Where a line begins between two pixels, one of them is a blend.
  void expectLine() const {
    const double scale = GetParam().sum;
    EXPECT_NEAR(ink.width(), 117 * scale, 1);
    EXPECT_NEAR(ink.height(), 2 * scale, 1);
    EXPECT_NEAR(ink.left() - frameFrom(ink.left(), -1), 56 * scale + 1, 1);
    EXPECT_NEAR(frameFrom(ink.right(), 1) - ink.right(), 88 * scale + 1, 1);
    const int middle = ink.center().x();
    EXPECT_EQ(seen.pixelColor(middle, ink.top() - 2), kWhite);
    EXPECT_EQ(seen.pixelColor(middle, ink.bottom() + 2), kWhite);
  }

  // Where the white ends, searching from beside that end of the line in steps of -1 or 1.
  int frameFrom(int end, int step) const {
    const int row = ink.center().y();
    int x = end + 2 * step;
    while (seen.valid(x, row) && seen.pixelColor(x, row) == kWhite) x += step;
    EXPECT_EQ(seen.pixelColor(x, row), kBlack) << "at " << x << ", " << row;
    return x;
  }

  Weston weston{GetParam().compositor};
  DeskProcess desk{environment()};
  QImage seen;
  QRect ink;
};

TEST_P(WaylandTest, InkIsWhereThePenWrote) {
  desk.connectPad();
  ASSERT_TRUE(waitForInk());
  expectLine();
  desk.order("quit");
  desk.expectQuietEnd("opened 1, closed 1, open 0, providers 0");
}

INSTANTIATE_TEST_SUITE_P(Scales, WaylandTest,
                         testing::Values(Scale{1, 1, 1}, Scale{1, 1.5, 1.5}, Scale{2, 1, 2}));

// What this test needs and the system lacks; empty if nothing is missing.
QString missing() {
  for (const char* tool : {"weston", "weston-screenshooter"})
    if (QStandardPaths::findExecutable(tool).isEmpty()) return tool;
  const QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) + "/platforms",
                       "libqwayland*");
  return platforms.isEmpty() ? "Qt's plugin for Wayland" : "";
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  if (!missing().isEmpty()) {
    std::printf("SKIPPED: %s is not installed\n", qPrintable(missing()));
    return 77;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
