#include "session/SettingsStore.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonParseError>
#include <QMetaType>
#include <QSettings>
#include <cmath>

#include "headless/speech/SileroVADTuning.h"

namespace corvane {

namespace {

constexpr const char* kOrganisation = "fenwright";
constexpr const char* kApplication = "Corvane";

std::optional<bool> decodeBool(const QVariant& v) {
  if (v.typeId() == QMetaType::Bool) return v.toBool();
  if (v.typeId() == QMetaType::QString) {
    const QString text = v.toString();
    if (text == QLatin1String("true")) return true;
    if (text == QLatin1String("false")) return false;
  }
  return std::nullopt;
}

std::optional<long long> decodeInteger(const QVariant& v) {
  switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
      return v.toLongLong();
    case QMetaType::QString: {
      const QString text = v.toString();
      bool ok = false;
      const long long value = text.toLongLong(&ok);
      // toLongLong forgives surrounding blanks; a stored number never has them.
      if (ok && text.trimmed().size() == text.size()) return value;
      return std::nullopt;
    }
    default:
      return std::nullopt;
  }
}

std::optional<double> decodeReal(const QVariant& v) {
  std::optional<double> value;
  switch (v.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
      value = v.toDouble();
      break;
    case QMetaType::QString: {
      const QString text = v.toString();
      bool ok = false;
      // QString::toDouble reads the C locale whatever the user's locale is.
      const double parsed = text.toDouble(&ok);
      if (ok && text.trimmed().size() == text.size()) value = parsed;
      break;
    }
    default:
      break;
  }
  if (value && !std::isfinite(*value)) return std::nullopt;
  return value;
}

QJsonArray stringArray(const std::vector<std::string>& values) {
  QJsonArray array;
  for (const auto& v : values) array.append(QString::fromStdString(v));
  return array;
}

std::string stringMember(const QJsonObject& object, const char* key) {
  const QJsonValue v = object.value(QLatin1String(key));
  return v.isString() ? v.toString().toStdString() : std::string();
}

double numberMember(const QJsonObject& object, const char* key) {
  const QJsonValue v = object.value(QLatin1String(key));
  return v.isDouble() ? v.toDouble() : std::nan("");
}

}  // namespace

SettingsStore::SettingsStore() : _settings(std::make_unique<QSettings>(kOrganisation, kApplication)) {}

SettingsStore::SettingsStore(const QString& iniFilePath)
    : _settings(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat)) {}

SettingsStore::~SettingsStore() = default;

QVariant SettingsStore::stored(const char* key) const { return _settings->value(QLatin1String(key)); }

bool SettingsStore::contains(const char* key) const { return _settings->contains(QLatin1String(key)); }
void SettingsStore::remove(const char* key) { _settings->remove(QLatin1String(key)); }

bool SettingsStore::readBool(const char* key, bool fallback) const {
  if (!contains(key)) return fallback;
  return decodeBool(stored(key)).value_or(fallback);
}

long long SettingsStore::readInteger(const char* key, long long fallback) const {
  if (!contains(key)) return fallback;
  return decodeInteger(stored(key)).value_or(fallback);
}

double SettingsStore::readReal(const char* key, double fallback) const {
  if (!contains(key)) return fallback;
  return decodeReal(stored(key)).value_or(fallback);
}

QString SettingsStore::readString(const char* key, const QString& fallback) const {
  if (!contains(key)) return fallback;
  const QVariant v = stored(key);
  return v.typeId() == QMetaType::QString ? v.toString() : fallback;
}

std::optional<QJsonDocument> SettingsStore::readJson(const char* key) const {
  if (!contains(key)) return std::nullopt;
  const QVariant v = stored(key);
  if (v.typeId() != QMetaType::QByteArray && v.typeId() != QMetaType::QString) return std::nullopt;
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(v.toByteArray(), &error);
  if (error.error != QJsonParseError::NoError || document.isNull()) return std::nullopt;
  return document;
}

void SettingsStore::writeBool(const char* key, bool value) { _settings->setValue(QLatin1String(key), value); }
void SettingsStore::writeInteger(const char* key, long long value) { _settings->setValue(QLatin1String(key), value); }
void SettingsStore::writeReal(const char* key, double value) { _settings->setValue(QLatin1String(key), value); }
void SettingsStore::writeString(const char* key, const QString& value) { _settings->setValue(QLatin1String(key), value); }
void SettingsStore::writeJson(const char* key, const QJsonDocument& value) {
  _settings->setValue(QLatin1String(key), value.toJson(QJsonDocument::Compact));
}
void SettingsStore::sync() { _settings->sync(); }

// ---- Keys with a settings control -------------------------------------------------------------

bool SettingsStore::defaultShowWaveform() const { return readBool(SettingsKey::defaultShowWaveform, true); }
bool SettingsStore::defaultShowLoudnessCurve() const { return readBool(SettingsKey::defaultShowLoudnessCurve, true); }
bool SettingsStore::defaultShowSpectrogram() const { return readBool(SettingsKey::defaultShowSpectrogram, true); }
bool SettingsStore::defaultShowFFT() const { return readBool(SettingsKey::defaultShowFFT, true); }
bool SettingsStore::defaultShowStereoWidth() const { return readBool(SettingsKey::defaultShowStereoWidth, true); }

CorvaneTextScale SettingsStore::corvaneTextScale() const {
  return parseCorvaneTextScale(readString(SettingsKey::corvaneTextScale, {})).value_or(CorvaneTextScale::standard);
}
bool SettingsStore::corvaneCompactModeLabels() const { return readBool(SettingsKey::corvaneCompactModeLabels, false); }
MeterReadoutRate SettingsStore::meterReadoutRate() const {
  return parseMeterReadoutRate(readString(SettingsKey::meterReadoutRate, {})).value_or(MeterReadoutRate::hz10);
}
bool SettingsStore::meterRollAnimation() const { return readBool(SettingsKey::meterRollAnimation, false); }
bool SettingsStore::corvaneLiquidGlassEnabled() const { return readBool(SettingsKey::corvaneLiquidGlassEnabled, true); }

SpectrogramColormap SettingsStore::spectrogramColormap() const {
  return parseSpectrogramColormap(readString(SettingsKey::spectrogramColormap, {})).value_or(SpectrogramColormap::inferno);
}
SpectrogramFreqScale SettingsStore::spectrogramFreqScale() const {
  return parseSpectrogramFreqScale(readString(SettingsKey::spectrogramFreqScale, {}))
      .value_or(SpectrogramFreqScale::logarithmic);
}
int SettingsStore::spectrogramFftSize() const {
  const long long size = readInteger(SettingsKey::spectrogramFftSize, 4096);
  return isAcceptedSpectrogramFftSize(size) ? static_cast<int>(size) : 4096;
}
SpectrogramOverlap SettingsStore::spectrogramOverlap() const {
  return spectrogramOverlapFromFactor(readInteger(SettingsKey::spectrogramOverlap, 4)).value_or(SpectrogramOverlap::overlap75);
}
bool SettingsStore::autoComputeSpectrogramOnLoad() const {
  return readBool(SettingsKey::autoComputeSpectrogramOnLoad, false);
}
double SettingsStore::spectrogramDBFloor() const { return readReal(SettingsKey::spectrogramDBFloor, -96.0); }
double SettingsStore::spectrogramDBCeiling() const { return readReal(SettingsKey::spectrogramDBCeiling, 0.0); }
double SettingsStore::spectrogramGlow() const { return readReal(SettingsKey::spectrogramGlow, 0.6); }
double SettingsStore::spectrogramGamma() const { return readReal(SettingsKey::spectrogramGamma, 1.0); }
bool SettingsStore::fftExactAverage() const { return readBool(SettingsKey::fftExactAverage, false); }

double SettingsStore::vadThreshold() const {
  return readReal(SettingsKey::vadThreshold, SileroVADTuning::kDefaultThreshold);
}
double SettingsStore::vadMinSpeechDuration() const {
  return readReal(SettingsKey::vadMinSpeechDuration, SileroVADTuning::kDefaultMinSpeechDurationSec);
}
double SettingsStore::vadMinSilenceDuration() const {
  return readReal(SettingsKey::vadMinSilenceDuration, SileroVADTuning::kDefaultMinSilenceDurationSec);
}

LoudnessTargetSelection SettingsStore::loudnessTargetSelection() const {
  return decodeTargetSelection(readJson(SettingsKey::loudnessTargetSelection));
}
void SettingsStore::setLoudnessTargetSelection(const LoudnessTargetSelection& selection) {
  writeJson(SettingsKey::loudnessTargetSelection, encodeTargetSelection(selection));
}

bool SettingsStore::reportIncludeLoudnessCurve() const { return readBool(SettingsKey::reportIncludeLoudnessCurve, true); }
bool SettingsStore::reportIncludeStereoWidth() const { return readBool(SettingsKey::reportIncludeStereoWidth, true); }
bool SettingsStore::reportIncludeChannels() const { return readBool(SettingsKey::reportIncludeChannels, true); }
bool SettingsStore::reportIncludeViolations() const { return readBool(SettingsKey::reportIncludeViolations, true); }
bool SettingsStore::corvaneAllowSaveOverwrite() const { return readBool(SettingsKey::corvaneAllowSaveOverwrite, false); }
bool SettingsStore::corvaneConfirmSaveOverwrite() const { return readBool(SettingsKey::corvaneConfirmSaveOverwrite, true); }
bool SettingsStore::chainPreferOutOfProcess() const { return readBool(SettingsKey::chainPreferOutOfProcess, true); }

// ---- Keys without a settings control ----------------------------------------------------------

bool SettingsStore::corvaneShowInfoPanel() const { return readBool(SettingsKey::corvaneShowInfoPanel, true); }
LoudnessDisplayMode SettingsStore::loudnessDisplayMode() const {
  return parseLoudnessDisplayMode(readString(SettingsKey::loudnessDisplayMode, {})).value_or(LoudnessDisplayMode::live);
}
bool SettingsStore::chapterAutoRecall() const { return readBool(SettingsKey::chapterAutoRecall, true); }
std::optional<QJsonDocument> SettingsStore::chapterDetectionSettings() const {
  return readJson(SettingsKey::chapterDetectionSettings);
}
double SettingsStore::recordingCrossfadeMs() const { return readReal(SettingsKey::recordingCrossfadeMs, 10.0); }
std::optional<QJsonDocument> SettingsStore::rawPCMFileFormats() const { return readJson(SettingsKey::rawPCMFileFormats); }
std::optional<QJsonDocument> SettingsStore::routingUserPresets() const { return readJson(SettingsKey::routingUserPresets); }
bool SettingsStore::routingUseMatrixView() const { return readBool(SettingsKey::routingUseMatrixView, true); }
std::optional<QJsonDocument> SettingsStore::generatorDraft() const { return readJson(SettingsKey::generatorDraft); }
bool SettingsStore::chainIncludeTail() const { return readBool(SettingsKey::chainIncludeTail, false); }
bool SettingsStore::spectralWaveStrip() const { return readBool(SettingsKey::spectralWaveStrip, true); }
double SettingsStore::spectralFeatherTimeMs() const { return readReal(SettingsKey::spectralFeatherTimeMs, 20.0); }
double SettingsStore::spectralFeatherFreqHz() const { return readReal(SettingsKey::spectralFeatherFreqHz, 50.0); }
double SettingsStore::spectralEraseDepthDb() const { return readReal(SettingsKey::spectralEraseDepthDb, 12.0); }

QStringList SettingsStore::recentDocuments() const {
  QStringList paths;
  const auto json = readJson(SettingsKey::recentDocuments);
  if (!json || !json->isArray()) return paths;
  for (const QJsonValue& v : json->array()) {
    if (v.isString() && !v.toString().isEmpty()) paths.append(v.toString());
  }
  return paths;
}

void SettingsStore::setRecentDocuments(const QStringList& paths) {
  writeJson(SettingsKey::recentDocuments, QJsonDocument(QJsonArray::fromStringList(paths)));
}

// ---- The loudness target selection as JSON ----------------------------------------------------

QJsonDocument SettingsStore::encodeTargetSelection(const LoudnessTargetSelection& selection) {
  const LoudnessTargetSelection::Stored stored = selection.toStored();
  QJsonObject root;
  root.insert(QStringLiteral("mode"), QString::fromStdString(stored.mode));
  QJsonObject selected;
  for (const auto& [mode, ids] : stored.selectedIDs) selected.insert(QString::fromStdString(mode), stringArray(ids));
  root.insert(QStringLiteral("selectedIDs"), selected);
  QJsonArray custom;
  for (const auto& t : stored.customTargets) {
    QJsonObject target;
    target.insert(QStringLiteral("id"), QString::fromStdString(t.id));
    target.insert(QStringLiteral("name"), QString::fromStdString(t.name));
    target.insert(QStringLiteral("mode"), QString::fromStdString(t.mode));
    target.insert(QStringLiteral("source"), QString::fromStdString(t.source));
    target.insert(QStringLiteral("referenceLUFS"), t.referenceLUFS);
    target.insert(QStringLiteral("toleranceLU"), t.toleranceLU);
    target.insert(QStringLiteral("truePeakCeilingDBTP"), t.truePeakCeilingDBTP);
    custom.append(target);
  }
  root.insert(QStringLiteral("customTargets"), custom);
  return QJsonDocument(root);
}

LoudnessTargetSelection SettingsStore::decodeTargetSelection(const std::optional<QJsonDocument>& json) {
  if (!json || !json->isObject()) return LoudnessTargetSelection::defaultSelection();
  const QJsonObject root = json->object();
  LoudnessTargetSelection::Stored stored;
  stored.mode = stringMember(root, "mode");
  const QJsonObject selected = root.value(QStringLiteral("selectedIDs")).toObject();
  for (auto it = selected.begin(); it != selected.end(); ++it) {
    std::vector<std::string> ids;
    for (const QJsonValue& id : it.value().toArray()) {
      if (id.isString()) ids.push_back(id.toString().toStdString());
    }
    stored.selectedIDs[it.key().toStdString()] = std::move(ids);
  }
  for (const QJsonValue& entry : root.value(QStringLiteral("customTargets")).toArray()) {
    const QJsonObject t = entry.toObject();
    stored.customTargets.push_back({stringMember(t, "id"), stringMember(t, "name"), stringMember(t, "mode"),
                                    stringMember(t, "source"), numberMember(t, "referenceLUFS"),
                                    numberMember(t, "toleranceLU"), numberMember(t, "truePeakCeilingDBTP")});
  }
  return LoudnessTargetSelection::fromStored(stored);
}

}  // namespace corvane
