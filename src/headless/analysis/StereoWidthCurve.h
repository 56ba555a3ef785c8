// computeStereoWidthCurve: the correlation of a stereo pair per 0.1 s block, the file-wide
// stereo width curve of the metrics and reports.
//
// Blocks of Int(sampleRate × 0.1) frames, whole blocks only (a final part-block is left out:
// a correlation over a few frames says nothing). Per block: the dot product of left and right
// over sqrt(Σ left² × Σ right²), 0 when that root is not above 1e-10 (silence), clamped to
// −1 ... 1: +1 for mono, −1 for an inverted copy, about 0 for unrelated channels. A point's
// time is (block + 1) × 0.1 s plus startTime, the end of its block. Sums are kept in double;
// non-finite samples count as 0.
//
// Thread class: pure function, any thread; allocates the result.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"

namespace corvane {

struct StereoWidthCurvePoint {
  double time = 0.0;         // seconds, the end of the block
  float correlation = 0.0f;  // −1 ... 1
  friend bool operator==(const StereoWidthCurvePoint&, const StereoWidthCurvePoint&) = default;
};

// Empty when either pointer is null, the rate gives blocks of less than one frame, or there
// is no whole block.
std::vector<StereoWidthCurvePoint> computeStereoWidthCurve(const float* left, const float* right, FrameCount frameCount,
                                                           double sampleRate, double startTime = 0.0);

}  // namespace corvane
