// computeSpeechRanges: the stretches of speech of a speech history, in seconds, as the
// measurement displays and reports show them.
//
// Thread class: pure function, any thread.
#pragma once

#include <cstddef>
#include <vector>

#include "core/SpeechHistory.h"

namespace corvane {

// A closed range of seconds in the file's time.
struct SpeechRange {
  double startSec = 0;
  double endSec = 0;
  bool operator==(const SpeechRange&) const = default;
};

// A run of speech blocks: the half-open block range [first, end).
struct SpeechRun {
  std::size_t first = 0;
  std::size_t end = 0;
};

// The runs of true entries of a history, in order.
std::vector<SpeechRun> speechRuns(const SpeechHistory& history);

// Block i of `speechHistory` lies at selectionStart + blockDuration × i. Pauses of one to three
// false blocks between two runs of speech count as speech (at 0.1 s blocks: up to 0.3 s, the
// breath between phrases); a pause of four blocks or more separates two ranges. Each run gives
// the range from the time of its first block to the time of the block after it; a run that
// reaches the end closes at selectionStart + blockDuration × the number of blocks.
std::vector<SpeechRange> computeSpeechRanges(const SpeechHistory& speechHistory, double selectionStart,
                                             double blockDuration);

}  // namespace corvane
