#include "headless/analysis/StereoWidthCurve.h"

#include <algorithm>
#include <cmath>

#include "core/SpeechHistory.h"

namespace corvane {

namespace {
inline double finiteOrZero(float v) { return std::isfinite(v) ? v : 0.0; }
}  // namespace

std::vector<StereoWidthCurvePoint> computeStereoWidthCurve(const float* left, const float* right, FrameCount frameCount,
                                                           double sampleRate, double startTime) {
  std::vector<StereoWidthCurvePoint> curve;
  if (left == nullptr || right == nullptr || !(sampleRate > 0.0)) return curve;
  const auto block = static_cast<FrameCount>(sampleRate * kLoudnessBlockSeconds);
  if (block < 1) return curve;
  const FrameCount blocks = std::max<FrameCount>(frameCount, 0) / block;
  curve.reserve(static_cast<std::size_t>(blocks));
  for (FrameCount b = 0; b < blocks; ++b) {
    double dot = 0.0, leftSquares = 0.0, rightSquares = 0.0;
    for (FrameCount i = b * block, end = i + block; i < end; ++i) {
      const double l = finiteOrZero(left[i]), r = finiteOrZero(right[i]);
      dot += l * r;
      leftSquares += l * l;
      rightSquares += r * r;
    }
    const double denominator = std::sqrt(leftSquares * rightSquares);
    const double correlation = denominator > 1e-10 ? std::clamp(dot / denominator, -1.0, 1.0) : 0.0;
    curve.push_back({startTime + static_cast<double>(b + 1) * kLoudnessBlockSeconds, static_cast<float>(correlation)});
  }
  return curve;
}

}  // namespace corvane
