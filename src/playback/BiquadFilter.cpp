#include "playback/BiquadFilter.h"

#include <algorithm>
#include <cmath>

namespace corvane {

namespace {

constexpr double kEdgeLimitFraction = 0.45;

// The RBJ high-pass or low-pass at Q = 1/√2.
BiquadCoeffs secondOrderPass(float f, float fs, bool high) {
  const float w = 6.283185f * f / fs;
  const float cw = std::cos(w);
  const float alpha = std::sin(w) / 1.4142f;
  const float a0 = 1.0f + alpha;
  const float edge = high ? 1.0f + cw : 1.0f - cw;
  BiquadCoeffs c;
  c.b0 = edge / 2.0f / a0;
  c.b1 = (high ? -edge : edge) / a0;
  c.b2 = c.b0;
  c.a1 = -2.0f * cw / a0;
  c.a2 = (1.0f - alpha) / a0;
  return c;
}

BiquadCoeffs notch(float lo, float hi, float fs) {
  const float f = std::sqrt(lo * hi);
  const float q = f / std::max(hi - lo, 1.0f);
  const float w = 6.283185f * f / fs;
  const float cw = std::cos(w);
  const float alpha = std::sin(w) / (2.0f * std::max(q, 0.1f));
  const float a0 = 1.0f + alpha;
  BiquadCoeffs c;
  c.b0 = 1.0f / a0;
  c.b1 = -2.0f * cw / a0;
  c.b2 = c.b0;
  c.a1 = c.b1;
  c.a2 = (1.0f - alpha) / a0;
  return c;
}

// RBJ peaking EQ with its bandwidth in octaves, designed in double.
BiquadCoeffs peakingCut(double lo, double hi, double fs) {
  const double f = std::sqrt(lo * hi);
  const double octaves = std::max(std::log2(hi / lo), 0.05);
  const double gainDB = -40.0;
  const double a = std::pow(10.0, gainDB / 40.0);
  const double w = 2.0 * M_PI * f / fs;
  const double sw = std::sin(w);
  const double cw = std::cos(w);
  const double alpha = sw * std::sinh(std::log(2.0) / 2.0 * octaves * w / sw);
  const double a0 = 1.0 + alpha / a;
  BiquadCoeffs c;
  c.b0 = static_cast<float>((1.0 + alpha * a) / a0);
  c.b1 = static_cast<float>(-2.0 * cw / a0);
  c.b2 = static_cast<float>((1.0 - alpha * a) / a0);
  c.a1 = c.b1;
  c.a2 = static_cast<float>((1.0 - alpha / a) / a0);
  return c;
}

void runStageBlock(const BiquadCoeffs& c, double& s1Ref, double& s2Ref, float* samples, int frames) {
  const double b0 = c.b0, b1 = c.b1, b2 = c.b2, a1 = c.a1, a2 = c.a2;
  double s1 = s1Ref;
  double s2 = s2Ref;
  for (int i = 0; i < frames; ++i) {
    const double x = samples[i];
    const double y = b0 * x + s1;
    s1 = b1 * x - a1 * y + s2;
    s2 = b2 * x - a2 * y;
    samples[i] = static_cast<float>(y);
  }
  s1Ref = s1;
  s2Ref = s2;
}

}  // namespace

FreqRange limitFilterEdges(FreqRange range, double sampleRate) {
  double lo = range.lowHz > 19999.0 ? 19999.0 : std::max(range.lowHz, 20.0);
  double hi = range.highHz > 20000.0 ? 20000.0 : std::max(range.highHz, 21.0);
  const double ceiling = kEdgeLimitFraction * sampleRate;
  hi = std::min(hi, ceiling);
  lo = std::min(lo, ceiling - 1.0);
  return {lo, hi};
}

BiquadFilterSpec makeCallbackFilterSpec(FreqRange selection, FreqFilterMode mode,
                                        double sampleRate) {
  const FreqRange edges = limitFilterEdges(selection, sampleRate);
  const float fs = static_cast<float>(sampleRate);
  const float lo = static_cast<float>(edges.lowHz);
  const float hi = static_cast<float>(edges.highHz);
  BiquadFilterSpec spec;
  if (mode == FreqFilterMode::bandPass) {
    spec.hp = secondOrderPass(lo, fs, true);
    spec.lp = secondOrderPass(hi, fs, false);
  } else {
    spec.notch = notch(lo, hi, fs);
  }
  return spec;
}

BiquadFilterSpec makeEqFilterSpec(FreqRange selection, FreqFilterMode mode, double sampleRate) {
  const FreqRange edges = limitFilterEdges(selection, sampleRate);
  if (mode == FreqFilterMode::bandPass) return makeCallbackFilterSpec(selection, mode, sampleRate);
  BiquadFilterSpec spec;
  spec.notch = peakingCut(edges.lowHz, edges.highHz, sampleRate);
  return spec;
}

void processBiquadStages(const BiquadFilterSpec& spec, BiquadChannelState& state, float* samples,
                         int frames) noexcept {
  const BiquadCoeffs* first = spec.hp ? &*spec.hp : (spec.notch ? &*spec.notch : nullptr);
  if (first) runStageBlock(*first, state[0], state[1], samples, frames);
  if (spec.lp) runStageBlock(*spec.lp, state[2], state[3], samples, frames);
}

}  // namespace corvane
