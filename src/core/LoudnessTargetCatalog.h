// LoudnessTargetCatalog: the built-in delivery specifications, per mode.
//
// Each entry follows a published document of the platform or standards body; the source is
// named beside the entry in LoudnessTargetCatalog.cpp. Ids are stable: they are stored in
// users' selections, so an entry may be corrected but never renamed.
//
// Thread class: pure functions over constant data, any thread. Nothing throws.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/LoudnessTarget.h"

namespace corvane::LoudnessTargetCatalog {

// The built-in targets of `mode`, in display order.
std::span<const LoudnessTarget> targets(LoudnessTargetMode mode);

// Every built-in target, mode by mode.
std::span<const LoudnessTarget> allTargets();

// The built-in target with this id, or nullptr. The pointer stays valid for the process.
const LoudnessTarget* target(std::string_view id);

// The factory choice of `mode`: ids of its most common delivery targets, at most
// LoudnessTargetSelection::maxTargetsPerMode of them.
std::vector<std::string> defaultSelectedIDs(LoudnessTargetMode mode);

}  // namespace corvane::LoudnessTargetCatalog
