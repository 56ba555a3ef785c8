#include "core/HilbertPhaseShifter.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace corvane {
namespace {

// Taps h[1], h[3], ..., h[49] counted from the centre; h[−n] = −h[n], even taps are 0.
// Equiripple design over 0.00708 ... 0.49292 of the rate (ripple −0.48/+0.46 dB); made by
// tools/design-hilbert.py.
constexpr std::array<float, 25> kOddTaps = {
    0.63644085016763796f,  0.21166764371421465f,  0.12642203294699428f,
    0.089687612141266193f, 0.069121545650070448f, 0.055910756648355431f,
    0.046659436542739963f, 0.039785394264234553f, 0.034455748076740678f,
    0.030176639883020551f, 0.026688005380213653f, 0.023705178187362286f,
    0.021198401053053595f, 0.019029161401646455f, 0.017119202178554893f,
    0.015424098775364992f, 0.013912356132339099f, 0.012570322284523594f,
    0.011351004909551821f, 0.010252602580041015f, 0.0092459173290026092f,
    0.0083234446086301456f, 0.0074802948088762491f, 0.0067094875554397013f,
    0.029952050137141251f,
};
static_assert(kOddTaps.size() == (HilbertPhaseShifter::kTapCount - 1) / 4,
              "one tap per odd offset on one side of the centre");

constexpr int kTile = 16;

// quadrature[i] = Σ_n h[n]·(x[c + i − n] − x[c + i + n]) for 16 outputs around centre c.
inline void quadratureTile(const float* centre, float* out) {
  float acc[kTile] = {};
  for (std::size_t t = 0; t < kOddTaps.size(); ++t) {
    const int n = static_cast<int>(2 * t + 1);
    const float h = kOddTaps[t];
    const float* before = centre - n;
    const float* after = centre + n;
    for (int i = 0; i < kTile; ++i) acc[i] += h * (before[i] - after[i]);
  }
  std::memcpy(out, acc, sizeof(acc));
}

}  // namespace

HilbertPhaseShifter::HilbertPhaseShifter() : _window(kHistory + kChunk + kTile, 0.0f) {}

void HilbertPhaseShifter::reset() noexcept { std::fill(_window.begin(), _window.end(), 0.0f); }

void HilbertPhaseShifter::process(const float* input, int count, float* reference,
                                  float* quadrature) noexcept {
  if (input == nullptr || reference == nullptr) return;
  float* w = _window.data();
  float tile[kTile];
  while (count > 0) {
    const int n = std::min(count, kChunk);
    // Copy first: the outputs may overwrite the input.
    std::memcpy(w + kHistory, input, sizeof(float) * static_cast<std::size_t>(n));
    const float* centre = w + kHistory - kLatencyFrames;  // output 0's centre tap
    if (quadrature != nullptr) {
      int i = 0;
      for (; i + kTile <= n; i += kTile) quadratureTile(centre + i, quadrature + i);
      if (i < n) {
        // The tile reads up to kLatencyFrames past its last output: zeros pad the window.
        std::fill(w + kHistory + n, w + kHistory + n + kTile, 0.0f);
        quadratureTile(centre + i, tile);
        std::memcpy(quadrature + i, tile, sizeof(float) * static_cast<std::size_t>(n - i));
      }
    }
    std::memcpy(reference, centre, sizeof(float) * static_cast<std::size_t>(n));
    std::memmove(w, w + n, sizeof(float) * kHistory);
    input += n;
    reference += n;
    if (quadrature != nullptr) quadrature += n;
    count -= n;
  }
}

}  // namespace corvane
