// SessionSettings: the settings the session owns (display, analysis and speech detection),
// as observable properties.
//
// The persisted ones are read once, when the session is made, from the settings store; each
// setter writes its key when the value really changes (and notifies only then). Their effect
// is their owner's business: the spectrogram's colours at the next frame, its window size and
// overlap at the next load or Analyse, the speech settings through a background re-analysis,
// the defaultShow values when the main view next appears. fftSize, fftWindowType and
// spectrogramChannelIndex are not persisted: they last until the application quits.
//
// Thread class: main thread. The load road captures what it needs by value (currentVADTuning,
// the spectrogram settings) before it starts a task.
#pragma once

#include <QObject>
#include <optional>

#include "core/FFTProcessor.h"
#include "headless/speech/SileroVADTuning.h"
#include "session/SettingsValues.h"

namespace corvane {

class SettingsStore;

class SessionSettings : public QObject {
  Q_OBJECT
  Q_PROPERTY(int fftSize READ fftSize WRITE setFftSize NOTIFY fftSizeChanged)
  Q_PROPERTY(corvane::FFTWindowType fftWindowType READ fftWindowType WRITE setFftWindowType NOTIFY fftWindowTypeChanged)
  Q_PROPERTY(corvane::SpectrogramColormap spectrogramColormap READ spectrogramColormap WRITE setSpectrogramColormap NOTIFY spectrogramColormapChanged)
  Q_PROPERTY(corvane::SpectrogramFreqScale spectrogramFreqScale READ spectrogramFreqScale WRITE setSpectrogramFreqScale NOTIFY spectrogramFreqScaleChanged)
  Q_PROPERTY(int spectrogramFftSize READ spectrogramFftSize WRITE setSpectrogramFftSize NOTIFY spectrogramFftSizeChanged)
  Q_PROPERTY(corvane::SpectrogramOverlap spectrogramOverlap READ spectrogramOverlap WRITE setSpectrogramOverlap NOTIFY spectrogramOverlapChanged)
  Q_PROPERTY(bool autoComputeSpectrogramOnLoad READ autoComputeSpectrogramOnLoad WRITE setAutoComputeSpectrogramOnLoad NOTIFY autoComputeSpectrogramOnLoadChanged)
  Q_PROPERTY(double spectrogramDBFloor READ spectrogramDBFloor WRITE setSpectrogramDBFloor NOTIFY spectrogramDBFloorChanged)
  Q_PROPERTY(double spectrogramDBCeiling READ spectrogramDBCeiling WRITE setSpectrogramDBCeiling NOTIFY spectrogramDBCeilingChanged)
  Q_PROPERTY(double spectrogramGlow READ spectrogramGlow WRITE setSpectrogramGlow NOTIFY spectrogramGlowChanged)
  Q_PROPERTY(double spectrogramGamma READ spectrogramGamma WRITE setSpectrogramGamma NOTIFY spectrogramGammaChanged)
  Q_PROPERTY(bool fftExactAverage READ fftExactAverage WRITE setFftExactAverage NOTIFY fftExactAverageChanged)
  Q_PROPERTY(bool defaultShowWaveform READ defaultShowWaveform WRITE setDefaultShowWaveform NOTIFY defaultShowWaveformChanged)
  Q_PROPERTY(bool defaultShowLoudnessCurve READ defaultShowLoudnessCurve WRITE setDefaultShowLoudnessCurve NOTIFY defaultShowLoudnessCurveChanged)
  Q_PROPERTY(bool defaultShowSpectrogram READ defaultShowSpectrogram WRITE setDefaultShowSpectrogram NOTIFY defaultShowSpectrogramChanged)
  Q_PROPERTY(bool defaultShowFFT READ defaultShowFFT WRITE setDefaultShowFFT NOTIFY defaultShowFFTChanged)
  Q_PROPERTY(bool defaultShowStereoWidth READ defaultShowStereoWidth WRITE setDefaultShowStereoWidth NOTIFY defaultShowStereoWidthChanged)
  Q_PROPERTY(bool reportIncludeLoudnessCurve READ reportIncludeLoudnessCurve WRITE setReportIncludeLoudnessCurve NOTIFY reportIncludeLoudnessCurveChanged)
  Q_PROPERTY(bool reportIncludeStereoWidth READ reportIncludeStereoWidth WRITE setReportIncludeStereoWidth NOTIFY reportIncludeStereoWidthChanged)
  Q_PROPERTY(bool reportIncludeChannels READ reportIncludeChannels WRITE setReportIncludeChannels NOTIFY reportIncludeChannelsChanged)
  Q_PROPERTY(bool reportIncludeViolations READ reportIncludeViolations WRITE setReportIncludeViolations NOTIFY reportIncludeViolationsChanged)
  Q_PROPERTY(bool meterRollAnimation READ meterRollAnimation WRITE setMeterRollAnimation NOTIFY meterRollAnimationChanged)
  Q_PROPERTY(double vadThreshold READ vadThreshold WRITE setVadThreshold NOTIFY vadThresholdChanged)
  Q_PROPERTY(double vadMinSpeechDuration READ vadMinSpeechDuration WRITE setVadMinSpeechDuration NOTIFY vadMinSpeechDurationChanged)
  Q_PROPERTY(double vadMinSilenceDuration READ vadMinSilenceDuration WRITE setVadMinSilenceDuration NOTIFY vadMinSilenceDurationChanged)
  Q_PROPERTY(std::optional<int> spectrogramChannelIndex READ spectrogramChannelIndex WRITE setSpectrogramChannelIndex NOTIFY spectrogramChannelIndexChanged)

 public:
  // Reads the persisted values from `store`, which must outlive this object.
  explicit SessionSettings(SettingsStore& store, QObject* parent = nullptr);

  // The speech detector's tuning from the three VAD settings.
  SileroVADTuning currentVADTuning() const;

  int fftSize() const { return _fftSize; }
  void setFftSize(int value);
  FFTWindowType fftWindowType() const { return _fftWindowType; }
  void setFftWindowType(FFTWindowType value);
  SpectrogramColormap spectrogramColormap() const { return _spectrogramColormap; }
  void setSpectrogramColormap(SpectrogramColormap value);
  SpectrogramFreqScale spectrogramFreqScale() const { return _spectrogramFreqScale; }
  void setSpectrogramFreqScale(SpectrogramFreqScale value);
  int spectrogramFftSize() const { return _spectrogramFftSize; }
  void setSpectrogramFftSize(int value);
  SpectrogramOverlap spectrogramOverlap() const { return _spectrogramOverlap; }
  void setSpectrogramOverlap(SpectrogramOverlap value);
  bool autoComputeSpectrogramOnLoad() const { return _autoComputeSpectrogramOnLoad; }
  void setAutoComputeSpectrogramOnLoad(bool value);
  double spectrogramDBFloor() const { return _spectrogramDBFloor; }
  void setSpectrogramDBFloor(double value);
  double spectrogramDBCeiling() const { return _spectrogramDBCeiling; }
  void setSpectrogramDBCeiling(double value);
  double spectrogramGlow() const { return _spectrogramGlow; }
  void setSpectrogramGlow(double value);
  double spectrogramGamma() const { return _spectrogramGamma; }
  void setSpectrogramGamma(double value);
  bool fftExactAverage() const { return _fftExactAverage; }
  void setFftExactAverage(bool value);
  bool defaultShowWaveform() const { return _defaultShowWaveform; }
  void setDefaultShowWaveform(bool value);
  bool defaultShowLoudnessCurve() const { return _defaultShowLoudnessCurve; }
  void setDefaultShowLoudnessCurve(bool value);
  bool defaultShowSpectrogram() const { return _defaultShowSpectrogram; }
  void setDefaultShowSpectrogram(bool value);
  bool defaultShowFFT() const { return _defaultShowFFT; }
  void setDefaultShowFFT(bool value);
  bool defaultShowStereoWidth() const { return _defaultShowStereoWidth; }
  void setDefaultShowStereoWidth(bool value);
  bool reportIncludeLoudnessCurve() const { return _reportIncludeLoudnessCurve; }
  void setReportIncludeLoudnessCurve(bool value);
  bool reportIncludeStereoWidth() const { return _reportIncludeStereoWidth; }
  void setReportIncludeStereoWidth(bool value);
  bool reportIncludeChannels() const { return _reportIncludeChannels; }
  void setReportIncludeChannels(bool value);
  bool reportIncludeViolations() const { return _reportIncludeViolations; }
  void setReportIncludeViolations(bool value);
  bool meterRollAnimation() const { return _meterRollAnimation; }
  void setMeterRollAnimation(bool value);
  double vadThreshold() const { return _vadThreshold; }
  void setVadThreshold(double value);
  double vadMinSpeechDuration() const { return _vadMinSpeechDuration; }
  void setVadMinSpeechDuration(double value);
  double vadMinSilenceDuration() const { return _vadMinSilenceDuration; }
  void setVadMinSilenceDuration(double value);
  std::optional<int> spectrogramChannelIndex() const { return _spectrogramChannelIndex; }
  void setSpectrogramChannelIndex(const std::optional<int>& value);

 signals:
  void fftSizeChanged();
  void fftWindowTypeChanged();
  void spectrogramColormapChanged();
  void spectrogramFreqScaleChanged();
  void spectrogramFftSizeChanged();
  void spectrogramOverlapChanged();
  void autoComputeSpectrogramOnLoadChanged();
  void spectrogramDBFloorChanged();
  void spectrogramDBCeilingChanged();
  void spectrogramGlowChanged();
  void spectrogramGammaChanged();
  void fftExactAverageChanged();
  void defaultShowWaveformChanged();
  void defaultShowLoudnessCurveChanged();
  void defaultShowSpectrogramChanged();
  void defaultShowFFTChanged();
  void defaultShowStereoWidthChanged();
  void reportIncludeLoudnessCurveChanged();
  void reportIncludeStereoWidthChanged();
  void reportIncludeChannelsChanged();
  void reportIncludeViolationsChanged();
  void meterRollAnimationChanged();
  void vadThresholdChanged();
  void vadMinSpeechDurationChanged();
  void vadMinSilenceDurationChanged();
  void spectrogramChannelIndexChanged();

 private:
  SettingsStore* _store;
  int _fftSize{4096};
  FFTWindowType _fftWindowType{FFTWindowType::Hann};
  SpectrogramColormap _spectrogramColormap{};
  SpectrogramFreqScale _spectrogramFreqScale{};
  int _spectrogramFftSize{};
  SpectrogramOverlap _spectrogramOverlap{};
  bool _autoComputeSpectrogramOnLoad{};
  double _spectrogramDBFloor{};
  double _spectrogramDBCeiling{};
  double _spectrogramGlow{};
  double _spectrogramGamma{};
  bool _fftExactAverage{};
  bool _defaultShowWaveform{};
  bool _defaultShowLoudnessCurve{};
  bool _defaultShowSpectrogram{};
  bool _defaultShowFFT{};
  bool _defaultShowStereoWidth{};
  bool _reportIncludeLoudnessCurve{};
  bool _reportIncludeStereoWidth{};
  bool _reportIncludeChannels{};
  bool _reportIncludeViolations{};
  bool _meterRollAnimation{};
  double _vadThreshold{};
  double _vadMinSpeechDuration{};
  double _vadMinSilenceDuration{};
  std::optional<int> _spectrogramChannelIndex{std::nullopt};

};

}  // namespace corvane
