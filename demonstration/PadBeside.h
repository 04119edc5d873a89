// The pad in a window beside the application: the pad that is chosen in the application's list or,
// while the application is connected, the pad that it has open. The user can write on it with the
// mouse. Both windows are placed so that they fit on the screen.
#ifndef DEMONSTRATION_PADBESIDE_H
#define DEMONSTRATION_PADBESIDE_H

#include <QObject>
#include <functional>
#include <memory>
#include <vector>

#include "ApplicationWindow.h"
#include "DemonstrationPad.h"
#include "virtualpads/window/PadWindow.h"

namespace demonstration {

// GUI thread only.
class PadBeside : public QObject {
 public:
  // `pads` are in the order of the application's provider list. `written` is called for each sample
  // that is written in the pad's window.
  PadBeside(ApplicationWindow& window, std::vector<DemonstrationPad> pads,
            std::function<void()> written);

 private:
  void showChosenPad();

  ApplicationWindow& m_window;
  const std::vector<DemonstrationPad> m_pads;
  const std::function<void()> m_written;
  std::unique_ptr<virtualpads::PadWindow> m_padWindow;
  int m_shown = -1;  // the provider whose pad is shown
};

}  // namespace demonstration

#endif
