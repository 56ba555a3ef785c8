// LoudnessTarget: one delivery specification a file is judged against.
//
// A target is a reference level, how the level is measured (its source) and a true-peak
// ceiling. Targets come in two forms:
//   - delivery targets carry a tolerance: the file passes or fails (Apple Podcasts, EBU R128,
//     every custom target);
//   - playback targets carry none: they describe a platform that turns the file up or down to
//     its reference when it plays (Spotify, YouTube), so the verdict is the gain the listener
//     gets, not a pass or fail.
// Further items add the rules some specifications have beyond level and peak: a ceiling on
// the maximum short-term loudness, a noise-floor ceiling, a fallback when a programme has too
// little dialogue to gate on, how a platform applies its playback gain. Custom targets have
// none.
//
// Thread class: plain values, any thread. Nothing here throws.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane {

// The four families of delivery the targets are grouped by, in display order.
enum class LoudnessTargetMode { music, podcast, vod, broadcast };

inline constexpr std::array<LoudnessTargetMode, 4> kAllLoudnessTargetModes{
    LoudnessTargetMode::music, LoudnessTargetMode::podcast, LoudnessTargetMode::vod,
    LoudnessTargetMode::broadcast};

// How a target's level is measured, in display order.
enum class LoudnessSource {
  integrated,   // BS.1770 gated programme loudness, LUFS
  dialogGated,  // BS.1770 loudness over the blocks detected as speech only
  rms,          // un-weighted RMS of the whole programme, dB (the audiobook convention)
};

inline constexpr std::array<LoudnessSource, 3> kAllLoudnessSources{
    LoudnessSource::integrated, LoudnessSource::dialogGated, LoudnessSource::rms};

// Stable names used in stored settings and on the command line: "music", "podcast", "vod",
// "broadcast"; "integrated", "dialogGated", "rms". parse...() returns nullopt for any other
// text (case matters: stored values are written by us).
std::string_view rawValue(LoudnessTargetMode mode);
std::string_view rawValue(LoudnessSource source);
std::optional<LoudnessTargetMode> parseLoudnessTargetMode(std::string_view text);
std::optional<LoudnessSource> parseLoudnessSource(std::string_view text);

// "Music / Streaming", "Podcast / Spoken Word", "VOD", "Broadcast".
std::string_view label(LoudnessTargetMode mode);
// "Music", "Podcast", "VOD", "Broadcast".
std::string_view shortLabel(LoudnessTargetMode mode);
// The editor's choices: "Integrated (full program)", "Dialog-gated (speech only)",
// "RMS (un-weighted, ACX-style)".
std::string_view label(LoudnessSource source);
// Unit of a source's level: "LUFS", "LKFS" (dialog-gated, as the film and TV specifications
// write it), "dB RMS".
std::string_view levelUnit(LoudnessSource source);
// Unit of a tolerance: "LU" for the loudness sources, "dB" for RMS.
std::string_view toleranceUnit(LoudnessSource source);

// The maximum short-term loudness (3 s window) may not exceed `maxLUFS`. Short-form
// broadcast content (adverts, trailers) is held to this on top of its programme loudness.
struct MaxShortTermItem {
  float maxLUFS;
  friend bool operator==(const MaxShortTermItem&, const MaxShortTermItem&) = default;
};

// The un-weighted RMS of the non-speech parts (room tone, pauses) may not exceed `maxDBRMS`.
struct NoiseFloorItem {
  float maxDBRMS;
  friend bool operator==(const NoiseFloorItem&, const NoiseFloorItem&) = default;
};

// A dialog-gated target that falls back to full-programme loudness when the programme has
// less than `minSpeechPercent` % of speech: with so little dialogue the gated reading rests on
// too few blocks to mean anything. Below the limit the file is judged by its integrated
// loudness against `referenceLUFS` ± `toleranceLU` instead.
struct DialogueFallbackItem {
  float minSpeechPercent;
  float referenceLUFS;
  float toleranceLU;
  friend bool operator==(const DialogueFallbackItem&, const DialogueFallbackItem&) = default;
};

// How a playback platform applies its normalisation gain.
enum class PlaybackGainPolicy {
  upAndDown,            // the full difference both ways
  upLimitedByCeiling,   // turned down fully; turned up only until the true peak reaches the
                        // target's ceiling
  downOnly,             // loud files are turned down, quiet ones play as they are
};

struct PlaybackGainItem {
  PlaybackGainPolicy policy;
  friend bool operator==(const PlaybackGainItem&, const PlaybackGainItem&) = default;
};

using LoudnessTargetItem =
    std::variant<MaxShortTermItem, NoiseFloorItem, DialogueFallbackItem, PlaybackGainItem>;

struct LoudnessTarget {
  std::string id;           // stable key stored in the selection; custom ids start with
                            // LoudnessTargetSelection::customIDPrefix
  std::string displayName;  // "Apple Podcasts"
  LoudnessTargetMode mode = LoudnessTargetMode::music;
  LoudnessSource source = LoudnessSource::integrated;
  float referenceLevel = -23.0f;  // LUFS, or dB RMS for the RMS source
  // Present for delivery targets: the largest allowed |reading - reference|, LU (dB for RMS).
  // Absent for playback targets.
  std::optional<float> tolerance;
  float truePeakCeilingDBTP = -1.0f;
  std::vector<LoudnessTargetItem> items;

  bool isPlaybackTarget() const { return !tolerance.has_value(); }
  bool isCustom() const;

  // The first item of each kind; nullopt when the target has none.
  std::optional<MaxShortTermItem> maxShortTerm() const;
  std::optional<NoiseFloorItem> noiseFloor() const;
  std::optional<DialogueFallbackItem> dialogueFallback() const;
  // upAndDown when the target names no policy.
  PlaybackGainPolicy playbackGainPolicy() const;

  friend bool operator==(const LoudnessTarget&, const LoudnessTarget&) = default;
};

// The one-line description under a target's name in the info panel:
//   with a tolerance  "dialog · -27 ±2 LKFS · ≤ -2 dBTP",  "-16 ±1 LUFS · ≤ -1 dBTP"
//   without           "ref -14 LUFS · ≤ -1 dBTP"
// "dialog · " prefixes dialog-gated targets only. With a tolerance, reference and tolerance
// show up to one decimal (trailing ".0" dropped, so ACX reads "-20.5 ±2.5 dB RMS"); without,
// the reference is rounded to a whole dB, as is the ceiling always.
std::string referenceLine(const LoudnessTarget& target);

}  // namespace corvane
