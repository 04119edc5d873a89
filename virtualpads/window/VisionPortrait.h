// The vision pad: its mode, the ink that it takes in pen mode, and the keep-alive.
#ifndef VIRTUALPADS_WINDOW_VISIONPORTRAIT_H
#define VIRTUALPADS_WINDOW_VISIONPORTRAIT_H

#include <QTimer>

#include "virtualpads/window/InkSheet.h"
#include "virtualpads/window/PadPortrait.h"

namespace virtualpads {

class Lamp : public QWidget {
  Q_OBJECT

 public:
  Lamp();

  void setLit(bool lit);
  bool lit() const { return m_lit; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool m_lit = false;
};

class VisionPortrait : public PadPortrait {
 public:
  explicit VisionPortrait(const PadModel& pad);

  void penMoved(const PenState& pen) override;
  void featureReport(const WatchedPad::FeatureReport& report) override;
  void showState(const PadModel& pad) override;
  SurfaceView surface() const override;

 private:
  InkSheet m_ink;
  int m_mode = 0;
  QLabel* m_modeText;
  Lamp* m_lamp;
  QLabel* m_keepAlives;
  QLabel* m_resets;
  QLabel* m_clears;
  QLabel* m_inkRegion;
  QLabel* m_serialNumber;
  QTimer m_keptAlive;  // runs from a keep-alive until the lamp goes out
};

}  // namespace virtualpads

#endif
