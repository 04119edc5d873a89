// The pen writes at full speed on a separate thread while the window is operated.
#include <gmock/gmock.h>

#include <QApplication>
#include <atomic>
#include <thread>

#include "AppDelegate.h"
#include "ControllerFixture.h"

namespace {

// Sends samples to the callback as fast as it accepts them, numbered from 1: sample n is at view x
// = n, y = 7. The pen is lifted at every hundredth sample. It waits for the test when it is far
// ahead, so that the amount of ink to check stays bounded.
class Pen {
 public:
  void start() {
    m_stop = false;
    catchUp();
    m_thread = std::thread([this] {
      do {
        const std::int32_t number = m_last + 1;
        PenDataHandler(number * 4, 7 * 7, 100, number % 100 == 0 ? 0 : 1, 0, 0);
        m_last = number;
        m_last.notify_one();
        while (!m_stop && number - m_caughtUp > kFarAhead) std::this_thread::yield();
      } while (!m_stop);
    });
  }

  void stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
  }

  ~Pen() { stop(); }

  // Signals the pen that all its ink so far has been checked.
  void catchUp() { m_caughtUp = m_last.load(); }

  // The number of the last sample that the callback has processed.
  std::int32_t last() const { return m_last; }

  // Catches up and waits until the callback has processed that many more samples. The number must
  // be less than kFarAhead, because the pen stops there.
  void waitForMore(std::int32_t samples) {
    catchUp();
    const std::int32_t wanted = m_caughtUp + samples;
    for (std::int32_t seen = m_last; seen < wanted; seen = m_last) m_last.wait(seen);
  }

 private:
  static constexpr std::int32_t kFarAhead = 2000;

  std::atomic<bool> m_stop = false;
  std::atomic<std::int32_t> m_caughtUp = 0;
  std::atomic<std::int32_t> m_last = 0;
  std::thread m_thread;
};

// The window on the screen, with the pen in place of a pad.
class RaceTest : public FreshApplication {
 protected:
  RaceTest() {
    delegate.applicationDidFinishLaunching(nullptr);
    controller().m_prolist->setCurrentIndex(3);
    fakevela::state().onCloseConnection = [this] { pen.stop(); };
    controller().OpenButton(nullptr);
  }
  ~RaceTest() override {
    pen.stop();
    delete m_mainWindowController.exchange(nullptr);
  }

  static MainWindowController& controller() { return *m_mainWindowController; }
  static DrawView& view() { return *controller().m_drawview; }

  // All ink comes from samples after that one, and each line leads from a sample to the next. Must
  // check many elements quickly, because the pen keeps writing.
  static void expectOnlyInkAfter(std::int32_t sample) {
    const QPainterPath& path = view().path();
    int right = 0;
    while (right < path.elementCount() && isAfter(sample, path, right)) ++right;
    ASSERT_EQ(right, path.elementCount()) << "at x = " << path.elementAt(right).x;
  }

  static bool isAfter(std::int32_t sample, const QPainterPath& path, int index) {
    const auto element = path.elementAt(index);
    if (element.x <= sample || element.y != 7) return false;
    return !element.isLineTo() || (index > 0 && path.elementAt(index - 1).x == element.x - 1);
  }

  AppDelegate delegate;
  Pen pen;
};

TEST_F(RaceTest, NoInkFromBeforeAClearAppearsAfterIt) {
  pen.start();
  for (int i = 0; i < 1000; ++i) {
    const std::int32_t before = pen.last();
    controller().ClearButton(nullptr);
    expectOnlyInkAfter(before);
    pen.catchUp();
    if (HasFatalFailure()) break;
    if (i % 100 == 0) {
      pen.waitForMore(100);
      QApplication::processEvents();
    }
  }
}

TEST_F(RaceTest, NoInkFromBeforeAResetAppearsAfterIt) {
  for (int i = 0; i < 300; ++i) {
    pen.start();
    pen.waitForMore(50);
    controller().ResetButton(nullptr);
    EXPECT_EQ(view().path().elementCount(), 0);
    EXPECT_EQ(firstPoint, 0);
    QApplication::processEvents();
    EXPECT_EQ(view().path().elementCount(), 0);
    controller().OpenButton(nullptr);
  }
}

TEST_F(RaceTest, NoSampleIsLostWhileTheViewIsPainted) {
  pen.start();
  while (pen.last() < 20'000) {
    QApplication::processEvents();
    pen.catchUp();
  }
  pen.stop();
  const std::int32_t samples = pen.last();
  expectOnlyInkAfter(0);
  // A stroke of 100 samples is a move and 99 pairs of line and move, the last of which is replaced
  // by the move of the next stroke.
  const int wholeStrokes = samples / 100;
  const int rest = samples % 100;
  EXPECT_EQ(view().path().elementCount(), 198 * wholeStrokes + (rest == 0 ? 1 : 2 * rest - 1));
}

}  // namespace
