// A pad in a window, to write on with the mouse or a tablet, which also shows what a program put on
// the pad.
//
// The window knows nothing of the pad's face. It receives the pad's events from a WatchedPad, and
// sends the pen through a function.
#ifndef VIRTUALPADS_WINDOW_PADWINDOW_H
#define VIRTUALPADS_WINDOW_PADWINDOW_H

#include <QLabel>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "virtualpads/window/FeatureTable.h"
#include "virtualpads/window/PadPortrait.h"
#include "virtualpads/window/PadSurface.h"
#include "virtualpads/window/WatchedPad.h"

namespace virtualpads {

// GUI thread only; the pad may be used on any thread in the meantime.
class PadWindow : public QWidget {
 public:
  // Sends the pen's report, made by the pad's inputReport. Called on the GUI thread, 200 times a
  // second while somebody writes in the window; must not wait for long.
  using SendPen = std::function<void(const PenState&)>;

  // The window observes the pad for as long as it lives. It may be created before or after the pad
  // is plugged. Its title names the pad and says that it is virtual.
  PadWindow(std::shared_ptr<WatchedPad> pad, SendPen sendPen);
  ~PadWindow() override;

 private:
  void receive(const WatchedPad::Event& event);
  void catchUp();
  void take(const WatchedPad::InputReport& report);
  void take(const WatchedPad::FeatureReport& report);

  const std::shared_ptr<WatchedPad> m_pad;
  PadSurface* m_surface;
  PadPortrait* m_portrait;
  FeatureTable* m_features;
  QLabel* m_pen;
  QLabel* m_inputReport;
  QTimer m_nextFrame;

  std::mutex m_inboxMutex;
  std::vector<WatchedPad::Event> m_inbox;  // guarded by m_inboxMutex
};

}  // namespace virtualpads

#endif
