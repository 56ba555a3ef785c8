// computeViolations: where a level curve goes over a threshold.
//
// Curves are sequences of points (time, value) with one point per block, a point's time being
// the end of its block (0.1 s blocks throughout). A point counts when its value is finite and
// strictly above the threshold: exactly at the threshold is no violation, and -inf (silence)
// or +inf/NaN (no reading) never count. Each maximal run of counting points, from index a,
// gives one closed range of seconds:
//   lower = time[a] - blockDuration                (the start of the run's first block)
//   upper = time[b] - blockDuration                (b = the first point after the run, so
//                                                   the end of the run's last block)
// and a run that reaches the curve's last point closes at that point's time (the end of the
// last block, as there is no next point to take it from).
//
// Thread class: pure functions, any thread. Nothing throws; empty input gives empty output.
#pragma once

#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace corvane {

// A closed range of seconds in the file's time.
struct SecondsRange {
  double lower = 0.0;
  double upper = 0.0;
  friend bool operator==(const SecondsRange&, const SecondsRange&) = default;
};

// One point of a level curve: the end time of its block and a level (LUFS or dBTP).
struct LevelCurvePoint {
  double time = 0.0;
  float value = 0.0f;
};

std::vector<SecondsRange> computeViolations(std::span<const LevelCurvePoint> curve,
                                            float threshold, double blockDuration);

// The same over any random-access sequence of points, reading each point's time and value
// through `timeOf` and `valueOf`; lets the live curve (time, momentary, short-term,
// integrated) be scanned per column without copying it.
template <class Curve, class TimeOf, class ValueOf>
std::vector<SecondsRange> computeViolations(const Curve& curve, float threshold,
                                            double blockDuration, TimeOf timeOf,
                                            ValueOf valueOf) {
  std::vector<SecondsRange> ranges;
  const std::size_t count = std::size(curve);
  auto counts = [&](std::size_t i) {
    const float value = valueOf(curve[i]);
    return std::isfinite(value) && value > threshold;
  };
  std::size_t i = 0;
  while (i < count) {
    if (!counts(i)) {
      ++i;
      continue;
    }
    const std::size_t first = i;
    while (i < count && counts(i)) ++i;
    const double lower = timeOf(curve[first]) - blockDuration;
    const double upper =
        i < count ? timeOf(curve[i]) - blockDuration : timeOf(curve[count - 1]);
    ranges.push_back(SecondsRange{lower, upper});
    // curve[i] ends the run and doesn't count: the scan moves past it.
    ++i;
  }
  return ranges;
}

}  // namespace corvane
