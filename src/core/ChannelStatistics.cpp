#include "core/ChannelStatistics.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>

// One code path for every machine, cloned for AVX2 and AVX-512 where the CPU has them (the
// vector types below are GCC's, so each clone runs the same operations in the same order and
// gives the same sums). Not under sanitizers: an ifunc resolver runs while the program is
// relocated, before the sanitizer runtime is ready.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define CORVANE_STATISTICS_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define CORVANE_STATISTICS_CLONES
#endif

namespace corvane {

namespace {

using Floats4 = float __attribute__((vector_size(16)));
using Floats8 = float __attribute__((vector_size(32)));
using Ints8 = std::int32_t __attribute__((vector_size(32)));
using Doubles4 = double __attribute__((vector_size(32)));

constexpr int kWidth = 8;

struct Sums {
  Doubles4 sumLow{}, sumHigh{}, squaresLow{}, squaresHigh{};
  Floats8 peak{};

  // Eight samples; NaN and ±inf count as 0 (their magnitude fails the comparison with the
  // largest finite float).
  void add(const Floats8& v) {
    // Casts between vector types of one size reinterpret the bits.
    const Ints8 finite = (Floats8)((Ints8)v & 0x7fffffff) <= FLT_MAX;
    const Floats8 kept = (Floats8)((Ints8)v & finite);
    const Floats8 keptMagnitude = (Floats8)((Ints8)kept & 0x7fffffff);
    peak = peak > keptMagnitude ? peak : keptMagnitude;
    Floats4 low, high;
    std::memcpy(&low, &kept, sizeof low);
    std::memcpy(&high, reinterpret_cast<const char*>(&kept) + sizeof low, sizeof high);
    const Doubles4 l = __builtin_convertvector(low, Doubles4);
    const Doubles4 h = __builtin_convertvector(high, Doubles4);
    sumLow += l;
    sumHigh += h;
    squaresLow += l * l;
    squaresHigh += h * h;
  }
};

CORVANE_STATISTICS_CLONES
void accumulate(const float* samples, FrameCount frameCount, double& sum, double& sumSquares, float& peak) {
  Sums s;
  FrameCount i = 0;
  for (; i + kWidth <= frameCount; i += kWidth) {
    Floats8 v;
    std::memcpy(&v, samples + i, sizeof v);
    s.add(v);
  }
  if (i < frameCount) {
    // The tail, padded with zeros (which change no sum and no peak).
    Floats8 v{};
    std::memcpy(&v, samples + i, sizeof(float) * static_cast<std::size_t>(frameCount - i));
    s.add(v);
  }
  sum = 0.0;
  sumSquares = 0.0;
  peak = 0.0f;
  for (int l = 0; l < 4; ++l) {
    sum += s.sumLow[l] + s.sumHigh[l];
    sumSquares += s.squaresLow[l] + s.squaresHigh[l];
  }
  for (int l = 0; l < kWidth; ++l) peak = std::max(peak, s.peak[l]);
}

}  // namespace

float ChannelStatistics::peakDB() const {
  return static_cast<float>(20.0 * std::log10(std::max(static_cast<double>(peak), 1e-12)));
}

float ChannelStatistics::rmsDB() const {
  return static_cast<float>(20.0 * std::log10(std::sqrt(std::max(meanSquare, 1e-12))));
}

ChannelStatistics measureChannel(const float* samples, FrameCount frameCount) noexcept {
  ChannelStatistics s;
  if (samples == nullptr || frameCount < 1) return s;
  double sum = 0.0, sumSquares = 0.0;
  accumulate(samples, frameCount, sum, sumSquares, s.peak);
  s.mean = sum / static_cast<double>(frameCount);
  s.meanSquare = sumSquares / static_cast<double>(frameCount);
  return s;
}

}  // namespace corvane
