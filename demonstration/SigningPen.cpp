#include "SigningPen.h"

#include <QEvent>

#include "virtualpads/Signature.h"

namespace demonstration {

namespace {

constexpr int kTickMilliseconds = 5;
constexpr int kPauseMilliseconds = 2000;
constexpr int kPauseAfterOthersMilliseconds = 4000;
constexpr int kClearBeforeMilliseconds = 500;  // before a signature

}  // namespace

SigningPen::SigningPen(ApplicationWindow& window, std::vector<DemonstrationPad> pads)
    : m_window(window), m_pads(std::move(pads)) {
  m_clock.start();
  m_timer.setInterval(kTickMilliseconds);
  m_timer.setTimerType(Qt::PreciseTimer);
  connect(&m_timer, &QTimer::timeout, this, &SigningPen::write);
  m_window.reset.installEventFilter(this);
  // A pen left on the pad would keep Reset waiting.
  connect(&m_window.reset, &QPushButton::pressed, this, &SigningPen::standBack);
}

// Reset is enabled exactly while the application is connected. The list may show another provider
// later; the pad that was chosen at that moment stays open.
bool SigningPen::eventFilter(QObject* watched, QEvent* event) {
  if (watched == &m_window.reset && event->type() == QEvent::EnabledChange) {
    if (m_window.reset.isEnabled()) {
      m_port = m_pads.at(static_cast<std::size_t>(m_window.providers.currentIndex())).port;
      m_clean = true;
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
    lifted.milliseconds = static_cast<std::uint32_t>(m_clock.elapsed());
    virtualpads::VirtualBus::instance().sendPen(m_port, lifted);
  }
  m_clean = false;
  beginSignature(kPauseAfterOthersMilliseconds);
}

void SigningPen::beginSignature(int inMilliseconds) {
  m_signature = virtualpads::signature(m_signatures++);
  m_written = 0;
  m_begin = m_clock.elapsed() + inMilliseconds;
  // The bus's log of calls is for tests, and would grow as long as this runs.
  virtualpads::VirtualBus::instance().clearLog();
}

void SigningPen::write() {
  const auto now = m_clock.elapsed() - m_begin;
  if (m_written == 0 && !m_clean && now >= -kClearBeforeMilliseconds) {
    m_window.clear.click();
    m_clean = true;
  }
  for (; m_written < m_signature.size() && m_signature[m_written].milliseconds <= now;
       ++m_written) {
    auto sample = m_signature[m_written];
    sample.milliseconds += static_cast<std::uint32_t>(m_begin);
    virtualpads::VirtualBus::instance().sendPen(m_port, sample);
    m_clean = false;
  }
  if (m_written < m_signature.size()) return;
  beginSignature(kPauseMilliseconds);
}

}  // namespace demonstration
