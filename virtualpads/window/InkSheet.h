// A sheet that takes ink, for pads whose own screen the models do not draw.
#ifndef VIRTUALPADS_WINDOW_INKSHEET_H
#define VIRTUALPADS_WINDOW_INKSHEET_H

#include <QColor>
#include <QImage>
#include <optional>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// GUI thread only.
class InkSheet {
 public:
  // A sheet of the size of the pad's surface, without ink.
  InkSheet(const PadModel& pad, QColor ink);

  // Follows the pen; draws where it touches and `inking` is true.
  void movePen(const PenState& pen, bool inking);
  void wipe();

  // The ink on paper of that colour.
  QImage picture(QColor paper) const;

 private:
  QImage m_sheet;  // transparent where there is no ink
  QColor m_ink;
  std::optional<QPointF> m_penDownAt;
};

}  // namespace virtualpads

#endif
