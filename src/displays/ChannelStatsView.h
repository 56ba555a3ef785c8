// ChannelStatsView: the per-channel statistics table of the loaded file, for the whole file or
// the selection's analysis, in fixed-width columns.
//
// Without a file it says "Load a file to see per-channel statistics."; with a file whose figures
// have not landed, "Analysing… per-channel statistics will appear shortly.". The scope switch
// offers "Selection" only while a selection analysis exists, and falls back to the whole file
// when it goes away.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <memory>
#include <optional>

#include "displays/ChannelStatsContent.h"

class QLabel;
class QTableWidget;

namespace corvane {

class SegmentedControl;

class ChannelStatsView : public QWidget {
  Q_OBJECT

 public:
  // Column widths, pixels: label, sample peak, true peak, RMS, crest, DR, clipped, DC.
  static constexpr int wLabel = 72, wPeak = 76, wTrue = 76, wRMS = 76, wCrest = 66, wDR = 44, wClipped = 70, wDC = 82;

  explicit ChannelStatsView(QWidget* parent = nullptr);

  // What to show. `isAnalysing`: figures are on their way (a file without metrics yet).
  void setData(std::shared_ptr<const AudioFileModel> file, std::optional<SlotMetrics> metrics,
               std::shared_ptr<const SelectionAnalysisResult> selection, bool isAnalysing);

  StatsScope scope() const { return _scope; }
  void setScope(StatsScope scope);
  const std::vector<ChannelStatRow>& rows() const { return _rows; }
  QTableWidget* table() const { return _table; }

 private:
  void refresh();

  std::shared_ptr<const AudioFileModel> _file;
  std::optional<SlotMetrics> _metrics;
  std::shared_ptr<const SelectionAnalysisResult> _selection;
  bool _isAnalysing = false;
  StatsScope _scope = StatsScope::fullFile;
  std::vector<ChannelStatRow> _rows;

  QLabel* _header;
  SegmentedControl* _scopeSwitch;
  QLabel* _note;
  QTableWidget* _table;
};

}  // namespace corvane
