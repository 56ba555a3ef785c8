// What the info panel says, apart from any widget: the rows of the file, channel and loudness
// sections as text, from the values the session holds. InfoPanel (InfoPanel.h) lays these rows
// out; tests read them here and in the widget.
//
// Which loudness figure a row shows follows the display mode:
//   live     the running figures of the live meter (integrated, speech-gated, momentary,
//            short-term, true peak, loudness range);
//   offline  the selection's analysis if there is one, else the file's metrics, else nothing:
//            integrated, speech-gated, maximum momentary and short-term, true peak, and the
//            extras (range, dynamic range, headroom, noise floor, per-channel figures).
// The sample peak row stands only while the peak is finite. A level without a reading (−inf,
// or not measured yet) reads "—". Numbers are written in the C locale.
//
// Thread class: pure functions over plain values, any thread.
#pragma once

#include <QColor>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/SlotMetrics.h"
#include "playback/ChannelRouting.h"
#include "session/SettingsValues.h"

namespace corvane {

// Everything the panel is given. Levels in LUFS, dBTP, dBFS; −inf: no reading.
struct InfoPanelReadings {
  static constexpr float kNone = -std::numeric_limits<float>::infinity();

  std::shared_ptr<const AudioFileModel> file;  // null: no file
  // Live meter.
  float momentaryLUFS = kNone;
  float shortTermLUFS = kNone;
  float integratedLUFS = kNone;
  float loudnessRange = 0.0f;  // LU
  float truePeakDB = kNone;
  float speechGatedLUFS = kNone;
  float speechPercentage = 0.0f;
  float speechGatedNoiseFloorDBRMS = kNone;
  float maxShortTermLUFS = kNone;  // the live running maximum
  std::vector<float> channelRMS;        // linear, per file channel
  std::vector<float> outputChannelRMS;  // linear, per output of the graph
  int outputChannelCount = 0;
  bool isPlaying = false;
  MonitorMode monitorMode = MonitorMode::pre;
  // Offline.
  float samplePeakDB = kNone;  // the file's sample peak
  std::shared_ptr<const SelectionAnalysisResult> selectionAnalysis;
  std::optional<SlotMetrics> fileMetrics;
  bool isAnalysing = false;
  LoudnessDisplayMode loudnessDisplayMode = LoudnessDisplayMode::live;
};

struct InfoRow {
  QString label;
  QString value;
  friend bool operator==(const InfoRow&, const InfoRow&) = default;
};

// "Name", "Format", "Size", "Length", "Sample Rate", "Encoding", "Channels", and "Declared"
// for a file read under a declared raw format.
std::vector<InfoRow> fileInfoRows(const AudioFileModel& file);

struct ChannelLevelRow {
  QString label;
  ChannelColor color = ChannelColor::cyan;
  float rms = 0.0f;  // linear
  QString value;     // "-18.3 dB", or "—" for silence
};

struct ChannelSection {
  QString title;  // "Channels" (pre) or "Output" (post)
  std::vector<ChannelLevelRow> rows;
};

// One row per file channel with its label, colour and live RMS; while playing in post mode,
// one per output of the graph with the labels of that count's layout.
ChannelSection channelSection(const InfoPanelReadings& readings);

// A loudness row: label, the short form or unit beside it, the value, and the level above
// which the value is shown as loud (none for the peak rows).
struct LUFSRow {
  QString label;
  QString sublabel;
  QString value;
  std::optional<float> threshold;
  float level = InfoPanelReadings::kNone;
  bool isAboveThreshold() const { return threshold && std::isfinite(level) && level > *threshold; }
  // A heading line drawn above the row ("Speech-Gated"), or empty.
  QString heading;
};

struct LoudnessSection {
  std::vector<LUFSRow> rows;
  // Offline while the analysis runs and nothing has landed yet: "Analysing file…" stands in
  // place of the offline values (rows is empty then).
  std::optional<QString> note;
  // Rows under the readouts: range, dynamic range, headroom, noise floor, speech share, and
  // the per-channel block with its heading.
  std::vector<InfoRow> extras;
};

LoudnessSection loudnessSection(const InfoPanelReadings& readings);

// The readings the targets are judged by: integrated, speech-gated and maximum short-term as
// the display mode chooses (live or offline), true peak and noise floor likewise.
struct DisplayLoudness {
  float integratedLUFS = InfoPanelReadings::kNone;
  float dialogGatedLUFS = InfoPanelReadings::kNone;
  float maxShortTermLUFS = InfoPanelReadings::kNone;
  float maxMomentaryLUFS = InfoPanelReadings::kNone;
  float truePeakDB = InfoPanelReadings::kNone;
  float samplePeakDB = InfoPanelReadings::kNone;
  float speechPercentage = 0.0f;
  float noiseFloorDBRMS = InfoPanelReadings::kNone;
  float loudnessRange = 0.0f;
  bool hasOfflineSource = false;  // offline: a selection analysis or file metrics exists
};
DisplayLoudness displayLoudness(const InfoPanelReadings& readings);

// A level as a row shows it: "%.1f", or "—" for −inf / NaN.
QString formatLevel(float level);
// A linear RMS as dB: "%.1f dB", "—" for silence.
QString formatRMS(float linear);

inline constexpr const char* kAnalysingFileNote = "Analysing file\u2026";
inline constexpr const char* kChannelStatsButtonTip = "Open the per-channel statistics in a table window";

}  // namespace corvane
