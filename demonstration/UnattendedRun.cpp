#include "UnattendedRun.h"

#include <QCoreApplication>
#include <QImage>
#include <QPixmap>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <stdexcept>

#include "virtualpads/InkPad.h"
#include "virtualpads/Signature.h"
#include "virtualpads/window/LcdImage.h"

namespace demonstration {

namespace {

using virtualpads::VirtualBus;

// The time limit of a step that takes less than a second on any machine.
constexpr std::chrono::seconds kPatience{30};

class StepFailed : public std::runtime_error {
 public:
  explicit StepFailed(const QString& step) : std::runtime_error(step.toStdString()) {}
};

// Runs the event loop until the condition holds; false when the time limit passes first.
bool waitUntil(const std::function<bool()>& condition) {
  bool late = false;
  QTimer timer;
  timer.setSingleShot(true);
  QObject::connect(&timer, &QTimer::timeout, [&late] { late = true; });
  timer.start(kPatience);
  while (!condition() && !late) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  return condition();
}

bool hasBlue(const QImage& picture) {
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x)
      if (picture.pixelColor(x, y) == QColor(Qt::blue)) return true;
  }
  return false;
}

// The run of one provider.
class ProviderRun {
 public:
  ProviderRun(ApplicationWindow& window, int provider, const DemonstrationPad& pad,
              const QString& directory)
      : m_window(window),
        m_provider(provider),
        m_port(pad.port),
        m_pad(*pad.pad),
        m_name(window.providers.itemText(provider)),
        m_prefix(QString("%1/%2-%3")
                     .arg(directory)
                     .arg(provider + 1)
                     .arg(m_name.toLower().replace(' ', '-'))) {}

  void run() {
    m_window.providers.setCurrentIndex(m_provider);
    picture("chosen", Ink::Absent);

    press(m_window.open);
    require(m_window.reset.isEnabled() && VirtualBus::instance().openHandles(m_port) == 1,
            "was not opened");
    picture("open", Ink::Absent);

    sign();
    picture("signed", Ink::Present);

    press(m_window.clear);
    picture("cleared", Ink::Absent);

    sign();
    picture("signed-again", Ink::Present);

    press(m_window.reset);
    require(m_window.open.isEnabled() && VirtualBus::instance().openHandles() == 0,
            "was not closed");
    picture("reset", Ink::Absent);
  }

 private:
  enum class Ink { Absent, Present };

  void require(bool condition, const char* complaint) const {
    if (!condition) throw StepFailed(QString("%1 %2").arg(m_name, complaint));
  }

  void press(QPushButton& button) const {
    require(button.isEnabled(), "has a disabled button that should be enabled");
    button.click();
  }

  // Returns when the whole signature is in the view. The signature ends with a tap where it began,
  // which draws nothing, but leaves the view's path at its first point.
  void sign() const {
    auto samples = virtualpads::signature(0);
    auto tap = samples.front();
    tap.milliseconds = samples.back().milliseconds + 200;
    samples.push_back(tap);
    tap.touch = false;
    tap.milliseconds += 5;
    samples.push_back(tap);

    auto& bus = VirtualBus::instance();
    auto pen = std::async(std::launch::async, [&bus, &samples, port = m_port] {
      return std::ranges::all_of(samples,
                                 [&](const auto& sample) { return bus.sendPen(port, sample); });
    });
    const auto shown = [this] { return endsWithTap(m_window.view.path()); };
    const auto ended = [this] { return !m_window.reset.isEnabled(); };  // by a signal
    waitUntil([&] { return shown() || ended(); });
    // Releases a pen that still waits for a reader.
    if (!shown()) bus.unplug(m_port);
    const bool taken = pen.get();
    require(!ended(), "was closed before the signature was whole");
    require(taken, "did not accept the pen's reports");
    require(shown(), "did not show the whole signature");
  }

  // During a stroke, the path's last two points are the same.
  static bool endsWithTap(const QPainterPath& path) {
    const int count = path.elementCount();
    if (count < 3) return false;
    const QPointF last = path.elementAt(count - 1);
    return last == path.elementAt(0) && last != path.elementAt(count - 2);
  }

  void picture(const char* step, Ink ink) {
    require(hasBlue(m_window.view.grab().toImage()) == (ink == Ink::Present),
            ink == Ink::Present ? "shows no ink" : "shows ink where none should be");
    ++m_step;
    save(m_window.window.grab().toImage(), QString("%1-%2").arg(m_step).arg(step));
    m_pad.look([this, step](const virtualpads::PadModel& pad) {
      if (auto* inkPad = dynamic_cast<const virtualpads::InkPad*>(&pad))
        save(lcdImage(inkPad->lcdImage(), virtualpads::kLitLcd),
             QString("%1-%2-lcd").arg(m_step).arg(step));
    });
  }

  void save(const QImage& image, const QString& name) const {
    const QString path = QString("%1-%2.png").arg(m_prefix, name);
    if (!image.save(path)) throw StepFailed("cannot write " + path);
    std::printf("%s\n", qPrintable(path));
  }

  ApplicationWindow& m_window;
  const int m_provider;
  const VirtualBus::Port m_port;
  const virtualpads::WatchedPad& m_pad;
  const QString m_name;
  const QString m_prefix;
  int m_step = 0;
};

}  // namespace

int runUnattended(ApplicationWindow& window, const std::vector<DemonstrationPad>& pads,
                  const QString& directory) {
  try {
    if (window.providers.count() != std::ssize(pads))
      throw StepFailed("the list does not show one provider for each pad");
    for (int provider = 0; provider < std::ssize(pads); ++provider)
      ProviderRun(window, provider, pads[static_cast<std::size_t>(provider)], directory).run();
  } catch (const StepFailed& failure) {
    std::fprintf(stderr, "vela-demonstration: %s\n", failure.what());
    return 1;
  }
  return 0;
}

}  // namespace demonstration
