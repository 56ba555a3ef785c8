#include "core/LoudnessMeasurement.h"

#include <cmath>

namespace corvane {

float LoudnessMeasurement::programRMSDBFS(std::span<const float> perChannelDBFS) {
  double powerSum = 0.0;
  int channels = 0;
  for (float levelDB : perChannelDBFS) {
    if (std::isnan(levelDB)) continue;
    ++channels;
    if (levelDB == kNoReading) continue;  // silent: no power, but it counts as a channel
    powerSum += std::pow(10.0, static_cast<double>(levelDB) / 10.0);
  }
  if (channels == 0 || powerSum <= 0.0) return kNoReading;
  return static_cast<float>(10.0 * std::log10(powerSum / channels));
}

}  // namespace corvane
