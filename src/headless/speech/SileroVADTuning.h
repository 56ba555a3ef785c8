// SileroVADTuning: the three settings of the speech detector.
//
// The session keeps them under the settings keys below and hands them to every detection; a
// speech history remembers the tuning that made it, so equality is exact (a history is reused
// only for the very same tuning).
#pragma once

namespace corvane {

struct SileroVADTuning {
  static constexpr const char* kThresholdKey = "vadThreshold";
  static constexpr const char* kMinSpeechDurationKey = "vadMinSpeechDuration";
  static constexpr const char* kMinSilenceDurationKey = "vadMinSilenceDuration";
  static constexpr double kDefaultThreshold = 0.5;
  static constexpr double kDefaultMinSpeechDurationSec = 0.1;
  static constexpr double kDefaultMinSilenceDurationSec = 0.1;

  // A window whose speech probability reaches this starts speech; speech ends once the
  // probability has stayed below max(threshold − 0.15, 0.01) for minSilenceDurationSec.
  double threshold = kDefaultThreshold;
  // Speech shorter than this, in seconds, is dropped (a click, a cough, a door).
  double minSpeechDurationSec = kDefaultMinSpeechDurationSec;
  // Pauses shorter than this, in seconds, stay inside the speech around them.
  double minSilenceDurationSec = kDefaultMinSilenceDurationSec;

  bool operator==(const SileroVADTuning&) const = default;
};

}  // namespace corvane
