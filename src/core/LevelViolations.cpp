#include "core/LevelViolations.h"

namespace corvane {

std::vector<SecondsRange> computeViolations(std::span<const LevelCurvePoint> curve,
                                            float threshold, double blockDuration) {
  return computeViolations(
      curve, threshold, blockDuration, [](const LevelCurvePoint& p) { return p.time; },
      [](const LevelCurvePoint& p) { return p.value; });
}

}  // namespace corvane
