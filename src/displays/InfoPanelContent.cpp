#include "displays/InfoPanelContent.h"

#include <cmath>

#include "core/ChannelLayout.h"
#include "core/NumberFormat.h"
#include "displays/TimeFormat.h"

namespace corvane {

namespace {

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

constexpr const char* kDash = "\u2014";

// The figures of the offline source: a selection's analysis before the file's metrics.
struct OfflineFigures {
  float integrated = 0, speechGated = 0, maxMomentary = 0, maxShortTerm = 0, truePeak = 0, samplePeak = 0,
        loudnessRange = 0;
  float headroom = 0, noiseFloor = 0, speechPercentage = 0;
  int dynamicRange = -1;
  const std::vector<float>* peak = nullptr;
  const std::vector<float>* truePeakByChannel = nullptr;
  const std::vector<float>* rms = nullptr;
  bool fromSelection = false;
};

std::optional<OfflineFigures> offlineFigures(const InfoPanelReadings& r) {
  if (const auto* s = r.selectionAnalysis.get()) {
    return OfflineFigures{s->integratedLUFS, s->speechGatedLUFS, s->maxMomentaryLUFS, s->maxShortTermLUFS,
                          s->truePeakDB, s->samplePeakDB, s->loudnessRange, s->headroomDB,
                          s->speechGatedNoiseFloorDBRMS, s->speechPercentage, s->dynamicRange,
                          &s->peakDB, &s->truePeakDBByChannel, &s->rmsDB, true};
  }
  if (const auto& m = r.fileMetrics) {
    return OfflineFigures{m->integratedLUFS, m->speechGatedLUFS, m->maxMomentaryLUFS, m->maxShortTermLUFS,
                          m->truePeakDB, m->samplePeakDB, m->loudnessRange, m->headroomDB,
                          m->speechGatedNoiseFloorDBRMS, m->speechPercentage, m->dynamicRange,
                          &m->channelPeakDB, &m->channelTruePeakDB, &m->channelRMSDB, false};
  }
  return std::nullopt;
}

std::vector<std::string> fileChannelLabels(const InfoPanelReadings& r, int count) {
  std::vector<std::string> labels = r.file ? r.file->channelLabels() : ChannelLayout(count).channelLabels();
  if (static_cast<int>(labels.size()) < count) labels = ChannelLayout(count).channelLabels();
  return labels;
}

}  // namespace

QString formatLevel(float level) {
  if (!std::isfinite(level)) return QString::fromUtf8(kDash);
  return text(formatFixed(level, 1));
}

QString formatRMS(float linear) {
  if (!(linear > 0.0f) || !std::isfinite(linear)) return QString::fromUtf8(kDash);
  return text(formatFixed(20.0 * std::log10(static_cast<double>(linear)), 1)) + QStringLiteral(" dB");
}

std::vector<InfoRow> fileInfoRows(const AudioFileModel& file) {
  std::vector<InfoRow> rows;
  rows.push_back({QStringLiteral("Name"), text(file.name)});
  rows.push_back({QStringLiteral("Format"), text(file.fileFormat)});
  rows.push_back({QStringLiteral("Size"), text(file.fileSizeFormatted())});
  rows.push_back({QStringLiteral("Length"), text(formatTime(file.duration, 0.001))});
  rows.push_back({QStringLiteral("Sample Rate"), text(file.sampleRateFormatted())});
  rows.push_back({QStringLiteral("Encoding"), text(file.encodingLabel())});
  rows.push_back({QStringLiteral("Channels"),
                  QStringLiteral("%1 (%2)").arg(file.channelCount).arg(text(file.channelLayout().displayName()))});
  if (file.rawFormat) rows.push_back({QStringLiteral("Declared"), text(file.rawFormat->summary())});
  return rows;
}

ChannelSection channelSection(const InfoPanelReadings& r) {
  ChannelSection section;
  const bool post = r.monitorMode == MonitorMode::post;
  section.title = post ? QStringLiteral("Output") : QStringLiteral("Channels");
  if (post && r.isPlaying) {
    const ChannelLayout layout(r.outputChannelCount);
    const auto labels = layout.channelLabels();
    for (int c = 0; c < r.outputChannelCount; ++c) {
      const float rms = c < static_cast<int>(r.outputChannelRMS.size()) ? r.outputChannelRMS[static_cast<std::size_t>(c)] : 0.0f;
      section.rows.push_back({text(labels[static_cast<std::size_t>(c)]), layout.color(c), rms, formatRMS(rms)});
    }
    return section;
  }
  if (!r.file) return section;
  const int channels = r.file->channelCount;
  // In post mode while stopped the output's layout names the rows, the file's levels fill them.
  const std::vector<std::string> labels =
      post ? ChannelLayout(std::max(r.outputChannelCount, channels)).channelLabels() : fileChannelLabels(r, channels);
  const ChannelLayout layout = post ? ChannelLayout(std::max(r.outputChannelCount, channels)) : r.file->channelLayout();
  for (int c = 0; c < channels; ++c) {
    const float rms = c < static_cast<int>(r.channelRMS.size()) ? r.channelRMS[static_cast<std::size_t>(c)] : 0.0f;
    section.rows.push_back({text(labels[static_cast<std::size_t>(c)]), layout.color(c), rms, formatRMS(rms)});
  }
  return section;
}

DisplayLoudness displayLoudness(const InfoPanelReadings& r) {
  DisplayLoudness d;
  if (r.loudnessDisplayMode == LoudnessDisplayMode::live) {
    d.integratedLUFS = r.integratedLUFS;
    d.dialogGatedLUFS = r.speechGatedLUFS;
    d.maxShortTermLUFS = r.maxShortTermLUFS;
    d.truePeakDB = r.truePeakDB;
    d.samplePeakDB = r.samplePeakDB;
    d.speechPercentage = r.speechPercentage;
    d.noiseFloorDBRMS = r.speechGatedNoiseFloorDBRMS;
    d.loudnessRange = r.loudnessRange;
    return d;
  }
  const auto offline = offlineFigures(r);
  if (!offline) return d;
  d.hasOfflineSource = true;
  d.integratedLUFS = offline->integrated;
  d.dialogGatedLUFS = offline->speechGated;
  d.maxShortTermLUFS = offline->maxShortTerm;
  d.maxMomentaryLUFS = offline->maxMomentary;
  d.truePeakDB = offline->truePeak;
  d.samplePeakDB = offline->fromSelection ? offline->samplePeak : r.samplePeakDB;
  if (!std::isfinite(d.samplePeakDB)) d.samplePeakDB = offline->samplePeak;
  d.speechPercentage = offline->speechPercentage;
  d.noiseFloorDBRMS = offline->noiseFloor;
  d.loudnessRange = offline->loudnessRange;
  return d;
}

LoudnessSection loudnessSection(const InfoPanelReadings& r) {
  LoudnessSection section;
  const bool live = r.loudnessDisplayMode == LoudnessDisplayMode::live;
  std::optional<OfflineFigures> offline;
  if (!live) offline = offlineFigures(r);
  if (!live && !offline && r.isAnalysing) {
    section.note = QString::fromUtf8(kAnalysingFileNote);
    return section;
  }
  const DisplayLoudness d = displayLoudness(r);
  const auto row = [&](const char* label, const char* sublabel, float level, std::optional<float> threshold,
                       const char* heading = "") {
    section.rows.push_back(LUFSRow{QString::fromUtf8(label), QString::fromUtf8(sublabel), formatLevel(level), threshold,
                                   level, QString::fromUtf8(heading)});
  };
  row("Integrated", "I", d.integratedLUFS, -14.0f);
  row("Integrated", "SG-I", d.dialogGatedLUFS, -27.0f, "Speech-Gated");
  if (live) {
    row("Momentary", "M", r.momentaryLUFS, -9.0f);
    row("Short-term", "S", r.shortTermLUFS, -14.0f);
  } else {
    row("Max Momentary", "M\u2191", d.maxMomentaryLUFS, -9.0f);
    row("Max Short-term", "S\u2191", d.maxShortTermLUFS, -15.0f);
  }
  row("True Peak", "dBTP", d.truePeakDB, std::nullopt);
  if (std::isfinite(d.samplePeakDB)) row("Sample Peak", "dBFS", d.samplePeakDB, std::nullopt);

  const auto extra = [&](const QString& label, const QString& value) { section.extras.push_back({label, value}); };
  const QString noiseFloor = std::isfinite(d.noiseFloorDBRMS)
                                 ? text(formatFixed(d.noiseFloorDBRMS, 1)) + QStringLiteral(" dB RMS (non-speech)")
                                 : QString::fromUtf8(kDash);
  extra(QStringLiteral("Range"), text(formatFixed(d.loudnessRange, 1)) + QStringLiteral(" LU"));
  if (offline) {
    extra(QStringLiteral("Dynamic Range"), offline->dynamicRange >= 0
                                               ? text(formatFixed(offline->dynamicRange, 1)) + QStringLiteral(" dB")
                                               : QString::fromUtf8(kDash));
    extra(QStringLiteral("Headroom"), std::isfinite(offline->samplePeak)
                                          ? text(formatSigned(offline->headroom, 1)) + QStringLiteral(" dB")
                                          : QString::fromUtf8(kDash));
  }
  extra(QStringLiteral("Noise Floor"), noiseFloor);
  extra(QStringLiteral("Speech"), text(formatFixed(d.speechPercentage, 1)) + QStringLiteral(" %"));
  if (offline) {
    extra(offline->fromSelection ? QStringLiteral("Per-Channel (selection)") : QStringLiteral("Per-Channel (full file)"),
          QString());
    const int channels = static_cast<int>(offline->peak->size());
    const auto labels = fileChannelLabels(r, channels);
    for (int c = 0; c < channels; ++c) {
      const auto at = [c](const std::vector<float>* v) {
        return c < static_cast<int>(v->size()) ? (*v)[static_cast<std::size_t>(c)] : InfoPanelReadings::kNone;
      };
      extra(text(labels[static_cast<std::size_t>(c)]),
            QStringLiteral("Pk %1 · TP %2 · RMS %3").arg(formatLevel(at(offline->peak)), formatLevel(at(offline->truePeakByChannel)),
                                                         formatLevel(at(offline->rms))));
    }
  }
  return section;
}

}  // namespace corvane
