// Power-domain helpers of the offline spectra: spectra are averaged and mixed as power (what
// the ear and a power meter add up), never as dB, and only the result goes back to dB.
//
// Thread class: pure inline functions, any thread; no allocation.
#pragma once

#include <cmath>
#include <cstddef>
#include <span>

namespace corvane::spectrum {

// sum[k] += power[k]
template <typename Sum>
inline void addPower(std::span<const float> power, std::span<Sum> sum) noexcept {
  const std::size_t n = power.size() < sum.size() ? power.size() : sum.size();
  for (std::size_t k = 0; k < n; ++k) sum[k] += static_cast<Sum>(power[k]);
}

// out[k] = 10·log10(sum[k] · scale): a mean of powers (scale = 1 / count) in dB re 1.0. A zero
// power gives −infinity, as a power meter on digital silence would.
template <typename Sum>
inline void meanPowerToDecibels(std::span<const Sum> sum, Sum scale, std::span<float> out) noexcept {
  const std::size_t n = sum.size() < out.size() ? sum.size() : out.size();
  for (std::size_t k = 0; k < n; ++k) out[k] = static_cast<float>(10.0 * std::log10(static_cast<double>(sum[k] * scale)));
}

}  // namespace corvane::spectrum
