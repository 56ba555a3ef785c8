#include "displays/ChannelStatsView.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

#include "displays/ChannelColors.h"
#include "displays/SegmentedControl.h"

namespace corvane {

ChannelStatsView::ChannelStatsView(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(10, 10, 10, 10);
  auto* header = new QHBoxLayout;
  _header = new QLabel(this);
  _header->setObjectName(QStringLiteral("stats.header"));
  QFont bold = _header->font();
  bold.setBold(true);
  _header->setFont(bold);
  _scopeSwitch = new SegmentedControl({QStringLiteral("Full File"), QStringLiteral("Selection")}, this);
  _scopeSwitch->setObjectName(QStringLiteral("stats.scope"));
  header->addWidget(_header, 1);
  header->addWidget(_scopeSwitch);
  layout->addLayout(header);
  _note = new QLabel(this);
  _note->setObjectName(QStringLiteral("stats.note"));
  _note->setAlignment(Qt::AlignCenter);
  _note->setWordWrap(true);
  layout->addWidget(_note, 1);
  _table = new QTableWidget(this);
  _table->setObjectName(QStringLiteral("stats.table"));
  _table->setColumnCount(static_cast<int>(channelStatColumns().size()));
  _table->setHorizontalHeaderLabels(channelStatColumns());
  _table->verticalHeader()->hide();
  _table->setEditTriggers(QAbstractItemView::NoEditTriggers);
  _table->setSelectionMode(QAbstractItemView::NoSelection);
  const int widths[] = {wLabel, wPeak, wTrue, wRMS, wCrest, wDR, wClipped, wDC};
  for (int c = 0; c < 8; ++c) _table->setColumnWidth(c, widths[c]);
  layout->addWidget(_table, 1);
  connect(_scopeSwitch, &SegmentedControl::activated, this,
          [this](int index) { setScope(index == 0 ? StatsScope::fullFile : StatsScope::selection); });
  refresh();
}

void ChannelStatsView::setData(std::shared_ptr<const AudioFileModel> file, std::optional<SlotMetrics> metrics,
                               std::shared_ptr<const SelectionAnalysisResult> selection, bool isAnalysing) {
  _file = std::move(file);
  _metrics = std::move(metrics);
  _selection = std::move(selection);
  _isAnalysing = isAnalysing;
  if (!_selection) _scope = StatsScope::fullFile;
  refresh();
}

void ChannelStatsView::setScope(StatsScope scope) {
  if (scope == StatsScope::selection && !_selection) scope = StatsScope::fullFile;
  _scope = scope;
  refresh();
}

void ChannelStatsView::refresh() {
  _scopeSwitch->setCurrentIndex(_scope == StatsScope::fullFile ? 0 : 1);
  _scopeSwitch->setSegmentEnabled(1, static_cast<bool>(_selection));
  _header->setText(channelStatsHeader(_scope, _selection.get()));
  _rows = _file ? statRows(*_file, _metrics, _selection.get(), _scope) : std::vector<ChannelStatRow>{};
  if (_rows.empty()) {
    _note->setText(QString::fromUtf8(_file ? kStatsAnalysingNote : kStatsNoFileNote));
    _note->show();
    _table->hide();
    return;
  }
  _note->hide();
  _table->show();
  _table->setRowCount(static_cast<int>(_rows.size()));
  for (int r = 0; r < static_cast<int>(_rows.size()); ++r) {
    const QStringList cells = _rows[static_cast<std::size_t>(r)].cells();
    for (int c = 0; c < cells.size(); ++c) {
      auto* item = _table->item(r, c);
      if (!item) {
        item = new QTableWidgetItem;
        _table->setItem(r, c, item);
      }
      item->setText(cells[c]);
      item->setTextAlignment(c == 0 ? Qt::AlignLeft | Qt::AlignVCenter : Qt::AlignRight | Qt::AlignVCenter);
      if (c == 0) item->setForeground(channelQColor(_rows[static_cast<std::size_t>(r)].color));
    }
  }
}

}  // namespace corvane
