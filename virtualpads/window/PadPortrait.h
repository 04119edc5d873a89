// How a pad is shown in a PadWindow: its surface and its state.
#ifndef VIRTUALPADS_WINDOW_PADPORTRAIT_H
#define VIRTUALPADS_WINDOW_PADPORTRAIT_H

#include <QFormLayout>
#include <QLabel>
#include <QVBoxLayout>
#include <QWidget>
#include <memory>

#include "virtualpads/PadModel.h"
#include "virtualpads/window/PadSurface.h"
#include "virtualpads/window/WatchedPad.h"

namespace virtualpads {

// The widget shows the state. GUI thread only.
class PadPortrait : public QWidget {
 public:
  // Shows what every pad has: its ids and its size.
  explicit PadPortrait(const PadModel& pad);

  // Called for what happened to the pad, in the order in which it happened.
  virtual void penMoved(const PenState&) {}
  virtual void featureReport(const WatchedPad::FeatureReport&) {}

  // Shows the model's current state, after all that happened.
  virtual void showState(const PadModel& pad) = 0;

  virtual SurfaceView surface() const = 0;

 protected:
  // Appends a row: a title, and a label with that object name for the value.
  QLabel* addState(const QString& title, const char* objectName);
  void addState(const QString& title, QLayout* value);
  // Appends a layout below all rows.
  void addBelow(QLayout* layout);

 private:
  QVBoxLayout* m_parts;
  QFormLayout* m_form;
};

// A portrait for that model. A kind of pad without a portrait of its own gets that of the pads
// without a display.
std::unique_ptr<PadPortrait> makePortrait(const PadModel& pad);

}  // namespace virtualpads

#endif
