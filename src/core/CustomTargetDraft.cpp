#include "core/CustomTargetDraft.h"

#include <cstdint>
#include <cstdio>
#include <random>

#include "core/LoudnessTargetSelection.h"
#include "core/NumberFormat.h"

namespace corvane {

std::string makeUUIDString() {
  // One engine per thread, seeded once from the system's entropy: ids only need to be
  // unique, not secret.
  thread_local std::mt19937_64 engine{[] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }()};
  std::uint64_t high = engine();
  std::uint64_t low = engine();
  high = (high & ~0xF000ull) | 0x4000ull;                     // version 4
  low = (low & ~(0xC000ull << 48)) | (0x8000ull << 48);       // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX",
                static_cast<unsigned>(high >> 32), static_cast<unsigned>((high >> 16) & 0xFFFF),
                static_cast<unsigned>(high & 0xFFFF), static_cast<unsigned>(low >> 48),
                static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull));
  return text;
}

std::string trimmedBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\r\f\v";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(kBlanks);
  return std::string(text.substr(first, last - first + 1));
}

CustomTargetDraft CustomTargetDraft::newDraft(LoudnessTargetMode mode) {
  CustomTargetDraft draft;
  draft.id = std::string(LoudnessTargetSelection::customIDPrefix) + makeUUIDString();
  draft.mode = mode;
  draft.source = defaultSource(mode);
  return draft;
}

CustomTargetDraft CustomTargetDraft::editing(const LoudnessTarget& target) {
  CustomTargetDraft draft;
  draft.id = target.id;
  draft.name = target.displayName;
  draft.mode = target.mode;
  draft.source = target.source;
  draft.referenceLUFS = target.referenceLevel;
  draft.toleranceLU = target.tolerance.value_or(0.0f);
  draft.truePeakCeilingDBTP = target.truePeakCeilingDBTP;
  draft.sourceTouched = true;
  return draft;
}

LoudnessSource CustomTargetDraft::defaultSource(LoudnessTargetMode mode) {
  switch (mode) {
    case LoudnessTargetMode::podcast:
    case LoudnessTargetMode::vod: return LoudnessSource::dialogGated;
    case LoudnessTargetMode::music:
    case LoudnessTargetMode::broadcast: return LoudnessSource::integrated;
  }
  return LoudnessSource::integrated;
}

void CustomTargetDraft::setMode(LoudnessTargetMode newMode) {
  mode = newMode;
  if (!sourceTouched) source = defaultSource(newMode);
}

void CustomTargetDraft::setSource(LoudnessSource newSource) {
  source = newSource;
  sourceTouched = true;
}

bool CustomTargetDraft::isValid() const {
  // Written as "inside" tests so that NaN, which compares false, is rejected.
  return !trimmedBlanks(name).empty() &&
         referenceLUFS >= kMinReference && referenceLUFS <= kMaxReference &&
         toleranceLU >= kMinTolerance && toleranceLU <= kMaxTolerance &&
         truePeakCeilingDBTP >= kMinCeilingDBTP && truePeakCeilingDBTP <= kMaxCeilingDBTP;
}

LoudnessTarget CustomTargetDraft::buildTarget() const {
  LoudnessTarget target;
  target.id = id;
  target.displayName = trimmedBlanks(name);
  target.mode = mode;
  target.source = source;
  target.referenceLevel = referenceLUFS;
  target.tolerance = toleranceLU;
  target.truePeakCeilingDBTP = truePeakCeilingDBTP;
  return target;
}

std::string_view CustomTargetDraft::editorTitle(bool isNew) {
  return isNew ? "New Custom Target" : "Edit Custom Target";
}

std::string CustomTargetDraft::summaryText() const {
  const std::string measured = source == LoudnessSource::rms ? "RMS" : "Loudness";
  return "Verdicts read pass when the measured " + measured + " sits within " +
         formatCompact(toleranceLU) + " " + std::string(toleranceUnit(source)) + " of " +
         formatCompact(referenceLUFS) + " " + std::string(levelUnit(source)) +
         " and the true peak stays at or under " + formatCompact(truePeakCeilingDBTP) +
         " dBTP. Dialog-gated needs detected speech; RMS needs an offline analysis run.";
}

}  // namespace corvane
