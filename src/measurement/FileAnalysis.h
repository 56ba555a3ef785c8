// FileAnalysis: what the session knows of the loaded file from offline measurement: the
// file's loudness and stereo width curves, its speech-gated loudness and sample peak (landed
// by the load's third stage), the load-time spectrogram (fourth stage), and the result of the
// last selection analysis, and the pass that makes it (analyse / analyseSelection).
//
// The pass runs in the background over the transport's selection: the frames are captured on
// the main thread (a whole-file selection reads the shared buffer in place, any other is
// copied first), with the session's spectrum settings, the channels' loudness weights and the
// speech history chosen for the selection. Its landing is dropped when a load came in between
// (loadGeneration) and, for a pass that read the shared buffer, when an edit changed that
// buffer (bufferEpoch). A later pass is never refused: the one that lands last stands.
//
// Large arrays are immutable snapshots, replaced whole; a setter notifies only when the value
// really changes (for snapshots: another object, or from empty to not empty).
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QPointer>
#include <optional>
#include <vector>

#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "headless/pipelines/SlotMetrics.h"
#include "session/SessionTypes.h"

namespace corvane {

class AudioEngine;
class LoudnessTargets;
struct SelectionAnalysisOutput;

using LoudnessCurve = std::vector<LoudnessCurvePoint>;
using StereoWidthCurve = std::vector<StereoWidthCurvePoint>;

class FileAnalysis : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::Snapshot<corvane::SpectrogramColumns> offlineSpectrogramColumns READ offlineSpectrogramColumns
                 WRITE setOfflineSpectrogramColumns NOTIFY offlineSpectrogramColumnsChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::LoudnessCurve> fileLoudnessCurve READ fileLoudnessCurve WRITE setFileLoudnessCurve
                 NOTIFY fileLoudnessCurveChanged)
  Q_PROPERTY(float fileSpeechGatedLUFS READ fileSpeechGatedLUFS WRITE setFileSpeechGatedLUFS NOTIFY fileSpeechGatedLUFSChanged)
  Q_PROPERTY(float fileSamplePeakDB READ fileSamplePeakDB WRITE setFileSamplePeakDB NOTIFY fileSamplePeakDBChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::StereoWidthCurve> fileStereoWidthCurve READ fileStereoWidthCurve
                 WRITE setFileStereoWidthCurve NOTIFY fileStereoWidthCurveChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::SelectionAnalysisResult> selectionAnalysis READ selectionAnalysis
                 WRITE setSelectionAnalysis NOTIFY selectionAnalysisChanged)
  Q_PROPERTY(bool isAnalysing READ isAnalysing WRITE setIsAnalysing NOTIFY isAnalysingChanged)

 public:
  // Reads the session's file, selection, counters and settings from `engine` (its parent).
  explicit FileAnalysis(AudioEngine* engine);

  const Snapshot<SpectrogramColumns>& offlineSpectrogramColumns() const { return _offlineSpectrogramColumns; }
  void setOfflineSpectrogramColumns(Snapshot<SpectrogramColumns> columns);
  const Snapshot<LoudnessCurve>& fileLoudnessCurve() const { return _fileLoudnessCurve; }
  void setFileLoudnessCurve(Snapshot<LoudnessCurve> curve);
  // LUFS; −inf without speech or before the metrics land.
  float fileSpeechGatedLUFS() const { return _fileSpeechGatedLUFS; }
  void setFileSpeechGatedLUFS(float lufs);
  // dBFS; −inf for silence or before the metrics land.
  float fileSamplePeakDB() const { return _fileSamplePeakDB; }
  void setFileSamplePeakDB(float db);
  const Snapshot<StereoWidthCurve>& fileStereoWidthCurve() const { return _fileStereoWidthCurve; }
  void setFileStereoWidthCurve(Snapshot<StereoWidthCurve> curve);
  // None until an analysis lands; an analysis keeps its own time range.
  const Snapshot<SelectionAnalysisResult>& selectionAnalysis() const { return _selectionAnalysis; }
  void setSelectionAnalysis(Snapshot<SelectionAnalysisResult> result);
  bool isAnalysing() const { return _isAnalysing; }
  void setIsAnalysing(bool analysing);

  // The delivery targets, their verdicts against the readings, the match and the requests.
  LoudnessTargets& targets() { return *_targets; }
  const LoudnessTargets& targets() const { return *_targets; }

  // A new file is live: every figure of the one before goes, and a target match ends.
  void clearForFile();
  // The third stage of a load (or a compare slot's metrics going out): the file's curves and
  // figures from its metrics.
  void applyFileMetrics(const SlotMetrics& metrics);

  // "Analyse": with no selection, selects the whole file first; then analyseSelection().
  void analyse();
  // Starts a pass over the current selection; nothing without a selection or a loaded file.
  void analyseSelection();

 signals:
  void offlineSpectrogramColumnsChanged();
  void fileLoudnessCurveChanged();
  void fileSpeechGatedLUFSChanged();
  void fileSamplePeakDBChanged();
  void fileStereoWidthCurveChanged();
  void selectionAnalysisChanged();
  void isAnalysingChanged();

 private:
  void landSelectionAnalysis(quint64 generation, std::optional<quint64> sharedBufferEpoch,
                             SelectionAnalysisOutput output);

  QPointer<AudioEngine> _engine;
  LoudnessTargets* _targets;
  Snapshot<SpectrogramColumns> _offlineSpectrogramColumns;
  Snapshot<LoudnessCurve> _fileLoudnessCurve;
  float _fileSpeechGatedLUFS;
  float _fileSamplePeakDB;
  Snapshot<StereoWidthCurve> _fileStereoWidthCurve;
  Snapshot<SelectionAnalysisResult> _selectionAnalysis;
  bool _isAnalysing = false;
};

}  // namespace corvane
