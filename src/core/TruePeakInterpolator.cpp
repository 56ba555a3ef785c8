#include "core/TruePeakInterpolator.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace corvane {
namespace {

constexpr int kTaps = TruePeakInterpolator::kTapsPerPhase;
constexpr int kTile = TruePeakInterpolator::kTile;
constexpr double kKaiserBeta = 6.0;

// out[i] = max over phases of |Σ_k h_p[k]·x[i − k]| for the 16 outputs x[0 .. 15]. The taps
// loop runs outside the phases so each input vector is loaded once and every phase keeps its
// own accumulators: 2 × phases independent FMA chains hide the FMA latency.
template <int Phases>
inline __attribute__((always_inline)) void interpolateTileBody(const float* x, const float* h,
                                                               float* out) {
  float acc[Phases][kTile] = {};
  for (int k = 0; k < kTaps; ++k) {
    const float* xs = x - k;
    for (int p = 0; p < Phases; ++p) {
      const float hk = h[p * kTaps + k];
      for (int i = 0; i < kTile; ++i) acc[p][i] += hk * xs[i];
    }
  }
  for (int i = 0; i < kTile; ++i) {
    float m = std::fabs(acc[0][i]);
    for (int p = 1; p < Phases; ++p) m = std::max(m, std::fabs(acc[p][i]));
    out[i] = m;
  }
}

template <int Phases>
void interpolateTileDefault(const float* x, const float* h, float* out) {
  interpolateTileBody<Phases>(x, h, out);
}

#if defined(__x86_64__) && defined(__GNUC__)
template <int Phases>
__attribute__((target("avx2,fma"))) void interpolateTileAvx2(const float* x, const float* h,
                                                             float* out) {
  interpolateTileBody<Phases>(x, h, out);
}

bool cpuHasAvx2Fma() {
  static const bool has = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  return has;
}
#endif

template <int Phases>
void (*chooseKernel())(const float*, const float*, float*) {
#if defined(__x86_64__) && defined(__GNUC__)
  if (cpuHasAvx2Fma()) return &interpolateTileAvx2<Phases>;
#endif
  return &interpolateTileDefault<Phases>;
}

void noInterpolation(const float*, const float*, float* out) { std::fill_n(out, kTile, 0.0f); }

// Largest of 16 values, as a tree: a running maximum would chain 16 dependent operations.
inline float max16(const float* p) {
  float a[8], b[4];
  for (int i = 0; i < 8; ++i) a[i] = p[i] < p[i + 8] ? p[i + 8] : p[i];
  for (int i = 0; i < 4; ++i) b[i] = a[i] < a[i + 4] ? a[i + 4] : a[i];
  const float c0 = b[0] < b[2] ? b[2] : b[0], c1 = b[1] < b[3] ? b[3] : b[1];
  return c0 < c1 ? c1 : c0;
}

inline float maxAbs16(const float* p) {
  float a[kTile];
  for (int i = 0; i < kTile; ++i) a[i] = std::fabs(p[i]);
  return max16(a);
}

// The modified Bessel function I0 of the Kaiser window, by its power series
// Σ ((x/2)^k / k!)², summed until a term no longer changes the sum. Not std::cyl_bessel_i: it
// calls lgamma(), which writes the process-wide `signgam`, so two meters built at the same
// time (a load stage and an analysis pass) raced on it.
double besselI0(double x) {
  const double q = x * x / 4.0;
  double term = 1.0, sum = 1.0;
  for (int k = 1; k < 1000 && term > sum * 1e-18; ++k) {
    term *= q / (static_cast<double>(k) * k);
    sum += term;
  }
  return sum;
}

}  // namespace

TruePeakInterpolator::Scratch::Scratch()
    : samples(kHistory + kChunk + 2 * kTile, 0.0f),
      tileMax((kHistory + kChunk) / kTile + 2, 0.0f) {}

int TruePeakInterpolator::oversamplingFor(double sampleRate) noexcept {
  if (sampleRate < 176400.0) return 4;
  if (sampleRate < 352800.0) return 2;
  return 1;
}

TruePeakInterpolator::TruePeakInterpolator(double sampleRate)
    : _factor(oversamplingFor(sampleRate)), _worstCaseGain(1.0f) {
  const int phases = _factor - 1;
  _coefficients.assign(static_cast<std::size_t>(std::max(phases, 0) * kTaps), 0.0f);
  // Prototype at the oversampled rate: sinc with zeros every `factor` taps, centred on
  // factor · kTaps / 2, Kaiser window of factor · kTaps + 1 points symmetric about that centre.
  const int length = _factor * kTaps;
  const double centre = length / 2.0;
  const double i0Beta = besselI0(kKaiserBeta);
  double worst = 1.0;
  for (int p = 1; p < _factor; ++p) {
    double phase[kTaps];
    double sum = 0.0;
    for (int k = 0; k < kTaps; ++k) {
      const double m = k * _factor + p;
      const double t = (m - centre) / _factor;
      const double sinc = std::sin(std::numbers::pi * t) / (std::numbers::pi * t);
      const double r = (m - centre) / centre;
      const double window = besselI0(kKaiserBeta * std::sqrt(std::max(0.0, 1.0 - r * r))) / i0Beta;
      phase[k] = sinc * window;
      sum += phase[k];
    }
    double gain = 0.0;
    for (int k = 0; k < kTaps; ++k) {
      const double h = phase[k] / sum;  // unity at DC
      _coefficients[static_cast<std::size_t>((p - 1) * kTaps + k)] = static_cast<float>(h);
      gain += std::fabs(h);
    }
    worst = std::max(worst, gain);
  }
  // A hair above the exact bound, so float rounding in the kernel can never beat it.
  _worstCaseGain = static_cast<float>(worst * 1.001);
  switch (phases) {
    case 3: _kernel = chooseKernel<3>(); break;
    case 1: _kernel = chooseKernel<1>(); break;
    default: _kernel = &noInterpolation; break;
  }
}

int TruePeakInterpolator::load(const ChannelState& state, Scratch& scratch, const float* input,
                               int count) const noexcept {
  float* s = scratch.samples.data();
  std::memcpy(s, state.history.data(), sizeof(float) * kHistory);
  for (int i = 0; i < count; ++i) {
    const float v = input[i];
    s[kHistory + i] = (v - v == 0.0f) ? v : 0.0f;  // NaN and ±inf (v − v is NaN) become 0
  }
  std::fill_n(s + kHistory + count, 2 * kTile, 0.0f);
  const int filled = kHistory + count;
  const int tiles = (filled + kTile - 1) / kTile;
  float* tileMax = scratch.tileMax.data();
  for (int t = 0; t < tiles; ++t) tileMax[t] = maxAbs16(s + t * kTile);
  return tiles;
}

float TruePeakInterpolator::measureMax(ChannelState& state, Scratch& scratch, const float* input,
                                       int count, float threshold,
                                       float& samplePeak) const noexcept {
  float result = 0.0f;
  float out[kTile];
  while (count > 0) {
    const int n = std::min(count, kChunk);
    const int tiles = load(state, scratch, input, n);
    const float* s = scratch.samples.data();
    const float* tileMax = scratch.tileMax.data();
    const int end = kHistory + n;
    for (int t = kHistory / kTile; t < tiles; ++t) {
      const float local = tileMax[t];
      samplePeak = std::max(samplePeak, local);
      result = std::max(result, local);
      const float reach = std::max(std::max(tileMax[t - 2], tileMax[t - 1]), local);
      if (_factor == 1 || reach * _worstCaseGain <= std::max(threshold, result)) continue;
      const int first = t * kTile;
      _kernel(s + first, _coefficients.data(), out);
      for (int i = end - first; i < kTile; ++i) out[i] = 0.0f;  // past the input: not ours
      result = std::max(result, max16(out));
    }
    std::memcpy(state.history.data(), s + n, sizeof(float) * kHistory);
    input += n;
    count -= n;
  }
  return result;
}

void TruePeakInterpolator::envelope(ChannelState& state, Scratch& scratch, const float* input,
                                    int count, float* envelope) const noexcept {
  float out[kTile];
  while (count > 0) {
    const int n = std::min(count, kChunk);
    const int tiles = load(state, scratch, input, n);
    const float* s = scratch.samples.data();
    const int end = kHistory + n;
    for (int t = kHistory / kTile; t < tiles; ++t) {
      const int first = t * kTile;
      _kernel(s + first, _coefficients.data(), out);
      const int valid = std::min(kTile, end - first);
      for (int i = 0; i < valid; ++i) {
        const int position = first + i;
        envelope[position - kHistory] =
            std::max(out[i], std::fabs(s[position - delayFrames()]));
      }
    }
    std::memcpy(state.history.data(), s + n, sizeof(float) * kHistory);
    input += n;
    envelope += n;
    count -= n;
  }
}

}  // namespace corvane
