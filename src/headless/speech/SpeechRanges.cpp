#include "headless/speech/SpeechRanges.h"

namespace corvane {

std::vector<SpeechRun> speechRuns(const SpeechHistory& history) {
  std::vector<SpeechRun> runs;
  std::size_t i = 0;
  while (i < history.size()) {
    if (!history[i]) {
      ++i;
      continue;
    }
    const std::size_t first = i;
    while (i < history.size() && history[i]) ++i;
    runs.push_back({first, i});
  }
  return runs;
}

std::vector<SpeechRange> computeSpeechRanges(const SpeechHistory& speechHistory, double selectionStart,
                                             double blockDuration) {
  constexpr std::size_t kLongestFilledPause = 3;
  std::vector<SpeechRange> ranges;
  std::size_t lastEnd = 0;
  for (const SpeechRun& run : speechRuns(speechHistory)) {
    const double start = selectionStart + blockDuration * static_cast<double>(run.first);
    const double end = selectionStart + blockDuration * static_cast<double>(run.end);
    // Runs are separated by at least one block; a short pause joins this run to the last.
    if (!ranges.empty() && run.first - lastEnd <= kLongestFilledPause) {
      ranges.back().endSec = end;
    } else {
      ranges.push_back({start, end});
    }
    lastEnd = run.end;
  }
  return ranges;
}

}  // namespace corvane
