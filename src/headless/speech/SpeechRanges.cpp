#include "headless/speech/SpeechRanges.h"

#include <cstddef>

namespace corvane {

std::vector<SpeechRange> computeSpeechRanges(const std::vector<bool>& speechHistory, double selectionStart,
                                             double blockDuration) {
  constexpr std::size_t kLongestFilledPause = 3;
  std::vector<bool> filled = speechHistory;
  std::size_t lastSpeech = filled.size();  // none yet
  for (std::size_t i = 0; i < filled.size(); ++i) {
    if (!filled[i]) continue;
    if (lastSpeech != filled.size()) {
      const std::size_t pause = i - lastSpeech - 1;
      if (pause >= 1 && pause <= kLongestFilledPause) {
        for (std::size_t j = lastSpeech + 1; j < i; ++j) filled[j] = true;
      }
    }
    lastSpeech = i;
  }

  std::vector<SpeechRange> ranges;
  const auto timeOf = [&](std::size_t block) { return selectionStart + blockDuration * static_cast<double>(block); };
  std::size_t i = 0;
  while (i < filled.size()) {
    if (!filled[i]) {
      ++i;
      continue;
    }
    const std::size_t first = i;
    while (i < filled.size() && filled[i]) ++i;
    ranges.push_back({timeOf(first), timeOf(i)});
  }
  return ranges;
}

}  // namespace corvane
