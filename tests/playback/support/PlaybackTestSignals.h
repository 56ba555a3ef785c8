// Test signals whose samples say where they came from, and small measurements on captured
// audio.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane::test {

// Sample value of `frame` on `channel` in an index-coded buffer: (frame + 1 + channel × 2^21)
// × 2^-24. Every value is exact in float32 (below 1, on a 2^-24 grid), distinct per frame and
// channel up to 2^21 frames, and never 0, so silence is told apart from audio.
inline float indexCodedSample(std::int64_t frame, int channel) {
  return static_cast<float>(static_cast<double>(frame + 1 + (std::int64_t{channel} << 21)) / 16777216.0);
}

// The frame a captured sample came from, given its channel; nothing for silence or a value
// that is not on the grid.
inline std::optional<std::int64_t> frameOfSample(float value, int channel) {
  if (value == 0.0f) return std::nullopt;
  const double scaled = static_cast<double>(value) * 16777216.0;
  const double rounded = std::round(scaled);
  if (rounded != scaled) return std::nullopt;
  return static_cast<std::int64_t>(rounded) - 1 - (std::int64_t{channel} << 21);
}

inline SharedAudioBuffer indexCodedBuffer(int channels, FrameCount frames, double rate = 48000.0) {
  auto buffer = AudioBuffer::create(channels, frames, rate);
  for (int c = 0; c < channels; ++c) {
    for (FrameCount i = 0; i < frames; ++i) buffer->channel(c)[i] = indexCodedSample(i, c);
  }
  return buffer;
}

inline SharedAudioBuffer sineBuffer(int channels, FrameCount frames, double frequency,
                                    double amplitude, double rate = 48000.0) {
  auto buffer = AudioBuffer::create(channels, frames, rate);
  for (FrameCount i = 0; i < frames; ++i) {
    const float v = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * i / rate));
    for (int c = 0; c < channels; ++c) buffer->channel(c)[i] = v;
  }
  return buffer;
}

// Index of the first sample whose magnitude exceeds `threshold`, or -1.
inline long firstAbove(const std::vector<float>& x, float threshold = 0.0f) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (std::fabs(x[i]) > threshold) return static_cast<long>(i);
  }
  return -1;
}

inline long lastAbove(const std::vector<float>& x, float threshold = 0.0f) {
  for (std::size_t i = x.size(); i-- > 0;) {
    if (std::fabs(x[i]) > threshold) return static_cast<long>(i);
  }
  return -1;
}

inline double rms(const std::vector<float>& x, long from, long count) {
  double sum = 0.0;
  for (long i = from; i < from + count; ++i) sum += double(x[i]) * x[i];
  return std::sqrt(sum / count);
}

// Phase in degrees of the `frequency` component of x[from, from + count) (a whole number of
// periods), by correlation with cos and sin.
inline double phaseDegrees(const std::vector<float>& x, long from, long count, double frequency,
                           double rate) {
  double re = 0.0, im = 0.0;
  for (long i = 0; i < count; ++i) {
    const double w = 2.0 * M_PI * frequency * i / rate;
    re += x[from + i] * std::cos(w);
    im -= x[from + i] * std::sin(w);
  }
  return std::atan2(im, re) * 180.0 / M_PI;
}

// Wraps a phase difference into (-180, 180].
inline double wrapDegrees(double d) {
  while (d <= -180.0) d += 360.0;
  while (d > 180.0) d -= 360.0;
  return d;
}

// Frequency from rising zero crossings over x[from, from + count), interpolated between samples.
inline double zeroCrossingFrequency(const std::vector<float>& x, long from, long count, double rate) {
  double first = -1.0, last = -1.0;
  int crossings = 0;
  for (long i = from + 1; i < from + count; ++i) {
    if (x[i - 1] < 0.0f && x[i] >= 0.0f) {
      const double t = (i - 1) + x[i - 1] / (x[i - 1] - x[i]);
      if (first < 0.0) first = t;
      last = t;
      ++crossings;
    }
  }
  if (crossings < 2) return 0.0;
  return (crossings - 1) * rate / (last - first);
}

}  // namespace corvane::test
