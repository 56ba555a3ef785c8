#include "session/SessionSettings.h"

#include "session/SettingsStore.h"

namespace corvane {

SessionSettings::SessionSettings(SettingsStore& store, QObject* parent) : QObject(parent), _store(&store) {
  _spectrogramColormap = store.spectrogramColormap();
  _spectrogramFreqScale = store.spectrogramFreqScale();
  _spectrogramFftSize = store.spectrogramFftSize();
  _spectrogramOverlap = store.spectrogramOverlap();
  _autoComputeSpectrogramOnLoad = store.autoComputeSpectrogramOnLoad();
  _spectrogramDBFloor = store.spectrogramDBFloor();
  _spectrogramDBCeiling = store.spectrogramDBCeiling();
  _spectrogramGlow = store.spectrogramGlow();
  _spectrogramGamma = store.spectrogramGamma();
  _fftExactAverage = store.fftExactAverage();
  _defaultShowWaveform = store.defaultShowWaveform();
  _defaultShowLoudnessCurve = store.defaultShowLoudnessCurve();
  _defaultShowSpectrogram = store.defaultShowSpectrogram();
  _defaultShowFFT = store.defaultShowFFT();
  _defaultShowStereoWidth = store.defaultShowStereoWidth();
  _reportIncludeLoudnessCurve = store.reportIncludeLoudnessCurve();
  _reportIncludeStereoWidth = store.reportIncludeStereoWidth();
  _reportIncludeChannels = store.reportIncludeChannels();
  _reportIncludeViolations = store.reportIncludeViolations();
  _meterRollAnimation = store.meterRollAnimation();
  _vadThreshold = store.vadThreshold();
  _vadMinSpeechDuration = store.vadMinSpeechDuration();
  _vadMinSilenceDuration = store.vadMinSilenceDuration();
}

SileroVADTuning SessionSettings::currentVADTuning() const {
  return SileroVADTuning{_vadThreshold, _vadMinSpeechDuration, _vadMinSilenceDuration};
}

void SessionSettings::setFftSize(int value) {
  if (_fftSize == value) return;
  _fftSize = value;
  emit fftSizeChanged();
}

void SessionSettings::setFftWindowType(FFTWindowType value) {
  if (_fftWindowType == value) return;
  _fftWindowType = value;
  emit fftWindowTypeChanged();
}

void SessionSettings::setSpectrogramColormap(SpectrogramColormap value) {
  if (_spectrogramColormap == value) return;
  _spectrogramColormap = value;
  _store->setSpectrogramColormap(value);
  emit spectrogramColormapChanged();
}

void SessionSettings::setSpectrogramFreqScale(SpectrogramFreqScale value) {
  if (_spectrogramFreqScale == value) return;
  _spectrogramFreqScale = value;
  _store->setSpectrogramFreqScale(value);
  emit spectrogramFreqScaleChanged();
}

void SessionSettings::setSpectrogramFftSize(int value) {
  if (_spectrogramFftSize == value) return;
  _spectrogramFftSize = value;
  _store->setSpectrogramFftSize(value);
  emit spectrogramFftSizeChanged();
}

void SessionSettings::setSpectrogramOverlap(SpectrogramOverlap value) {
  if (_spectrogramOverlap == value) return;
  _spectrogramOverlap = value;
  _store->setSpectrogramOverlap(value);
  emit spectrogramOverlapChanged();
}

void SessionSettings::setAutoComputeSpectrogramOnLoad(bool value) {
  if (_autoComputeSpectrogramOnLoad == value) return;
  _autoComputeSpectrogramOnLoad = value;
  _store->setAutoComputeSpectrogramOnLoad(value);
  emit autoComputeSpectrogramOnLoadChanged();
}

void SessionSettings::setSpectrogramDBFloor(double value) {
  if (_spectrogramDBFloor == value) return;
  _spectrogramDBFloor = value;
  _store->setSpectrogramDBFloor(value);
  emit spectrogramDBFloorChanged();
}

void SessionSettings::setSpectrogramDBCeiling(double value) {
  if (_spectrogramDBCeiling == value) return;
  _spectrogramDBCeiling = value;
  _store->setSpectrogramDBCeiling(value);
  emit spectrogramDBCeilingChanged();
}

void SessionSettings::setSpectrogramGlow(double value) {
  if (_spectrogramGlow == value) return;
  _spectrogramGlow = value;
  _store->setSpectrogramGlow(value);
  emit spectrogramGlowChanged();
}

void SessionSettings::setSpectrogramGamma(double value) {
  if (_spectrogramGamma == value) return;
  _spectrogramGamma = value;
  _store->setSpectrogramGamma(value);
  emit spectrogramGammaChanged();
}

void SessionSettings::setFftExactAverage(bool value) {
  if (_fftExactAverage == value) return;
  _fftExactAverage = value;
  _store->setFftExactAverage(value);
  emit fftExactAverageChanged();
}

void SessionSettings::setDefaultShowWaveform(bool value) {
  if (_defaultShowWaveform == value) return;
  _defaultShowWaveform = value;
  _store->setDefaultShowWaveform(value);
  emit defaultShowWaveformChanged();
}

void SessionSettings::setDefaultShowLoudnessCurve(bool value) {
  if (_defaultShowLoudnessCurve == value) return;
  _defaultShowLoudnessCurve = value;
  _store->setDefaultShowLoudnessCurve(value);
  emit defaultShowLoudnessCurveChanged();
}

void SessionSettings::setDefaultShowSpectrogram(bool value) {
  if (_defaultShowSpectrogram == value) return;
  _defaultShowSpectrogram = value;
  _store->setDefaultShowSpectrogram(value);
  emit defaultShowSpectrogramChanged();
}

void SessionSettings::setDefaultShowFFT(bool value) {
  if (_defaultShowFFT == value) return;
  _defaultShowFFT = value;
  _store->setDefaultShowFFT(value);
  emit defaultShowFFTChanged();
}

void SessionSettings::setDefaultShowStereoWidth(bool value) {
  if (_defaultShowStereoWidth == value) return;
  _defaultShowStereoWidth = value;
  _store->setDefaultShowStereoWidth(value);
  emit defaultShowStereoWidthChanged();
}

void SessionSettings::setReportIncludeLoudnessCurve(bool value) {
  if (_reportIncludeLoudnessCurve == value) return;
  _reportIncludeLoudnessCurve = value;
  _store->setReportIncludeLoudnessCurve(value);
  emit reportIncludeLoudnessCurveChanged();
}

void SessionSettings::setReportIncludeStereoWidth(bool value) {
  if (_reportIncludeStereoWidth == value) return;
  _reportIncludeStereoWidth = value;
  _store->setReportIncludeStereoWidth(value);
  emit reportIncludeStereoWidthChanged();
}

void SessionSettings::setReportIncludeChannels(bool value) {
  if (_reportIncludeChannels == value) return;
  _reportIncludeChannels = value;
  _store->setReportIncludeChannels(value);
  emit reportIncludeChannelsChanged();
}

void SessionSettings::setReportIncludeViolations(bool value) {
  if (_reportIncludeViolations == value) return;
  _reportIncludeViolations = value;
  _store->setReportIncludeViolations(value);
  emit reportIncludeViolationsChanged();
}

void SessionSettings::setMeterRollAnimation(bool value) {
  if (_meterRollAnimation == value) return;
  _meterRollAnimation = value;
  _store->setMeterRollAnimation(value);
  emit meterRollAnimationChanged();
}

void SessionSettings::setVadThreshold(double value) {
  if (_vadThreshold == value) return;
  _vadThreshold = value;
  _store->setVadThreshold(value);
  emit vadThresholdChanged();
}

void SessionSettings::setVadMinSpeechDuration(double value) {
  if (_vadMinSpeechDuration == value) return;
  _vadMinSpeechDuration = value;
  _store->setVadMinSpeechDuration(value);
  emit vadMinSpeechDurationChanged();
}

void SessionSettings::setVadMinSilenceDuration(double value) {
  if (_vadMinSilenceDuration == value) return;
  _vadMinSilenceDuration = value;
  _store->setVadMinSilenceDuration(value);
  emit vadMinSilenceDurationChanged();
}

void SessionSettings::setSpectrogramChannelIndex(const std::optional<int>& value) {
  if (_spectrogramChannelIndex == value) return;
  _spectrogramChannelIndex = value;
  emit spectrogramChannelIndexChanged();
}
}  // namespace corvane
