// The pads without a display: the USB pad and the pad II. Shows what the pen wrote last as a trace
// that the real pad does not have, so that users see what they write.
#ifndef VIRTUALPADS_WINDOW_PLAINPORTRAIT_H
#define VIRTUALPADS_WINDOW_PLAINPORTRAIT_H

#include "virtualpads/window/InkSheet.h"
#include "virtualpads/window/PadPortrait.h"

namespace virtualpads {

class PlainPortrait : public PadPortrait {
 public:
  explicit PlainPortrait(const PadModel& pad);

  void penMoved(const PenState& pen) override;
  void showState(const PadModel& pad) override;
  SurfaceView surface() const override;

 private:
  InkSheet m_lastStroke;
  bool m_down = false;
};

class IiPortrait : public PlainPortrait {
 public:
  explicit IiPortrait(const PadModel& pad);

  void showState(const PadModel& pad) override;

 private:
  QLabel* m_serialNumber;
};

}  // namespace virtualpads

#endif
