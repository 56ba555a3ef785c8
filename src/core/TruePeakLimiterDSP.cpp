#include "core/TruePeakLimiterDSP.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "core/Decibels.h"
#include "core/DenormalGuard.h"
#include "core/TruePeakInterpolator.h"

namespace corvane {
namespace {

constexpr float kMaxCeilingDB = 20.0f;
// Headroom below the ceiling for rounding in the gain path and the interpolator.
constexpr double kMarginDB = 0.02;
constexpr int kSpan = TruePeakInterpolator::kTapsPerPhase;
constexpr int kChunk = 1024;
constexpr std::int64_t kResumEvery = 1 << 16;

}  // namespace

struct TruePeakLimiterDSP::State {
  State(double rate, int channels, float lookaheadMs, float releaseMs)
      : channelCount(channels),
        interpolator(rate),
        lookahead(std::max(1, static_cast<int>(std::lround(std::clamp(lookaheadMs, 0.5f, 50.0f) * 1e-3 * rate)))),
        minWindow(lookahead + kSpan),
        delay(lookahead + kSpan - 2),
        releaseCoefficient(1.0 - std::exp(-1.0 / (std::clamp(releaseMs, 1.0f, 5000.0f) * 1e-3 * rate))),
        peakStates(static_cast<std::size_t>(channels)),
        delayLines(static_cast<std::size_t>(channels), std::vector<float>(static_cast<std::size_t>(delay), 0.0f)),
        envelope(kChunk, 0.0f),
        channelEnvelope(kChunk, 0.0f),
        gains(kChunk, 1.0f),
        dequeIndex(static_cast<std::size_t>(minWindow + 1)),
        dequeValue(static_cast<std::size_t>(minWindow + 1)),
        boxRing(static_cast<std::size_t>(lookahead), 1.0) {
    clear();
  }

  void clear() {
    for (auto& s : peakStates) s.clear();
    for (auto& line : delayLines) std::fill(line.begin(), line.end(), 0.0f);
    delayPosition = 0;
    dequeHead = dequeTail = 0;
    frame = 0;
    std::fill(boxRing.begin(), boxRing.end(), 1.0);
    boxPosition = 0;
    boxSum = static_cast<double>(lookahead);
    gain = 1.0;
  }

  // Sliding minimum over the last minWindow required gains (a monotonic queue in a ring).
  double pushMinimum(double required) {
    const int capacity = minWindow + 1;
    while (dequeHead != dequeTail) {
      const int back = (dequeTail - 1 + capacity) % capacity;
      if (dequeValue[static_cast<std::size_t>(back)] < required) break;
      dequeTail = back;
    }
    dequeIndex[static_cast<std::size_t>(dequeTail)] = frame;
    dequeValue[static_cast<std::size_t>(dequeTail)] = required;
    dequeTail = (dequeTail + 1) % capacity;
    while (dequeIndex[static_cast<std::size_t>(dequeHead)] <= frame - minWindow) {
      dequeHead = (dequeHead + 1) % capacity;
    }
    return dequeValue[static_cast<std::size_t>(dequeHead)];
  }

  // Moving average of the held minimum over the look-ahead.
  double pushAverage(double held) {
    boxSum += held - boxRing[static_cast<std::size_t>(boxPosition)];
    boxRing[static_cast<std::size_t>(boxPosition)] = held;
    boxPosition = (boxPosition + 1) % lookahead;
    if (frame % kResumEvery == 0) {
      boxSum = 0.0;
      for (double v : boxRing) boxSum += v;
    }
    return boxSum / lookahead;
  }

  int channelCount;
  TruePeakInterpolator interpolator;
  TruePeakInterpolator::Scratch scratch;
  int lookahead;   // frames of the gain ramp
  int minWindow;   // frames the needed gain is held: look-ahead + interpolator span
  int delay;       // frames the audio is delayed so the ramp ends on the peak
  double releaseCoefficient;
  std::vector<TruePeakInterpolator::ChannelState> peakStates;
  std::vector<std::vector<float>> delayLines;
  int delayPosition = 0;
  std::vector<float> envelope;
  std::vector<float> channelEnvelope;
  std::vector<float> gains;
  std::vector<std::int64_t> dequeIndex;
  std::vector<double> dequeValue;
  int dequeHead = 0;
  int dequeTail = 0;
  std::int64_t frame = 0;
  std::vector<double> boxRing;
  int boxPosition = 0;
  double boxSum = 0.0;
  double gain = 1.0;
};

TruePeakLimiterDSP::TruePeakLimiterDSP(double sampleRate, int channelCount, float ceilingDB,
                                       float lookaheadMs, float releaseMs, int maxFrameCount)
    : _ceilingDB(std::min(ceilingDB, kMaxCeilingDB)) {
  if (!(sampleRate >= 8000.0 && sampleRate <= 768000.0)) {
    throw std::invalid_argument("The limiter does not support this sample rate.");
  }
  if (channelCount < 1) throw std::invalid_argument("The limiter needs at least one channel.");
  if (maxFrameCount < 1) throw std::invalid_argument("The limiter needs a positive frame count.");
  _state = std::make_unique<State>(sampleRate, channelCount, lookaheadMs, releaseMs);
}

TruePeakLimiterDSP::~TruePeakLimiterDSP() = default;

void TruePeakLimiterDSP::setCeilingDB(float ceilingDB) noexcept {
  if (std::isnan(ceilingDB)) return;
  _ceilingDB.store(std::min(ceilingDB, kMaxCeilingDB), std::memory_order_relaxed);
}

float TruePeakLimiterDSP::ceilingDB() const noexcept { return _ceilingDB.load(std::memory_order_relaxed); }

void TruePeakLimiterDSP::reset() noexcept {
  _state->clear();
  _gainReductionDB.store(0.0f, std::memory_order_relaxed);
}

int TruePeakLimiterDSP::latencyFrames() const noexcept { return _state->delay; }
int TruePeakLimiterDSP::channelCount() const noexcept { return _state->channelCount; }
float TruePeakLimiterDSP::currentGainReductionDB() const noexcept {
  return _gainReductionDB.load(std::memory_order_relaxed);
}

void TruePeakLimiterDSP::process(float* const* channels, int frameCount) noexcept {
  if (channels == nullptr || frameCount <= 0) return;
  State& s = *_state;
  DenormalGuard guard;
  const double ceiling = dbToLinear(static_cast<double>(ceilingDB()) - kMarginDB);
  int done = 0;
  while (done < frameCount) {
    const int n = std::min(frameCount - done, kChunk);
    // Loudest oversampled value per frame over all channels.
    std::fill_n(s.envelope.begin(), n, 0.0f);
    for (int c = 0; c < s.channelCount; ++c) {
      s.interpolator.envelope(s.peakStates[static_cast<std::size_t>(c)], s.scratch,
                              channels[c] + done, n, s.channelEnvelope.data());
      for (int i = 0; i < n; ++i) {
        s.envelope[static_cast<std::size_t>(i)] =
            std::max(s.envelope[static_cast<std::size_t>(i)], s.channelEnvelope[static_cast<std::size_t>(i)]);
      }
    }
    // Gain per frame: needed gain, held, averaged, released.
    for (int i = 0; i < n; ++i) {
      const double peak = s.envelope[static_cast<std::size_t>(i)];
      const double required = peak > ceiling ? ceiling / peak : 1.0;
      const double held = s.pushMinimum(required);
      const double smoothed = std::min(1.0, s.pushAverage(held));
      if (smoothed <= s.gain) {
        s.gain = smoothed;
      } else {
        s.gain += s.releaseCoefficient * (smoothed - s.gain);
      }
      s.gains[static_cast<std::size_t>(i)] = static_cast<float>(s.gain);
      ++s.frame;
    }
    // Delay the audio so each gain meets the frames it was computed for.
    const int start = s.delayPosition;
    for (int c = 0; c < s.channelCount; ++c) {
      float* io = channels[c] + done;
      std::vector<float>& line = s.delayLines[static_cast<std::size_t>(c)];
      int position = start;
      for (int i = 0; i < n; ++i) {
        const float in = std::isfinite(io[i]) ? io[i] : 0.0f;
        const float out = line[static_cast<std::size_t>(position)];
        line[static_cast<std::size_t>(position)] = in;
        io[i] = out * s.gains[static_cast<std::size_t>(i)];
        if (++position == s.delay) position = 0;
      }
    }
    s.delayPosition = static_cast<int>((start + n) % s.delay);
    done += n;
  }
  _gainReductionDB.store(static_cast<float>(linearToDB(s.gain)), std::memory_order_relaxed);
}

}  // namespace corvane
