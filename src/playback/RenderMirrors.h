// RenderMirrors: every value the render callback reads, as the main thread last wrote it.
//
// The session owns one RenderMirrors for its whole life; graphs come and go around it. The
// main thread writes, the callback reads; the callback writes back only `_playbackFrame`
// (by compare-and-swap, so that a seek is never undone by a buffer that was already under way),
// the consumed pending-reset flags, and `_atomicEndOfFileGeneration`.
//
// Single words are atomics. Wide values (the source buffer with its frame count, channel count
// and rate; the routings; the selection; the filter with its state; the analysis rings) are
// immutable snapshots in SnapshotSlots, swapped whole and freed on the main thread once the
// callback has moved on (RenderSnapshot.h). A swap takes effect at the callback's next buffer,
// whether the transport plays or not, so there is no separate "pending" field to honour.
//
// Thread class: members are written on the main thread and read by one render thread, except
// where noted. Construction and destruction on the main thread, with no render thread running.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "core/AudioBuffer.h"
#include "playback/BiquadFilter.h"
#include "playback/FloatRingBuffer.h"
#include "playback/RenderRouting.h"
#include "playback/RenderSnapshot.h"

namespace corvane {

// What is played. One snapshot, so that the callback never pairs one buffer with another's
// frame count or rate.
struct SourceSnapshot {
  SharedAudioBuffer buffer;  // holds the samples alive while a callback may read them
  FrameCount totalFrames = 0;
  int channelCount = 0;
  double sampleRate = 48000.0;
};

// The region to play, in seconds of the file.
struct PlaybackSelection {
  double lowerSec = 0.0;
  double upperSec = 0.0;

  friend bool operator==(const PlaybackSelection&, const PlaybackSelection&) = default;
};

// A filter as published: coefficients plus one state per channel. The state belongs to the
// render thread from publication on; a reset is a new snapshot with zeroed state.
struct FilterSnapshot {
  BiquadFilterSpec spec;
  mutable std::vector<BiquadChannelState> state;

  FilterSnapshot(const BiquadFilterSpec& s, int channels)
      : spec(s), state(static_cast<std::size_t>(channels > 0 ? channels : 0), BiquadChannelState{}) {}
};

// The analysis feed: one ring per file channel. The display tick reads them through
// `_atomicAnalysisRings.current()` on the main thread.
struct AnalysisRings {
  std::vector<std::unique_ptr<FloatRingBuffer>> rings;

  AnalysisRings(int channels, int capacity) {
    rings.reserve(static_cast<std::size_t>(channels > 0 ? channels : 0));
    for (int c = 0; c < channels; ++c) rings.push_back(std::make_unique<FloatRingBuffer>(capacity));
  }
  int channelCount() const { return static_cast<int>(rings.size()); }
};

class RenderMirrors {
 public:
  RenderMirrors() = default;
  RenderMirrors(const RenderMirrors&) = delete;
  RenderMirrors& operator=(const RenderMirrors&) = delete;

  // Brackets each run of the callback; frees retired snapshots (main thread: collect()).
  RenderEpoch renderEpoch;
  SnapshotRetirer retirer{renderEpoch};

  // false: the callback renders silence and nothing else.
  std::atomic<bool> _isPlayingAtomic{false};
  // Next source frame. Two writers: the main thread (plain stores, in seek, play, pause, stop
  // and buffer swaps) and the callback (compare-and-swap from the value it started with).
  std::atomic<FrameCount> _playbackFrame{0};

  SnapshotSlot<const SourceSnapshot> _atomicSource{retirer};

  SnapshotSlot<const RenderRouting> _atomicRoutings{retirer};
  // Edit mode on a wide device: the fixed two-output routing replaces the user's.
  std::atomic<bool> _atomicUseIdentityRouting{false};
  SnapshotSlot<const RenderRouting> _atomicIdentityRoutings{retirer};
  // Whether any source is at ±90°, and which file channels (below 64) need quadrature.
  std::atomic<bool> _atomicAnyPhaseShift{false};
  std::atomic<std::uint64_t> _atomicSrcQuadMask{0};

  SnapshotSlot<const PlaybackSelection> _atomicSelection{retirer};  // null: the whole file
  std::atomic<bool> _atomicIsLooping{false};
  // Bit n mutes file channel n; channels from 64 on cannot be muted.
  std::atomic<std::uint64_t> _atomicMutedChannelMask{0};
  // Linear gain of the active compare slot.
  std::atomic<float> _atomicSlotGain{1.0f};

  // Live match to a loudness target: a gain, and the true-peak limiter behind it.
  std::atomic<bool> _atomicTargetMatchEnabled{false};
  std::atomic<float> _atomicTargetMatchGain{1.0f};
  // Consumed (cleared) by the callback, which then resets the limiter on its own thread.
  std::atomic<bool> _atomicPendingTargetMatchReset{false};

  // The multichannel graph's band filter, run in the callback on every output; null: none.
  SnapshotSlot<const FilterSnapshot> _atomicFilterSpec{retirer};
  // The two-channel graph's EQ, run after time-pitch; null: both bands bypassed.
  SnapshotSlot<const FilterSnapshot> _atomicEqSpec{retirer};

  // Consumed by the callback: reset the live loudness state and place its block index at the
  // current frame.
  std::atomic<bool> _atomicPendingLoudnessReset{false};

  SnapshotSlot<const AnalysisRings> _atomicAnalysisRings{retirer};

  // Raised by the main thread at each play, seek and stop; the callback tags what it reports
  // with the generation it rendered for, so that a report about an earlier pass is ignored.
  std::atomic<std::uint64_t> _atomicTransportGeneration{1};
  // Written by the render side: the generation whose pass reached the end of the source (and
  // whose tail has left the graph) without looping. 0: none. A main-thread timer polls it.
  std::atomic<std::uint64_t> _atomicEndOfFileGeneration{0};

  // Main thread: frees what the callback no longer holds. Call from a periodic timer.
  std::size_t collectRetired() { return retirer.collect(); }
};

// Main thread: recomputes `_atomicAnyPhaseShift` and `_atomicSrcQuadMask` from a routing
// (phaseShiftNeeds). Called with every routing handed to the render side.
void syncPhaseAtomics(const ChannelRoutings& routings, RenderMirrors& mirrors);

}  // namespace corvane
