#include "core/LoudnessProcessor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "core/Decibels.h"
#include "core/DenormalGuard.h"
#include "core/KWeighting.h"
#include "core/LevelHistogram.h"
#include "core/TruePeakInterpolator.h"

namespace corvane {
namespace {

constexpr double kNegativeInfinity = -std::numeric_limits<double>::infinity();
constexpr double kLoudnessOffset = -0.691;     // BS.1770: L = −0.691 + 10·log10(z)
constexpr double kAbsoluteGate = -70.0;        // LUFS
constexpr double kRelativeGate = -10.0;        // LU, integrated
constexpr double kRangeRelativeGate = -20.0;   // LU, loudness range
constexpr int kSubBlocksPerBlock = 10;         // 10 ms steps of the maximum momentary
constexpr int kMomentaryBlocks = 4;            // 400 ms
constexpr int kShortTermBlocks = 30;           // 3 s
constexpr int kMomentarySubBlocks = kMomentaryBlocks * kSubBlocksPerBlock;
constexpr int kTruePeakRing = 4096;            // blocks the peak meter may run ahead of process()
constexpr double kNoiseFloorPercentile = 0.10;

static_assert(std::atomic<double>::is_always_lock_free, "published values must be lock-free");
static_assert(std::atomic<std::int64_t>::is_always_lock_free, "published values must be lock-free");

double loudnessOf(double z) {
  return z > 0.0 ? kLoudnessOffset + 10.0 * std::log10(z) : kNegativeInfinity;
}

// BS.1770 integrated loudness of the gating blocks in `h` (all already above the absolute gate).
double gatedLoudness(const LevelHistogram& h) {
  if (h.count() == 0) return kNegativeInfinity;
  const double relativeGate = loudnessOf(h.energy() / static_cast<double>(h.count())) + kRelativeGate;
  double count = 0.0, energy = 0.0;
  h.above(relativeGate, count, energy);
  if (count <= 0.0 || energy <= 0.0) return kNegativeInfinity;
  return loudnessOf(energy / count);
}

// EBU Tech 3342 over the short-term values in `h` (all already at or above the absolute gate).
double loudnessRangeOf(const LevelHistogram& h) {
  if (h.count() == 0) return 0.0;
  const double relativeGate = loudnessOf(h.energy() / static_cast<double>(h.count())) + kRangeRelativeGate;
  const int firstBin = h.firstBinAtOrAbove(relativeGate);
  const std::int64_t below = h.countBelowBin(firstBin);
  const std::int64_t n = h.count() - below;
  if (n <= 0) return 0.0;
  const auto rank = [&](double p) { return below + std::llround(static_cast<double>(n - 1) * p); };
  const double low = h.meanLevelInBin(h.binOfRank(rank(0.10)));
  const double high = h.meanLevelInBin(h.binOfRank(rank(0.95)));
  return std::max(0.0, high - low);
}

// GCC vector of W doubles: one lane per channel of a group, so the channels of a group run
// through the recursive K-filter side by side.
template <int W>
struct LaneVector;
template <>
struct LaneVector<2> {
  typedef double type __attribute__((vector_size(16)));
};
template <>
struct LaneVector<4> {
  typedef double type __attribute__((vector_size(32)));
};

// K-filter, squares and raw squares of `count` frames of up to W channels, fused in one pass.
// state: s1, s2 (shelf), t1, t2 (high pass) per lane; accK/accRaw: running sums per lane.
template <int W>
inline __attribute__((always_inline)) void kFilterBody(const float* const* in, FrameCount count,
                                                       const double* c, double* state,
                                                       double* accK, double* accRaw) {
  using V = typename LaneVector<W>::type;
  V s1, s2, t1, t2, ak, ar;
  __builtin_memcpy(&s1, state + 0 * W, sizeof(V));
  __builtin_memcpy(&s2, state + 1 * W, sizeof(V));
  __builtin_memcpy(&t1, state + 2 * W, sizeof(V));
  __builtin_memcpy(&t2, state + 3 * W, sizeof(V));
  __builtin_memcpy(&ak, accK, sizeof(V));
  __builtin_memcpy(&ar, accRaw, sizeof(V));
  const V b0 = V{} + c[0], b1 = V{} + c[1], b2 = V{} + c[2], a1 = V{} + c[3], a2 = V{} + c[4];
  const V h0 = V{} + c[5], h1 = V{} + c[6], h2 = V{} + c[7], d1 = V{} + c[8], d2 = V{} + c[9];
  const V zero = V{};
  for (FrameCount i = 0; i < count; ++i) {
    V x;
    for (int j = 0; j < W; ++j) x[j] = in[j][i];
    x = ((x - x) == zero) ? x : zero;  // NaN and ±inf are measured as silence
    const V y1 = b0 * x + s1;
    s1 = b1 * x - a1 * y1 + s2;
    s2 = b2 * x - a2 * y1;
    const V y2 = h0 * y1 + t1;
    t1 = h1 * y1 - d1 * y2 + t2;
    t2 = h2 * y1 - d2 * y2;
    ak += y2 * y2;
    ar += x * x;
  }
  __builtin_memcpy(state + 0 * W, &s1, sizeof(V));
  __builtin_memcpy(state + 1 * W, &s2, sizeof(V));
  __builtin_memcpy(state + 2 * W, &t1, sizeof(V));
  __builtin_memcpy(state + 3 * W, &t2, sizeof(V));
  __builtin_memcpy(accK, &ak, sizeof(V));
  __builtin_memcpy(accRaw, &ar, sizeof(V));
}

using KFilterKernel = void (*)(const float* const*, FrameCount, const double*, double*, double*,
                               double*);

template <int W>
void kFilterDefault(const float* const* in, FrameCount n, const double* c, double* s, double* k,
                    double* r) {
  kFilterBody<W>(in, n, c, s, k, r);
}

#if defined(__x86_64__) && defined(__GNUC__)
template <int W>
__attribute__((target("avx2,fma"))) void kFilterAvx2(const float* const* in, FrameCount n,
                                                     const double* c, double* s, double* k,
                                                     double* r) {
  kFilterBody<W>(in, n, c, s, k, r);
}
#endif

template <int W>
KFilterKernel chooseKFilter() {
#if defined(__x86_64__) && defined(__GNUC__)
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return &kFilterAvx2<W>;
#endif
  return &kFilterDefault<W>;
}

// Energy and frame count of consecutive windows: a ring of the newest N entries with their sums.
template <int N>
struct WindowRing {
  std::array<double, N> energy{};
  std::array<FrameCount, N> frames{};
  int next = 0;

  // A window that reaches before the first frame reads silence of nominal length.
  void fillSilence(FrameCount nominalFrames) {
    energy.fill(0.0);
    frames.fill(nominalFrames);
    next = 0;
  }
  void push(double e, FrameCount f) {
    energy[static_cast<std::size_t>(next)] = e;
    frames[static_cast<std::size_t>(next)] = f;
    next = (next + 1) % N;
  }
  // Mean energy per frame of the newest `count` entries.
  double mean(int count) const {
    double e = 0.0;
    FrameCount f = 0;
    for (int i = 1; i <= count; ++i) {
      const auto at = static_cast<std::size_t>((next - i + N) % N);
      e += energy[at];
      f += frames[at];
    }
    return f > 0 ? e / static_cast<double>(f) : 0.0;
  }
};

struct TruePeakSlot {
  std::int64_t block = -1;
  float value = 0.0f;
};

}  // namespace

struct LoudnessProcessor::State {
  State(double rate, int channels, SharedSpeechHistory history, std::vector<double> weightsIn)
      : sampleRate(rate),
        channelCount(channels),
        blockFrames(std::max<FrameCount>(1, std::llround(rate * kLoudnessBlockSeconds))),
        interpolator(rate),
        truePeakStates(static_cast<std::size_t>(channels)),
        channelTruePeak(static_cast<std::size_t>(channels), 0.0f),
        truePeakRing(kTruePeakRing),
        integratedHistogram(kAbsoluteGate, 30.0, 0.02),
        speechHistogram(kAbsoluteGate, 30.0, 0.02),
        rangeHistogram(kAbsoluteGate, 30.0, 0.02),
        noiseHistogram(-150.0, 10.0, 0.05),
        speech(std::move(history)),
        publishedChannelTruePeak(new std::atomic<double>[static_cast<std::size_t>(channels)]) {
    weights.assign(static_cast<std::size_t>(channels), 1.0);
    for (std::size_t c = 0; c < weights.size() && c < weightsIn.size(); ++c) {
      weights[c] = std::isfinite(weightsIn[c]) && weightsIn[c] > 0.0 ? weightsIn[c] : 0.0;
    }
    unweightedChannels = static_cast<int>(std::count_if(weights.begin(), weights.end(),
                                                        [](double w) { return w > 0.0; }));
    for (int j = 0; j <= kSubBlocksPerBlock; ++j) {
      subBoundary[static_cast<std::size_t>(j)] = blockFrames * j / kSubBlocksPerBlock;
    }
    const KWeightingCoefficients k = kWeightingCoefficients(rate);
    coefficients = {k.shelf.b0,    k.shelf.b1,    k.shelf.b2,    k.shelf.a1,    k.shelf.a2,
                    k.highPass.b0, k.highPass.b1, k.highPass.b2, k.highPass.a1, k.highPass.a2};
    laneWidth = channels <= 2 ? 2 : 4;
    groupCount = (channels + laneWidth - 1) / laneWidth;
    kernel = laneWidth == 2 ? chooseKFilter<2>() : chooseKFilter<4>();
    const auto lanes = static_cast<std::size_t>(groupCount * laneWidth);
    filterState.assign(lanes * 4, 0.0);
    accK.assign(lanes, 0.0);
    accRaw.assign(lanes, 0.0);
    blockRaw.assign(static_cast<std::size_t>(channels), 0.0);
    groupPointers.assign(static_cast<std::size_t>(laneWidth), nullptr);
    clear();
  }

  // --- configuration ---
  double sampleRate;
  int channelCount;
  FrameCount blockFrames;
  std::array<FrameCount, kSubBlocksPerBlock + 1> subBoundary{};
  std::vector<double> weights;
  int unweightedChannels = 0;
  std::array<double, 10> coefficients{};
  int laneWidth = 2;
  int groupCount = 1;
  KFilterKernel kernel = nullptr;
  bool offline = false;

  // --- loudness feed ---
  std::vector<double> filterState;  // per group: s1, s2, t1, t2 × laneWidth
  std::vector<double> accK;         // K-weighted Σy² of the current 10 ms step, per lane
  std::vector<double> accRaw;       // unweighted Σx² of the current 10 ms step, per lane
  std::vector<double> blockRaw;     // unweighted Σx² of the current block, per channel
  std::vector<const float*> groupPointers;
  double blockEnergy = 0.0;         // weighted K energy of the current block (Σ over frames)
  FrameCount framesInBlock = 0;
  int subIndex = 0;
  WindowRing<kMomentarySubBlocks> subRing;
  WindowRing<kShortTermBlocks> blockRing;
  std::int64_t blocksSinceReset = 0;
  double maxMomentaryEnergy = 0.0;
  double maxShortTermEnergy = 0.0;

  // --- true peak ---
  TruePeakInterpolator interpolator;
  TruePeakInterpolator::Scratch scratch;
  std::vector<TruePeakInterpolator::ChannelState> truePeakStates;
  std::vector<float> channelTruePeak;  // linear
  float samplePeak = 0.0f;
  FrameCount truePeakFramesInBlock = 0;
  std::int64_t truePeakBlock = 0;
  float truePeakBlockMax = 0.0f;
  std::vector<TruePeakSlot> truePeakRing;

  // --- gating ---
  LevelHistogram integratedHistogram;
  LevelHistogram speechHistogram;
  LevelHistogram rangeHistogram;
  LevelHistogram noiseHistogram;
  std::int64_t speechBlocks = 0;
  int speechRun = 0;  // consecutive speech blocks up to the newest

  // --- speech ---
  SharedSpeechHistory speech;
  std::int64_t blockIndex = 0;

  // --- offline ---
  std::vector<LoudnessBlock> history;
  bool historyFailed = false;

  // --- published ---
  std::atomic<double> momentary{kNegativeInfinity};
  std::atomic<double> shortTerm{kNegativeInfinity};
  std::atomic<double> integrated{kNegativeInfinity};
  std::atomic<double> range{0.0};
  std::atomic<double> maxMomentary{kNegativeInfinity};
  std::atomic<double> maxShortTerm{kNegativeInfinity};
  std::atomic<double> truePeak{kNegativeInfinity};
  std::atomic<double> currentTruePeak{kNegativeInfinity};
  std::atomic<double> samplePeakDB{kNegativeInfinity};
  std::atomic<double> speechGated{kNegativeInfinity};
  std::atomic<double> speechPercent{0.0};
  std::atomic<double> noiseFloor{kNegativeInfinity};
  std::atomic<std::int64_t> publishedBlockCount{0};
  std::atomic<std::int64_t> publishedBlockIndex{0};
  std::unique_ptr<std::atomic<double>[]> publishedChannelTruePeak;

  // --- requests ---
  std::atomic<std::uint64_t> resetRequests{0};
  std::atomic<std::uint64_t> resetsHonoured{0};
  std::atomic<std::int64_t> pendingBlockIndex{-1};

  bool resetPending() const {
    return resetRequests.load(std::memory_order_acquire) !=
           resetsHonoured.load(std::memory_order_acquire);
  }

  void honourRequests() {
    const std::uint64_t requested = resetRequests.load(std::memory_order_acquire);
    if (requested != resetsHonoured.load(std::memory_order_relaxed)) {
      clear();
      resetsHonoured.store(requested, std::memory_order_release);
    }
    const std::int64_t index = pendingBlockIndex.exchange(-1, std::memory_order_acq_rel);
    if (index >= 0) {
      blockIndex = index;
      publishedBlockIndex.store(index, std::memory_order_release);
    }
  }

  // Everything measured back to its start; weights, history, block index and mode stay.
  void clear() {
    std::fill(filterState.begin(), filterState.end(), 0.0);
    std::fill(accK.begin(), accK.end(), 0.0);
    std::fill(accRaw.begin(), accRaw.end(), 0.0);
    std::fill(blockRaw.begin(), blockRaw.end(), 0.0);
    blockEnergy = 0.0;
    framesInBlock = 0;
    subIndex = 0;
    subRing.fillSilence(blockFrames / kSubBlocksPerBlock);
    blockRing.fillSilence(blockFrames);
    blocksSinceReset = 0;
    maxMomentaryEnergy = 0.0;
    maxShortTermEnergy = 0.0;
    for (auto& s : truePeakStates) s.clear();
    std::fill(channelTruePeak.begin(), channelTruePeak.end(), 0.0f);
    samplePeak = 0.0f;
    truePeakFramesInBlock = 0;
    truePeakBlock = 0;
    truePeakBlockMax = 0.0f;
    std::fill(truePeakRing.begin(), truePeakRing.end(), TruePeakSlot{});
    integratedHistogram.clear();
    speechHistogram.clear();
    rangeHistogram.clear();
    noiseHistogram.clear();
    speechBlocks = 0;
    speechRun = 0;
    history.clear();
    historyFailed = false;
    momentary.store(kNegativeInfinity, std::memory_order_relaxed);
    shortTerm.store(kNegativeInfinity, std::memory_order_relaxed);
    integrated.store(kNegativeInfinity, std::memory_order_relaxed);
    range.store(0.0, std::memory_order_relaxed);
    maxMomentary.store(kNegativeInfinity, std::memory_order_relaxed);
    maxShortTerm.store(kNegativeInfinity, std::memory_order_relaxed);
    truePeak.store(kNegativeInfinity, std::memory_order_relaxed);
    currentTruePeak.store(kNegativeInfinity, std::memory_order_relaxed);
    samplePeakDB.store(kNegativeInfinity, std::memory_order_relaxed);
    speechGated.store(kNegativeInfinity, std::memory_order_relaxed);
    speechPercent.store(0.0, std::memory_order_relaxed);
    noiseFloor.store(kNegativeInfinity, std::memory_order_relaxed);
    publishedBlockCount.store(0, std::memory_order_relaxed);
    for (int c = 0; c < channelCount; ++c) {
      publishedChannelTruePeak[static_cast<std::size_t>(c)].store(kNegativeInfinity,
                                                                 std::memory_order_relaxed);
    }
  }

  bool isSpeechBlock() const {
    if (!speech) return false;
    return blockIndex >= 0 && blockIndex < static_cast<std::int64_t>(speech->size()) &&
           (*speech)[static_cast<std::size_t>(blockIndex)];
  }

  // K-filters `count` frames starting at `offset` into the running 10 ms sums.
  void filter(const float* const* data, FrameCount offset, FrameCount count) {
    for (int g = 0; g < groupCount; ++g) {
      const int first = g * laneWidth;
      for (int j = 0; j < laneWidth; ++j) {
        // Lanes past the last channel repeat it; their weight is never read.
        const int channel = std::min(first + j, channelCount - 1);
        groupPointers[static_cast<std::size_t>(j)] = data[channel] + offset;
      }
      const auto lane = static_cast<std::size_t>(first);
      kernel(groupPointers.data(), count, coefficients.data(), filterState.data() + lane * 4,
             accK.data() + lane, accRaw.data() + lane);
    }
  }

  void finishSubBlock(FrameCount frames) {
    double weighted = 0.0;
    for (int c = 0; c < channelCount; ++c) {
      const auto i = static_cast<std::size_t>(c);
      weighted += weights[i] * accK[i];
      blockRaw[i] += accRaw[i];
    }
    std::fill(accK.begin(), accK.end(), 0.0);
    std::fill(accRaw.begin(), accRaw.end(), 0.0);
    blockEnergy += weighted;
    subRing.push(weighted, frames);
    // Momentary and its maximum follow the 10 ms steps, so a live meter sees a peak as soon
    // as its 400 ms have passed, not at the next block boundary.
    const double momentaryEnergy = subRing.mean(kMomentarySubBlocks);
    if (momentaryEnergy > maxMomentaryEnergy) {
      maxMomentaryEnergy = momentaryEnergy;
      maxMomentary.store(loudnessOf(maxMomentaryEnergy), std::memory_order_release);
    }
    momentary.store(loudnessOf(momentaryEnergy), std::memory_order_release);
  }

  float blockTruePeak(std::int64_t block) const {
    if (truePeakBlock == block) return truePeakBlockMax;  // flush of an unfinished block
    const TruePeakSlot& slot = truePeakRing[static_cast<std::size_t>(block % kTruePeakRing)];
    return slot.block == block ? slot.value : 0.0f;
  }

  // Closes the current block of `frames` frames (blockFrames, or fewer on a flush).
  void finishBlock(FrameCount frames) {
    // Windows count for gating and range only when they hold audio all through: the complete
    // blocks fed so far, this one included unless it is a flushed part-block.
    const std::int64_t completeBlocks = blocksSinceReset + (frames == blockFrames ? 1 : 0);
    const bool wholeWindows = completeBlocks >= kMomentaryBlocks;
    const bool wholeShortTerm = completeBlocks >= kShortTermBlocks;
    const std::int64_t block = blocksSinceReset;
    ++blocksSinceReset;
    blockRing.push(blockEnergy, frames);
    const double momentaryEnergy = blockRing.mean(kMomentaryBlocks);
    const double shortTermEnergy = blockRing.mean(kShortTermBlocks);
    const double momentaryLUFS = loudnessOf(momentaryEnergy);
    const double shortTermLUFS = loudnessOf(shortTermEnergy);
    maxShortTermEnergy = std::max(maxShortTermEnergy, shortTermEnergy);

    const bool speechBlock = isSpeechBlock();
    speechRun = speechBlock ? speechRun + 1 : 0;
    if (wholeWindows && momentaryLUFS > kAbsoluteGate) {
      integratedHistogram.add(momentaryLUFS, momentaryEnergy);
      if (speechRun >= kMomentaryBlocks) speechHistogram.add(momentaryLUFS, momentaryEnergy);
    }
    if (wholeShortTerm && shortTermLUFS >= kAbsoluteGate) {
      rangeHistogram.add(shortTermLUFS, shortTermEnergy);
    }
    if (speech) {
      if (speechBlock) {
        ++speechBlocks;
      } else if (unweightedChannels > 0 && frames > 0) {
        double meanSquare = 0.0;
        for (int c = 0; c < channelCount; ++c) {
          const auto i = static_cast<std::size_t>(c);
          if (weights[i] > 0.0) meanSquare += blockRaw[i];
        }
        meanSquare /= static_cast<double>(frames) * unweightedChannels;
        noiseHistogram.add(meanSquare > 0.0 ? 10.0 * std::log10(meanSquare) : kNegativeInfinity,
                           meanSquare);
      }
    }

    const double integratedLUFS = gatedLoudness(integratedHistogram);
    const float blockPeak = blockTruePeak(block);
    publish(shortTermLUFS, integratedLUFS, blockPeak);
    if (offline && !historyFailed) {
      try {
        history.push_back({static_cast<float>(momentaryLUFS), static_cast<float>(shortTermLUFS),
                           static_cast<float>(integratedLUFS),
                           static_cast<float>(linearToDB(static_cast<double>(blockPeak)))});
      } catch (const std::bad_alloc&) {
        historyFailed = true;  // the figures stay right; only the curve ends here
      }
    }

    ++blockIndex;
    publishedBlockIndex.store(blockIndex, std::memory_order_release);
    std::fill(blockRaw.begin(), blockRaw.end(), 0.0);
    blockEnergy = 0.0;
    framesInBlock = 0;
    subIndex = 0;
  }

  // Momentary and its maximum are published per 10 ms step (finishSubBlock), the rest here.
  void publish(double shortTermLUFS, double integratedLUFS, float blockPeak) {
    constexpr auto order = std::memory_order_release;
    shortTerm.store(shortTermLUFS, order);
    integrated.store(integratedLUFS, order);
    range.store(loudnessRangeOf(rangeHistogram), order);
    maxShortTerm.store(loudnessOf(maxShortTermEnergy), order);
    currentTruePeak.store(linearToDB(static_cast<double>(blockPeak)), order);
    if (speech) {
      speechGated.store(gatedLoudness(speechHistogram), order);
      speechPercent.store(100.0 * static_cast<double>(speechBlocks) /
                              static_cast<double>(std::max<std::int64_t>(blocksSinceReset, 1)),
                          order);
      noiseFloor.store(noiseFloorOf(), order);
    }
    publishedBlockCount.store(blocksSinceReset, order);
  }

  double noiseFloorOf() const {
    const std::int64_t n = noiseHistogram.count();
    if (n == 0) return kNegativeInfinity;
    const std::int64_t rank = std::llround(static_cast<double>(n - 1) * kNoiseFloorPercentile);
    const double meanSquare = noiseHistogram.meanEnergyInBin(noiseHistogram.binOfRank(rank));
    return meanSquare > 0.0 ? 10.0 * std::log10(meanSquare) : kNegativeInfinity;
  }

  void publishPeaks() {
    float overall = 0.0f;
    for (int c = 0; c < channelCount; ++c) {
      const float v = channelTruePeak[static_cast<std::size_t>(c)];
      overall = std::max(overall, v);
      publishedChannelTruePeak[static_cast<std::size_t>(c)].store(
          linearToDB(static_cast<double>(v)), std::memory_order_release);
    }
    truePeak.store(linearToDB(static_cast<double>(overall)), std::memory_order_release);
    samplePeakDB.store(linearToDB(static_cast<double>(samplePeak)), std::memory_order_release);
  }

  // Peaks of `count` frames (within one block) at `offset`.
  void measurePeaks(const float* const* data, FrameCount offset, int count) {
    for (int c = 0; c < channelCount; ++c) {
      const auto i = static_cast<std::size_t>(c);
      const float threshold = std::min(channelTruePeak[i], truePeakBlockMax);
      const float v = interpolator.measureMax(truePeakStates[i], scratch, data[c] + offset, count,
                                              threshold, samplePeak);
      channelTruePeak[i] = std::max(channelTruePeak[i], v);
      truePeakBlockMax = std::max(truePeakBlockMax, v);
    }
  }
};

// ---------------------------------------------------------------------------------------------

LoudnessProcessor::LoudnessProcessor(double sampleRate, int channelCount,
                                     SharedSpeechHistory precomputedSpeechHistory,
                                     std::vector<double> channelWeights) {
  if (!(sampleRate >= 8000.0 && sampleRate <= 768000.0)) {
    throw std::invalid_argument("Loudness cannot be measured at a sample rate of " +
                                std::to_string(static_cast<long long>(sampleRate)) + " Hz.");
  }
  if (channelCount < 1) {
    throw std::invalid_argument("Loudness needs at least one channel.");
  }
  _state = std::make_unique<State>(sampleRate, channelCount, std::move(precomputedSpeechHistory),
                                   std::move(channelWeights));
}

LoudnessProcessor::~LoudnessProcessor() = default;

double LoudnessProcessor::sampleRate() const noexcept { return _state->sampleRate; }
int LoudnessProcessor::channelCount() const noexcept { return _state->channelCount; }
FrameCount LoudnessProcessor::blockFrameCount() const noexcept { return _state->blockFrames; }
int LoudnessProcessor::truePeakOversampling() const noexcept {
  return _state->interpolator.oversampling();
}

void LoudnessProcessor::setOfflineFeed(bool offlineFeed) { _state->offline = offlineFeed; }
bool LoudnessProcessor::offlineFeed() const noexcept { return _state->offline; }

void LoudnessProcessor::updateTruePeak(const float* const* channelData,
                                       FrameCount frameCount) noexcept {
  State& s = *_state;
  s.honourRequests();
  if (channelData == nullptr || frameCount <= 0) return;
  DenormalGuard guard;
  FrameCount done = 0;
  while (done < frameCount) {
    const FrameCount n = std::min(frameCount - done, s.blockFrames - s.truePeakFramesInBlock);
    s.measurePeaks(channelData, done, static_cast<int>(n));
    s.truePeakFramesInBlock += n;
    done += n;
    if (s.truePeakFramesInBlock == s.blockFrames) {
      s.truePeakRing[static_cast<std::size_t>(s.truePeakBlock % kTruePeakRing)] = {
          s.truePeakBlock, s.truePeakBlockMax};
      ++s.truePeakBlock;
      s.truePeakBlockMax = 0.0f;
      s.truePeakFramesInBlock = 0;
    }
  }
  s.publishPeaks();
}

void LoudnessProcessor::process(const float* const* channelData, FrameCount frameCount) noexcept {
  State& s = *_state;
  s.honourRequests();
  if (channelData == nullptr || frameCount <= 0) return;
  DenormalGuard guard;
  FrameCount done = 0;
  while (done < frameCount) {
    const FrameCount boundary = s.subBoundary[static_cast<std::size_t>(s.subIndex + 1)];
    const FrameCount n = std::min(frameCount - done, boundary - s.framesInBlock);
    s.filter(channelData, done, n);
    s.framesInBlock += n;
    done += n;
    if (s.framesInBlock == boundary) {
      s.finishSubBlock(boundary - s.subBoundary[static_cast<std::size_t>(s.subIndex)]);
      if (++s.subIndex == kSubBlocksPerBlock) s.finishBlock(s.blockFrames);
    }
  }
}

void LoudnessProcessor::flushPartialBlock() noexcept {
  State& s = *_state;
  s.honourRequests();
  DenormalGuard guard;
  // Run the interpolator out with silence: a peak in the last frames is only seen once the
  // filter has read past it.
  static constexpr std::array<float, TruePeakInterpolator::kTapsPerPhase> kSilence{};
  bool raised = false;
  for (int c = 0; c < s.channelCount; ++c) {
    const auto i = static_cast<std::size_t>(c);
    float ignoredSamplePeak = 0.0f;
    const float v = s.interpolator.measureMax(s.truePeakStates[i], s.scratch, kSilence.data(),
                                              static_cast<int>(kSilence.size()),
                                              std::min(s.channelTruePeak[i], s.truePeakBlockMax),
                                              ignoredSamplePeak);
    if (v > s.channelTruePeak[i]) {
      s.channelTruePeak[i] = v;
      raised = true;
    }
    if (s.framesInBlock > 0) s.truePeakBlockMax = std::max(s.truePeakBlockMax, v);
  }
  if (raised) {
    s.publishPeaks();
    if (s.framesInBlock == 0 && !s.history.empty()) {
      const float overall = *std::max_element(s.channelTruePeak.begin(), s.channelTruePeak.end());
      auto& last = s.history.back();
      last.truePeakDB = std::max(last.truePeakDB, static_cast<float>(linearToDB(static_cast<double>(overall))));
    }
  }
  if (s.framesInBlock == 0) return;
  const FrameCount frames = s.framesInBlock;
  s.finishSubBlock(frames - s.subBoundary[static_cast<std::size_t>(s.subIndex)]);
  s.truePeakBlock = s.blocksSinceReset;  // the unfinished block's peak is read directly
  s.finishBlock(frames);
  s.truePeakBlock = s.blocksSinceReset;
  s.truePeakBlockMax = 0.0f;
  s.truePeakFramesInBlock = 0;
}

SharedSpeechHistory LoudnessProcessor::exchangeSpeechHistory(SharedSpeechHistory history) noexcept {
  _state->speech.swap(history);
  return history;
}

void LoudnessProcessor::reset() noexcept {
  _state->pendingBlockIndex.store(0, std::memory_order_release);
  _state->resetRequests.fetch_add(1, std::memory_order_acq_rel);
}

void LoudnessProcessor::resetState() noexcept {
  _state->resetRequests.fetch_add(1, std::memory_order_acq_rel);
}

void LoudnessProcessor::setBlockIndex(std::int64_t blockIndex) noexcept {
  _state->pendingBlockIndex.store(std::max<std::int64_t>(blockIndex, 0), std::memory_order_release);
}

#define CORVANE_PUBLISHED(name, field, resetValue)                         \
  double LoudnessProcessor::name() const noexcept {                        \
    if (_state->resetPending()) return resetValue;                         \
    return _state->field.load(std::memory_order_acquire);                  \
  }

CORVANE_PUBLISHED(momentaryLUFS, momentary, kNegativeInfinity)
CORVANE_PUBLISHED(shortTermLUFS, shortTerm, kNegativeInfinity)
CORVANE_PUBLISHED(integratedLUFS, integrated, kNegativeInfinity)
CORVANE_PUBLISHED(loudnessRange, range, 0.0)
CORVANE_PUBLISHED(maxMomentaryLUFS, maxMomentary, kNegativeInfinity)
CORVANE_PUBLISHED(maxShortTermLUFS, maxShortTerm, kNegativeInfinity)
CORVANE_PUBLISHED(truePeakDB, truePeak, kNegativeInfinity)
CORVANE_PUBLISHED(currentTruePeakDB, currentTruePeak, kNegativeInfinity)
CORVANE_PUBLISHED(samplePeakDB, samplePeakDB, kNegativeInfinity)
CORVANE_PUBLISHED(speechGatedLUFS, speechGated, kNegativeInfinity)
CORVANE_PUBLISHED(speechPercentage, speechPercent, 0.0)
CORVANE_PUBLISHED(speechGatedNoiseFloorDBRMS, noiseFloor, kNegativeInfinity)

#undef CORVANE_PUBLISHED

double LoudnessProcessor::channelTruePeakDB(int channel) const noexcept {
  if (channel < 0 || channel >= _state->channelCount || _state->resetPending()) {
    return kNegativeInfinity;
  }
  return _state->publishedChannelTruePeak[static_cast<std::size_t>(channel)].load(
      std::memory_order_acquire);
}

std::int64_t LoudnessProcessor::blockCount() const noexcept {
  if (_state->resetPending()) return 0;
  return _state->publishedBlockCount.load(std::memory_order_acquire);
}

std::int64_t LoudnessProcessor::blockIndex() const noexcept {
  const std::int64_t pending = _state->pendingBlockIndex.load(std::memory_order_acquire);
  if (pending >= 0) return pending;
  return _state->publishedBlockIndex.load(std::memory_order_acquire);
}

std::vector<double> LoudnessProcessor::truePeakDBByChannel() const {
  std::vector<double> result(static_cast<std::size_t>(_state->channelCount));
  for (int c = 0; c < _state->channelCount; ++c) result[static_cast<std::size_t>(c)] = channelTruePeakDB(c);
  return result;
}

const std::vector<LoudnessBlock>& LoudnessProcessor::blockHistory() const { return _state->history; }

SharedSpeechHistory LoudnessProcessor::speechHistory() const { return _state->speech; }

}  // namespace corvane
