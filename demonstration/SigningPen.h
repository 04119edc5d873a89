// The pen that signs by itself, at the speed of a hand, on the pad that the application has open.
#ifndef DEMONSTRATION_SIGNINGPEN_H
#define DEMONSTRATION_SIGNINGPEN_H

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <cstdint>
#include <vector>

#include "ApplicationWindow.h"
#include "DemonstrationPad.h"
#include "virtualpads/PadModel.h"

namespace demonstration {

// Writes from the moment the application is connected until Reset is pressed: a signature, a pause,
// Clear, the signature again, slightly different each time. Pauses while somebody else writes. GUI
// thread only.
class SigningPen : public QObject {
 public:
  // `pads` are in the order of the application's provider list.
  SigningPen(ApplicationWindow& window, std::vector<DemonstrationPad> pads);

  // Lifts the pen. It begins a new signature some seconds after the last call. To be called when
  // somebody else writes on the open pad, or closes it.
  void standBack();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void beginSignature(int inMilliseconds);
  void write();

  ApplicationWindow& m_window;
  const std::vector<DemonstrationPad> m_pads;
  std::vector<virtualpads::PenState> m_signature;
  virtualpads::VirtualBus::Port m_port = 0;  // the pad that the application has open
  std::size_t m_written = 0;                 // samples of the signature that are on the pad
  bool m_clean = true;                       // nothing has been written since the last Clear
  std::uint32_t m_signatures = 0;            // signatures begun so far
  QElapsedTimer m_clock;                     // the pad's
  qint64 m_begin = 0;                        // when the signature begins, by that clock
  QTimer m_timer;
};

}  // namespace demonstration

#endif
