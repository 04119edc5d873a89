#include "PadBeside.h"

#include <QScreen>
#include <utility>

#include "SideBySide.h"

namespace demonstration {

PadBeside::PadBeside(ApplicationWindow& window, std::vector<DemonstrationPad> pads,
                     std::function<void()> written)
    : m_window(window), m_pads(std::move(pads)), m_written(std::move(written)) {
  // Choosing another provider in the list does not affect the open pad: Reset is enabled exactly
  // while there is one.
  connect(&window.providers, &QComboBox::currentIndexChanged, this, [this] {
    if (!m_window.reset.isEnabled()) showChosenPad();
  });
  connect(&window.reset, &QPushButton::clicked, this, &PadBeside::showChosenPad);
  showChosenPad();
}

void PadBeside::showChosenPad() {
  const int provider = m_window.providers.currentIndex();
  if (provider == m_shown) {
    m_padWindow->show();  // the user may have closed it
    return;
  }
  m_shown = provider;
  const auto& chosen = m_pads.at(static_cast<std::size_t>(provider));
  m_padWindow.reset();
  m_padWindow = std::make_unique<virtualpads::PadWindow>(
      chosen.pad, [this, &chosen](const virtualpads::PenState& pen) {
        m_written();
        virtualpads::VirtualBus::instance().send(chosen.port, chosen.pad->inputReport(pen));
      });
  // The application's window stays active, and the program ends with it.
  m_padWindow->setAttribute(Qt::WA_ShowWithoutActivating);
  m_padWindow->setAttribute(Qt::WA_QuitOnClose, false);
  // Small, for desktops that do not let a program place its windows.
  m_padWindow->resize(m_padWindow->minimumSizeHint());
  QWidget& application = m_window.window;
  const QSize frame = application.frameGeometry().size() - application.size();
  // At a fractional scale, position and size are rounded separately and may be one unit too large.
  const QRect screen = application.screen()->availableGeometry().adjusted(0, 0, -1, -1);
  const auto places = sideBySide(screen, application.frameGeometry(), m_padWindow->size() + frame);
  if (places.application != application.pos()) application.move(places.application);
  m_padWindow->move(places.pad);
  m_padWindow->show();
}

}  // namespace demonstration
