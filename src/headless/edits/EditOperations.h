// EditOperations: what every destructive edit does to the samples.
//
// Three kinds of members, for the three ways an edit reaches the audio:
//   * Rebuilding members take the audio as channel arrays (ChannelData, one float array per
//     channel) and give an EditResult with new arrays, of any length. The edit roads use
//     them on a whole file in memory, and on a copy of a selection (range edits).
//   * ...InPlace members change samples where they lie, inside [startFrame, endFrame), and
//     need no memory of their own: fades, gain, phase, DC removal, the dialogue gate.
//   * write...WAV members are the streaming twins of the rebuilding members for files too
//     large to rebuild in memory. They read an EditSource in chunks of `chunkFrames` frames
//     (kStreamingChunkFrames at every call site of the editor) and write the result as a
//     32-bit float WAV (RF64 when its data passes 4 GiB) at `to`, normally a path from
//     temporaryResultPath(). Every twin gives exactly the samples of its in-memory member,
//     whatever the chunk size: both run the same code over the same sequence of samples.
//
// Frames and ranges. Frame ranges are half-open, [startFrame, endFrame), in frames of the
// whole signal, and are clamped into the audio first. Every operation is exact to the frame:
// nothing outside the stated range changes, and copied samples are copied bit for bit.
//
// Nothing to do. An operation whose result would equal its input (an empty range, a gain on
// silence, a limiter with nothing near its ceiling, a cut of the whole file) returns an
// EditResult with nothingToDo set and no arrays; in-place members return false; streaming
// twins return false and write no file. The edit roads then record no history entry.
//
// Levels: gains in dB (amplitude, 20·log10), sample peaks in dBFS, loudness in LUFS (BS.1770,
// K-weighted, gated), true peaks in dBTP measured by Corvane's own meter (LoudnessProcessor:
// 4× oversampling below 176.4 kHz).
//
// The true-peak limiter (limitTruePeak, and the limiting step of normalizeLUFS and
// normalizeByGain) works offline in two passes. The first measures the true peak of the
// signal at its new gain; when it stays 0.1 dB under the ceiling the signal is only scaled.
// Otherwise the second runs TruePeakLimiterDSP (5 ms look-ahead, 4× oversampled detection,
// 50 ms release) at 0.1 dB under the ceiling, with its latency removed so that the output
// lines up with the input frame for frame. The margin is for other meters: libebur128's 4×
// interpolation reads up to about 0.15 dB above Corvane's on limited, dense high-frequency
// material. The output is measured as it is written; should it still read above the limit (it
// has not been seen to), it is limited once more, and a last resort scales it under. Result:
// its true peak by Corvane's meter is never above the ceiling, and libebur128 has read every
// limited signal tried at or under the ceiling too.
//
// Thread class: plain functions, any thread; they hold no state. Members allocate (results,
// one chunk of scratch) and throw std::bad_alloc when memory is short, std::invalid_argument
// for malformed input (channel arrays of unequal length, a rate that is not positive, a
// channel count below 1); streaming twins also throw AudioWriteError (the file could not be
// written: disk full, no permission; the partial file is removed) and the source's
// AudioDecodeError.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"
#include "headless/edits/EditSource.h"
#include "headless/files/PCMEncoding.h"

namespace corvane {

struct EditOperations {
  // Chunk of every streaming call site: 1,048,576 frames (8 MB of stereo float).
  static constexpr FrameCount kStreamingChunkFrames = 1'048'576;

  // Fade shapes, by ordinal. With x the position in the fade from 0 to 1, the gain is
  //   Linear       x
  //   Log          10^(−5 (1 − x)): even in dB, from −100 dB to 0 dB
  //   Equal Power  sin(π/2 · x): a fade in and a fade out over the same frames keep the sum
  //                of their powers constant (the crossfade of a cut uses this shape)
  // A fade in over L frames gives frame i of the range the gain of x = i / L (from silence,
  // reaching full level just after the range); a fade out gives it x = (L − i) / L (from full
  // level, reaching silence just after the range).
  enum class FadeCurve { linear = 0, log = 1, equalPower = 2 };
  enum class FadeDirection { fadeIn = 0, fadeOut = 1 };

  // Where addSilence puts its silence, by ordinal: before the range (at startFrame), after it
  // (at endFrame), or in place of the range's samples (length unchanged).
  enum class SilenceMode { before = 0, after = 1, replace = 2 };

  // "Linear", "Log", "Equal Power"; "Fade In", "Fade Out".
  static std::string_view displayName(FadeCurve curve);
  static std::string_view displayName(FadeDirection direction);

  // The gain of a fade shape at position x (clamped to 0 ... 1).
  static double fadeGain(FadeCurve curve, double x);

  struct EditResult {
    ChannelData channelData;
    double sampleRate = 0.0;
    // The operation found nothing to change; channelData is empty.
    bool nothingToDo = false;

    int channelCount() const { return static_cast<int>(channelData.size()); }
    FrameCount frameLength() const {
      return channelData.empty() ? 0 : static_cast<FrameCount>(channelData.front().size());
    }
    static EditResult nothing(double sampleRate) { return EditResult{{}, sampleRate, true}; }
  };

  // ---- Conversions ---------------------------------------------------------------------

  // A copy of the buffer's frameLength() frames, one array per channel.
  static ChannelData extractChannelData(const AudioBuffer& from);

  // A new buffer holding the result's arrays, with `channelLayout` as its speaker positions
  // when it names one position per channel (else none). Null when the buffer can't be
  // allocated, or for a nothing-to-do result. The rvalue form adopts the arrays themselves
  // (no copy, no new memory for the audio); the const form copies the result first.
  static SharedAudioBuffer buildBuffer(EditResult&& from, const std::vector<ChannelPosition>& channelLayout);
  static SharedAudioBuffer buildBuffer(const EditResult& from, const std::vector<ChannelPosition>& channelLayout);

  // ---- Rebuilding members ----------------------------------------------------------------

  // Keeps [startFrame, endFrame). Nothing to do when the clamped range is empty; a range over
  // the whole signal still gives a (copied) result.
  static EditResult trim(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                         double sampleRate);

  // Removes [startFrame, endFrame) and joins the two sides with an equal-power crossfade of
  // `crossfadeFrames` frames centred on the join, as a tape splice does: the audio before the
  // cut fades out over its last crossfadeFrames / 2 frames and the first (crossfadeFrames + 1)
  // / 2 of the cut, while the audio after it fades in over the last crossfadeFrames / 2 of the
  // cut and its own first (crossfadeFrames + 1) / 2. The result is exactly endFrame −
  // startFrame frames shorter. The crossfade is clamped to twice the audio kept on the shorter
  // side (0: a hard cut, bit-exact concatenation). Nothing to do when the clamped range is
  // empty or is the whole signal.
  static EditResult cutRange(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                             FrameCount crossfadeFrames, double sampleRate);

  // Inserts durationFrames frames of digital silence at startFrame (before) or endFrame
  // (after), or silences [startFrame, endFrame) (replace; durationFrames is ignored). Nothing
  // to do for an insertion of no frames or an empty replacement.
  static EditResult addSilence(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                               SilenceMode mode, FrameCount durationFrames, double sampleRate);

  // Scales the signal so that its integrated loudness (BS.1770 with `channelWeights`, one per
  // channel from ChannelOrder::bs1770Weights; an empty list weights every channel 1) is
  // targetLUFS, then limits its true peak at ceilingDB (dBTP). What the limiter takes off the
  // loudness is made up: the limited result is measured, the gain raised by the shortfall and
  // the signal limited again, up to four limiter passes in all, until it lands within 0.02 LU
  // of the target. Only material that must be limited very hard stays measurably under it.
  // Nothing to do for a signal without a measurable loudness (silence, shorter than 400 ms).
  static EditResult normalizeLUFS(const ChannelData& channelData, double targetLUFS, double ceilingDB,
                                  double sampleRate, const std::vector<double>& channelWeights);

  // Scales the signal so that its largest |sample| over all channels is targetDB (dBFS). No
  // limiter. Nothing to do for silence.
  static EditResult normalizePeak(const ChannelData& channelData, double targetDB, double sampleRate);

  // Limits the true peak at ceilingDBTP, leaving everything that does not come near it as it
  // was. Nothing to do when the true peak is already 0.1 dB or more under the ceiling.
  static EditResult limitTruePeak(const ChannelData& channelData, double ceilingDBTP, double sampleRate);

  // Scales by gainDB, then limits the true peak at ceilingDB.
  static EditResult normalizeByGain(const ChannelData& channelData, double gainDB, double ceilingDB,
                                    double sampleRate);

  // Exchanges the two channels of a stereo signal. Nothing to do for any other channel count.
  static EditResult swapChannels(const ChannelData& channelData, double sampleRate);

  // The dialogue gate: ducks what is not speech by reductionDB (taken as negative whatever its
  // sign), and gives everything makeupDB. `speechMask` has one entry per block of
  // `blockFrames` frames (the speech history: 0.1 s blocks); frames past its end count as
  // non-speech. The gain moves linearly in dB: it opens over attackMs before speech starts
  // (it is fully open on the first speech frame, so no onset is lost) and closes over
  // releaseMs after speech ends. Nothing to do for an empty mask, or when reduction and
  // makeup are both 0.
  static EditResult expandNonSpeech(const ChannelData& channelData, const SpeechHistory& speechMask,
                                    FrameCount blockFrames, double reductionDB, double makeupDB, double attackMs,
                                    double releaseMs, double sampleRate);

  // The same members over a source (the session's buffer read where it lies, without a copy
  // of its channels): the result in memory, sample for sample what the channel-array forms
  // give. Sources over files throw what their reads throw.
  static EditResult trim(EditSource& source, FrameCount startFrame, FrameCount endFrame);
  static EditResult cutRange(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                             FrameCount crossfadeFrames);
  static EditResult addSilence(EditSource& source, FrameCount startFrame, FrameCount endFrame, SilenceMode mode,
                               FrameCount durationFrames);
  static EditResult normalizeLUFS(EditSource& source, double targetLUFS, double ceilingDB,
                                  const std::vector<double>& channelWeights);
  static EditResult normalizePeak(EditSource& source, double targetDB);
  static EditResult limitTruePeak(EditSource& source, double ceilingDBTP);
  static EditResult normalizeByGain(EditSource& source, double gainDB, double ceilingDB);
  static EditResult swapChannels(EditSource& source);

  // ---- In-place members ------------------------------------------------------------------
  // channelData: channelCount pointers to totalFrames floats. The range is clamped into
  // 0 ... totalFrames; they return false (and change nothing) when it is empty.

  static bool changeLevelInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                 double gainDB, FrameCount startFrame, FrameCount endFrame);

  static bool fadeInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                          FadeDirection direction, FadeCurve curve, FrameCount startFrame, FrameCount endFrame);

  static bool invertPhaseInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                 FrameCount startFrame, FrameCount endFrame);

  // Subtracts from each channel its mean over the range (computed in double).
  static bool removeDCOffsetInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                    FrameCount startFrame, FrameCount endFrame);

  // expandNonSpeech over the whole of the arrays.
  static bool expandNonSpeechInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                     const SpeechHistory& speechMask, FrameCount blockFrames, double reductionDB,
                                     double makeupDB, double attackMs, double releaseMs, double sampleRate);

  // ---- Streaming twins -------------------------------------------------------------------
  // Same arguments and results as the members above, with the source's shape in place of
  // the sample rate. They return false (no file written) where the member has nothing to do.

  static bool writeTrimmedWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                              const std::filesystem::path& to, FrameCount chunkFrames);
  static bool writeCutWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                          FrameCount crossfadeFrames, const std::filesystem::path& to, FrameCount chunkFrames);
  static bool writeSilenceWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame, SilenceMode mode,
                              FrameCount durationFrames, const std::filesystem::path& to, FrameCount chunkFrames);
  // Channel weights from the source's positions (ChannelOrder::bs1770Weights).
  static bool writeNormalizedWAV(EditSource& source, double targetLUFS, double ceilingDB,
                                 const std::filesystem::path& to, FrameCount chunkFrames);
  static bool writePeakNormalizedWAV(EditSource& source, double targetDB, const std::filesystem::path& to,
                                     FrameCount chunkFrames);
  static bool writeLimitedWAV(EditSource& source, double ceilingDBTP, const std::filesystem::path& to,
                              FrameCount chunkFrames);
  static bool writeGainLimitedWAV(EditSource& source, double gainDB, double ceilingDB,
                                  const std::filesystem::path& to, FrameCount chunkFrames);
  static bool writeChannelSwappedWAV(EditSource& source, const std::filesystem::path& to, FrameCount chunkFrames);

  // One channel of the source as a mono file (Split to Mono). A WAV of `encoding`, 32-bit
  // float by default (the session's samples as they are). Throws std::invalid_argument for a
  // channel outside the source.
  static void writeMonoChannelWAV(EditSource& source, int channel, const std::filesystem::path& to,
                                  FrameCount chunkFrames, PCMEncoding encoding = PCMEncoding::float32);

  // The source, chunk by chunk through `edit`, into a float WAV: the in-place edits applied to
  // a source that is not in memory (`corvane process` on a file too large to load). `edit`
  // gets `frames` frames of every channel that begin at frame `firstFrame` of the source.
  using ChunkEditor =
      std::function<void(float* const* channels, int channelCount, FrameCount firstFrame, FrameCount frames)>;
  static void writeChunkEditedWAV(EditSource& source, const ChunkEditor& edit, const std::filesystem::path& to,
                                  FrameCount chunkFrames);

  // ---- Temporary results -----------------------------------------------------------------

  // The temporary-file tags of the streaming results ("corvane-<tag>-<UUID>.wav").
  static constexpr std::string_view kTrimTag = "trim";
  static constexpr std::string_view kCutTag = "cut";
  static constexpr std::string_view kSilenceTag = "silence";
  static constexpr std::string_view kNormalizeTag = "normalize";
  static constexpr std::string_view kPeakNormalizeTag = "normpeak";
  static constexpr std::string_view kLimitTag = "limit";
  static constexpr std::string_view kGainNormalizeTag = "normgain";
  static constexpr std::string_view kSwapTag = "swap";

  // A fresh "corvane-<tag>-<UUID>.wav" in the private temporary folder (TemporaryFiles.h).
  static std::filesystem::path temporaryResultPath(std::string_view tag);

  // ---- Memory ----------------------------------------------------------------------------

  // Bytes of a decoded buffer: frames × channels × 4.
  static std::int64_t decodedBytes(FrameCount frames, int channelCount);

  // The factor test of the whole-file commands: true (run in memory) when decodedBytes is
  // below 1 or AudioLoadLimits::availableBytes() × 0.75 is at least factor × decodedBytes;
  // false means the command streams.
  static bool passesFactorTest(std::int64_t decodedBytes, int factor);
};

}  // namespace corvane
