#include "virtualpads/window/FeatureTable.h"

#include <QFontDatabase>
#include <QHeaderView>
#include <QScrollBar>
#include <algorithm>
#include <iterator>

#include "virtualpads/window/HexText.h"

namespace virtualpads {

namespace {

constexpr int kComfortableRows = 6;
constexpr int kFewestRows = 3;
constexpr int kRowPadding = 6;
constexpr int kNarrowestColumn = 56;

}  // namespace

FeatureTable::FeatureTable(const std::vector<NamedReport>& reports)
    : QTableWidget(0, Column::Columns) {
  setHorizontalHeaderLabels({"Id", "Way", "Feature report", "Count", "Last bytes"});
  setObjectName("featureTable");
  setAccessibleName("Feature reports");
  setEditTriggers(NoEditTriggers);
  setSelectionBehavior(SelectRows);
  setHorizontalScrollMode(ScrollPerPixel);
  setShowGrid(false);
  verticalHeader()->hide();
  verticalHeader()->setDefaultSectionSize(fontMetrics().height() + kRowPadding);
  horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
  horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  horizontalHeader()->setHighlightSections(false);
  horizontalHeader()->setMinimumSectionSize(kNarrowestColumn);
  for (const NamedReport& report : reports) addRow(report);
}

void FeatureTable::take(const WatchedPad::FeatureReport& report) {
  const int row = rowOf(report);
  item(row, Column::Count)->setText(QString::number(++m_counts.at(static_cast<std::size_t>(row))));
  item(row, Column::LastBytes)
      ->setText((report.accepted ? "" : "refused: ") + hexText(report.bytes));
}

QSize FeatureTable::sizeHint() const {
  return sizeForRows(std::min(rowCount(), kComfortableRows));
}

QSize FeatureTable::minimumSizeHint() const {
  return sizeForRows(std::min(rowCount(), kFewestRows));
}

QSize FeatureTable::sizeForRows(int rows) const {
  const int height = horizontalHeader()->sizeHint().height() +
                     rows * verticalHeader()->defaultSectionSize() +
                     horizontalScrollBar()->sizeHint().height() + 2 * frameWidth();
  return {QTableWidget::sizeHint().width(), height};
}

int FeatureTable::rowOf(const WatchedPad::FeatureReport& report) {
  const std::uint8_t id = report.bytes.empty() ? std::uint8_t{0} : report.bytes.front();
  const auto known = std::ranges::find_if(m_reports, [&](const NamedReport& named) {
    return named.id == id && named.direction == report.direction;
  });
  if (known != m_reports.end()) return static_cast<int>(std::distance(m_reports.begin(), known));
  return addRow({id, report.direction, "(not of this pad)"});
}

int FeatureTable::addRow(const NamedReport& report) {
  const int row = rowCount();
  m_reports.push_back(report);
  m_counts.push_back(0);
  insertRow(row);
  const bool get = report.direction == WatchedPad::FeatureReport::Direction::Get;
  const QString texts[Column::Columns] = {QString::number(report.id), get ? "get" : "set",
                                          report.name, "0", ""};
  for (int column = 0; column < Column::Columns; ++column)
    setItem(row, column, new QTableWidgetItem(texts[column]));
  item(row, Column::LastBytes)->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  return row;
}

}  // namespace virtualpads
