// The offline analysis pass: everything "Analyse" measures over a selection or a whole file,
// in one background pass that yields a complete SelectionAnalysisResult and the selection's
// spectrogram columns.
//
// How the session uses it. On the main thread it captures what the pass needs, by value:
//   SelectionFrames::capture(buffer, lower, upper)   the frames (shared buffer or copies)
//   SelectionAnalysisSettings                         display settings, weights, speech
//                                                     history (speechHistoryForSelection),
//                                                     tuning
// together with loadGeneration (and bufferEpoch when frames.readsSharedBuffer()). A
// background task calls runSelectionAnalysis() and hands the output back; the landing
// compares the counters and drops a stale result. Superseded passes are outrun rather than
// cancelled, but a stop request makes a pass give up at its next check (between phases and
// every few thousand blocks or windows inside the long ones), for a caller that wants its
// core back.
//
// The pass, in order:
//   1. Channel statistics per channel over frameCount frames (ChannelStatistics).
//   2. Dynamic range: DRProcessor's overall and per-channel values.
//   3. Speech history: the one handed in; else, when detectSpeech is set, the speech detector
//      on the mono mix (each channel × 1 / channels) at the file's rate with the tuning; its
//      failure leaves the pass without history (no speech-gated figures), not without result.
//   4. Loudness: a LoudnessProcessor (offline feed) with that history and the channel weights,
//      fed in chunks of max(1, round(rate × 0.1)) frames, updateTruePeak then process, then
//      flushPartialBlock. Its block history gives the momentary, short-term, integrated and
//      true-peak curves at the block ends (lower + (i + 1) × 0.1 s). A rate the processor does
//      not measure (outside 8 kHz ... 768 kHz) leaves the loudness figures at −inf and the
//      curves empty.
//   5. Window pass, hop = max(fftSize / overlapFactor, 64), n = (frameCount − fftSize) / hop
//      (integer division toward zero): windows at pos = i × hop while pos + fftSize ≤
//      frameCount. Window i is averaged when i is a multiple of the average stride (1; or
//      (n + 65536) >> 16 when n ≥ 65536 and fftExactAverage is off, so at most about 65,536
//      windows spread evenly are averaged) and makes a spectrogram column when
//      spectrogramFftSize equals fftSize and i is a multiple of the column stride
//      ((max(n, 2047) + 1) >> 11, about 2048 columns; 1 for n < 0). Spectra: Hann window,
//      offline FFT (FFTProcessor, live mode off), averaged in power per channel and for mid
//      ((ch0 + ch1) × 0.5) and side ((ch0 − ch1) × 0.5) with two or more channels, then
//      10·log10 of the mean. A column is the selected channel's spectrum in dB, or the mean of
//      the channels' power in dB when no valid channel is selected; its time is
//      lower + pos / rate, the start of its window.
//   6. When spectrogramFftSize differs from fftSize: computeSpectrogramColumns over the
//      selection with spectrogramFftSize, the overlap factor and the lower bound as start time
//      (an invalid channel index mixes there too, as in the window pass).
//   7. speechRanges = computeSpeechRanges(history in the processor, lower, 0.1).
// A selection shorter than one window gets −100 dB spectra, no mid/side and no columns, and
// every other figure.
//
// Determinism. With two threads the DR and the spectra (2, 5, 6) run beside speech, loudness
// and the channel statistics (3, 4, 1), two halves of about equal cost; no value is shared
// between them, and every sum runs in a fixed order, so the result is bit-identical to the
// one-thread pass.
//
// Thread class: runSelectionAnalysis on a background thread; it only reads the frames. It
// allocates the result and its working arrays (about fftSize × channels floats), and runs the
// FFT plans it makes once per pass for every window.
#pragma once

#include <optional>
#include <stop_token>
#include <vector>

#include "core/SpeechHistory.h"
#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/analysis/SelectionFrames.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "headless/speech/SileroVADTuning.h"

namespace corvane {

class SileroVADAnalyser;

// What the main thread captures for a pass, besides the frames.
struct SelectionAnalysisSettings {
  int fftSize = 4096;             // spectrum size: even, at least 2 (the session's are powers of two)
  int spectrogramFftSize = 4096;  // column size; one below 2 or odd gives no columns
  int overlapFactor = 4;          // of spectrogramOverlap: 4, 8, 16, 32 or 64
  std::optional<int> spectrogramChannelIndex;  // absent (or invalid): columns mix all channels
  bool fftExactAverage = false;   // average every window instead of at most about 65,536
  // ChannelOrder::bs1770Weights of the buffer: one loudness weight per channel.
  std::vector<double> channelWeights;
  // The speech history of the selection's blocks (speechHistoryForSelection), or null.
  SharedSpeechHistory speechHistory;
  // With no history handed in: run the speech detector (true) or measure without speech.
  bool detectSpeech = true;
  SileroVADTuning vadTuning;
  // The detector to run; null means SileroVADAnalyser::shared().
  const SileroVADAnalyser* speechDetector = nullptr;
  // 2 runs the two halves of the pass side by side (see Determinism), 1 runs it on the
  // calling thread only.
  int threadCount = 2;
};

// The session's speech state, as it stands when a pass starts.
struct FileSpeechState {
  // The history of the whole file, from detection or from the dialogue regions; may be null.
  SharedSpeechHistory fileSpeechHistory;
  // The tuning that detected fileSpeechHistory; absent when it no longer follows one.
  std::optional<SileroVADTuning> fileSpeechHistoryTuning;
  // True while the dialogue regions are the detector's own (their source is still the first
  // case); false once the user or a sidecar changed them.
  bool regionsFromDetection = true;
};

// Which history a pass uses, chosen on the main thread:
//   - regions changed by the user or a sidecar, and a file history: the file history sliced to
//     the selection's blocks (DialogueRegion::sliceHistory), never a new detection;
//   - a whole-file selection, regions from detection, and a file history detected with exactly
//     the current tuning: the file history itself;
//   - otherwise null, and the pass detects speech itself.
SharedSpeechHistory speechHistoryForSelection(const FileSpeechState& speech, const SileroVADTuning& currentTuning,
                                              const SelectionFrames& frames);

// What a pass gives back to its landing.
struct SelectionAnalysisOutput {
  SelectionAnalysisResult result;
  // The selection's columns (offlineSpectrogramColumns), times in the file's time.
  SpectrogramColumns spectrogramColumns;
  // The history the loudness was gated with (handed in or detected); null without one.
  SharedSpeechHistory speechHistory;
};

// Runs the pass. Returns none only when `stop` was requested. Throws std::invalid_argument
// for an fftSize that is not even and at least 2, std::bad_alloc when memory is short.
std::optional<SelectionAnalysisOutput> runSelectionAnalysis(const SelectionFrames& frames,
                                                            const SelectionAnalysisSettings& settings,
                                                            std::stop_token stop = {});

// The strides of the window pass (step 5 above), for a selection of frameCount frames.
struct WindowPassPlan {
  FrameCount hop = 0;
  FrameCount windowSteps = 0;  // n; negative when the selection is shorter than one window
  FrameCount columnStride = 1;
  FrameCount averageStride = 1;
};
WindowPassPlan windowPassPlan(FrameCount frameCount, int fftSize, int overlapFactor, bool fftExactAverage);

}  // namespace corvane
