#include "core/LoudnessTarget.h"

#include <cmath>

#include "core/LoudnessTargetSelection.h"
#include "core/NumberFormat.h"

namespace corvane {

std::string_view rawValue(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::music: return "music";
    case LoudnessTargetMode::podcast: return "podcast";
    case LoudnessTargetMode::vod: return "vod";
    case LoudnessTargetMode::broadcast: return "broadcast";
  }
  return "music";
}

std::string_view rawValue(LoudnessSource source) {
  switch (source) {
    case LoudnessSource::integrated: return "integrated";
    case LoudnessSource::dialogGated: return "dialogGated";
    case LoudnessSource::rms: return "rms";
  }
  return "integrated";
}

std::optional<LoudnessTargetMode> parseLoudnessTargetMode(std::string_view text) {
  for (auto mode : kAllLoudnessTargetModes) {
    if (rawValue(mode) == text) return mode;
  }
  return std::nullopt;
}

std::optional<LoudnessSource> parseLoudnessSource(std::string_view text) {
  for (auto source : kAllLoudnessSources) {
    if (rawValue(source) == text) return source;
  }
  return std::nullopt;
}

std::string_view label(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::music: return "Music / Streaming";
    case LoudnessTargetMode::podcast: return "Podcast / Spoken Word";
    case LoudnessTargetMode::vod: return "VOD";
    case LoudnessTargetMode::broadcast: return "Broadcast";
  }
  return "";
}

std::string_view shortLabel(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::music: return "Music";
    case LoudnessTargetMode::podcast: return "Podcast";
    case LoudnessTargetMode::vod: return "VOD";
    case LoudnessTargetMode::broadcast: return "Broadcast";
  }
  return "";
}

std::string_view label(LoudnessSource source) {
  switch (source) {
    case LoudnessSource::integrated: return "Integrated (full program)";
    case LoudnessSource::dialogGated: return "Dialog-gated (speech only)";
    case LoudnessSource::rms: return "RMS (un-weighted, ACX-style)";
  }
  return "";
}

std::string_view levelUnit(LoudnessSource source) {
  switch (source) {
    case LoudnessSource::integrated: return "LUFS";
    case LoudnessSource::dialogGated: return "LKFS";
    case LoudnessSource::rms: return "dB RMS";
  }
  return "";
}

std::string_view toleranceUnit(LoudnessSource source) {
  return source == LoudnessSource::rms ? "dB" : "LU";
}

bool LoudnessTarget::isCustom() const {
  return id.starts_with(LoudnessTargetSelection::customIDPrefix);
}

namespace {

template <class Item>
std::optional<Item> firstItem(const std::vector<LoudnessTargetItem>& items) {
  for (const auto& item : items) {
    if (const auto* found = std::get_if<Item>(&item)) return *found;
  }
  return std::nullopt;
}

}  // namespace

std::optional<MaxShortTermItem> LoudnessTarget::maxShortTerm() const {
  return firstItem<MaxShortTermItem>(items);
}

std::optional<NoiseFloorItem> LoudnessTarget::noiseFloor() const {
  return firstItem<NoiseFloorItem>(items);
}

std::optional<DialogueFallbackItem> LoudnessTarget::dialogueFallback() const {
  return firstItem<DialogueFallbackItem>(items);
}

PlaybackGainPolicy LoudnessTarget::playbackGainPolicy() const {
  auto item = firstItem<PlaybackGainItem>(items);
  return item ? item->policy : PlaybackGainPolicy::upAndDown;
}

std::string referenceLine(const LoudnessTarget& target) {
  const std::string prefix = target.source == LoudnessSource::dialogGated ? "dialog · " : "";
  const std::string unit(levelUnit(target.source));
  const std::string ceiling = "≤ " + formatFixed(target.truePeakCeilingDBTP, 0) + " dBTP";
  if (target.tolerance) {
    return prefix + formatCompact(target.referenceLevel) + " ±" +
           formatCompact(*target.tolerance) + " " + unit + " · " + ceiling;
  }
  return prefix + "ref " + formatFixed(target.referenceLevel, 0) + " " + unit + " · " + ceiling;
}

}  // namespace corvane
