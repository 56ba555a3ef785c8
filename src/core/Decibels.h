// Decibels: the one conversion between a level in dB and its linear amplitude factor.
//
// Amplitude convention throughout Corvane: dB = 20·log10(factor). Silence and "no value" are
// negative infinity, never a sentinel such as -100 or -200, so comparisons against targets
// and thresholds stay correct and display code decides how to print them.
//
// Thread class: pure functions, any thread, real-time safe.
#pragma once

#include <cmath>
#include <limits>

namespace corvane {

// 10^(dB / 20). Negative infinity gives 0; positive infinity gives infinity.
inline double dbToLinear(double db) noexcept { return std::pow(10.0, db / 20.0); }
inline float dbToLinear(float db) noexcept { return std::pow(10.0f, db / 20.0f); }

// 20·log10(factor). A factor of 0 or below (silence, or a magnitude that never was one) gives
// negative infinity; NaN stays NaN so that a broken upstream value is not hidden as silence.
inline double linearToDB(double factor) noexcept {
  if (factor > 0.0) return 20.0 * std::log10(factor);
  if (std::isnan(factor)) return factor;
  return -std::numeric_limits<double>::infinity();
}
inline float linearToDB(float factor) noexcept {
  if (factor > 0.0f) return 20.0f * std::log10(factor);
  if (std::isnan(factor)) return factor;
  return -std::numeric_limits<float>::infinity();
}

}  // namespace corvane
