#include "measurement/LiveMeters.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "core/LoudnessProcessor.h"
#include "playback/RenderMirrors.h"
#include "playback/Transport.h"

namespace corvane {

namespace {

// The power floor of the live spectrogram's channel mean (−160 dB).
constexpr float kMixPowerFloor = 1e-16f;
// A jump back of the playhead by more than this drops the live columns, seconds.
constexpr double kColumnJumpBackSec = 0.5;
// The next column is never planned further ahead of the playhead than this, seconds.
constexpr double kColumnLeadSec = 1.0;
// The readout intervals are minimums by a wall clock that ticks at about 30 Hz: a little slack
// so that 3, 6 or 15 ticks make 10, 5 or 2 readouts a second.
constexpr double kReadoutSlackSec = 0.005;

double steadySeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

float toFloatLevel(double value) {
  if (std::isnan(value)) return LiveMeters::kNoReading;
  return static_cast<float>(value);
}

}  // namespace

float stereoCorrelation(const float* left, const float* right, int count) {
  if (count < 1 || !left || !right) return 0.0f;
  double dot = 0.0, ll = 0.0, rr = 0.0;
  for (int i = 0; i < count; ++i) {
    const double l = left[i], r = right[i];
    dot += l * r;
    ll += l * l;
    rr += r * r;
  }
  const double root = std::sqrt(ll * rr);
  if (!(root > 1e-10)) return 0.0f;
  return static_cast<float>(std::clamp(dot / root, -1.0, 1.0));
}

LiveMeters::LiveMeters(QObject* parent) : QObject(parent), _clock(steadySeconds) {}

LiveMeters::~LiveMeters() = default;

void LiveMeters::build(int channels, double sampleRate, int fftSize, FFTWindowType windowType, RenderMirrors& mirrors) {
  std::vector<std::unique_ptr<FFTProcessor>> processors;
  for (int c = 0; c < channels; ++c)
    processors.push_back(std::make_unique<FFTProcessor>(fftSize, sampleRate, windowType));
  _channelProcessors = std::move(processors);
  _spectroProcessor = channels > 0 ? std::make_unique<FFTProcessor>(fftSize, sampleRate, windowType) : nullptr;
  if (channels >= 2) {
    _midProcessor = std::make_unique<FFTProcessor>(fftSize, sampleRate, windowType);
    _sideProcessor = std::make_unique<FFTProcessor>(fftSize, sampleRate, windowType);
    _midScratch.assign(static_cast<std::size_t>(fftSize), 0.0f);
    _sideScratch.assign(static_cast<std::size_t>(fftSize), 0.0f);
  } else {
    _midProcessor.reset();
    _sideProcessor.reset();
    _midScratch.clear();
    _sideScratch.clear();
  }
  _fftSize = fftSize;
  _sampleRate = sampleRate;
  _windowType = windowType;
  _fftInputScratch.assign(static_cast<std::size_t>(channels),
                          std::vector<float>(static_cast<std::size_t>(fftSize), 0.0f));
  _spectroMixLinear.assign(static_cast<std::size_t>(fftSize / 2), 0.0f);
  // The render side swaps to the new rings at its next buffer; the old ones are freed once it
  // has moved on.
  mirrors._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(channels, 4 * fftSize));
  nextSpectrogramColumnTime = -1.0;
}

void LiveMeters::prepareForFile(int channels, double sampleRate, int fftSize, FFTWindowType windowType,
                                RenderMirrors& mirrors) {
  channels = std::max(channels, 0);
  build(channels, sampleRate, fftSize, windowType, mirrors);
  _fftMagnitudes = makeSnapshot(ChannelMagnitudes(
      static_cast<std::size_t>(channels), std::vector<float>(static_cast<std::size_t>(fftSize / 2), kSilentBinDB)));
  emit fftMagnitudesChanged();
  if (_msMagnitudes) {
    _msMagnitudes.reset();
    emit msMagnitudesChanged();
  }
  std::vector<float> zeros(static_cast<std::size_t>(channels), 0.0f);
  if (zeros != _channelRMS) {
    _channelRMS = std::move(zeros);
    emit channelRMSChanged();
  }
  _lastMeterReadoutTime = -std::numeric_limits<double>::infinity();
  // Nothing of the file before stands for this one.
  setLevel(_momentaryLUFS, kNoReading, &LiveMeters::momentaryLUFSChanged);
  setLevel(_shortTermLUFS, kNoReading, &LiveMeters::shortTermLUFSChanged);
  setLevel(_integratedLUFS, kNoReading, &LiveMeters::integratedLUFSChanged);
  setLevel(_loudnessRange, 0.0, &LiveMeters::loudnessRangeChanged);
  setLevel(_truePeakDB, kNoReading, &LiveMeters::truePeakDBChanged);
  setLevel(_speechGatedLUFS, kNoReading, &LiveMeters::speechGatedLUFSChanged);
  setLevel(_speechPercentage, 0.0, &LiveMeters::speechPercentageChanged);
  setLevel(_speechGatedNoiseFloorDBRMS, kNoReading, &LiveMeters::speechGatedNoiseFloorDBRMSChanged);
  setLevel(_liveMaxShortTermLUFS, kNoReading, &LiveMeters::liveMaxShortTermLUFSChanged);
  clearLiveCurves();
  if (!_liveSpectrogramColumns.empty()) {
    _liveSpectrogramColumns.clear();
    emit liveSpectrogramColumnsChanged();
  }
}

bool LiveMeters::setFftSize(int fftSize, RenderMirrors& mirrors) {
  const bool powerOfTwo = fftSize >= 2 && (fftSize & (fftSize - 1)) == 0;
  if (!powerOfTwo || fftSize == _fftSize || _channelProcessors.empty()) return false;
  build(static_cast<int>(_channelProcessors.size()), _sampleRate, fftSize, _windowType, mirrors);
  _fftMagnitudes.reset();
  emit fftMagnitudesChanged();
  if (!_liveSpectrogramColumns.empty()) {
    _liveSpectrogramColumns.clear();
    emit liveSpectrogramColumnsChanged();
  }
  return true;
}

void LiveMeters::clearLiveCurves() {
  if (!_liveLoudnessCurve.empty()) {
    _liveLoudnessCurve.clear();
    emit liveLoudnessCurveChanged();
  }
  if (!_liveTruePeakCurve.empty()) {
    _liveTruePeakCurve.clear();
    emit liveTruePeakCurveChanged();
  }
  if (!_liveStereoWidthCurve.empty()) {
    _liveStereoWidthCurve.clear();
    emit liveStereoWidthCurveChanged();
  }
  lastLiveCurveTime = -1.0;
  lastLiveStereoWidthTime = -1.0;
}

void LiveMeters::setMeterReadoutRate(MeterReadoutRate rate) {
  if (rate == _meterReadoutRate) return;
  _meterReadoutRate = rate;
  emit meterReadoutRateChanged();
}

void LiveMeters::setSpectrogramOverlapFactor(int factor) {
  factor = std::max(factor, 1);
  if (factor == _overlapFactor) return;
  _overlapFactor = factor;
  nextSpectrogramColumnTime = -1.0;
  if (!_liveSpectrogramColumns.empty()) {
    _liveSpectrogramColumns.clear();
    emit liveSpectrogramColumnsChanged();
  }
}

void LiveMeters::setWindowType(FFTWindowType windowType) {
  _windowType = windowType;
  for (auto& p : _channelProcessors) p->setWindowType(windowType);
  if (_midProcessor) _midProcessor->setWindowType(windowType);
  if (_sideProcessor) _sideProcessor->setWindowType(windowType);
  if (_spectroProcessor) _spectroProcessor->setWindowType(windowType);
}

void LiveMeters::setLevel(float& field, double value, void (LiveMeters::*changed)()) {
  const float v = toFloatLevel(value);
  if (v == field) return;
  field = v;
  emit(this->*changed)();
}

void LiveMeters::setSpectra(ChannelMagnitudes spectra) {
  if (_fftMagnitudes && *_fftMagnitudes == spectra) return;
  _fftMagnitudes = makeSnapshot(std::move(spectra));
  emit fftMagnitudesChanged();
}

void LiveMeters::setMidSide(const float* left, const float* right) {
  const auto n = static_cast<std::size_t>(_fftSize);
  for (std::size_t i = 0; i < n; ++i) {
    _midScratch[i] = (left[i] + right[i]) * 0.5f;
    _sideScratch[i] = (left[i] - right[i]) * 0.5f;
  }
  auto mid = _midProcessor->process(_midScratch.data(), _fftSize);
  MidSideSpectra ms;
  ms.mid.assign(mid.begin(), mid.end());
  auto side = _sideProcessor->process(_sideScratch.data(), _fftSize);
  ms.side.assign(side.begin(), side.end());
  _msMagnitudes = makeSnapshot(std::move(ms));
  emit msMagnitudesChanged();
}

void LiveMeters::tick(Transport& transport) {
  DisplayTickInput in;
  in.currentTime = transport.currentTime();
  in.isPlaying = transport.isPlaying();
  RenderMirrors& mirrors = transport.mirrors();
  in.rings = mirrors._atomicAnalysisRings.current();
  PlaybackGraph& graph = transport.controller().graph();
  in.loudness = graph.loudnessProcessor();
  if (RenderChain* chain = graph.chain()) {
    const PlaybackRenderer& renderer = chain->renderer();
    in.channelRMS.resize(static_cast<std::size_t>(renderer.sourceRMSChannelCount()));
    for (int c = 0; c < renderer.sourceRMSChannelCount(); ++c)
      in.channelRMS[static_cast<std::size_t>(c)] = renderer.sourceRMS(c);
    const OutputTap& tap = chain->outputTap();
    in.outputChannelRMS.resize(static_cast<std::size_t>(tap.channelCount()));
    tap.readOutputRMS(in.outputChannelRMS);
    // The tap publishes a scope window every 4096 frames, less often than the tick runs: a
    // window already shown is not published again.
    const std::uint64_t windows = tap.windowsPublished();
    if (windows != _scopeWindowsShown) {
      _scopeLeft.resize(OutputTap::kScopeFrames);
      _scopeRight.resize(OutputTap::kScopeFrames);
      const int scopeCount = tap.readPhaseScope(_scopeLeft, _scopeRight);
      if (scopeCount > 0) _scopeWindowsShown = windows;
      in.scopeLeft = std::span<const float>(_scopeLeft.data(), static_cast<std::size_t>(scopeCount));
      in.scopeRight = std::span<const float>(_scopeRight.data(), static_cast<std::size_t>(scopeCount));
    }
  } else {
    in.channelRMS = _channelRMS;
    in.outputChannelRMS = _outputChannelRMS;
  }
  updateDisplayState(in);
}

void LiveMeters::updateDisplayState(const DisplayTickInput& in) {
  const int channels = static_cast<int>(_channelProcessors.size());
  if (channels == 0 || _fftSize < 2) return;

  // Spectra of the newest window of every ring that holds one; the others read −100.
  std::vector<bool> ready(static_cast<std::size_t>(channels), false);
  if (in.rings) {
    for (int c = 0; c < channels && c < in.rings->channelCount(); ++c) {
      const FloatRingBuffer& ring = *in.rings->rings[static_cast<std::size_t>(c)];
      if (ring.filledCount() >= _fftSize) {
        ready[static_cast<std::size_t>(c)] =
            ring.copyLast(_fftSize, _fftInputScratch[static_cast<std::size_t>(c)].data());
      }
    }
  }
  ChannelMagnitudes spectra(static_cast<std::size_t>(channels));
  for (int c = 0; c < channels; ++c) {
    auto& out = spectra[static_cast<std::size_t>(c)];
    if (ready[static_cast<std::size_t>(c)]) {
      auto mags = _channelProcessors[static_cast<std::size_t>(c)]->process(
          _fftInputScratch[static_cast<std::size_t>(c)].data(), _fftSize);
      out.assign(mags.begin(), mags.end());
    } else {
      out.assign(static_cast<std::size_t>(_fftSize / 2), kSilentBinDB);
    }
  }
  setSpectra(std::move(spectra));
  if (_midProcessor && _sideProcessor && channels >= 2 && ready[0] && ready[1]) {
    setMidSide(_fftInputScratch[0].data(), _fftInputScratch[1].data());
  }

  if (in.isPlaying) updateSpectrogram(in);

  if (in.channelRMS != _channelRMS) {
    _channelRMS = in.channelRMS;
    emit channelRMSChanged();
  }
  if (in.outputChannelRMS != _outputChannelRMS) {
    _outputChannelRMS = in.outputChannelRMS;
    emit outputChannelRMSChanged();
  }

  if (in.loudness) updateLoudness(in);

  if (in.isPlaying && channels >= 2 && in.currentTime - lastLiveStereoWidthTime >= kCurvePointSpacingSec) {
    lastLiveStereoWidthTime = in.currentTime;
    const float correlation = stereoCorrelation(_fftInputScratch[0].data(), _fftInputScratch[1].data(), _fftSize);
    _liveStereoWidthCurve.append({in.currentTime, correlation}, kMaxCurvePoints);
    emit liveStereoWidthCurveChanged();
  }

  if (!in.scopeLeft.empty() && in.scopeLeft.size() == in.scopeRight.size()) {
    PhaseScopeSamples scope;
    scope.left.assign(in.scopeLeft.begin(), in.scopeLeft.end());
    scope.right.assign(in.scopeRight.begin(), in.scopeRight.end());
    _phaseScopeSamples = makeSnapshot(std::move(scope));
    emit phaseScopeSamplesChanged();
  }
}

void LiveMeters::applyFinalLoudness(const FinalLoudnessFigures& figures) {
  setLevel(_integratedLUFS, figures.integratedLUFS, &LiveMeters::integratedLUFSChanged);
  setLevel(_truePeakDB, figures.truePeakDB, &LiveMeters::truePeakDBChanged);
  setLevel(_loudnessRange, figures.loudnessRange, &LiveMeters::loudnessRangeChanged);
  setLevel(_speechGatedLUFS, figures.speechGatedLUFS, &LiveMeters::speechGatedLUFSChanged);
  setLevel(_speechPercentage, figures.speechPercentage, &LiveMeters::speechPercentageChanged);
  setLevel(_speechGatedNoiseFloorDBRMS, figures.speechGatedNoiseFloorDBRMS,
           &LiveMeters::speechGatedNoiseFloorDBRMSChanged);
}

void LiveMeters::updateLoudness(const DisplayTickInput& in) {
  const LoudnessProcessor& p = *in.loudness;
  const double now = _clock();
  const double interval = readoutIntervalSec(_meterReadoutRate) - kReadoutSlackSec;
  if (!in.isPlaying || now - _lastMeterReadoutTime >= interval) {
    _lastMeterReadoutTime = now;
    setLevel(_momentaryLUFS, p.momentaryLUFS(), &LiveMeters::momentaryLUFSChanged);
    setLevel(_shortTermLUFS, p.shortTermLUFS(), &LiveMeters::shortTermLUFSChanged);
    setLevel(_integratedLUFS, p.integratedLUFS(), &LiveMeters::integratedLUFSChanged);
  }
  setLevel(_loudnessRange, p.loudnessRange(), &LiveMeters::loudnessRangeChanged);
  setLevel(_truePeakDB, p.truePeakDB(), &LiveMeters::truePeakDBChanged);
  setLevel(_speechGatedLUFS, p.speechGatedLUFS(), &LiveMeters::speechGatedLUFSChanged);
  setLevel(_speechPercentage, p.speechPercentage(), &LiveMeters::speechPercentageChanged);
  setLevel(_speechGatedNoiseFloorDBRMS, p.speechGatedNoiseFloorDBRMS(), &LiveMeters::speechGatedNoiseFloorDBRMSChanged);
  if (std::isfinite(_shortTermLUFS) && _shortTermLUFS > _liveMaxShortTermLUFS) {
    setLevel(_liveMaxShortTermLUFS, _shortTermLUFS, &LiveMeters::liveMaxShortTermLUFSChanged);
  }

  if (in.isPlaying && in.currentTime - lastLiveCurveTime >= kCurvePointSpacingSec) {
    lastLiveCurveTime = in.currentTime;
    _liveLoudnessCurve.append({in.currentTime, _momentaryLUFS, _shortTermLUFS, _integratedLUFS}, kMaxCurvePoints);
    _liveTruePeakCurve.append({in.currentTime, toFloatLevel(p.currentTruePeakDB())}, kMaxCurvePoints);
    emit liveLoudnessCurveChanged();
    emit liveTruePeakCurveChanged();
  }
}

void LiveMeters::updateSpectrogram(const DisplayTickInput& in) {
  const double rate = _sampleRate;
  if (!(rate > 0.0) || !_spectroProcessor || !in.rings) return;
  const int channels = static_cast<int>(_channelProcessors.size());
  if (in.rings->channelCount() < channels) return;
  const double now = in.currentTime;
  const int hop = std::max(_fftSize / _overlapFactor, 64);
  bool changed = false;

  if (!_liveSpectrogramColumns.empty() && now < _liveSpectrogramColumns.back().time - kColumnJumpBackSec) {
    _liveSpectrogramColumns.clear();
    nextSpectrogramColumnTime = -1.0;
    changed = true;
  }
  // How far back the ring still holds a whole window.
  const double maxLag = 3.0 * _fftSize / rate;
  if (nextSpectrogramColumnTime < 0.0 || nextSpectrogramColumnTime > now + kColumnLeadSec)
    nextSpectrogramColumnTime = now;
  if (nextSpectrogramColumnTime < now - maxLag) nextSpectrogramColumnTime = now - maxLag;

  const std::size_t bins = static_cast<std::size_t>(_fftSize / 2);
  const bool oneChannel =
      _spectrogramChannelIndex && *_spectrogramChannelIndex >= 0 && *_spectrogramChannelIndex < channels;
  for (int made = 0; made < kMaxColumnsPerTick && nextSpectrogramColumnTime <= now; ++made) {
    const int lag = std::max(static_cast<int>(rate * (now - nextSpectrogramColumnTime)), 0);
    bool copied = true;
    for (int c = 0; c < channels && copied; ++c) {
      const FloatRingBuffer& ring = *in.rings->rings[static_cast<std::size_t>(c)];
      copied = ring.filledCount() >= _fftSize + lag &&
               ring.copyEnding(lag, _fftSize, _fftInputScratch[static_cast<std::size_t>(c)].data());
    }
    if (!copied) break;
    // In power straight from the transform: the mean of the channels needs no dB round trip.
    SpectrogramColumn column;
    column.time = nextSpectrogramColumnTime;
    column.mags.resize(bins);
    const int only = oneChannel ? *_spectrogramChannelIndex : (channels == 1 ? 0 : -1);
    if (only >= 0) {
      auto power = _spectroProcessor->processPower(_fftInputScratch[static_cast<std::size_t>(only)].data(), _fftSize);
      for (std::size_t k = 0; k < bins; ++k) column.mags[k] = _spectroProcessor->decibels(power[k]);
    } else {
      std::fill(_spectroMixLinear.begin(), _spectroMixLinear.end(), 0.0f);
      for (int c = 0; c < channels; ++c) {
        auto power = _spectroProcessor->processPower(_fftInputScratch[static_cast<std::size_t>(c)].data(), _fftSize);
        for (std::size_t k = 0; k < bins; ++k) _spectroMixLinear[k] += power[k];
      }
      const float scale = 1.0f / static_cast<float>(channels);
      for (std::size_t k = 0; k < bins; ++k) {
        column.mags[k] = 10.0f * std::log10(std::max(_spectroMixLinear[k] * scale, kMixPowerFloor));
      }
    }
    _liveSpectrogramColumns.append(std::move(column), kMaxSpectrogramColumns);
    changed = true;
    nextSpectrogramColumnTime += hop / rate;
  }
  if (changed) emit liveSpectrogramColumnsChanged();
}

void LiveMeters::recomputeFFTAtPlayhead(const AudioBuffer* buffer, double currentTime) {
  const int channels = static_cast<int>(_channelProcessors.size());
  if (!buffer || channels < 1 || buffer->channelCount() != channels) return;
  const FrameCount frames = buffer->frameLength();
  if (_fftSize < 1 || _fftSize > frames) return;
  const double rate = buffer->sampleRate();
  FrameCount end = static_cast<FrameCount>(rate * currentTime);
  end = std::max<FrameCount>(std::min(end, frames), _fftSize);
  const FrameCount start = end - _fftSize;
  ChannelMagnitudes spectra(static_cast<std::size_t>(channels));
  for (int c = 0; c < channels; ++c) {
    auto mags = _channelProcessors[static_cast<std::size_t>(c)]->process(buffer->channel(c) + start, _fftSize);
    spectra[static_cast<std::size_t>(c)].assign(mags.begin(), mags.end());
  }
  setSpectra(std::move(spectra));
  if (_midProcessor && _sideProcessor && channels >= 2 && _midScratch.size() == static_cast<std::size_t>(_fftSize)) {
    setMidSide(buffer->channel(0) + start, buffer->channel(1) + start);
  }
}

}  // namespace corvane
