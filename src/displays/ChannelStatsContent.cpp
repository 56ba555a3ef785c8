#include "displays/ChannelStatsContent.h"

#include <algorithm>
#include <cmath>

#include "core/NumberFormat.h"
#include "displays/TimeFormat.h"

namespace corvane {

namespace {

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

float at(const std::vector<float>& values, int c) {
  return c < static_cast<int>(values.size()) ? values[static_cast<std::size_t>(c)] : -INFINITY;
}

// Samples of `channel`'s clipped runs that lie in [first, end).
std::int64_t clippedSamples(const AudioFileModel& file, int channel, FrameCount first, FrameCount end) {
  if (channel >= static_cast<int>(file.clipRegions.size())) return 0;
  std::int64_t count = 0;
  for (const ClipRegion& region : file.clipRegions[static_cast<std::size_t>(channel)]) {
    const FrameCount from = std::max(region.first, first);
    const FrameCount to = std::min(region.last + 1, end);
    if (to > from) count += to - from;
  }
  return count;
}

}  // namespace

QStringList ChannelStatRow::cells() const {
  const auto level = [](float v) { return std::isfinite(v) ? text(formatFixed(v, 2)) : QStringLiteral("-inf"); };
  return {label,
          level(peak),
          level(trueP),
          level(rms),
          level(crest),
          dr ? QString::number(*dr) : QStringLiteral("\u2014"),
          QString::number(clipped),
          text(formatSigned(dc, 4))};
}

QStringList channelStatColumns() {
  return {QStringLiteral("Channel"), QStringLiteral("Sample Pk"), QStringLiteral("True Pk"), QStringLiteral("RMS"),
          QStringLiteral("Crest"),   QStringLiteral("DR"),        QStringLiteral("Clipped"), QStringLiteral("DC")};
}

std::vector<ChannelStatRow> statRows(const AudioFileModel& file, const std::optional<SlotMetrics>& metrics,
                                     const SelectionAnalysisResult* selection, StatsScope scope) {
  std::vector<ChannelStatRow> rows;
  const int channels = file.channelCount;
  const std::vector<std::string> labels = file.channelLabels();
  const ChannelLayout layout = file.channelLayout();
  const auto drOf = [](const std::vector<int>& values, int c) -> std::optional<int> {
    if (c >= static_cast<int>(values.size()) || values[static_cast<std::size_t>(c)] < 0) return std::nullopt;
    return values[static_cast<std::size_t>(c)];
  };
  if (scope == StatsScope::fullFile) {
    if (!metrics) return rows;
    for (int c = 0; c < channels; ++c) {
      ChannelStatRow row;
      row.id = c;
      row.label = c < static_cast<int>(labels.size()) ? text(labels[static_cast<std::size_t>(c)])
                                                      : QStringLiteral("Ch%1").arg(c + 1);
      row.color = layout.color(c);
      row.peak = at(metrics->channelPeakDB, c);
      row.trueP = at(metrics->channelTruePeakDB, c);
      row.rms = at(metrics->channelRMSDB, c);
      row.crest = at(metrics->channelCrestFactorDB, c);
      row.dr = drOf(metrics->channelDR, c);
      row.clipped = clippedSamples(file, c, 0, file.totalFrames);
      const float dc = at(metrics->channelDCOffset, c);
      row.dc = std::isfinite(dc) ? dc : 0.0f;
      rows.push_back(row);
    }
    return rows;
  }
  if (!selection) return rows;
  const auto first = static_cast<FrameCount>(std::floor(selection->timeRange.lower * file.sampleRate));
  const auto end = static_cast<FrameCount>(std::ceil(selection->timeRange.upper * file.sampleRate));
  for (int c = 0; c < channels; ++c) {
    ChannelStatRow row;
    row.id = c;
    row.label = c < static_cast<int>(labels.size()) ? text(labels[static_cast<std::size_t>(c)]) : QStringLiteral("Ch%1").arg(c + 1);
    row.color = layout.color(c);
    row.peak = at(selection->peakDB, c);
    row.trueP = at(selection->truePeakDBByChannel, c);
    row.rms = at(selection->rmsDB, c);
    row.crest = at(selection->crestFactorDB, c);
    row.dr = drOf(selection->channelDR, c);
    row.clipped = clippedSamples(file, c, first, end);
    const float dc = at(selection->dcOffset, c);
    row.dc = std::isfinite(dc) ? dc : 0.0f;
    rows.push_back(row);
  }
  return rows;
}

QString channelStatsHeader(StatsScope scope, const SelectionAnalysisResult* selection) {
  if (scope == StatsScope::fullFile || !selection) return QStringLiteral("Full file");
  return QStringLiteral("Selection  %1 to %2")
      .arg(text(timeLabel(selection->timeRange.lower)), text(timeLabel(selection->timeRange.upper)));
}

}  // namespace corvane
