#include "core/LoudnessTargetSelection.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "core/CustomTargetDraft.h"
#include "core/LoudnessTargetCatalog.h"

namespace corvane {

namespace {

// The double whose shortest text is the float's shortest text: -18.1f is stored as -18.1, not
// as -18.100000381469727, so the settings stay readable and read back to the same float.
double storedNumber(float value) {
  char text[32];
  auto written = std::to_chars(text, text + sizeof text, value);
  double result = value;
  std::from_chars(text, written.ptr, result);
  return result;
}

}  // namespace

LoudnessTargetSelection LoudnessTargetSelection::defaultSelection() {
  LoudnessTargetSelection selection;
  for (auto mode : kAllLoudnessTargetModes) {
    selection._selectedIDs[index(mode)] = LoudnessTargetCatalog::defaultSelectedIDs(mode);
  }
  return selection;
}

LoudnessTargetSelection LoudnessTargetSelection::withMode(LoudnessTargetMode mode) const {
  LoudnessTargetSelection copy = *this;
  copy._mode = mode;
  return copy;
}

const std::vector<std::string>& LoudnessTargetSelection::selectedIDs(
    LoudnessTargetMode mode) const {
  return _selectedIDs[index(mode)];
}

bool LoudnessTargetSelection::isSelected(std::string_view id, LoudnessTargetMode mode) const {
  const auto& ids = selectedIDs(mode);
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

bool LoudnessTargetSelection::canSelectMore(LoudnessTargetMode mode) const {
  return static_cast<int>(selectedIDs(mode).size()) < maxTargetsPerMode;
}

bool LoudnessTargetSelection::toggle(std::string_view id, LoudnessTargetMode mode, bool on) {
  auto found = target(id);
  if (!found || found->mode != mode) return false;
  auto& ids = _selectedIDs[index(mode)];
  const bool wasSelected = std::erase(ids, id) > 0;
  if (on) {
    if (!wasSelected && static_cast<int>(ids.size()) >= maxTargetsPerMode) return false;
    ids.emplace_back(id);
  }
  return true;
}

std::vector<LoudnessTarget> LoudnessTargetSelection::selectedTargets(
    LoudnessTargetMode mode) const {
  std::vector<LoudnessTarget> result;
  for (const auto& id : selectedIDs(mode)) {
    if (static_cast<int>(result.size()) == maxTargetsPerMode) break;
    auto found = target(id);
    if (found && found->mode == mode) result.push_back(std::move(*found));
  }
  return result;
}

std::vector<LoudnessTarget> LoudnessTargetSelection::activeTargets() const {
  return selectedTargets(_mode);
}

std::optional<LoudnessTarget> LoudnessTargetSelection::target(std::string_view id) const {
  if (const auto* builtIn = LoudnessTargetCatalog::target(id)) return *builtIn;
  for (const auto& custom : _customTargets) {
    if (custom.id == id) return custom;
  }
  return std::nullopt;
}

std::vector<LoudnessTarget> LoudnessTargetSelection::customTargets(
    LoudnessTargetMode mode) const {
  std::vector<LoudnessTarget> result;
  for (const auto& custom : _customTargets) {
    if (custom.mode == mode) result.push_back(custom);
  }
  return result;
}

bool LoudnessTargetSelection::upsertCustomTarget(LoudnessTarget target) {
  if (!target.isCustom()) return false;
  for (auto mode : kAllLoudnessTargetModes) {
    if (mode != target.mode) std::erase(_selectedIDs[index(mode)], target.id);
  }
  auto existing = std::find_if(_customTargets.begin(), _customTargets.end(),
                               [&](const LoudnessTarget& t) { return t.id == target.id; });
  if (existing != _customTargets.end()) {
    *existing = std::move(target);
  } else {
    _customTargets.push_back(std::move(target));
  }
  return true;
}

void LoudnessTargetSelection::deleteCustomTarget(std::string_view id) {
  std::erase_if(_customTargets, [&](const LoudnessTarget& t) { return t.id == id; });
  for (auto& ids : _selectedIDs) std::erase(ids, id);
}

LoudnessTargetSelection::Stored LoudnessTargetSelection::toStored() const {
  Stored stored;
  stored.mode = std::string(rawValue(_mode));
  for (auto mode : kAllLoudnessTargetModes) {
    stored.selectedIDs[std::string(rawValue(mode))] = selectedIDs(mode);
  }
  for (const auto& custom : _customTargets) {
    stored.customTargets.push_back(StoredCustomTarget{
        custom.id, custom.displayName, std::string(rawValue(custom.mode)),
        std::string(rawValue(custom.source)), storedNumber(custom.referenceLevel),
        storedNumber(custom.tolerance.value_or(0.0f)), storedNumber(custom.truePeakCeilingDBTP)});
  }
  return stored;
}

LoudnessTargetSelection LoudnessTargetSelection::fromStored(const Stored& stored) {
  LoudnessTargetSelection selection;
  selection._mode = parseLoudnessTargetMode(stored.mode).value_or(LoudnessTargetMode::music);

  for (const auto& entry : stored.customTargets) {
    auto mode = parseLoudnessTargetMode(entry.mode);
    auto source = parseLoudnessSource(entry.source);
    if (!mode || !source || !entry.id.starts_with(customIDPrefix)) continue;
    if (entry.id.size() == customIDPrefix.size()) continue;
    if (selection.target(entry.id)) continue;  // a repeat: the first one stays
    CustomTargetDraft draft;
    draft.id = entry.id;
    draft.name = entry.name;
    draft.mode = *mode;
    draft.source = *source;
    draft.referenceLUFS = static_cast<float>(entry.referenceLUFS);
    draft.toleranceLU = static_cast<float>(entry.toleranceLU);
    draft.truePeakCeilingDBTP = static_cast<float>(entry.truePeakCeilingDBTP);
    if (!draft.isValid()) continue;
    selection._customTargets.push_back(draft.buildTarget());
  }

  for (auto mode : kAllLoudnessTargetModes) {
    auto& ids = selection._selectedIDs[index(mode)];
    auto found = stored.selectedIDs.find(std::string(rawValue(mode)));
    if (found == stored.selectedIDs.end()) {
      ids = LoudnessTargetCatalog::defaultSelectedIDs(mode);
      continue;
    }
    for (const auto& id : found->second) {
      if (static_cast<int>(ids.size()) == maxTargetsPerMode) break;
      auto target = selection.target(id);
      if (!target || target->mode != mode) continue;
      if (std::find(ids.begin(), ids.end(), id) != ids.end()) continue;
      ids.push_back(id);
    }
  }
  return selection;
}

}  // namespace corvane
