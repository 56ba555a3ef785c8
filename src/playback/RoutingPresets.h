// Routing presets: stored shapes of the routing matrix.
//
// Eleven built-in presets (identity, stereo basics, the standard downmixes, two solo tests) and
// the user's own, saved from the matrix as it stands. A preset is offered only where it fits:
// built-ins by minimum channel counts of file and device (and, for the 7.1 presets, a file
// whose eight channels really are in 7.1 order), user presets only for the very counts they
// were saved with. Applying one rewrites the whole routing: every output it names gets its
// sources, every other output goes silent.
//
// Gains are decibels in a preset and linear factors in the routing. Presets persist as JSON
// bytes under "corvane.routing.userPresets.v1" (SettingsStore), in the same form as the
// exchange file "Corvane Routing Presets.json": {"presets": [...], "version": 1}, pretty
// printed, keys sorted, UUIDs in upper case, dates in ISO 8601 (UTC, whole seconds).
//
// Thread class: the value types and free functions are pure, any thread. UserPresetStore is a
// main-thread QObject.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUuid>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "playback/ChannelRouting.h"

namespace corvane {

class SettingsStore;

enum class PresetCategory { basic, downmix, test };

struct PresetSource {
  int sourceChannelIndex = 0;
  float gainDB = 0.0f;
  RoutingPhase phase = RoutingPhase::inPhase;
  friend bool operator==(const PresetSource&, const PresetSource&) = default;
};

struct PresetRoute {
  int outChannelIndex = 0;
  std::vector<PresetSource> sources;
  friend bool operator==(const PresetRoute&, const PresetRoute&) = default;
};

// Rewrites `routings` after `routes` (the shared rule of built-in and user presets): each
// route whose output exists gets, per source within 0 ... fileChannels - 1, a slot with a fresh
// id, the linear gain 10^(gainDB / 20) (not clamped: a saved -80 dB stays -80 dB) and the phase;
// a route left without a source, and every output no route names, get the silent placeholder
// (-1, unity, in phase). Labels and entry ids stay. Returns whether anything changed.
bool applyPresetRoutes(ChannelRoutings& routings, const std::vector<PresetRoute>& routes, int fileChannels);

struct RoutingPreset {
  std::string id;           // stable key, e.g. "downmix-5.1-lo-ro"
  std::string name;         // the button's label
  PresetCategory category = PresetCategory::basic;
  std::string description;  // the button's tool tip
  int minFileChannels = 1;
  int minDeviceChannels = 1;
  std::vector<PresetRoute> routes;
  // The routes are generated: output i from source i at 0 dB, for as many outputs as both the
  // file and the device have.
  bool isIdentity = false;

  // The whole built-in table, in its order.
  static const std::vector<RoutingPreset>& all();
  // The built-ins that fit, in table order: the file and the device have at least the
  // minimum channels, and presets for files of eight or more channels need
  // `fileIs8chCanonical` (ChannelOrder::is71SMPTEOrdered of the file's labels).
  static std::vector<RoutingPreset> available(int fileChannels, int deviceChannels, bool fileIs8chCanonical);
  // A built-in by id; none for an unknown id.
  static std::optional<RoutingPreset> byID(std::string_view id);

  // Rewrites the routing (applyPresetRoutes with this preset's routes, or the identity).
  bool apply(ChannelRoutings& routings, int fileChannels) const;
};

struct SavedSource {
  int sourceChannelIndex = 0;
  float gainDB = 0.0f;
  RoutingPhase phase = RoutingPhase::inPhase;
  friend bool operator==(const SavedSource&, const SavedSource&) = default;
};

struct SavedRoute {
  int outChannelIndex = 0;
  std::vector<SavedSource> sources;  // empty: a silent output
  friend bool operator==(const SavedRoute&, const SavedRoute&) = default;
};

struct UserPreset {
  QUuid id;
  QString name;
  int fileChannels = 0;    // channels of the file it was saved with
  int deviceChannels = 0;  // outputs of the routing it was saved with
  QDateTime createdAt;     // UTC, whole seconds
  std::vector<SavedRoute> routes;

  // Rewrites the routing with this preset's routes (applyPresetRoutes).
  bool apply(ChannelRoutings& routings, int fileChannels) const;

  friend bool operator==(const UserPreset&, const UserPreset&) = default;
};

// A presets file or store that cannot be read; what() is the text the user sees under "Could
// not complete the operation".
class RoutingPresetsFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The store's and the exchange file's form: {"presets": [...], "version": 1}.
QByteArray encodeUserPresetsFile(const std::vector<UserPreset>& presets);
// Reads that form. Keys are the field names; a source without "phase" reads the older boolean
// "polarityInverted" (true: 180°, false or absent: in phase). Throws RoutingPresetsFileError
// for anything else: not JSON, a missing or mistyped field, a phase other than 0, 90, -90 or
// 180, an id that is no UUID, a date that is no ISO 8601 date.
std::vector<UserPreset> decodeUserPresetsFile(const QByteArray& bytes);

// The routing as a preset's routes: each entry by its position, each slot with a source of 0
// or above at 20 · log10(max(gain, 0.0001)) dB, so no stored gain is below -80 dB.
std::vector<SavedRoute> savedRoutesOf(const ChannelRoutings& routings);

// The user's presets, as the preset bar and the import/export commands see them.
class UserPresetStore : public QObject {
  Q_OBJECT
  Q_PROPERTY(std::vector<corvane::UserPreset> presets READ presets NOTIFY presetsChanged)

 public:
  // Reads the presets from `settings` (which must outlive the store); missing or unreadable
  // data gives an empty list.
  explicit UserPresetStore(SettingsStore& settings, QObject* parent = nullptr);

  const std::vector<UserPreset>& presets() const { return _presets; }
  // The presets saved for exactly these counts, in list order.
  std::vector<UserPreset> applicable(int fileChannels, int deviceChannels) const;
  const UserPreset* preset(const QUuid& id) const;

  // Saves the routing under `name` (trimmed; an empty name saves nothing and gives none) for a
  // file of `fileChannels`, with a fresh id and the time now. Returns the new preset's id.
  std::optional<QUuid> save(const QString& name, const ChannelRoutings& routings, int fileChannels);
  // Renames (trimmed); an empty name or an unknown id changes nothing.
  bool rename(const QUuid& id, const QString& name);
  bool remove(const QUuid& id);

  // The exchange file of `presets`.
  static QByteArray encode(const std::vector<UserPreset>& presets) { return encodeUserPresetsFile(presets); }
  // Adds the presets of an exchange file whose ids the store doesn't hold yet, in file order;
  // returns how many were added. Throws RoutingPresetsFileError (nothing changes then).
  int importJSON(const QByteArray& bytes);

 signals:
  void presetsChanged();

 private:
  void store(std::vector<UserPreset> presets);

  SettingsStore& _settings;
  std::vector<UserPreset> _presets;
};

// The words of the preset bar and its dialogs.
namespace routing_preset_text {
inline constexpr std::string_view kBuiltInRow = "Built-in:";
inline constexpr std::string_view kSavedRow = "Saved:";
inline constexpr std::string_view kNoneSaved = "none for this file/device";
inline constexpr std::string_view kSaveTip = "Save the current routing as a preset";
inline constexpr std::string_view kSaveDisabledTip = "Load an audio file before saving";
inline constexpr std::string_view kImportTip = "Import presets from a JSON file";
inline constexpr std::string_view kExportTip = "Export all saved presets to a JSON file";
inline constexpr std::string_view kRename = "Rename…";
inline constexpr std::string_view kExport = "Export…";
inline constexpr std::string_view kDelete = "Delete";
inline constexpr std::string_view kSaveMessage = "Save routing preset";
inline constexpr std::string_view kSaveInformative =
    "Captures the current routing (every output's sources, gains and polarity). The preset only shows when a file "
    "and device with the same channel counts are loaded.";
inline constexpr std::string_view kSaveButton = "Save";
inline constexpr std::string_view kCancelButton = "Cancel";
inline constexpr std::string_view kNamePlaceholder = "Preset name";
inline constexpr std::string_view kExportAllFileName = "Corvane Routing Presets.json";
inline constexpr std::string_view kNothingImported =
    "No new presets imported (every preset in the file is already in your library).";
inline constexpr std::string_view kFailureMessage = "Could not complete the operation";
inline constexpr std::string_view kOK = "OK";
}  // namespace routing_preset_text

// "<name>: saved for <n> ch source to <m> ch output. Click to apply. Right-click for rename /
// delete / export."
QString userPresetToolTip(const UserPreset& preset);
// The save dialog's suggestion: "<file layout> to <device layout>" ("5.1 to Stereo").
QString userPresetNameSuggestion(int fileChannels, int deviceChannels);
// The default file name of a one-preset export: "<preset name>.json".
QString userPresetExportFileName(const UserPreset& preset);

}  // namespace corvane
