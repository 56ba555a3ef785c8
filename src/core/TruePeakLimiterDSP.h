// TruePeakLimiterDSP: an in-place look-ahead limiter that keeps the true peak of its output at or
// below a ceiling, for the render callback (target-match gain) and offline edits.
//
// How it works, and why it holds the ceiling. Each input frame's true peak (the largest
// oversampled value around it, found with the same interpolator as LoudnessProcessor's
// true-peak meter) gives the gain that frame needs; one gain serves all channels, so the image
// does not shift. That need is held as a minimum over the look-ahead plus the interpolator's
// span and then averaged over the look-ahead, so the gain ramps down smoothly before a peak and
// is flat across every frame the interpolator reads around it: the output's oversampled value
// there is the input's scaled by exactly the needed gain. Release is a one-pole return towards
// unity that is never allowed above the needed gain. A margin of 0.02 dB absorbs rounding.
// Result: the output's true peak by our own meter never exceeds the ceiling; another
// meter's interpolator (libebur128's, for one) may read up to about 0.1 dB differently.
//
// Latency: latencyFrames() frames (the look-ahead plus 22 frames for the interpolator's span);
// the output is the input delayed by that much, scaled. Silence comes out first.
//
// Thread class: construction allocates; process() and reset() run on the render thread and
// allocate nothing, never block, never throw. setCeilingDB() may be called from another thread
// while process() runs (the ceiling is an atomic read once per call).
#pragma once

#include <atomic>
#include <memory>

namespace corvane {

class TruePeakLimiterDSP {
 public:
  // sampleRate: 8000 ... 768000 Hz. channelCount: at least 1. ceilingDB: dBTP, at most +20.
  // lookaheadMs: 0.5 ... 50 (clamped). releaseMs: 1 ... 5000 (clamped). maxFrameCount: the
  // largest frameCount process() is expected to see (larger calls are processed in pieces).
  // Throws std::invalid_argument for a rate, channel count or frame count out of range.
  TruePeakLimiterDSP(double sampleRate, int channelCount, float ceilingDB, float lookaheadMs,
                     float releaseMs, int maxFrameCount);
  ~TruePeakLimiterDSP();

  TruePeakLimiterDSP(const TruePeakLimiterDSP&) = delete;
  TruePeakLimiterDSP& operator=(const TruePeakLimiterDSP&) = delete;

  // channels: channelCount pointers of frameCount floats, limited in place. Non-finite input
  // samples are treated as 0.
  void process(float* const* channels, int frameCount) noexcept;

  // dBTP; clamped at +20. Takes effect at the next process() call.
  void setCeilingDB(float ceilingDB) noexcept;
  float ceilingDB() const noexcept;

  // Forgets the signal and the gain: the delay line is silent and the gain back at unity.
  void reset() noexcept;

  int latencyFrames() const noexcept;
  int channelCount() const noexcept;
  // Gain applied to the newest output frame, dB (0 when not limiting); for meters.
  float currentGainReductionDB() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> _state;
  std::atomic<float> _ceilingDB;
  std::atomic<float> _gainReductionDB{0.0f};
};

}  // namespace corvane
