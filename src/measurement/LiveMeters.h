// LiveMeters: what the live displays read while the file plays, and the processors and
// analysis rings behind it.
//
// The session prepares them for every file it makes live (prepareForFile, from
// AudioEngine::setupActiveFile): one FFT processor per channel at the session's fftSize,
// sample rate and window; a mid and a side processor with their scratch arrays from two
// channels on; one analysis ring per channel of 4 × fftSize samples, published to the render
// mirrors, where the render callback writes what it plays. The display values start over:
// −100 dB in every bin, RMS 0, empty live curves and columns.
//
// The 30 Hz display tick that turns the rings into spectra, RMS, curves and columns is the
// measurement subsystem's; it hooks into Transport::displayTicked and reads the processors
// here.
//
// Thread class: main thread. The rings are written by the render thread (FloatRingBuffer).
#pragma once

#include <QObject>
#include <memory>
#include <vector>

#include "core/FFTProcessor.h"
#include "core/LevelViolations.h"
#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "measurement/FileAnalysis.h"
#include "session/SessionTypes.h"

namespace corvane {

class RenderMirrors;

using ChannelMagnitudes = std::vector<std::vector<float>>;
using LevelCurve = std::vector<LevelCurvePoint>;

class LiveMeters : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::Snapshot<corvane::ChannelMagnitudes> fftMagnitudes READ fftMagnitudes NOTIFY fftMagnitudesChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::MidSideSpectra> msMagnitudes READ msMagnitudes NOTIFY msMagnitudesChanged)
  Q_PROPERTY(std::vector<float> channelRMS READ channelRMS NOTIFY channelRMSChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::LoudnessCurve> liveLoudnessCurve READ liveLoudnessCurve NOTIFY liveLoudnessCurveChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::LevelCurve> liveTruePeakCurve READ liveTruePeakCurve NOTIFY liveTruePeakCurveChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::StereoWidthCurve> liveStereoWidthCurve READ liveStereoWidthCurve
                 NOTIFY liveStereoWidthCurveChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::SpectrogramColumns> liveSpectrogramColumns READ liveSpectrogramColumns
                 NOTIFY liveSpectrogramColumnsChanged)

 public:
  // The magnitude every bin shows before the first spectrum, dB.
  static constexpr float kSilentBinDB = -100.0f;

  explicit LiveMeters(QObject* parent = nullptr);
  ~LiveMeters() override;

  // Per channel fftSize / 2 values in dB; empty per channel before a file.
  const Snapshot<ChannelMagnitudes>& fftMagnitudes() const { return _fftMagnitudes; }
  // Null with fewer than two channels.
  const Snapshot<MidSideSpectra>& msMagnitudes() const { return _msMagnitudes; }
  const std::vector<float>& channelRMS() const { return _channelRMS; }
  const Snapshot<LoudnessCurve>& liveLoudnessCurve() const { return _liveLoudnessCurve; }
  const Snapshot<LevelCurve>& liveTruePeakCurve() const { return _liveTruePeakCurve; }
  const Snapshot<StereoWidthCurve>& liveStereoWidthCurve() const { return _liveStereoWidthCurve; }
  const Snapshot<SpectrogramColumns>& liveSpectrogramColumns() const { return _liveSpectrogramColumns; }

  // The processors of the live spectrum, one per channel, and mid and side (null below two
  // channels), with their scratch arrays of fftSize floats.
  const std::vector<std::unique_ptr<FFTProcessor>>& channelProcessors() const { return _channelProcessors; }
  FFTProcessor* midProcessor() const { return _midProcessor.get(); }
  FFTProcessor* sideProcessor() const { return _sideProcessor.get(); }
  std::vector<float>& midScratch() { return _midScratch; }
  std::vector<float>& sideScratch() { return _sideScratch; }
  std::vector<float>& fftInputScratch() { return _fftInputScratch; }
  // Times of the last live column and curve points, seconds; −1 before the first.
  double nextSpectrogramColumnTime = -1.0;
  double lastLiveCurveTime = -1.0;
  double lastLiveStereoWidthTime = -1.0;

  // Makes everything above new for a file of `channels` channels at `sampleRate` Hz and
  // publishes its analysis rings in `mirrors`. Throws std::invalid_argument for an fftSize the
  // FFT refuses (odd or below 2).
  void prepareForFile(int channels, double sampleRate, int fftSize, FFTWindowType windowType, RenderMirrors& mirrors);

  // The live curves and columns are broken (a seek): emptied, their times back to −1.
  void clearLiveCurves();

 signals:
  void fftMagnitudesChanged();
  void msMagnitudesChanged();
  void channelRMSChanged();
  void liveLoudnessCurveChanged();
  void liveTruePeakCurveChanged();
  void liveStereoWidthCurveChanged();
  void liveSpectrogramColumnsChanged();

 private:
  std::vector<std::unique_ptr<FFTProcessor>> _channelProcessors;
  std::unique_ptr<FFTProcessor> _midProcessor;
  std::unique_ptr<FFTProcessor> _sideProcessor;
  std::vector<float> _midScratch;
  std::vector<float> _sideScratch;
  std::vector<float> _fftInputScratch;

  Snapshot<ChannelMagnitudes> _fftMagnitudes;
  Snapshot<MidSideSpectra> _msMagnitudes;
  std::vector<float> _channelRMS;
  Snapshot<LoudnessCurve> _liveLoudnessCurve;
  Snapshot<LevelCurve> _liveTruePeakCurve;
  Snapshot<StereoWidthCurve> _liveStereoWidthCurve;
  Snapshot<SpectrogramColumns> _liveSpectrogramColumns;
};

}  // namespace corvane
