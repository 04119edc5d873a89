#include "SigningPen.h"

#include <QEvent>

#include "virtualpads/PenStrokes.h"

namespace demonstration {

namespace {

constexpr int kTickMilliseconds = 5;
constexpr int kPauseMilliseconds = 2000;
// So many signatures lie over each other before the pen asks for a clear view: the ink of a window
// that is left alone for days stays limited.
constexpr int kSignaturesUntilClear = 20;

}  // namespace

SigningPen::SigningPen(ApplicationWindow& window, std::vector<virtualpads::VirtualBus::Port> ports)
    : m_window(window), m_ports(std::move(ports)), m_signature(virtualpads::signature()) {
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
      m_port = m_ports.at(static_cast<std::size_t>(m_window.providers.currentIndex()));
      beginSignature();
      m_timer.start();
    } else {
      m_timer.stop();
    }
  }
  return QObject::eventFilter(watched, event);
}

void SigningPen::beginSignature() {
  m_written = 0;
  m_sinceBegin.start();
}

void SigningPen::write() {
  const auto now = m_sinceBegin.elapsed();
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
  beginSignature();
}

}  // namespace demonstration
