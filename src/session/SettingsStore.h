// SettingsStore: every persisted setting of Corvane, over QSettings (organisation "fenwright",
// application "Corvane": ~/.config/fenwright/Corvane.conf under XDG_CONFIG_HOME).
//
// Each key has a type, a default and a reader that decodes strictly:
//   - a key that was never written gives the default (presence test), so a stored 0 stays 0;
//   - booleans are a stored bool or exactly "true" / "false";
//   - integers a stored integer or text that parses whole as one (QString::toLongLong);
//   - reals a stored number or text that parses whole as a finite number in the C locale;
//   - enumerations their raw value (SettingsValues.h);
//   - JSON structures are stored as bytes; bytes that are not JSON count as absent.
// Anything else gives the default, without a report. A few keys narrow further:
// "spectrogramFftSize" takes only a power of two from 256 to 16384, "spectrogramOverlap" only
// 4, 8, 16, 32 or 64.
//
// Who reads what. The session (AudioEngine) reads its own keys (bare camel case) once at
// start-up and writes each on change; keys starting "corvane" belong to the view layer and
// reverse-domain keys to a subsystem model, which read them here when they are made. The
// structures of "chapterDetectionSettings", "rawPCMFileFormats", "corvane.routing.userPresets.v1"
// and "CorvaneGeneratorDraft" belong to their subsystems, which decode json(); the loudness
// target selection is decoded here.
//
// Thread class: main thread (QSettings itself is reentrant; one store is used from one
// thread). Writes reach the file when QSettings syncs (at the latest when the store goes).
#pragma once

#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <optional>

#include "core/LoudnessTargetSelection.h"
#include "session/SettingsValues.h"

class QSettings;

namespace corvane {

// The key names, as stored.
namespace SettingsKey {
// Layout
inline constexpr const char* defaultShowWaveform = "defaultShowWaveform";
inline constexpr const char* defaultShowLoudnessCurve = "defaultShowLoudnessCurve";
inline constexpr const char* defaultShowSpectrogram = "defaultShowSpectrogram";
inline constexpr const char* defaultShowFFT = "defaultShowFFT";
inline constexpr const char* defaultShowStereoWidth = "defaultShowStereoWidth";
inline constexpr const char* corvaneTextScale = "corvaneTextScale";
inline constexpr const char* corvaneCompactModeLabels = "corvaneCompactModeLabels";
inline constexpr const char* meterReadoutRate = "meterReadoutRate";
inline constexpr const char* meterRollAnimation = "meterRollAnimation";
inline constexpr const char* corvaneLiquidGlassEnabled = "corvaneLiquidGlassEnabled";
// Spectrogram
inline constexpr const char* spectrogramColormap = "spectrogramColormap";
inline constexpr const char* spectrogramFreqScale = "spectrogramFreqScale";
inline constexpr const char* spectrogramFftSize = "spectrogramFftSize";
inline constexpr const char* spectrogramOverlap = "spectrogramOverlap";
inline constexpr const char* autoComputeSpectrogramOnLoad = "autoComputeSpectrogramOnLoad";
inline constexpr const char* spectrogramDBFloor = "spectrogramDBFloor";
inline constexpr const char* spectrogramDBCeiling = "spectrogramDBCeiling";
inline constexpr const char* spectrogramGlow = "spectrogramGlow";
inline constexpr const char* spectrogramGamma = "spectrogramGamma";
// FFT analysis
inline constexpr const char* fftExactAverage = "fftExactAverage";
// Speech
inline constexpr const char* vadThreshold = "vadThreshold";
inline constexpr const char* vadMinSpeechDuration = "vadMinSpeechDuration";
inline constexpr const char* vadMinSilenceDuration = "vadMinSilenceDuration";
// Targets
inline constexpr const char* loudnessTargetSelection = "loudnessTargetSelection";
// Report
inline constexpr const char* reportIncludeLoudnessCurve = "reportIncludeLoudnessCurve";
inline constexpr const char* reportIncludeStereoWidth = "reportIncludeStereoWidth";
inline constexpr const char* reportIncludeChannels = "reportIncludeChannels";
inline constexpr const char* reportIncludeViolations = "reportIncludeViolations";
// Editing
inline constexpr const char* corvaneAllowSaveOverwrite = "corvaneAllowSaveOverwrite";
inline constexpr const char* corvaneConfirmSaveOverwrite = "corvaneConfirmSaveOverwrite";
// Plugins
inline constexpr const char* chainPreferOutOfProcess = "com.fenwright.Corvane.chain.preferOutOfProcess";
// Without a settings control
inline constexpr const char* corvaneShowInfoPanel = "corvaneShowInfoPanel";
inline constexpr const char* loudnessDisplayMode = "loudnessDisplayMode";
inline constexpr const char* chapterAutoRecall = "chapterAutoRecall";
inline constexpr const char* chapterDetectionSettings = "chapterDetectionSettings";
inline constexpr const char* recordingCrossfadeMs = "recordingCrossfadeMs";
inline constexpr const char* rawPCMFileFormats = "rawPCMFileFormats";
inline constexpr const char* routingUserPresets = "corvane.routing.userPresets.v1";
inline constexpr const char* routingUseMatrixView = "corvane.routing.useMatrixView";
inline constexpr const char* generatorDraft = "CorvaneGeneratorDraft";
inline constexpr const char* chainIncludeTail = "com.fenwright.Corvane.chain.includeTail";
inline constexpr const char* spectralWaveStrip = "com.fenwright.Corvane.spectral.waveStrip";
inline constexpr const char* spectralFeatherTimeMs = "com.fenwright.Corvane.spectral.featherTimeMs";
inline constexpr const char* spectralFeatherFreqHz = "com.fenwright.Corvane.spectral.featherFreqHz";
inline constexpr const char* spectralEraseDepthDb = "com.fenwright.Corvane.spectral.eraseDepthDb";
// The recent documents of the File menu (the platform keeps this list elsewhere).
inline constexpr const char* recentDocuments = "recentDocumentPaths";
}  // namespace SettingsKey

class SettingsStore {
 public:
  // The user's settings.
  SettingsStore();
  // Settings in an INI file of their own (tests, a portable setup).
  explicit SettingsStore(const QString& iniFilePath);
  ~SettingsStore();
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  // ---- Generic, strict ----------------------------------------------------------------------
  bool contains(const char* key) const;
  void remove(const char* key);
  bool readBool(const char* key, bool fallback) const;
  long long readInteger(const char* key, long long fallback) const;
  double readReal(const char* key, double fallback) const;
  QString readString(const char* key, const QString& fallback) const;
  // The stored bytes as JSON; none when absent or not JSON.
  std::optional<QJsonDocument> readJson(const char* key) const;
  void writeBool(const char* key, bool value);
  void writeInteger(const char* key, long long value);
  void writeReal(const char* key, double value);
  void writeString(const char* key, const QString& value);
  void writeJson(const char* key, const QJsonDocument& value);
  // Writes pending changes to the file now.
  void sync();

  // ---- Keys with a settings control ---------------------------------------------------------
  bool defaultShowWaveform() const;               // true
  bool defaultShowLoudnessCurve() const;          // true
  bool defaultShowSpectrogram() const;            // true
  bool defaultShowFFT() const;                    // true
  bool defaultShowStereoWidth() const;            // true
  CorvaneTextScale corvaneTextScale() const;      // standard
  bool corvaneCompactModeLabels() const;          // false
  MeterReadoutRate meterReadoutRate() const;      // hz10
  bool meterRollAnimation() const;                // false
  bool corvaneLiquidGlassEnabled() const;         // true
  SpectrogramColormap spectrogramColormap() const;  // inferno
  SpectrogramFreqScale spectrogramFreqScale() const;  // logarithmic
  int spectrogramFftSize() const;                 // 4096; a power of two in 256 ... 16384
  SpectrogramOverlap spectrogramOverlap() const;  // factor 4
  bool autoComputeSpectrogramOnLoad() const;      // false
  double spectrogramDBFloor() const;              // -96 dB
  double spectrogramDBCeiling() const;            // 0 dB
  double spectrogramGlow() const;                 // 0.6
  double spectrogramGamma() const;                // 1.0
  bool fftExactAverage() const;                   // false
  double vadThreshold() const;                    // 0.5
  double vadMinSpeechDuration() const;            // 0.1 s
  double vadMinSilenceDuration() const;           // 0.1 s
  // The default selection when absent or undecodable; a stored selection is repaired by
  // LoudnessTargetSelection::fromStored.
  LoudnessTargetSelection loudnessTargetSelection() const;
  bool reportIncludeLoudnessCurve() const;        // true
  bool reportIncludeStereoWidth() const;          // true
  bool reportIncludeChannels() const;             // true
  bool reportIncludeViolations() const;           // true
  bool corvaneAllowSaveOverwrite() const;         // false
  bool corvaneConfirmSaveOverwrite() const;       // true
  bool chainPreferOutOfProcess() const;           // true

  void setDefaultShowWaveform(bool v) { writeBool(SettingsKey::defaultShowWaveform, v); }
  void setDefaultShowLoudnessCurve(bool v) { writeBool(SettingsKey::defaultShowLoudnessCurve, v); }
  void setDefaultShowSpectrogram(bool v) { writeBool(SettingsKey::defaultShowSpectrogram, v); }
  void setDefaultShowFFT(bool v) { writeBool(SettingsKey::defaultShowFFT, v); }
  void setDefaultShowStereoWidth(bool v) { writeBool(SettingsKey::defaultShowStereoWidth, v); }
  void setCorvaneTextScale(CorvaneTextScale v) { writeString(SettingsKey::corvaneTextScale, rawValue(v)); }
  void setCorvaneCompactModeLabels(bool v) { writeBool(SettingsKey::corvaneCompactModeLabels, v); }
  void setMeterReadoutRate(MeterReadoutRate v) { writeString(SettingsKey::meterReadoutRate, rawValue(v)); }
  void setMeterRollAnimation(bool v) { writeBool(SettingsKey::meterRollAnimation, v); }
  void setCorvaneLiquidGlassEnabled(bool v) { writeBool(SettingsKey::corvaneLiquidGlassEnabled, v); }
  void setSpectrogramColormap(SpectrogramColormap v) { writeString(SettingsKey::spectrogramColormap, rawValue(v)); }
  void setSpectrogramFreqScale(SpectrogramFreqScale v) { writeString(SettingsKey::spectrogramFreqScale, rawValue(v)); }
  void setSpectrogramFftSize(int v) { writeInteger(SettingsKey::spectrogramFftSize, v); }
  void setSpectrogramOverlap(SpectrogramOverlap v) { writeInteger(SettingsKey::spectrogramOverlap, overlapFactor(v)); }
  void setAutoComputeSpectrogramOnLoad(bool v) { writeBool(SettingsKey::autoComputeSpectrogramOnLoad, v); }
  void setSpectrogramDBFloor(double v) { writeReal(SettingsKey::spectrogramDBFloor, v); }
  void setSpectrogramDBCeiling(double v) { writeReal(SettingsKey::spectrogramDBCeiling, v); }
  void setSpectrogramGlow(double v) { writeReal(SettingsKey::spectrogramGlow, v); }
  void setSpectrogramGamma(double v) { writeReal(SettingsKey::spectrogramGamma, v); }
  void setFftExactAverage(bool v) { writeBool(SettingsKey::fftExactAverage, v); }
  void setVadThreshold(double v) { writeReal(SettingsKey::vadThreshold, v); }
  void setVadMinSpeechDuration(double v) { writeReal(SettingsKey::vadMinSpeechDuration, v); }
  void setVadMinSilenceDuration(double v) { writeReal(SettingsKey::vadMinSilenceDuration, v); }
  void setLoudnessTargetSelection(const LoudnessTargetSelection& selection);
  void setReportIncludeLoudnessCurve(bool v) { writeBool(SettingsKey::reportIncludeLoudnessCurve, v); }
  void setReportIncludeStereoWidth(bool v) { writeBool(SettingsKey::reportIncludeStereoWidth, v); }
  void setReportIncludeChannels(bool v) { writeBool(SettingsKey::reportIncludeChannels, v); }
  void setReportIncludeViolations(bool v) { writeBool(SettingsKey::reportIncludeViolations, v); }
  void setCorvaneAllowSaveOverwrite(bool v) { writeBool(SettingsKey::corvaneAllowSaveOverwrite, v); }
  void setCorvaneConfirmSaveOverwrite(bool v) { writeBool(SettingsKey::corvaneConfirmSaveOverwrite, v); }
  void setChainPreferOutOfProcess(bool v) { writeBool(SettingsKey::chainPreferOutOfProcess, v); }

  // ---- Keys without a settings control -----------------------------------------------------
  bool corvaneShowInfoPanel() const;              // true
  LoudnessDisplayMode loudnessDisplayMode() const;  // live
  bool chapterAutoRecall() const;                 // true
  std::optional<QJsonDocument> chapterDetectionSettings() const;  // none: the chapter defaults
  double recordingCrossfadeMs() const;            // 10 ms
  std::optional<QJsonDocument> rawPCMFileFormats() const;         // none: no remembered formats
  std::optional<QJsonDocument> routingUserPresets() const;        // none: no presets
  // The matrix is the routing panel's default form.
  bool routingUseMatrixView() const;              // true
  std::optional<QJsonDocument> generatorDraft() const;            // none: no draft
  bool chainIncludeTail() const;                  // false
  bool spectralWaveStrip() const;                 // true
  double spectralFeatherTimeMs() const;           // 20 ms
  double spectralFeatherFreqHz() const;           // 50 Hz
  double spectralEraseDepthDb() const;            // 12 dB
  // Most recent first; an absent or malformed list is empty.
  QStringList recentDocuments() const;

  void setCorvaneShowInfoPanel(bool v) { writeBool(SettingsKey::corvaneShowInfoPanel, v); }
  void setLoudnessDisplayMode(LoudnessDisplayMode v) { writeString(SettingsKey::loudnessDisplayMode, rawValue(v)); }
  void setChapterAutoRecall(bool v) { writeBool(SettingsKey::chapterAutoRecall, v); }
  void setChapterDetectionSettings(const QJsonDocument& v) { writeJson(SettingsKey::chapterDetectionSettings, v); }
  void setRecordingCrossfadeMs(double v) { writeReal(SettingsKey::recordingCrossfadeMs, v); }
  void setRawPCMFileFormats(const QJsonDocument& v) { writeJson(SettingsKey::rawPCMFileFormats, v); }
  void setRoutingUserPresets(const QJsonDocument& v) { writeJson(SettingsKey::routingUserPresets, v); }
  void setRoutingUseMatrixView(bool v) { writeBool(SettingsKey::routingUseMatrixView, v); }
  void setGeneratorDraft(const QJsonDocument& v) { writeJson(SettingsKey::generatorDraft, v); }
  void setChainIncludeTail(bool v) { writeBool(SettingsKey::chainIncludeTail, v); }
  void setSpectralWaveStrip(bool v) { writeBool(SettingsKey::spectralWaveStrip, v); }
  void setSpectralFeatherTimeMs(double v) { writeReal(SettingsKey::spectralFeatherTimeMs, v); }
  void setSpectralFeatherFreqHz(double v) { writeReal(SettingsKey::spectralFeatherFreqHz, v); }
  void setSpectralEraseDepthDb(double v) { writeReal(SettingsKey::spectralEraseDepthDb, v); }
  void setRecentDocuments(const QStringList& paths);

  // The loudness target selection as the JSON object it is stored as, and back (the default
  // selection for anything that isn't an object).
  static QJsonDocument encodeTargetSelection(const LoudnessTargetSelection& selection);
  static LoudnessTargetSelection decodeTargetSelection(const std::optional<QJsonDocument>& json);

 private:
  QVariant stored(const char* key) const;

  std::unique_ptr<QSettings> _settings;
};

}  // namespace corvane
