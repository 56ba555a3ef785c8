#include "measurement/FileAnalysis.h"

#include <limits>

namespace corvane {

namespace {

constexpr float kNoReading = -std::numeric_limits<float>::infinity();

// −inf equals −inf; NaN never arrives here (the measurements map it to −inf).
bool sameLevel(float a, float b) { return a == b; }

}  // namespace

FileAnalysis::FileAnalysis(QObject* parent)
    : QObject(parent), _fileSpeechGatedLUFS(kNoReading), _fileSamplePeakDB(kNoReading) {}

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
  setFileSpeechGatedLUFS(kNoReading);
  setFileSamplePeakDB(kNoReading);
}

void FileAnalysis::applyFileMetrics(const SlotMetrics& metrics) {
  setFileLoudnessCurve(makeSnapshot(metrics.fileLoudnessCurve));
  setFileSpeechGatedLUFS(metrics.speechGatedLUFS);
  setFileSamplePeakDB(metrics.samplePeakDB);
  setFileStereoWidthCurve(makeSnapshot(metrics.stereoWidthCurve));
}

}  // namespace corvane
