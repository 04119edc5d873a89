#include "SigningPen.h"

#include <QEvent>

#include "virtualpads/PenStrokes.h"

namespace demonstration {

namespace {

constexpr int kTickMilliseconds = 5;
constexpr int kPauseMilliseconds = 2000;
constexpr int kPauseAfterOthersMilliseconds = 4000;
// So many signatures lie over each other before the pen asks for a clear view: the ink of a window
// that is left alone for days stays limited.
constexpr int kSignaturesUntilClear = 20;

}  // namespace

SigningPen::SigningPen(ApplicationWindow& window, std::vector<DemonstrationPad> pads)
    : m_window(window), m_pads(std::move(pads)), m_signature(virtualpads::signature()) {
  m_timer.setInterval(kTickMilliseconds);
  m_timer.setTimerType(Qt::PreciseTimer);
  connect(&m_timer, &QTimer::timeout, this, &SigningPen::write);
  m_window.reset.installEventFilter(this);
}

// Reset is enabled exactly while the application is connected. The list may show another provider
// later on; the pad that was chosen at that moment stays the open one.
bool SigningPen::eventFilter(QObject* watched, QEvent* event) {
  if (watched == &m_window.reset && event->type() == QEvent::EnabledChange) {
    if (m_window.reset.isEnabled()) {
      m_port = m_pads.at(static_cast<std::size_t>(m_window.providers.currentIndex())).port;
      beginSignature(0);
      m_timer.start();
    } else {
      m_timer.stop();
    }
  }
  return QObject::eventFilter(watched, event);
}

void SigningPen::standBack() {
  if (!m_timer.isActive()) return;
  if (m_written > 0 && m_signature[m_written - 1].touch) {
    auto lifted = m_signature[m_written - 1];
    lifted.touch = false;
    lifted.pressure = 0;
    lifted.milliseconds += m_padClock;
    virtualpads::VirtualBus::instance().sendPen(m_port, lifted);
  }
  m_padClock += m_signature.back().milliseconds;
  beginSignature(kPauseAfterOthersMilliseconds);
}

void SigningPen::beginSignature(int inMilliseconds) {
  m_written = 0;
  m_wait = inMilliseconds;
  m_sinceWait.start();
  // What the bus writes down about each call is for tests, and would grow as long as this runs.
  virtualpads::VirtualBus::instance().clearLog();
}

void SigningPen::write() {
  const auto now = m_sinceWait.elapsed() - m_wait;
  for (; m_written < m_signature.size() && m_signature[m_written].milliseconds <= now;
       ++m_written) {
    auto sample = m_signature[m_written];
    sample.milliseconds += m_padClock;
    virtualpads::VirtualBus::instance().sendPen(m_port, sample);
  }
  const auto duration = m_signature.back().milliseconds + kPauseMilliseconds;
  if (now < duration) return;
  m_padClock += duration;
  if (++m_signatures % kSignaturesUntilClear == 0) m_window.clear.click();
  beginSignature(0);
}

}  // namespace demonstration
