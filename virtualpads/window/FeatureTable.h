// The feature reports of a pad, with the last one of each.
#ifndef VIRTUALPADS_WINDOW_FEATURETABLE_H
#define VIRTUALPADS_WINDOW_FEATURETABLE_H

#include <QTableWidget>
#include <vector>

#include "virtualpads/window/PadPortrait.h"

namespace virtualpads {

// GUI thread only.
class FeatureTable : public QTableWidget {
  Q_OBJECT

 public:
  enum Column { Id, Way, Name, Count, LastBytes, Columns };

  explicit FeatureTable(const std::vector<NamedReport>& reports);

  // Counts the report and shows its bytes. An unknown report gets a row of its own at the end.
  void take(const WatchedPad::FeatureReport& report);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 private:
  QSize sizeForRows(int rows) const;
  int rowOf(const WatchedPad::FeatureReport& report);
  int addRow(const NamedReport& report);

  std::vector<NamedReport> m_reports;  // of each row
  std::vector<int> m_counts;
};

}  // namespace virtualpads

#endif
