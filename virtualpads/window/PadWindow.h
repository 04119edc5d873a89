// A pad on the screen: written on with the mouse or a tablet, and showing what a program put on it.
//
// The window knows nothing of the face that its pad is behind. It hears of the pad from a
// WatchedPad, and sends the pen through a function.
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

// For the GUI thread; the pad may be used on any thread meanwhile.
class PadWindow : public QWidget {
 public:
  // Puts the pen's report on the wire, by way of the pad's inputReport. Called on the GUI thread,
  // 200 times a second while somebody writes in the window; must not wait for long.
  using SendPen = std::function<void(const PenState&)>;

  // The window is the pad's observer for as long as it lives. It may be made before the pad is
  // plugged and afterwards. Its title says which pad it is, and that it is a virtual one.
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
