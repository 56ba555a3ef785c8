// LoudnessTargetSelection: which targets the user follows, and their own targets.
//
// It holds the chosen mode (the info panel shows that mode's targets), an ordered list of
// selected target ids for every mode (at most maxTargetsPerMode each, in the order the user
// switched them on) and the user's custom targets. It is a plain value: the session keeps one,
// stores it on every change and ends a playback match whose target left activeTargets().
//
// Persistence. The session stores the selection as JSON bytes under "loudnessTargetSelection".
// This library links no JSON code, so it offers toStored()/fromStored() over Stored, a
// plain mirror of the JSON object, and the model layer maps Stored to and from JSON:
//
//   { "mode": "podcast",
//     "selectedIDs": { "music": ["music.spotify", ...], "podcast": [...], ... },
//     "customTargets": [ { "id": "custom.<UUID>", "name": "House spec", "mode": "podcast",
//                          "source": "dialogGated", "referenceLUFS": -18,
//                          "toleranceLU": 1, "truePeakCeilingDBTP": -1 }, ... ] }
//
// The model layer gives the default selection for missing or unparsable bytes and for a root
// that isn't an object, and hands everything else to fromStored(): a member that is absent or
// of the wrong type is left empty (a number as NaN), and fromStored() repairs what it can (see
// there), so one bad entry never costs the user the rest of their choices.
//
// Thread class: plain value, any thread. Nothing throws.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/LoudnessTarget.h"

namespace corvane {

class LoudnessTargetSelection {
 public:
  // Every custom target's id starts with this, followed by a UUID.
  static constexpr std::string_view customIDPrefix = "custom.";
  // How many targets a mode may have selected: as many rows as the info panel shows beside a
  // file without scrolling.
  static constexpr int maxTargetsPerMode = 4;

  // The factory value: mode music, each mode's LoudnessTargetCatalog::defaultSelectedIDs, no
  // custom targets.
  static LoudnessTargetSelection defaultSelection();

  LoudnessTargetMode mode() const { return _mode; }
  void setMode(LoudnessTargetMode mode) { _mode = mode; }
  // A copy with another chosen mode (the CLI's and the reports' "--mode").
  LoudnessTargetSelection withMode(LoudnessTargetMode mode) const;

  // The selected ids of a mode, in the order of selection.
  const std::vector<std::string>& selectedIDs(LoudnessTargetMode mode) const;
  bool isSelected(std::string_view id, LoudnessTargetMode mode) const;
  // False once the mode has maxTargetsPerMode selected: the settings switch of an unselected
  // target is disabled then.
  bool canSelectMore(LoudnessTargetMode mode) const;

  // Switches a target of `mode` on or off: its id leaves the mode's list and, when switching
  // on, is appended to it. Returns false and changes nothing when `id` names no target of
  // `mode` or when switching on a mode that is full.
  bool toggle(std::string_view id, LoudnessTargetMode mode, bool on);

  // The targets of the chosen mode, in the order of selection (built-in and custom alike).
  std::vector<LoudnessTarget> activeTargets() const;
  // The selected targets of any mode.
  std::vector<LoudnessTarget> selectedTargets(LoudnessTargetMode mode) const;

  // A built-in or custom target by id; nullopt when there is none.
  std::optional<LoudnessTarget> target(std::string_view id) const;

  const std::vector<LoudnessTarget>& customTargets() const { return _customTargets; }
  std::vector<LoudnessTarget> customTargets(LoudnessTargetMode mode) const;

  // Adds a custom target, or replaces the one with the same id in place. A target whose mode
  // changed leaves the selection lists of the other modes (it is listed under its new mode
  // only); it is not selected on adding. Returns false and changes nothing when the id lacks
  // customIDPrefix.
  bool upsertCustomTarget(LoudnessTarget target);
  // Removes the custom target and its id from every selection list. Unknown ids are ignored.
  void deleteCustomTarget(std::string_view id);

  // The JSON object's mirror (see the file comment).
  struct StoredCustomTarget {
    std::string id;
    std::string name;
    std::string mode;
    std::string source;
    double referenceLUFS = 0.0;
    double toleranceLU = 0.0;
    double truePeakCeilingDBTP = 0.0;
    friend bool operator==(const StoredCustomTarget&, const StoredCustomTarget&) = default;
  };
  struct Stored {
    std::string mode;
    // Keyed by the mode's raw value; only the modes the store has.
    std::map<std::string, std::vector<std::string>> selectedIDs;
    std::vector<StoredCustomTarget> customTargets;
    friend bool operator==(const Stored&, const Stored&) = default;
  };

  Stored toStored() const;

  // Rebuilds a selection from its stored form:
  //  - a mode it doesn't know (empty, or from a later version) gives the factory mode;
  //  - a custom target is kept when its id has customIDPrefix and isn't a repeat, its mode
  //    and source are known and its values pass CustomTargetDraft::isValid(); otherwise it's
  //    dropped;
  //  - a mode missing from selectedIDs takes its factory ids (a store from a version with
  //    fewer modes stays valid); a mode present keeps its list, even empty, minus ids that
  //    name no target of that mode and repeats, cut to maxTargetsPerMode;
  //  - keys of selectedIDs that name no mode are ignored.
  static LoudnessTargetSelection fromStored(const Stored& stored);

  friend bool operator==(const LoudnessTargetSelection&, const LoudnessTargetSelection&) = default;

 private:
  static std::size_t index(LoudnessTargetMode mode) { return static_cast<std::size_t>(mode); }

  LoudnessTargetMode _mode = LoudnessTargetMode::music;
  std::array<std::vector<std::string>, 4> _selectedIDs;
  std::vector<LoudnessTarget> _customTargets;
};

}  // namespace corvane
