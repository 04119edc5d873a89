// The feature reports of a pad, with the last one of each.
#ifndef VIRTUALPADS_WINDOW_FEATURETABLE_H
#define VIRTUALPADS_WINDOW_FEATURETABLE_H

#include <QTableWidget>
#include <vector>

#include "virtualpads/window/WatchedPad.h"

namespace virtualpads {

// GUI thread only.
class FeatureTable : public QTableWidget {
  Q_OBJECT

 public:
  enum Column { Id, Way, Name, Count, LastBytes, Columns };

  // Has a row for each way in which a feature report is exchanged; none for an input report.
  explicit FeatureTable(const std::vector<PadReport>& reports);

  // Counts the report and shows its bytes. An unknown report gets a row of its own at the end.
  void take(const WatchedPad::FeatureReport& report);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 private:
  using Direction = WatchedPad::FeatureReport::Direction;

  QSize sizeForRows(int rows) const;
  int rowOf(const WatchedPad::FeatureReport& report);
  int addRow(std::uint8_t id, Direction direction, const char* name);

  struct Row {
    std::uint8_t id;
    Direction direction;
    int count;
  };
  std::vector<Row> m_rows;
};

}  // namespace virtualpads

#endif
