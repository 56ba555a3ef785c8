// PlaybackRenderer: the render callback of the source. It pulls frames out of the file's
// buffer and does by hand the routing, phase shifting, gain, limiting and band filtering of
// playback, and feeds the live analysis with what it read.
//
// Order of one call (F frames asked for):
//   1. Speech-history hand-over: a history offered by the main thread goes into the loudness
//      processor; the one it replaces goes back to the main thread to be freed.
//   2. Not playing: silence, nothing else.
//   3. A pending loudness reset: the live state is cleared and its block index placed at the
//      current frame.
//   4. Snapshot of the values in force: target-match gain (1 when off), source, slot gain;
//      a pending limiter reset is honoured. No source: silence.
//   5. Routing in force: the edit-mode identity routing or the user's.
//   6. Bounds: the selection or the whole file. A frame before the start moves to it; at the
//      end, a loop goes back to the start, otherwise the call renders silence and reports the
//      end (the owner turns that into the end-of-file flag).
//   7. n = min(end − frame, F) frames from the source; the rest of the buffer stays silent, so
//      a wrap takes effect at the next call.
//   8. Hilbert path, when some source is at ±90° and n ≤ 8192: each source channel through its
//      shifter into a reference row (delayed by the filter's latency) and, for channels that
//      feed a ±90° slot, a quadrature row. Every source is then read from a row, so all stay
//      time-aligned; with the path off every source is read directly, whatever its phase.
//   9. Mix: each output is the sum of its sources × slot gain × compare-slot gain × target
//      gain, negated for −90° and 180°; muted channels and channels past the source are
//      skipped. An output past the routing plays the source channel of its own index.
//  10. `_playbackFrame` advances from the value this call started with, by compare-and-swap:
//      a seek stored by the main thread meanwhile wins.
//  11. Target-match limiter over the n frames, in place.
//  12. The multichannel graph's band filter over all F frames of every output.
//  13. Analysis feed, from the n source frames before routing, gain and filter: the analysis
//      rings, the live loudness processor (true peak, then loudness), the source RMS.
//
// Thread class: construction/destruction on the main thread (allocates everything the
// callback needs); render() on one render thread inside a RenderEpoch::Scope: no allocation,
// no lock, no wait, noexcept. The meters (sourceRMS) may be read from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/HilbertPhaseShifter.h"
#include "core/LoudnessProcessor.h"
#include "core/TruePeakLimiterDSP.h"
#include "playback/RenderMirrors.h"

namespace corvane {

// Passes speech histories to the loudness processor on the render thread without freeing one
// there. Main thread: offer() and collect(); render thread: deliver().
class SpeechHistoryHandover {
 public:
  SpeechHistoryHandover() = default;
  ~SpeechHistoryHandover();
  SpeechHistoryHandover(const SpeechHistoryHandover&) = delete;
  SpeechHistoryHandover& operator=(const SpeechHistoryHandover&) = delete;

  // Main thread: the history for the processor to take at the next call. An offer not yet
  // taken is replaced (and freed here).
  void offer(SharedSpeechHistory history);
  // Main thread: frees what the render thread handed back. Returns whether an offer is still
  // waiting.
  bool collect();
  // Render thread: installs an offered history, if any, in `processor`.
  void deliver(LoudnessProcessor& processor) noexcept;

 private:
  struct Parcel {
    SharedSpeechHistory history;
    Parcel* next = nullptr;
  };
  std::atomic<Parcel*> _offered{nullptr};
  std::atomic<Parcel*> _returned{nullptr};  // a stack, pushed by the render thread
};

// The source's outcome of one call, for the owner of the chain.
struct SourceRenderResult {
  // The pass reached its end without looping: nothing was rendered.
  bool reachedEnd = false;
  // Some frames came from the source.
  bool rendered = false;
  // The transport generation the call rendered for.
  std::uint64_t generation = 0;
};

class PlaybackRenderer {
 public:
  static constexpr int kHilbertMaxFrames = 8192;

  struct Setup {
    int outputChannels = 2;  // channels of the graph
    int fileChannels = 1;    // Hilbert shifters, meters and pointer arrays are sized for these
    // Owned by the graph, may be null. Its channel count must equal the file's for the feed.
    LoudnessProcessor* loudness = nullptr;
    // Owned by the graph, may be null; outputChannels channels, at least
    // kMaxRenderBlockFrames frames.
    TruePeakLimiterDSP* limiter = nullptr;
    SpeechHistoryHandover* speechHandover = nullptr;
  };

  PlaybackRenderer(RenderMirrors& mirrors, const Setup& setup);
  PlaybackRenderer(const PlaybackRenderer&) = delete;
  PlaybackRenderer& operator=(const PlaybackRenderer&) = delete;

  int outputChannels() const { return _outputChannels; }

  // Render thread. `outputs`: outputChannels() planar arrays of `frames` floats.
  SourceRenderResult render(float* const* outputs, int frames) noexcept;

  // Linear RMS of each file channel over the newest rendered buffer (any thread). 0 past the
  // channels this renderer was set up for.
  float sourceRMS(int channel) const noexcept;
  int sourceRMSChannelCount() const { return _fileChannels; }

 private:
  void renderBlock(float* const* outputs, int frames, SourceRenderResult& result) noexcept;
  void silence(float* const* outputs, int frames) noexcept;

  RenderMirrors& _mirrors;
  int _outputChannels;
  int _fileChannels;
  LoudnessProcessor* _loudness;
  TruePeakLimiterDSP* _limiter;
  SpeechHistoryHandover* _speechHandover;
  std::vector<std::unique_ptr<HilbertPhaseShifter>> _hilbertShifters;
  std::vector<float> _hilbertRef;   // fileChannels × kHilbertMaxFrames
  std::vector<float> _hilbertQuad;  // fileChannels × kHilbertMaxFrames
  std::vector<const float*> _sourcePointers;  // fileChannels entries
  std::vector<float*> _pieceOutputs;          // outputChannels entries
  std::unique_ptr<std::atomic<float>[]> _sourceRMS;
};

}  // namespace corvane
