// The per-channel statistics table, apart from its window: one row per channel for the whole
// file (its metrics) or the selection (its analysis), and the strings each column shows.
//
// Columns, in order: "Channel", "Sample Pk", "True Pk", "RMS", "Crest", "DR", "Clipped", "DC".
// The four level columns read "%.2f" (dB), DC "%+.4f" (linear), DR and Clipped whole numbers;
// a channel without a DR value reads "—". Clipped counts the samples of the channel's clipped
// runs (threshold 0.9999) inside the scope.
//
// Thread class: pure functions over plain values, any thread.
#pragma once

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

#include "core/ChannelLayout.h"
#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/SlotMetrics.h"

namespace corvane {

enum class StatsScope { fullFile, selection };

struct ChannelStatRow {
  int id = 0;
  QString label;  // the layout's label, or "Ch<n>"
  ChannelColor color = ChannelColor::cyan;
  float peak = 0.0f;   // dBFS
  float trueP = 0.0f;  // dBTP
  float rms = 0.0f;    // dBFS
  float crest = 0.0f;  // dB
  std::optional<int> dr;
  std::int64_t clipped = 0;
  float dc = 0.0f;

  // The row as the table shows it, column by column.
  QStringList cells() const;
};

// The column headings.
QStringList channelStatColumns();

// The rows of `scope`: from `metrics` for the whole file, from `selection` for a selection;
// empty when that source is missing.
std::vector<ChannelStatRow> statRows(const AudioFileModel& file, const std::optional<SlotMetrics>& metrics,
                                     const SelectionAnalysisResult* selection, StatsScope scope);

// What the panel says instead of a table.
inline constexpr const char* kStatsAnalysingNote = "Analysing\u2026 per-channel statistics will appear shortly.";
inline constexpr const char* kStatsNoFileNote = "Load a file to see per-channel statistics.";

// The panel's header: "Full file", or "Selection  0:01.50 to 0:03.25" (timeLabel ends).
QString channelStatsHeader(StatsScope scope, const SelectionAnalysisResult* selection);

}  // namespace corvane
