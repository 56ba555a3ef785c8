// PlaybackController: the Qt-free core of the session's playback — the transport state machine
// over the render mirrors, the graph's lifecycle, routing, filter and speed hand-over.
//
// The session object wraps it: its observable properties forward to the setters here, and it
// implements PlaybackListener to hear about the changes the controller makes by itself
// (isPlaying, currentTime, the display timer, final loudness figures). All members run on the
// main thread; the render thread sees only RenderMirrors.
//
// The position has one truth, `_playbackFrame`: the render callback advances it (by
// compare-and-swap), the main thread overwrites it in play, pause, stop and seek. currentTime
// is what displayTick() reads out of it.
//
// End of file: the callback never posts to the main thread (that would allocate). It raises
// `_atomicEndOfFileGeneration`; displayTick(), run by the session's 30 Hz timer while
// playing, sees it and calls stop(). The generation makes a flag from an earlier pass (before
// a seek or a new play) harmless.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "playback/AudioDeviceCatalog.h"
#include "playback/BiquadFilter.h"
#include "playback/ChannelRouting.h"
#include "playback/PlaybackGraph.h"
#include "playback/RenderMirrors.h"

namespace corvane {

// The live loudness figures of a pass, published by stop() once the processor has counted its
// last part-block. Negative infinity: none.
struct FinalLoudnessFigures {
  double integratedLUFS;
  double truePeakDB;
  double speechGatedLUFS;
  double speechPercentage;
  double speechGatedNoiseFloorDBRMS;
  double loudnessRange;
};

// Main-thread notices of changes the controller makes itself.
class PlaybackListener {
 public:
  virtual ~PlaybackListener() = default;
  virtual void isPlayingChanged(bool /*isPlaying*/) {}
  virtual void currentTimeChanged(double /*seconds*/) {}
  // Start (true) or stop and clear (false) the 30 Hz display timer that calls displayTick().
  virtual void displayTimerShouldRun(bool /*run*/) {}
  // A seek broke the live loudness and true-peak curves: empty them.
  virtual void liveCurvesBroken() {}
  // A seek left the transport still: the spectrum should show the place under the playhead.
  virtual void stillPlayheadMoved() {}
  virtual void finalLoudnessPublished(const FinalLoudnessFigures& /*figures*/) {}
  // The output stream was lost (device gone, server stopped). The transport has stopped
  // playing; re-scan the devices and build a graph on the new selection (setupEngine).
  virtual void outputDeviceLost() {}
};

// What the session loaded, as playback needs it.
struct PlaybackSource {
  SharedAudioBuffer buffer;
  std::vector<double> loudnessWeights;  // ChannelOrder::bs1770Weights of the buffer
  SharedSpeechHistory speechHistory;
};

class PlaybackController {
 public:
  // `catalog` (may be null: the backends' default output) gives the selected device when a
  // graph is built; `listener` may be null.
  explicit PlaybackController(AudioDeviceCatalog* catalog = nullptr,
                              PlaybackListener* listener = nullptr);
  ~PlaybackController();
  PlaybackController(const PlaybackController&) = delete;
  PlaybackController& operator=(const PlaybackController&) = delete;

  RenderMirrors& mirrors() { return _mirrors; }
  PlaybackGraph& graph() { return _graph; }
  void setListener(PlaybackListener* listener) { _listener = listener; }

  // ---- File and graph -------------------------------------------------------------------
  // A new file (or none): the transport stops, the graph is dropped, position and selection
  // go back to the start. setupEngine() then builds the graph for it.
  void loadSource(std::optional<PlaybackSource> source);
  bool hasFile() const { return static_cast<bool>(_source.buffer); }
  // Builds the graph for the file, the selected device and the current mode. False if none
  // could be built (nothing to play; the reason is logged).
  bool setupEngine();
  void stopEngine();
  // For anything that changes the graph's shape while a file is loaded: keeps the position
  // and whether it plays.
  void rebuildLiveGraphPreservingPlayback();
  // Instead of a device (offline rendering, tests): the caller drives graph().renderManual().
  void setManualOutput(std::optional<ManualOutput> output) { _manualOutput = output; }
  // The user's choice of device: default routing for it, a new graph, and if it was playing,
  // play on from the same time.
  void setOutputDevice(std::optional<AudioOutputDevice> device);
  // Output labels of a device layout ("L", "R", "C" ...), used for default routings; by
  // default none ("Ch<n> Out").
  void setOutputLabelProvider(std::function<std::vector<std::string>(int deviceChannels)> provider) {
    _labelProvider = std::move(provider);
  }
  void setEditMode(bool editMode);
  bool editMode() const { return _editMode; }
  // While true (a load is running), routing changes do not rebuild the edit-mode graph.
  void setLoadInProgress(bool loading) { _loadInProgress = loading; }

  // An edited or swapped buffer of the same file: in force from the next buffer; the live
  // loudness restarts at the current position. The transport is left as it is (the edit
  // roads pause around a swap where they must).
  void swapSourceBuffer(SharedAudioBuffer buffer);
  void applySpeechHistory(SharedSpeechHistory history);
  // For a write into the live buffer's samples (an in-place edit), after pause(): returns once
  // no callback that began while the transport played is still running. Callbacks that begin
  // later see the transport paused and read no sample. Waits one device period at most (the
  // bound of 2 s only guards against a wedged driver thread).
  void waitForRenderToLeave() const;

  // ---- Transport ------------------------------------------------------------------------
  void play();
  void pause();
  void stop();
  void togglePlayPause();
  // The one seek: frame = Int(t × rate), limited to the file.
  void seek(double seconds, bool updatesAnchor);
  // A placement by the user (commands, ruler): a seek that moves the anchor.
  void placePlayhead(double seconds);
  // The skip commands: the playhead by ±seconds, limited to 0 ... duration.
  void skip(double deltaSeconds);

  bool isPlaying() const { return _isPlaying; }
  double currentTime() const { return _currentTime; }
  double duration() const;
  double sampleRate() const;
  FrameCount totalFrames() const;
  FrameCount playbackFrame() const { return _mirrors._playbackFrame.load(); }
  FrameCount nudgeAnchorFrame() const { return _nudgeAnchorFrame; }

  void setHoldsPlayStart(bool hold) { _holdsPlayStart = hold; }
  bool holdsPlayStart() const { return _holdsPlayStart; }
  // Written to the mirror every time, changed or not. Returns whether it changed.
  bool setSelection(std::optional<PlaybackSelection> selection);
  const std::optional<PlaybackSelection>& selection() const { return _selection; }
  bool setLooping(bool looping);
  bool isLooping() const { return _isLooping; }
  // Limited to 0.25 ... 2. Returns whether it changed.
  bool setPlaybackRate(double rate);
  double playbackRate() const { return _playbackRate; }
  bool setPreservePitch(bool preserve);
  bool preservePitch() const { return _preservePitch; }

  // ---- Routing, meters, filter ----------------------------------------------------------
  // Hands the routing to the render side and recomputes where quadrature is needed; in edit
  // mode on a wide device (and no load running) the graph is rebuilt for its channel map.
  void setRoutings(ChannelRoutings routings);
  const ChannelRoutings& routings() const { return _routings; }
  // The default routing of the file on `deviceChannels` outputs.
  void setupRoutings(int fileChannels, int deviceChannels);
  // File channels to skip; indexes from 64 on cannot be muted.
  void setMutedSourceChannels(const std::vector<int>& channels);
  void setSlotGain(float linearGain);
  void setFreqFilter(std::optional<FreqRange> selection, FreqFilterMode mode);
  const std::optional<FreqRange>& freqSelection() const { return _freqSelection; }
  FreqFilterMode filterMode() const { return _filterMode; }

  // ---- Main-thread timers ---------------------------------------------------------------
  // The transport's part of the 30 Hz display tick: currentTime from the frame, the
  // end-of-file flag, retired snapshots.
  void displayTick();
  // The periodic housekeeping when no display tick runs (e.g. the 2 s device re-scan):
  // retired snapshots and a lost output.
  void housekeeping();

  const std::optional<FinalLoudnessFigures>& finalLoudness() const { return _finalLoudness; }

 private:
  void setPlaying(bool playing);
  void setCurrentTime(double seconds);
  void bumpGeneration();
  std::vector<std::string> labelsFor(int deviceChannels) const;

  RenderMirrors _mirrors;
  PlaybackGraph _graph{_mirrors};
  AudioDeviceCatalog* _catalog;
  PlaybackListener* _listener;
  std::optional<ManualOutput> _manualOutput;
  std::function<std::vector<std::string>(int)> _labelProvider;

  PlaybackSource _source;
  bool _editMode = false;
  bool _loadInProgress = false;

  bool _isPlaying = false;
  double _currentTime = 0.0;
  FrameCount _nudgeAnchorFrame = 0;
  bool _holdsPlayStart = false;
  std::optional<PlaybackSelection> _selection;
  bool _isLooping = false;
  double _playbackRate = 1.0;
  bool _preservePitch = true;
  ChannelRoutings _routings;
  std::optional<FreqRange> _freqSelection;
  FreqFilterMode _filterMode = FreqFilterMode::bandPass;
  std::optional<FinalLoudnessFigures> _finalLoudness;
};

}  // namespace corvane
