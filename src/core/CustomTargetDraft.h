// CustomTargetDraft: the value the custom-target editor works on.
//
// A draft becomes a LoudnessTarget with buildTarget() once isValid(). Its source follows its
// mode (dialog-gated for podcast and VOD, whose specifications anchor on speech; integrated
// for music and broadcast) until the user picks a source themselves.
//
// Thread class: plain value, any thread. Nothing throws.
#pragma once

#include <string>
#include <string_view>

#include "core/LoudnessTarget.h"

namespace corvane {

struct CustomTargetDraft {
  // Accepted ranges of the editor's fields, ends included.
  static constexpr float kMinReference = -60.0f;
  static constexpr float kMaxReference = 0.0f;
  static constexpr float kMinTolerance = 0.0f;
  static constexpr float kMaxTolerance = 12.0f;
  static constexpr float kMinCeilingDBTP = -12.0f;
  static constexpr float kMaxCeilingDBTP = 0.0f;

  std::string id;
  std::string name;
  LoudnessTargetMode mode = LoudnessTargetMode::music;
  LoudnessSource source = LoudnessSource::integrated;
  float referenceLUFS = -18.0f;  // dB RMS for the RMS source
  float toleranceLU = 1.0f;      // dB for the RMS source
  float truePeakCeilingDBTP = -1.0f;
  bool sourceTouched = false;

  // A new draft for the section of `mode`: the id customIDPrefix + `uuid` (a fresh UUID
  // string: headless's makeUUIDString() or QUuid; this library keeps no random source), the
  // mode's default source and the default levels.
  static CustomTargetDraft newDraft(LoudnessTargetMode mode, std::string_view uuid);
  // A draft that edits `target`. Its source counts as chosen: changing the mode of a saved
  // target keeps the source it was saved with.
  static CustomTargetDraft editing(const LoudnessTarget& target);

  static LoudnessSource defaultSource(LoudnessTargetMode mode);

  // Changes the mode; the source follows it unless sourceTouched.
  void setMode(LoudnessTargetMode newMode);
  // The user's choice of source; from now on a mode change leaves it alone.
  void setSource(LoudnessSource newSource);

  // The name trimmed of blanks isn't empty, the reference lies in -60 ... 0, the tolerance
  // in 0 ... 12 and the ceiling in -12 ... 0. NaN is never valid.
  bool isValid() const;

  // The target this draft describes: name trimmed, reference/tolerance/ceiling form, no
  // further items. Meant for valid drafts; it builds whatever the fields say.
  LoudnessTarget buildTarget() const;

  // "New Custom Target" or "Edit Custom Target".
  static std::string_view editorTitle(bool isNew);

  // The editor's live summary: "Verdicts read pass when the measured Loudness sits within
  // 1 LU of -18 LKFS and the true peak stays at or under -1 dBTP. Dialog-gated needs detected
  // speech; RMS needs an offline analysis run."
  std::string summaryText() const;
};

// `text` without leading and trailing blanks (spaces, tabs, line ends).
std::string trimmedBlanks(std::string_view text);

}  // namespace corvane
