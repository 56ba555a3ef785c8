// The loudness-target verdicts of `corvane measure --mode M`: the default selection of targets
// with the chosen mode, each judged against the file's measurement, as the info panel shows
// them beside a loaded file.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"

namespace corvane::cli {

// Un-weighted RMS of each channel over the buffer's frames, dBFS; -inf for a silent channel.
// Non-finite samples count as silence. Sums run in double: an hour of audio would lose the
// quiet end of a float accumulator.
std::vector<float> channelRMSDBFS(const AudioBuffer& buffer);

// One line per target of `mode`: name, verdict (with "⚠" when flagged) and reference line:
//   "  Apple Podcasts       FAIL L     -16 ±1 LUFS · ≤ -1 dBTP"
// under the heading "Targets (<mode label>):".
void printTargetVerdicts(std::ostream& out, LoudnessTargetMode mode,
                         const LoudnessMeasurement& measurement);

// The JSON members "loudnessMode" and "targets" (an array of objects with "id", "name",
// "reference", "verdict", "verdictClass", "passed", "flagged", "reading", "playbackGainDB"),
// indented for the measure command's object, without a trailing comma or newline.
std::string targetVerdictsJsonMembers(LoudnessTargetMode mode,
                                      const LoudnessMeasurement& measurement);

}  // namespace corvane::cli
