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

FeatureTable::FeatureTable(const std::vector<PadReport>& reports)
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
  for (const PadReport& report : reports) {
    if (report.canGet()) addRow(report.id, Direction::Get, report.name);
    if (report.canSet()) addRow(report.id, Direction::Set, report.name);
  }
}

void FeatureTable::take(const WatchedPad::FeatureReport& report) {
  const int row = rowOf(report);
  item(row, Column::Count)
      ->setText(QString::number(++m_rows.at(static_cast<std::size_t>(row)).count));
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
  const auto known = std::ranges::find_if(
      m_rows, [&](const Row& row) { return row.id == id && row.direction == report.direction; });
  if (known != m_rows.end()) return static_cast<int>(std::distance(m_rows.begin(), known));
  return addRow(id, report.direction, "(not of this pad)");
}

int FeatureTable::addRow(std::uint8_t id, Direction direction, const char* name) {
  const int row = rowCount();
  m_rows.push_back({id, direction, 0});
  insertRow(row);
  const QString texts[Column::Columns] = {
      QString::number(id), direction == Direction::Get ? "get" : "set", name, "0", ""};
  for (int column = 0; column < Column::Columns; ++column)
    setItem(row, column, new QTableWidgetItem(texts[column]));
  item(row, Column::LastBytes)->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  return row;
}

}  // namespace virtualpads
