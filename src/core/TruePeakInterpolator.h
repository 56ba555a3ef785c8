// TruePeakInterpolator: the oversampling interpolator behind true-peak metering (BS.1770
// Annex 2) and the true-peak limiter.
//
// A polyphase Kaiser-windowed sinc (β = 6, kTapsPerPhase taps per phase). Phase 0 of a sinc
// with zeros at the original sample instants is the original sample itself, so only the
// factor − 1 in-between phases are computed, and each phase is normalised to unity gain at DC.
// Passband ripple: +0.015/−0.006 dB up to 0.83 of Nyquist. Factor: 4 below 176.4 kHz, 2 below
// 352.8 kHz, 1 above (see LoudnessProcessor.h for what that means for tones).
//
// Speed. Metering only needs maxima, and an interpolated value can never exceed
// worstCaseGain() × the largest sample the filter reads. measureMax() therefore skips every
// 16-frame tile whose neighbourhood is too quiet to beat the level the caller already has;
// on programme material most tiles are skipped, and the result is exact wherever it matters.
// Tiles that are computed run in a vectorised kernel (AVX2 + FMA when the CPU has them, chosen
// at run time; SSE2 otherwise).
//
// Thread class: an interpolator is immutable after construction and may be shared; each
// channel's ChannelState and each Scratch belong to one thread at a time. Nothing here
// allocates after construction or throws.
#pragma once

#include <array>
#include <memory>
#include <vector>

namespace corvane {

class TruePeakInterpolator {
 public:
  static constexpr int kTapsPerPhase = 24;
  // Frames of input that the filter reads behind the newest one, rounded up to whole tiles.
  static constexpr int kHistory = 32;
  static constexpr int kTile = 16;
  static constexpr int kChunk = 2048;

  // The last kHistory input frames of one channel.
  struct ChannelState {
    std::array<float, kHistory> history{};
    void clear() { history.fill(0.0f); }
  };

  // Working memory of the calls below, one per thread that calls them.
  struct Scratch {
    std::vector<float> samples;   // kHistory + kChunk + padding
    std::vector<float> tileMax;   // per tile of samples
    Scratch();
  };

  explicit TruePeakInterpolator(double sampleRate);

  static int oversamplingFor(double sampleRate) noexcept;
  int oversampling() const noexcept { return _factor; }
  // Upper bound of |interpolated value| / largest |sample| read.
  float worstCaseGain() const noexcept { return _worstCaseGain; }
  // Input frames by which an interpolated value lags the frame that completes it.
  static constexpr int delayFrames() noexcept { return kTapsPerPhase / 2; }

  // The largest of |sample| and |interpolated value| over `count` frames of `input`, continuing
  // from `state`. Tiles that provably stay at or below `threshold` are not interpolated: the
  // result is exact whenever it exceeds `threshold`, and otherwise some value at or below it.
  // `samplePeak` is raised to the largest |sample| seen. Non-finite samples count as 0.
  float measureMax(ChannelState& state, Scratch& scratch, const float* input, int count,
                   float threshold, float& samplePeak) const noexcept;

  // Per frame i, the largest magnitude among the sample input[i − delayFrames()] and the
  // interpolated values that follow it up to the next sample. `envelope` gets `count` values.
  void envelope(ChannelState& state, Scratch& scratch, const float* input, int count,
                float* envelope) const noexcept;

 private:
  using TileKernel = void (*)(const float* x, const float* coefficients, float* out);
  int _factor;
  float _worstCaseGain;
  std::vector<float> _coefficients;  // (factor − 1) phases × kTapsPerPhase, phase 1 first
  TileKernel _kernel;

  // Copies `count` frames behind the history in scratch (non-finite → 0), zero-pads the tail
  // and fills the tile maxima. Returns the number of tiles that hold samples.
  int load(const ChannelState& state, Scratch& scratch, const float* input, int count) const noexcept;
};

}  // namespace corvane
