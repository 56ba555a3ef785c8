// LiveMeters: what the live displays read while the file plays, the processors and analysis
// rings behind it, and the 30 Hz display tick that turns the one into the other.
//
// The session prepares them for every file it makes live (prepareForFile, from
// AudioEngine::setupActiveFile): one FFT processor per channel at the session's fftSize,
// sample rate and window; a mid and a side processor with their scratch arrays from two
// channels on; one more processor for the live spectrogram; one analysis ring per channel of
// 4 × fftSize samples, published to the render mirrors, where the render callback writes what
// it plays. The display values start over: −100 dB in every bin, RMS 0, empty live curves and
// columns.
//
// The tick (updateDisplayState) runs after the transport's own part of each display tick
// (Transport::displayTicked; tick() gathers what the render side published). The render
// callback only collects; everything shown is computed here, on the main thread:
//   - spectra per channel from the newest fftSize samples of each ring (−100 dB in every bin
//     until a ring holds that many), mid and side from channels 0 and 1;
//   - while playing, live spectrogram columns every hop = max(fftSize / overlap, 64) frames,
//     timed at the playhead, at most 64 a tick and 1800 in all, dropped when the playhead
//     jumps back more than 0.5 s;
//   - source and output RMS, the phase scope's samples;
//   - momentary, short-term and integrated loudness at the meter readout rate (10, 5 or 2 Hz;
//     every tick while still), the other loudness figures every tick;
//   - while playing, a point of the loudness and true-peak curves and of the stereo width
//     curve every 0.09 s of playhead time, 80,000 points at most each.
// Large arrays are published as immutable values: spectra as snapshots, curves and columns as
// LiveSeries whose chunks every copy shares, so that a tick never copies what it already
// published.
//
// Thread class: main thread. The rings are written by the render thread (FloatRingBuffer);
// the loudness processor publishes its figures through atomics.
#pragma once

#include <QObject>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/FFTProcessor.h"
#include "core/LevelViolations.h"
#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveSeries.h"
#include "session/SessionTypes.h"
#include "session/SettingsValues.h"

namespace corvane {

class LoudnessProcessor;
struct FinalLoudnessFigures;
class RenderMirrors;
class Transport;
struct AnalysisRings;

using ChannelMagnitudes = std::vector<std::vector<float>>;
using LevelCurve = std::vector<LevelCurvePoint>;

// The live curves and columns: capped, published without copying what they hold.
using LiveLoudnessCurve = LiveSeries<LoudnessCurvePoint>;
using LiveLevelCurve = LiveSeries<LevelCurvePoint>;
using LiveStereoWidthCurve = LiveSeries<StereoWidthCurvePoint>;
// One column a chunk: a column is fftSize / 2 floats, too big to copy with its neighbours.
using LiveSpectrogramColumns = LiveSeries<SpectrogramColumn, 1>;

// The newest stereo pair that left the graph, for the phase scope.
struct PhaseScopeSamples {
  std::vector<float> left;
  std::vector<float> right;
};

// Dot product of left and right over sqrt(Σ left² × Σ right²): +1 for mono, −1 for an inverted
// copy, about 0 for unrelated channels. 0 when that root is not above 1e-10 or count < 1;
// clamped to −1 ... 1.
float stereoCorrelation(const float* left, const float* right, int count);

// What one display tick reads from the render side, gathered by LiveMeters::tick() (or made by
// a test).
struct DisplayTickInput {
  double currentTime = 0.0;  // playhead, seconds
  bool isPlaying = false;
  const AnalysisRings* rings = nullptr;
  std::vector<float> channelRMS;        // per file channel, linear, from the last render buffer
  std::vector<float> outputChannelRMS;  // per channel of the output tap, linear
  const LoudnessProcessor* loudness = nullptr;
  std::span<const float> scopeLeft;     // the newest scope window (both the same length)
  std::span<const float> scopeRight;
};

class LiveMeters : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::Snapshot<corvane::ChannelMagnitudes> fftMagnitudes READ fftMagnitudes NOTIFY fftMagnitudesChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::MidSideSpectra> msMagnitudes READ msMagnitudes NOTIFY msMagnitudesChanged)
  Q_PROPERTY(std::vector<float> channelRMS READ channelRMS NOTIFY channelRMSChanged)
  Q_PROPERTY(std::vector<float> outputChannelRMS READ outputChannelRMS NOTIFY outputChannelRMSChanged)
  Q_PROPERTY(int outputChannelCount READ outputChannelCount NOTIFY outputChannelRMSChanged)
  Q_PROPERTY(float momentaryLUFS READ momentaryLUFS NOTIFY momentaryLUFSChanged)
  Q_PROPERTY(float shortTermLUFS READ shortTermLUFS NOTIFY shortTermLUFSChanged)
  Q_PROPERTY(float integratedLUFS READ integratedLUFS NOTIFY integratedLUFSChanged)
  Q_PROPERTY(float loudnessRange READ loudnessRange NOTIFY loudnessRangeChanged)
  Q_PROPERTY(float truePeakDB READ truePeakDB NOTIFY truePeakDBChanged)
  Q_PROPERTY(float speechGatedLUFS READ speechGatedLUFS NOTIFY speechGatedLUFSChanged)
  Q_PROPERTY(float speechPercentage READ speechPercentage NOTIFY speechPercentageChanged)
  Q_PROPERTY(float speechGatedNoiseFloorDBRMS READ speechGatedNoiseFloorDBRMS NOTIFY speechGatedNoiseFloorDBRMSChanged)
  Q_PROPERTY(float liveMaxShortTermLUFS READ liveMaxShortTermLUFS NOTIFY liveMaxShortTermLUFSChanged)
  Q_PROPERTY(corvane::LiveLoudnessCurve liveLoudnessCurve READ liveLoudnessCurve NOTIFY liveLoudnessCurveChanged)
  Q_PROPERTY(corvane::LiveLevelCurve liveTruePeakCurve READ liveTruePeakCurve NOTIFY liveTruePeakCurveChanged)
  Q_PROPERTY(corvane::LiveStereoWidthCurve liveStereoWidthCurve READ liveStereoWidthCurve
                 NOTIFY liveStereoWidthCurveChanged)
  Q_PROPERTY(corvane::LiveSpectrogramColumns liveSpectrogramColumns READ liveSpectrogramColumns
                 NOTIFY liveSpectrogramColumnsChanged)
  Q_PROPERTY(corvane::Snapshot<corvane::PhaseScopeSamples> phaseScopeSamples READ phaseScopeSamples
                 NOTIFY phaseScopeSamplesChanged)
  Q_PROPERTY(corvane::MeterReadoutRate meterReadoutRate READ meterReadoutRate WRITE setMeterReadoutRate
                 NOTIFY meterReadoutRateChanged)

 public:
  // The magnitude every bin shows before the first spectrum, dB.
  static constexpr float kSilentBinDB = -100.0f;
  static constexpr float kNoReading = -std::numeric_limits<float>::infinity();
  // Limits of the live curves and columns.
  static constexpr std::size_t kMaxCurvePoints = 80000;
  static constexpr std::size_t kMaxSpectrogramColumns = 1800;
  static constexpr int kMaxColumnsPerTick = 64;
  // Playhead time between two points of a live curve, seconds.
  static constexpr double kCurvePointSpacingSec = 0.09;

  explicit LiveMeters(QObject* parent = nullptr);
  ~LiveMeters() override;

  // Per channel fftSize / 2 values in dB; empty per channel before a file.
  const Snapshot<ChannelMagnitudes>& fftMagnitudes() const { return _fftMagnitudes; }
  // Null with fewer than two channels.
  const Snapshot<MidSideSpectra>& msMagnitudes() const { return _msMagnitudes; }
  const std::vector<float>& channelRMS() const { return _channelRMS; }
  const std::vector<float>& outputChannelRMS() const { return _outputChannelRMS; }
  int outputChannelCount() const { return static_cast<int>(_outputChannelRMS.size()); }
  // LUFS / LU / dBTP / percent / dBFS; −inf (0 for the range and the percentage) until read.
  float momentaryLUFS() const { return _momentaryLUFS; }
  float shortTermLUFS() const { return _shortTermLUFS; }
  float integratedLUFS() const { return _integratedLUFS; }
  float loudnessRange() const { return _loudnessRange; }
  float truePeakDB() const { return _truePeakDB; }
  float speechGatedLUFS() const { return _speechGatedLUFS; }
  float speechPercentage() const { return _speechPercentage; }
  float speechGatedNoiseFloorDBRMS() const { return _speechGatedNoiseFloorDBRMS; }
  // The largest finite short-term loudness read since the file went live.
  float liveMaxShortTermLUFS() const { return _liveMaxShortTermLUFS; }
  const LiveLoudnessCurve& liveLoudnessCurve() const { return _liveLoudnessCurve; }
  // The processor's current true peak (of its newest block), one point every 0.09 s.
  const LiveLevelCurve& liveTruePeakCurve() const { return _liveTruePeakCurve; }
  const LiveStereoWidthCurve& liveStereoWidthCurve() const { return _liveStereoWidthCurve; }
  const LiveSpectrogramColumns& liveSpectrogramColumns() const { return _liveSpectrogramColumns; }
  const Snapshot<PhaseScopeSamples>& phaseScopeSamples() const { return _phaseScopeSamples; }

  MeterReadoutRate meterReadoutRate() const { return _meterReadoutRate; }
  void setMeterReadoutRate(MeterReadoutRate rate);
  // The live spectrogram's overlap factor (4 ... 64) and channel (none: the power mean of all
  // channels). A new factor starts the live columns over.
  void setSpectrogramOverlapFactor(int factor);
  void setSpectrogramChannelIndex(std::optional<int> channel) { _spectrogramChannelIndex = channel; }
  // The session's window for the live spectra; nothing is rebuilt.
  void setWindowType(FFTWindowType windowType);
  // Seconds by the wall clock, for the readout rate. Tests install their own.
  void setClock(std::function<double()> clock) { _clock = std::move(clock); }

  // The processors of the live spectrum, one per channel, and mid and side (null below two
  // channels), with their scratch arrays of fftSize floats.
  const std::vector<std::unique_ptr<FFTProcessor>>& channelProcessors() const { return _channelProcessors; }
  FFTProcessor* midProcessor() const { return _midProcessor.get(); }
  FFTProcessor* sideProcessor() const { return _sideProcessor.get(); }
  int fftSize() const { return _fftSize; }
  double sampleRate() const { return _sampleRate; }
  // Time of the next live column, seconds; −1 before the first.
  double nextSpectrogramColumnTime = -1.0;
  // Times of the last live curve points, seconds; −1 before the first.
  double lastLiveCurveTime = -1.0;
  double lastLiveStereoWidthTime = -1.0;

  // Makes everything above new for a file of `channels` channels at `sampleRate` Hz and
  // publishes its analysis rings in `mirrors`. Throws std::invalid_argument for an fftSize the
  // FFT refuses (odd or below 2).
  void prepareForFile(int channels, double sampleRate, int fftSize, FFTWindowType windowType, RenderMirrors& mirrors);

  // A new window size (a power of two from 2) for a live file: processors and rings anew at
  // that size, the spectra emptied, the live columns started over. False, and nothing done,
  // for the same size, another size or no file.
  bool setFftSize(int fftSize, RenderMirrors& mirrors);

  // One display tick from what `in` carries.
  void updateDisplayState(const DisplayTickInput& in);
  // One display tick from what the transport's render side published.
  void tick(Transport& transport);
  // The spectra of the fftSize frames that end at `currentTime` (at least the first fftSize
  // frames), straight from `buffer`: the spectrum of a still playhead. Nothing without a
  // buffer of the prepared channel count and at least fftSize frames.
  void recomputeFFTAtPlayhead(const AudioBuffer* buffer, double currentTime);

  // The end of a pass (stop): the figures of everything played, counted to its last sample,
  // replace the last tick's, whatever the readout rate.
  void applyFinalLoudness(const FinalLoudnessFigures& figures);

  // The live curves are broken (a seek): emptied, their times back to −1.
  void clearLiveCurves();

 signals:
  void fftMagnitudesChanged();
  void msMagnitudesChanged();
  void channelRMSChanged();
  void outputChannelRMSChanged();
  void momentaryLUFSChanged();
  void shortTermLUFSChanged();
  void integratedLUFSChanged();
  void loudnessRangeChanged();
  void truePeakDBChanged();
  void speechGatedLUFSChanged();
  void speechPercentageChanged();
  void speechGatedNoiseFloorDBRMSChanged();
  void liveMaxShortTermLUFSChanged();
  void liveLoudnessCurveChanged();
  void liveTruePeakCurveChanged();
  void liveStereoWidthCurveChanged();
  void liveSpectrogramColumnsChanged();
  void phaseScopeSamplesChanged();
  void meterReadoutRateChanged();

 private:
  void build(int channels, double sampleRate, int fftSize, FFTWindowType windowType, RenderMirrors& mirrors);
  void updateSpectrogram(const DisplayTickInput& in);
  void updateLoudness(const DisplayTickInput& in);
  void setSpectra(ChannelMagnitudes spectra);
  void setMidSide(const float* left, const float* right);
  void setLevel(float& field, double value, void (LiveMeters::*changed)());

  std::vector<std::unique_ptr<FFTProcessor>> _channelProcessors;
  std::unique_ptr<FFTProcessor> _midProcessor;
  std::unique_ptr<FFTProcessor> _sideProcessor;
  std::unique_ptr<FFTProcessor> _spectroProcessor;
  std::vector<float> _midScratch;
  std::vector<float> _sideScratch;
  // [channels][fftSize]: the newest window of each ring, and after the spectrogram the window
  // of the last column (which the correlation then reads).
  std::vector<std::vector<float>> _fftInputScratch;
  std::vector<float> _spectroMixLinear;
  int _fftSize = 0;
  double _sampleRate = 0.0;
  FFTWindowType _windowType = FFTWindowType::Hann;
  int _overlapFactor = 4;
  std::optional<int> _spectrogramChannelIndex;
  MeterReadoutRate _meterReadoutRate = MeterReadoutRate::hz10;
  double _lastMeterReadoutTime = -std::numeric_limits<double>::infinity();
  std::function<double()> _clock;

  Snapshot<ChannelMagnitudes> _fftMagnitudes;
  Snapshot<MidSideSpectra> _msMagnitudes;
  std::vector<float> _channelRMS;
  std::vector<float> _outputChannelRMS;
  float _momentaryLUFS = kNoReading;
  float _shortTermLUFS = kNoReading;
  float _integratedLUFS = kNoReading;
  float _loudnessRange = 0.0f;
  float _truePeakDB = kNoReading;
  float _speechGatedLUFS = kNoReading;
  float _speechPercentage = 0.0f;
  float _speechGatedNoiseFloorDBRMS = kNoReading;
  float _liveMaxShortTermLUFS = kNoReading;
  LiveLoudnessCurve _liveLoudnessCurve;
  LiveLevelCurve _liveTruePeakCurve;
  LiveStereoWidthCurve _liveStereoWidthCurve;
  LiveSpectrogramColumns _liveSpectrogramColumns;
  Snapshot<PhaseScopeSamples> _phaseScopeSamples;
  // Scratch of the output tap's reads (tick()).
  std::vector<float> _scopeLeft;
  std::vector<float> _scopeRight;
  std::uint64_t _scopeWindowsShown = 0;
};

}  // namespace corvane
