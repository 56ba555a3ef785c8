// LoudnessProcessor: ITU-R BS.1770-5 / EBU R128 loudness, loudness range and true peak, on
// 0.1 s blocks, for one stream of planar float audio.
//
// One class serves two uses:
//   * offline (offlineFeed true): a background task feeds a whole file or selection in chunks
//     and then reads every figure and the per-block history of the pass;
//   * live (offlineFeed false, the default): the render callback feeds what is playing and the
//     main thread reads the published figures ten to thirty times a second, for hours of
//     looped playback, with bounded memory.
//
// Feeding. Per chunk, updateTruePeak() then process() with the same samples. Chunks may have
// any length; blocks are formed inside. A block is blockFrameCount() = max(1, round(rate ×
// 0.1)) frames. After the last chunk, flushPartialBlock() counts the frames of an unfinished
// block.
//
// Measurements (all levels in LUFS, LU or dBTP; negative infinity means silence or not yet
// measured):
//   * K-weighting: the two-stage filter of BS.1770 (high shelf, then high pass), derived for the
//     processor's sample rate from the standard's 48 kHz definition, so every rate from 8 kHz to
//     768 kHz measures the same analogue response. Channel energies are summed with the channel
//     weights given at construction (1.0, 1.41 for side/surround positions, 0 for LFE).
//   * Momentary: the 400 ms window, published every 10 ms step (in the block history: the
//     window ending at each block). Short-term: the 3 s window ending at the newest complete
//     block. Windows that reach back before the first frame since the last reset read the
//     missing part as silence (a meter starting from silence), so the first blocks already
//     carry values.
//   * Integrated: BS.1770 gating over the 400 ms gating blocks at the 0.1 s hop (75 %
//     overlap): absolute gate −70 LUFS, relative gate −10 LU. Only complete 400 ms windows are
//     gating blocks. The gating uses histograms of 0.01 LU bins holding exact energy sums, so a
//     read-out costs O(log bins) however long the programme, and the result stays within
//     0.005 LU of gating the individual blocks.
//   * Loudness range: EBU Tech 3342 over the complete 3 s windows at the 0.1 s hop (10 Hz):
//     absolute gate −70 LUFS, relative gate −20 LU below their energy mean, then the 95th minus
//     the 10th percentile (nearest rank, index round((n − 1) · p)). 0 until at least one window
//     passes the gates.
//   * Maximum momentary: the largest 400 ms window loudness evaluated every 10 ms (not only at
//     the 0.1 s blocks), so that the maximum does not depend on where block boundaries fall.
//     The block history and its curves stay at 0.1 s. Maximum short-term: the largest
//     short-term value at the 0.1 s blocks.
//   * True peak (updateTruePeak): BS.1770 Annex 2. The signal is oversampled 4× below
//     176.4 kHz, 2× below 352.8 kHz and not at all above, by a Kaiser-windowed sinc of 24 taps
//     per phase whose passband ripple stays within ±0.02 dB up to 0.83 of Nyquist. With the
//     under-read of the finite oversampling, tones stay within +0.2/−0.4 dB of their true
//     peak up to 18.4 kHz at 48 kHz, 16.9 kHz at 44.1 kHz and 20 kHz from 88.2 kHz up.
//     Reported in dBTP, as the maximum per channel, over all channels, and per
//     0.1 s block (the true-peak curve). The sample peak (largest |sample|) comes with it.
//
// Speech measurements. The speech history marks 0.1 s blocks as speech (see SpeechHistory.h).
// The processor keeps a block index: the history entry that belongs to the next block to
// complete. It starts at 0, advances by one per completed block, and is moved by
// setBlockIndex() when playback jumps. A block is speech when a history is present, the index
// lies inside it and its entry is true; every other block is non-speech. Definitions:
//   * speechGatedLUFS: the BS.1770 integrated measurement (same gates) over only those 400 ms
//     gating blocks that lie wholly in speech (all four of their 0.1 s blocks are speech), so
//     the windows at the start and end of a phrase, which mix in the pause, do not pull the
//     figure down. Negative infinity without such a window.
//   * speechPercentage: 100 × speech blocks / all blocks completed since the last reset; 0 when
//     no history is present.
//   * speechGatedNoiseFloorDBRMS: the 10th percentile (nearest rank) of the unweighted RMS
//     levels of the non-speech blocks, in dBFS. A block's RMS is taken over its channels of
//     non-zero weight (the mean of their mean squares), without K-weighting, so it reads as
//     a plain RMS meter would over room tone. Digital silence counts (it is the quietest
//     floor there is). Negative infinity without a history or without non-speech blocks.
// Handing a new history over (exchangeSpeechHistory) does not reset what was measured: the
// blocks already measured keep the status they had.
//
// Thread-safety contract.
//   * Feeding thread: updateTruePeak, process, flushPartialBlock and exchangeSpeechHistory are
//     called by one thread at a time (the render thread in live use, the task in offline use;
//     a later feeder must be ordered after the former, e.g. by stopping the audio stream).
//     Live (offlineFeed false): they never allocate, lock, block or throw.
//   * Any thread: the read-outs below marked "published" are atomics written as they change
//     (momentary per 10 ms step, the gated figures per block, the peaks per chunk); a reader
//     never sees a torn value and never blocks the feeder. Different read-outs may come from
//     neighbouring blocks.
//   * Any thread: reset, resetState and setBlockIndex are requests, stored atomically and
//     honoured by the feeding thread at the start of its next feeding call, in the order
//     reset/resetState first, then the block index. The most recent block index requested
//     wins; reset() also requests index 0. While a reset is pending, the published read-outs
//     already read as reset.
//   * Owner thread (the feeding thread, or any thread while nothing feeds): construction,
//     setOfflineFeed, blockHistory, speechHistory.
// Allocation: construction allocates everything live use needs (about 1 MB, mostly gating
// histograms). With offlineFeed true, process() appends to the block history and so may
// allocate; that is the only difference between the two uses.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"

namespace corvane {

// One 0.1 s block of the offline history. Time of block i is (i + 1) × 0.1 s, its end.
struct LoudnessBlock {
  float momentaryLUFS;   // 400 ms window ending at this block
  float shortTermLUFS;   // 3 s window ending at this block
  float integratedLUFS;  // gated integrated loudness of everything up to this block
  float truePeakDB;      // largest true peak of the block, over all channels, dBTP
};

class LoudnessProcessor {
 public:
  // sampleRate: 8000 ... 768000 Hz. channelCount: at least 1. precomputedSpeechHistory may be
  // null (no speech measurements until one is handed over). channelWeights: one BS.1770 weight
  // per channel (ChannelOrder::bs1770Weights); missing entries count as 1.0, extra entries are
  // ignored, an empty list weights every channel 1.0.
  // Throws std::invalid_argument for a rate or channel count outside those ranges;
  // std::bad_alloc if memory is short.
  LoudnessProcessor(double sampleRate, int channelCount,
                    SharedSpeechHistory precomputedSpeechHistory = nullptr,
                    std::vector<double> channelWeights = {});
  ~LoudnessProcessor();

  LoudnessProcessor(const LoudnessProcessor&) = delete;
  LoudnessProcessor& operator=(const LoudnessProcessor&) = delete;

  double sampleRate() const noexcept;
  int channelCount() const noexcept;
  // Frames per 0.1 s block: max(1, round(sampleRate × 0.1)).
  FrameCount blockFrameCount() const noexcept;
  // Oversampling factor of the true-peak meter at this rate (4, 2 or 1).
  int truePeakOversampling() const noexcept;

  // Owner thread, before the first feeding call. true: keep the per-block history of the pass
  // (offline use). false (default): bounded state only (live use).
  void setOfflineFeed(bool offlineFeed);
  bool offlineFeed() const noexcept;

  // ---- Feeding thread -------------------------------------------------------------------
  // channelData: channelCount() pointers of frameCount floats each. Non-finite samples are
  // measured as silence. frameCount 0 or below does nothing.

  // True and sample peak of these frames; call before process() with the same frames.
  void updateTruePeak(const float* const* channelData, FrameCount frameCount) noexcept;
  // Loudness of these frames; completes every block they finish and publishes the figures.
  void process(const float* const* channelData, FrameCount frameCount) noexcept;
  // Counts the frames of an unfinished block as a block of their own (its 400 ms gating block
  // is the last three complete blocks plus these frames, and counts for gating when at least
  // 400 ms were fed since the reset), runs the true-peak interpolator out so a peak in the
  // last frames is seen, and publishes. Nothing to do when no frames are pending.
  void flushPartialBlock() noexcept;

  // Installs `history` (may be null) for the blocks still to come and returns the history it
  // replaces. Never frees a history: the caller owns what comes back and must let it go on a
  // thread where freeing is allowed (in the render callback: park it in a slot the main thread
  // empties). Real-time safe.
  SharedSpeechHistory exchangeSpeechHistory(SharedSpeechHistory history) noexcept;

  // ---- Requests, any thread -------------------------------------------------------------
  // Everything measured is cleared (filters, windows, gating, range, peaks, speech counts,
  // block history) and the block index goes to 0. Weights, speech history and the offline
  // flag stay.
  void reset() noexcept;
  // As reset(), but the block index stays where it is (a following setBlockIndex places it).
  void resetState() noexcept;
  // The next block to complete belongs to speech-history entry `blockIndex` (clamped at 0):
  // Int(seconds / 0.1) of the playback position.
  void setBlockIndex(std::int64_t blockIndex) noexcept;

  // ---- Published read-outs, any thread ----------------------------------------------------
  double momentaryLUFS() const noexcept;
  double shortTermLUFS() const noexcept;
  double integratedLUFS() const noexcept;
  // LU; 0 when there is no range yet.
  double loudnessRange() const noexcept;
  double maxMomentaryLUFS() const noexcept;
  double maxShortTermLUFS() const noexcept;
  // Largest true peak over all channels since the reset, dBTP.
  double truePeakDB() const noexcept;
  // True peak of the newest complete block over all channels, dBTP: the live true-peak curve.
  double currentTruePeakDB() const noexcept;
  // True peak of one channel since the reset, dBTP; negative infinity for an invalid index.
  double channelTruePeakDB(int channel) const noexcept;
  // Largest |sample| over all channels since the reset, dBFS.
  double samplePeakDB() const noexcept;
  double speechGatedLUFS() const noexcept;
  // Percent, 0 ... 100.
  double speechPercentage() const noexcept;
  double speechGatedNoiseFloorDBRMS() const noexcept;
  // Blocks completed since the reset.
  std::int64_t blockCount() const noexcept;
  // The speech-history index of the next block to complete.
  std::int64_t blockIndex() const noexcept;

  // channelTruePeakDB of every channel. Allocates: not for the render thread.
  std::vector<double> truePeakDBByChannel() const;

  // ---- Owner thread -------------------------------------------------------------------
  // One entry per block completed since the reset, in order; empty unless offlineFeed.
  const std::vector<LoudnessBlock>& blockHistory() const;
  // The history in use (null when none).
  SharedSpeechHistory speechHistory() const;

 private:
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace corvane
