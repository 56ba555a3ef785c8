#include "playback/PlaybackRates.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace corvane {

std::string playbackRateLabel(double rate) {
  if (rate == 1.0) return "1×";
  char text[64];
  std::to_chars_result result;
  if (std::floor(rate) == rate) {
    result = std::to_chars(text, text + sizeof text, rate, std::chars_format::fixed, 0);
  } else {
    // "%g": six significant digits, shortest of fixed and scientific, no trailing zeros.
    result = std::to_chars(text, text + sizeof text, rate, std::chars_format::general, 6);
  }
  return std::string(text, result.ptr) + "×";
}

double limitPlaybackRate(double rate) {
  if (std::isnan(rate)) return 1.0;
  return std::clamp(rate, kMinPlaybackRate, kMaxPlaybackRate);
}

double playbackPitchCents(double rate, bool preservePitch) {
  if (preservePitch || !(rate > 0.0)) return 0.0;
  return 1200.0 * std::log2(rate);
}

}  // namespace corvane
