#include "measurement/FileAnalysis.h"

#include <limits>
#include <memory>

#include "core/ChannelOrder.h"
#include "dialogue/DialogueModel.h"
#include "headless/analysis/SelectionAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SessionSettings.h"

namespace corvane {

namespace {

constexpr float kNoReading = -std::numeric_limits<float>::infinity();

// −inf equals −inf; NaN never arrives here (the measurements map it to −inf).
bool sameLevel(float a, float b) { return a == b; }

}  // namespace

FileAnalysis::FileAnalysis(AudioEngine* engine)
    : QObject(engine),
      _engine(engine),
      _targets(new LoudnessTargets(engine, this)),
      _fileSpeechGatedLUFS(kNoReading),
      _fileSamplePeakDB(kNoReading) {}

void FileAnalysis::setOfflineSpectrogramColumns(Snapshot<SpectrogramColumns> columns) {
  if (sameSnapshot(_offlineSpectrogramColumns, columns)) return;
  _offlineSpectrogramColumns = std::move(columns);
  emit offlineSpectrogramColumnsChanged();
}

void FileAnalysis::setFileLoudnessCurve(Snapshot<LoudnessCurve> curve) {
  if (sameSnapshot(_fileLoudnessCurve, curve)) return;
  _fileLoudnessCurve = std::move(curve);
  emit fileLoudnessCurveChanged();
}

void FileAnalysis::setFileSpeechGatedLUFS(float lufs) {
  if (sameLevel(_fileSpeechGatedLUFS, lufs)) return;
  _fileSpeechGatedLUFS = lufs;
  emit fileSpeechGatedLUFSChanged();
}

void FileAnalysis::setFileSamplePeakDB(float db) {
  if (sameLevel(_fileSamplePeakDB, db)) return;
  _fileSamplePeakDB = db;
  emit fileSamplePeakDBChanged();
}

void FileAnalysis::setFileStereoWidthCurve(Snapshot<StereoWidthCurve> curve) {
  if (sameSnapshot(_fileStereoWidthCurve, curve)) return;
  _fileStereoWidthCurve = std::move(curve);
  emit fileStereoWidthCurveChanged();
}

void FileAnalysis::setSelectionAnalysis(Snapshot<SelectionAnalysisResult> result) {
  if (result == _selectionAnalysis) return;
  _selectionAnalysis = std::move(result);
  emit selectionAnalysisChanged();
}

void FileAnalysis::setIsAnalysing(bool analysing) {
  if (analysing == _isAnalysing) return;
  _isAnalysing = analysing;
  emit isAnalysingChanged();
}

void FileAnalysis::clearForFile() {
  setOfflineSpectrogramColumns(nullptr);
  setFileLoudnessCurve(nullptr);
  setFileStereoWidthCurve(nullptr);
  setSelectionAnalysis(nullptr);
  // A pass still running belongs to the file before; its landing will be dropped.
  setIsAnalysing(false);
  setFileSpeechGatedLUFS(kNoReading);
  setFileSamplePeakDB(kNoReading);
  _targets->clearForFile();
}

void FileAnalysis::applyFileMetrics(const SlotMetrics& metrics) {
  setFileLoudnessCurve(makeSnapshot(metrics.fileLoudnessCurve));
  setFileSpeechGatedLUFS(metrics.speechGatedLUFS);
  setFileSamplePeakDB(metrics.samplePeakDB);
  setFileStereoWidthCurve(makeSnapshot(metrics.stereoWidthCurve));
}

void FileAnalysis::analyse() {
  if (!_engine || !_engine->loadedFile() || !_engine->pcmBuffer()) return;
  Transport& transport = _engine->transport();
  if (!transport.selection()) transport.setSelection(PlaybackSelection{0.0, transport.duration()});
  analyseSelection();
}

void FileAnalysis::analyseSelection() {
  if (!_engine || !_engine->loadedFile()) return;
  const SharedAudioBuffer buffer = _engine->pcmBuffer();
  const auto& selection = _engine->transport().selection();
  if (!buffer || !selection) return;
  auto frames = SelectionFrames::capture(buffer, selection->lowerSec, selection->upperSec);
  if (!frames) return;
  setIsAnalysing(true);
  setSelectionAnalysis(nullptr);

  const SessionSettings& settings = _engine->sessionSettings();
  SelectionAnalysisSettings pass;
  pass.fftSize = settings.fftSize();
  pass.spectrogramFftSize = settings.spectrogramFftSize();
  pass.overlapFactor = overlapFactor(settings.spectrogramOverlap());
  pass.spectrogramChannelIndex = settings.spectrogramChannelIndex();
  pass.fftExactAverage = settings.fftExactAverage();
  pass.channelWeights = ChannelOrder::bs1770Weights(*buffer);
  pass.vadTuning = settings.currentVADTuning();
  const DialogueModel& dialogue = _engine->dialogue();
  const FileSpeechState speech{dialogue.fileSpeechHistory(), dialogue.fileSpeechHistoryTuning(),
                               dialogue.dialogueRegionsSource() == DialogueRegionSource::automatic};
  pass.speechHistory = speechHistoryForSelection(speech, pass.vadTuning, *frames);

  const quint64 generation = _engine->loadGeneration();
  // Only a pass that reads the shared buffer in place can be harmed by an edit.
  const std::optional<quint64> sharedEpoch =
      frames->readsSharedBuffer() ? std::optional<quint64>(_engine->bufferEpoch()) : std::nullopt;
  auto captured = std::make_shared<const SelectionFrames>(std::move(*frames));
  runUserInitiated([self = QPointer<FileAnalysis>(this), captured, pass, generation, sharedEpoch] {
    auto output = runSelectionAnalysis(*captured, pass);
    if (!output) return;
    auto landed = std::make_shared<SelectionAnalysisOutput>(std::move(*output));
    landOnMainThread(self, [landed, generation, sharedEpoch](FileAnalysis& analysis) {
      analysis.landSelectionAnalysis(generation, sharedEpoch, std::move(*landed));
    });
  });
}

void FileAnalysis::landSelectionAnalysis(quint64 generation, std::optional<quint64> sharedBufferEpoch,
                                         SelectionAnalysisOutput output) {
  if (!_engine || _engine->loadGeneration() != generation) return;
  setIsAnalysing(false);
  if (sharedBufferEpoch && *sharedBufferEpoch != _engine->bufferEpoch()) return;
  setSelectionAnalysis(makeSnapshot(std::move(output.result)));
  setOfflineSpectrogramColumns(makeSnapshot(std::move(output.spectrogramColumns)));
}

}  // namespace corvane
