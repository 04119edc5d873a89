// The pen that signs by itself, at the speed of a hand, on whichever pad the application has open.
#ifndef VIRTUALPADS_DEMONSTRATION_SIGNINGPEN_H
#define VIRTUALPADS_DEMONSTRATION_SIGNINGPEN_H

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <cstdint>
#include <vector>

#include "ApplicationWindow.h"
#include "DemonstrationPad.h"
#include "virtualpads/PadModel.h"

namespace demonstration {

// Writes from the moment the application is connected until it is reset: the signature, a pause,
// the signature again at the same place. It stands back while somebody else writes. For the GUI
// thread.
class SigningPen : public QObject {
 public:
  // `pads` are in the order of the application's provider list.
  SigningPen(ApplicationWindow& window, std::vector<DemonstrationPad> pads);

  // Somebody else writes on the open pad: this pen is lifted, and begins a new signature once the
  // other one has been away for some seconds.
  void standBack();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void beginSignature(int inMilliseconds);
  void write();

  ApplicationWindow& m_window;
  const std::vector<DemonstrationPad> m_pads;
  const std::vector<virtualpads::PenState> m_signature;
  virtualpads::VirtualBus::Port m_port = 0;  // the pad that the application has open
  std::size_t m_written = 0;                 // samples of the signature that are on the pad
  int m_signatures = 0;                      // signatures that are finished
  std::uint32_t m_padClock = 0;  // the pad's milliseconds at the beginning of the signature
  int m_wait = 0;                // milliseconds from m_sinceWait to that beginning
  QElapsedTimer m_sinceWait;
  QTimer m_timer;
};

}  // namespace demonstration

#endif
