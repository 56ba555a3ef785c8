#include "measurement/LiveMeters.h"

#include <algorithm>

#include "playback/RenderMirrors.h"

namespace corvane {

LiveMeters::LiveMeters(QObject* parent) : QObject(parent) {}

LiveMeters::~LiveMeters() = default;

void LiveMeters::prepareForFile(int channels, double sampleRate, int fftSize, FFTWindowType windowType,
                                RenderMirrors& mirrors) {
  channels = std::max(channels, 0);
  std::vector<std::unique_ptr<FFTProcessor>> processors;
  for (int c = 0; c < channels; ++c) processors.push_back(std::make_unique<FFTProcessor>(fftSize, sampleRate, windowType));
  _channelProcessors = std::move(processors);
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
  _fftInputScratch.assign(static_cast<std::size_t>(fftSize), 0.0f);
  // The render side swaps to the new rings at its next buffer; the old ones are freed once it
  // has moved on.
  mirrors._atomicAnalysisRings.publish(std::make_unique<AnalysisRings>(channels, 4 * fftSize));
  nextSpectrogramColumnTime = -1.0;

  _fftMagnitudes = makeSnapshot(ChannelMagnitudes(static_cast<std::size_t>(channels),
                                                  std::vector<float>(static_cast<std::size_t>(fftSize / 2), kSilentBinDB)));
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
  clearLiveCurves();
  if (!sameSnapshot(_liveSpectrogramColumns, {})) {
    _liveSpectrogramColumns.reset();
    emit liveSpectrogramColumnsChanged();
  }
}

void LiveMeters::clearLiveCurves() {
  if (!sameSnapshot(_liveLoudnessCurve, {})) {
    _liveLoudnessCurve.reset();
    emit liveLoudnessCurveChanged();
  }
  if (!sameSnapshot(_liveTruePeakCurve, {})) {
    _liveTruePeakCurve.reset();
    emit liveTruePeakCurveChanged();
  }
  if (!sameSnapshot(_liveStereoWidthCurve, {})) {
    _liveStereoWidthCurve.reset();
    emit liveStereoWidthCurveChanged();
  }
  lastLiveCurveTime = -1.0;
  lastLiveStereoWidthTime = -1.0;
}

}  // namespace corvane
