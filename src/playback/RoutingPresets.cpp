#include "playback/RoutingPresets.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QTimeZone>
#include <algorithm>
#include <cmath>

#include "core/ChannelLayout.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

constexpr float kMinus3 = -3.0f;

PresetRoute route(int out, std::initializer_list<std::pair<int, float>> sources) {
  PresetRoute r;
  r.outChannelIndex = out;
  for (const auto& [src, db] : sources) r.sources.push_back(PresetSource{src, db, RoutingPhase::inPhase});
  return r;
}

std::vector<RoutingPreset> makeBuiltIns() {
  std::vector<RoutingPreset> all;
  const auto add = [&](std::string id, std::string name, PresetCategory category, int minFile, int minDevice,
                       std::vector<PresetRoute> routes, std::string description, bool identity = false) {
    all.push_back(RoutingPreset{std::move(id), std::move(name), category, std::move(description), minFile, minDevice,
                                std::move(routes), identity});
  };
  add("default-identity", "Default", PresetCategory::basic, 1, 1, {},
      "Restore the default 1:1 routing (source channel N to output channel N) for as many channels as both file "
      "and device have. Use this to get back to a clean state after experimenting.",
      true);
  add("basic-lr", "L/R", PresetCategory::basic, 2, 2, {route(0, {{0, 0}}), route(1, {{1, 0}})},
      "Source L to Out 1, source R to Out 2.");
  add("basic-mono-l", "Mono L", PresetCategory::basic, 1, 2, {route(0, {{0, 0}}), route(1, {{0, 0}})},
      "Source channel 1 (L) on both outputs.");
  add("basic-mix-lr", "L+R \u2192 Both", PresetCategory::basic, 2, 2,
      {route(0, {{0, kMinus3}, {1, kMinus3}}), route(1, {{0, kMinus3}, {1, kMinus3}})},
      "Sum L and R at -3 dB each, send the result to both outputs.");
  add("basic-swap", "Swap L/R", PresetCategory::basic, 2, 2, {route(0, {{1, 0}}), route(1, {{0, 0}})},
      "R on Out 1, L on Out 2.");
  add("downmix-5.1-lo-ro", "5.1 \u2192 Lo/Ro", PresetCategory::downmix, 6, 2,
      {route(0, {{0, 0}, {2, kMinus3}, {4, kMinus3}}), route(1, {{1, 0}, {2, kMinus3}, {5, kMinus3}})},
      "ITU-R BS.775 stereo downmix. Lo = L + (-3 dB)\u00B7C + (-3 dB)\u00B7Ls. Ro = R + (-3 dB)\u00B7C + "
      "(-3 dB)\u00B7Rs. LFE is dropped.");
  add("downmix-5.1-mono", "5.1 \u2192 Mono", PresetCategory::downmix, 6, 1,
      {route(0, {{0, kMinus3}, {1, kMinus3}, {2, kMinus3}, {4, kMinus3}, {5, kMinus3}}),
       route(1, {{0, kMinus3}, {1, kMinus3}, {2, kMinus3}, {4, kMinus3}, {5, kMinus3}})},
      "Mono fold-down. Sums L, R, C, Ls and Rs at -3 dB each into both stereo outputs. LFE is dropped.");
  add("downmix-7.1-lo-ro", "7.1 \u2192 Lo/Ro", PresetCategory::downmix, 8, 2,
      {route(0, {{0, 0}, {2, kMinus3}, {4, kMinus3}, {6, kMinus3}}),
       route(1, {{1, 0}, {2, kMinus3}, {5, kMinus3}, {7, kMinus3}})},
      "ITU-R BS.775 7.1 stereo downmix. Both surround pairs are folded into the front pair at -3 dB each. LFE is "
      "dropped.");
  add("downmix-7.1-to-5.1", "7.1 \u2192 5.1", PresetCategory::downmix, 8, 6,
      {route(0, {{0, 0}}), route(1, {{1, 0}}), route(2, {{2, 0}}), route(3, {{3, 0}}),
       route(4, {{4, 0}, {6, kMinus3}}), route(5, {{5, 0}, {7, kMinus3}})},
      "Channel reduction. L/R/C/LFE pass straight through; the side surrounds (Lss, Rss) are mixed into the back "
      "surrounds (Ls, Rs) at -3 dB.");
  add("test-surround-solo", "Ls/Rs solo", PresetCategory::test, 6, 2, {route(0, {{4, 0}}), route(1, {{5, 0}})},
      "Send only the surround pair to the stereo outputs.");
  add("test-center-lfe-solo", "C/LFE solo", PresetCategory::test, 6, 2, {route(0, {{2, 0}}), route(1, {{3, 0}})},
      "Send only Center and LFE to the stereo outputs.");
  return all;
}

ChannelSourceSlot silentSlot() {
  ChannelSourceSlot slot;
  slot.sourceChannelIndex = -1;
  slot.gain = 1.0f;
  slot.phase = RoutingPhase::inPhase;
  return slot;
}

// Two lists of slots that say the same thing (ids aside): applying a preset that is already in
// force should not count as a change.
bool sameSound(const std::vector<ChannelSourceSlot>& a, const std::vector<ChannelSourceSlot>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const ChannelSourceSlot& x, const ChannelSourceSlot& y) {
    return x.sourceChannelIndex == y.sourceChannelIndex && x.gain == y.gain && x.phase == y.phase;
  });
}

std::vector<PresetRoute> toPresetRoutes(const std::vector<SavedRoute>& saved) {
  std::vector<PresetRoute> routes;
  routes.reserve(saved.size());
  for (const SavedRoute& r : saved) {
    PresetRoute route;
    route.outChannelIndex = r.outChannelIndex;
    for (const SavedSource& s : r.sources) route.sources.push_back(PresetSource{s.sourceChannelIndex, s.gainDB, s.phase});
    routes.push_back(std::move(route));
  }
  return routes;
}

// ---- JSON -------------------------------------------------------------------------------------

[[noreturn]] void unreadable(const QString& detail) {
  throw RoutingPresetsFileError(
      QStringLiteral("The file is not a routing presets file Corvane can read (%1).").arg(detail).toStdString());
}

QJsonValue field(const QJsonObject& object, const char* key) {
  const QJsonValue value = object.value(QLatin1String(key));
  if (value.isUndefined()) unreadable(QStringLiteral("\"%1\" is missing").arg(QLatin1String(key)));
  return value;
}

// A JSON number that is a whole number in int's range.
int integerField(const QJsonObject& object, const char* key) {
  const QJsonValue value = field(object, key);
  const double number = value.toDouble(std::nan(""));
  if (!value.isDouble() || number != std::floor(number) || std::abs(number) > 2147483647.0) {
    unreadable(QStringLiteral("\"%1\" is not a whole number").arg(QLatin1String(key)));
  }
  return static_cast<int>(number);
}

float realField(const QJsonObject& object, const char* key) {
  const QJsonValue value = field(object, key);
  if (!value.isDouble()) unreadable(QStringLiteral("\"%1\" is not a number").arg(QLatin1String(key)));
  return static_cast<float>(value.toDouble());
}

QString stringField(const QJsonObject& object, const char* key) {
  const QJsonValue value = field(object, key);
  if (!value.isString()) unreadable(QStringLiteral("\"%1\" is not text").arg(QLatin1String(key)));
  return value.toString();
}

QJsonArray arrayField(const QJsonObject& object, const char* key) {
  const QJsonValue value = field(object, key);
  if (!value.isArray()) unreadable(QStringLiteral("\"%1\" is not a list").arg(QLatin1String(key)));
  return value.toArray();
}

QJsonObject objectAt(const QJsonValue& value, const char* what) {
  if (!value.isObject()) unreadable(QStringLiteral("a %1 is not an object").arg(QLatin1String(what)));
  return value.toObject();
}

QString isoDate(const QDateTime& date) {
  return date.toUTC().toString(Qt::ISODate);
}

QDateTime parseIsoDate(const QString& text) {
  QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
  if (!date.isValid()) date = QDateTime::fromString(text, Qt::ISODate);
  if (!date.isValid()) unreadable(QStringLiteral("\"createdAt\" is not an ISO 8601 date"));
  return date.toUTC();
}

SavedSource decodeSource(const QJsonObject& object) {
  SavedSource source;
  source.sourceChannelIndex = integerField(object, "sourceChannelIndex");
  source.gainDB = realField(object, "gainDB");
  if (object.contains(QLatin1String("phase"))) {
    const auto phase = routingPhaseFromDegrees(integerField(object, "phase"));
    if (!phase) unreadable(QStringLiteral("a phase is not 0, 90, -90 or 180"));
    source.phase = *phase;
  } else if (object.contains(QLatin1String("polarityInverted"))) {
    const QJsonValue inverted = object.value(QLatin1String("polarityInverted"));
    if (!inverted.isBool()) unreadable(QStringLiteral("\"polarityInverted\" is not true or false"));
    source.phase = inverted.toBool() ? RoutingPhase::invert : RoutingPhase::inPhase;
  }
  return source;
}

UserPreset decodePreset(const QJsonObject& object) {
  UserPreset preset;
  preset.id = QUuid::fromString(stringField(object, "id"));
  if (preset.id.isNull()) unreadable(QStringLiteral("an \"id\" is not a UUID"));
  preset.name = stringField(object, "name");
  preset.fileChannels = integerField(object, "fileChannels");
  preset.deviceChannels = integerField(object, "deviceChannels");
  preset.createdAt = parseIsoDate(stringField(object, "createdAt"));
  for (const QJsonValue& routeValue : arrayField(object, "routes")) {
    const QJsonObject routeObject = objectAt(routeValue, "route");
    SavedRoute route;
    route.outChannelIndex = integerField(routeObject, "outChannelIndex");
    for (const QJsonValue& sourceValue : arrayField(routeObject, "sources")) {
      route.sources.push_back(decodeSource(objectAt(sourceValue, "source")));
    }
    preset.routes.push_back(std::move(route));
  }
  return preset;
}

QJsonObject encodePreset(const UserPreset& preset) {
  QJsonArray routes;
  for (const SavedRoute& route : preset.routes) {
    QJsonArray sources;
    for (const SavedSource& source : route.sources) {
      sources.append(QJsonObject{{"sourceChannelIndex", source.sourceChannelIndex},
                                 {"gainDB", static_cast<double>(source.gainDB)},
                                 {"phase", static_cast<int>(source.phase)}});
    }
    routes.append(QJsonObject{{"outChannelIndex", route.outChannelIndex}, {"sources", sources}});
  }
  return QJsonObject{{"id", preset.id.toString(QUuid::WithoutBraces).toUpper()},
                     {"name", preset.name},
                     {"fileChannels", preset.fileChannels},
                     {"deviceChannels", preset.deviceChannels},
                     {"createdAt", isoDate(preset.createdAt)},
                     {"routes", routes}};
}

}  // namespace

bool applyPresetRoutes(ChannelRoutings& routings, const std::vector<PresetRoute>& routes, int fileChannels) {
  const int outputs = static_cast<int>(routings.size());
  std::vector<std::vector<ChannelSourceSlot>> slotLists(routings.size());
  std::vector<bool> touched(routings.size(), false);
  for (const PresetRoute& route : routes) {
    if (route.outChannelIndex < 0 || route.outChannelIndex >= outputs) continue;
    std::vector<ChannelSourceSlot> list;
    for (const PresetSource& source : route.sources) {
      if (source.sourceChannelIndex < 0 || source.sourceChannelIndex >= fileChannels) continue;
      ChannelSourceSlot slot;
      slot.sourceChannelIndex = source.sourceChannelIndex;
      slot.gain = static_cast<float>(std::pow(10.0, static_cast<double>(source.gainDB) / 20.0));
      slot.phase = source.phase;
      list.push_back(slot);
    }
    if (list.empty()) list.push_back(silentSlot());
    const auto index = static_cast<std::size_t>(route.outChannelIndex);
    slotLists[index] = std::move(list);
    touched[index] = true;
  }
  bool changed = false;
  for (std::size_t i = 0; i < routings.size(); ++i) {
    if (!touched[i]) slotLists[i] = {silentSlot()};
    if (!sameSound(routings[i].sources, slotLists[i])) changed = true;
    routings[i].sources = std::move(slotLists[i]);
  }
  return changed;
}

const std::vector<RoutingPreset>& RoutingPreset::all() {
  static const std::vector<RoutingPreset> table = makeBuiltIns();
  return table;
}

std::vector<RoutingPreset> RoutingPreset::available(int fileChannels, int deviceChannels, bool fileIs8chCanonical) {
  std::vector<RoutingPreset> fitting;
  for (const RoutingPreset& preset : all()) {
    if (preset.minFileChannels > fileChannels || preset.minDeviceChannels > deviceChannels) continue;
    if (preset.minFileChannels >= 8 && !fileIs8chCanonical) continue;
    fitting.push_back(preset);
  }
  return fitting;
}

std::optional<RoutingPreset> RoutingPreset::byID(std::string_view id) {
  for (const RoutingPreset& preset : all()) {
    if (preset.id == id) return preset;
  }
  return std::nullopt;
}

bool RoutingPreset::apply(ChannelRoutings& routings, int fileChannels) const {
  if (!isIdentity) return applyPresetRoutes(routings, routes, fileChannels);
  std::vector<PresetRoute> identity;
  const int count = std::min(static_cast<int>(routings.size()), fileChannels);
  for (int i = 0; i < count; ++i) identity.push_back(PresetRoute{i, {PresetSource{i, 0.0f, RoutingPhase::inPhase}}});
  return applyPresetRoutes(routings, identity, fileChannels);
}

bool UserPreset::apply(ChannelRoutings& routings, int fileChannels) const {
  return applyPresetRoutes(routings, toPresetRoutes(this->routes), fileChannels);
}

QByteArray encodeUserPresetsFile(const std::vector<UserPreset>& presets) {
  QJsonArray list;
  for (const UserPreset& preset : presets) list.append(encodePreset(preset));
  // QJsonObject keeps its keys sorted, so the output has sorted keys at every level.
  return QJsonDocument(QJsonObject{{"version", 1}, {"presets", list}}).toJson(QJsonDocument::Indented);
}

std::vector<UserPreset> decodeUserPresetsFile(const QByteArray& bytes) {
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
  if (error.error != QJsonParseError::NoError) unreadable(QStringLiteral("it is not JSON: %1").arg(error.errorString()));
  if (!document.isObject()) unreadable(QStringLiteral("it is not a JSON object"));
  const QJsonObject root = document.object();
  integerField(root, "version");
  std::vector<UserPreset> presets;
  for (const QJsonValue& value : arrayField(root, "presets")) presets.push_back(decodePreset(objectAt(value, "preset")));
  return presets;
}

std::vector<SavedRoute> savedRoutesOf(const ChannelRoutings& routings) {
  std::vector<SavedRoute> routes;
  routes.reserve(routings.size());
  for (std::size_t i = 0; i < routings.size(); ++i) {
    SavedRoute route;
    route.outChannelIndex = static_cast<int>(i);
    for (const ChannelSourceSlot& slot : routings[i].sources) {
      if (slot.sourceChannelIndex < 0) continue;
      const double gainDB = 20.0 * std::log10(std::max(static_cast<double>(slot.gain), 0.0001));
      route.sources.push_back(SavedSource{slot.sourceChannelIndex, static_cast<float>(gainDB), slot.phase});
    }
    routes.push_back(std::move(route));
  }
  return routes;
}

// ---- The store ----------------------------------------------------------------------------------

UserPresetStore::UserPresetStore(SettingsStore& settings, QObject* parent) : QObject(parent), _settings(settings) {
  if (const auto json = _settings.routingUserPresets()) {
    try {
      _presets = decodeUserPresetsFile(json->toJson(QJsonDocument::Compact));
    } catch (const RoutingPresetsFileError&) {
      // Undecodable stored data counts as none; it is overwritten by the next save.
      _presets.clear();
    }
  }
}

std::vector<UserPreset> UserPresetStore::applicable(int fileChannels, int deviceChannels) const {
  std::vector<UserPreset> fitting;
  for (const UserPreset& preset : _presets) {
    if (preset.fileChannels == fileChannels && preset.deviceChannels == deviceChannels) fitting.push_back(preset);
  }
  return fitting;
}

const UserPreset* UserPresetStore::preset(const QUuid& id) const {
  auto it = std::find_if(_presets.begin(), _presets.end(), [&](const UserPreset& p) { return p.id == id; });
  return it == _presets.end() ? nullptr : &*it;
}

std::optional<QUuid> UserPresetStore::save(const QString& name, const ChannelRoutings& routings, int fileChannels) {
  const QString trimmed = name.trimmed();
  if (trimmed.isEmpty()) return std::nullopt;
  UserPreset preset;
  preset.id = QUuid::createUuid();
  preset.name = trimmed;
  preset.fileChannels = fileChannels;
  preset.deviceChannels = static_cast<int>(routings.size());
  const QDateTime now = QDateTime::currentDateTimeUtc();
  preset.createdAt = now.addMSecs(-now.time().msec());
  preset.routes = savedRoutesOf(routings);
  std::vector<UserPreset> presets = _presets;
  presets.push_back(preset);
  store(std::move(presets));
  return preset.id;
}

bool UserPresetStore::rename(const QUuid& id, const QString& name) {
  const QString trimmed = name.trimmed();
  if (trimmed.isEmpty()) return false;
  std::vector<UserPreset> presets = _presets;
  auto it = std::find_if(presets.begin(), presets.end(), [&](const UserPreset& p) { return p.id == id; });
  if (it == presets.end() || it->name == trimmed) return false;
  it->name = trimmed;
  store(std::move(presets));
  return true;
}

bool UserPresetStore::remove(const QUuid& id) {
  std::vector<UserPreset> presets = _presets;
  const auto removed = std::erase_if(presets, [&](const UserPreset& p) { return p.id == id; });
  if (removed == 0) return false;
  store(std::move(presets));
  return true;
}

int UserPresetStore::importJSON(const QByteArray& bytes) {
  const std::vector<UserPreset> incoming = decodeUserPresetsFile(bytes);
  std::vector<UserPreset> presets = _presets;
  int added = 0;
  for (const UserPreset& preset : incoming) {
    const bool known = std::any_of(presets.begin(), presets.end(), [&](const UserPreset& p) { return p.id == preset.id; });
    if (known) continue;
    presets.push_back(preset);
    ++added;
  }
  if (added > 0) store(std::move(presets));
  return added;
}

void UserPresetStore::store(std::vector<UserPreset> presets) {
  _presets = std::move(presets);
  _settings.setRoutingUserPresets(QJsonDocument::fromJson(encodeUserPresetsFile(_presets)));
  emit presetsChanged();
}

QString userPresetToolTip(const UserPreset& preset) {
  return QStringLiteral("%1: saved for %2 ch source to %3 ch output. Click to apply. Right-click for rename / delete / "
                        "export.")
      .arg(preset.name)
      .arg(preset.fileChannels)
      .arg(preset.deviceChannels);
}

QString userPresetNameSuggestion(int fileChannels, int deviceChannels) {
  return QStringLiteral("%1 to %2")
      .arg(QString::fromStdString(ChannelLayout(fileChannels).displayName()),
           QString::fromStdString(ChannelLayout(deviceChannels).displayName()));
}

QString userPresetExportFileName(const UserPreset& preset) { return preset.name + QStringLiteral(".json"); }

}  // namespace corvane
