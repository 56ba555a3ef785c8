#include "playback/PlaybackController.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

#include "playback/PlaybackRates.h"

namespace corvane {

PlaybackController::PlaybackController(AudioDeviceCatalog* catalog, PlaybackListener* listener)
    : _catalog(catalog), _listener(listener) {}

PlaybackController::~PlaybackController() { _graph.stopEngine(); }

double PlaybackController::sampleRate() const {
  return _source.buffer ? _source.buffer->sampleRate() : 48000.0;
}

FrameCount PlaybackController::totalFrames() const {
  return _source.buffer ? _source.buffer->frameLength() : 0;
}

double PlaybackController::duration() const {
  return _source.buffer ? static_cast<double>(totalFrames()) / sampleRate() : 0.0;
}

void PlaybackController::setPlaying(bool playing) {
  if (_isPlaying == playing) return;
  _isPlaying = playing;
  if (_listener) _listener->isPlayingChanged(playing);
}

void PlaybackController::setCurrentTime(double seconds) {
  if (_currentTime == seconds) return;
  _currentTime = seconds;
  if (_listener) _listener->currentTimeChanged(seconds);
}

void PlaybackController::bumpGeneration() {
  _mirrors._atomicTransportGeneration.fetch_add(1, std::memory_order_acq_rel);
}

std::vector<std::string> PlaybackController::labelsFor(int deviceChannels) const {
  return _labelProvider ? _labelProvider(deviceChannels) : std::vector<std::string>{};
}

// ---- File and graph -------------------------------------------------------------------------

void PlaybackController::loadSource(std::optional<PlaybackSource> source) {
  _mirrors._isPlayingAtomic.store(false);
  _graph.stopEngine();
  setPlaying(false);
  if (_listener) _listener->displayTimerShouldRun(false);
  _source = source ? std::move(*source) : PlaybackSource{};
  bumpGeneration();
  _mirrors._playbackFrame.store(0);
  _nudgeAnchorFrame = 0;
  setCurrentTime(0.0);
  _selection.reset();
  _mirrors._atomicSelection.publish(nullptr);
  _finalLoudness.reset();
  // The source mirror itself is written by setupEngine, which builds the graph for it.
  if (!_source.buffer) _mirrors._atomicSource.publish(nullptr);
}

bool PlaybackController::setupEngine() {
  if (!_source.buffer) return false;
  PlaybackGraphSetup setup;
  setup.buffer = _source.buffer;
  setup.editMode = _editMode;
  if (_catalog) setup.device = _catalog->selectedDevice();
  setup.manualOutput = _manualOutput;
  setup.routings = _routings;
  setup.playbackRate = _playbackRate;
  setup.preservePitch = _preservePitch;
  setup.loudnessWeights = _source.loudnessWeights;
  setup.speechHistory = _source.speechHistory;
  setup.freqSelection = _freqSelection;
  setup.filterMode = _filterMode;
  const bool built = _graph.setupEngine(setup);
  if (_catalog) _catalog->setDeviceInUse(built && _graph.device() ? _graph.device()->id : std::string());
  return built;
}

void PlaybackController::stopEngine() {
  _graph.stopEngine();
  if (_catalog) _catalog->setDeviceInUse({});
  setPlaying(false);
}

void PlaybackController::rebuildLiveGraphPreservingPlayback() {
  if (!_source.buffer) return;
  const bool wasPlaying = _isPlaying;
  const double time = wasPlaying
                          ? static_cast<double>(_mirrors._playbackFrame.load()) / sampleRate()
                          : _currentTime;
  stopEngine();
  setupEngine();
  seek(time, true);
  if (wasPlaying) play();
}

void PlaybackController::setOutputDevice(std::optional<AudioOutputDevice> device) {
  if (_catalog) _catalog->selectDevice(device);
  const bool wasPlaying = _isPlaying;
  const double time = wasPlaying
                          ? static_cast<double>(_mirrors._playbackFrame.load()) / sampleRate()
                          : _currentTime;
  if (_source.buffer) {
    const int outputs = device ? device->outputChannelCount : 2;
    setupRoutings(_source.buffer->channelCount(), std::max(outputs, 2));
  }
  setupEngine();
  if (wasPlaying) {
    setPlaying(false);
    seek(time, true);
    play();
  }
}

void PlaybackController::setEditMode(bool editMode) {
  if (_editMode == editMode) return;
  _editMode = editMode;
  if (!_source.buffer || !_graph.exists()) return;
  const int fileChannels = _source.buffer->channelCount();
  const int selectedOutputs =
      (_catalog && _catalog->selectedDevice()) ? _catalog->selectedDevice()->outputChannelCount
                                               : _graph.deviceChannels();
  if (editMode) {
    if (selectedOutputs >= 3 && fileChannels <= 2) rebuildLiveGraphPreservingPlayback();
  } else if (_graph.liveGraphChannels() <= 2 && selectedOutputs > 2) {
    rebuildLiveGraphPreservingPlayback();
  }
}

void PlaybackController::swapSourceBuffer(SharedAudioBuffer buffer) {
  if (!buffer) return;
  _source.buffer = buffer;
  auto snapshot = std::make_unique<SourceSnapshot>();
  snapshot->buffer = buffer;
  snapshot->totalFrames = buffer->frameLength();
  snapshot->channelCount = buffer->channelCount();
  snapshot->sampleRate = buffer->sampleRate();
  _mirrors._atomicSource.publish(std::move(snapshot));
  _mirrors._atomicPendingLoudnessReset.store(true);
}

void PlaybackController::waitForRenderToLeave() const {
  // The playing flag was cleared before this fence; the epoch's count is odd while a
  // callback runs. Either no callback is inside now, or the one inside leaves before we go on.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  const std::uint64_t seen = _mirrors.renderEpoch.observe();
  if (seen % 2 == 0) return;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (_mirrors.renderEpoch.observe() == seen && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

void PlaybackController::applySpeechHistory(SharedSpeechHistory history) {
  _source.speechHistory = history;
  _graph.applySpeechHistory(std::move(history));
}

// ---- Transport -------------------------------------------------------------------------------

void PlaybackController::play() {
  if (_isPlaying || !_source.buffer) return;
  const double rate = sampleRate();
  if (_selection) {
    _mirrors._playbackFrame.store(static_cast<FrameCount>(_selection->lowerSec * rate));
  } else if (_mirrors._playbackFrame.load() >= totalFrames()) {
    _mirrors._playbackFrame.store(0);
  }
  _nudgeAnchorFrame = _mirrors._playbackFrame.load();
  if (!_graph.isRunning() && !_graph.start()) {
    _mirrors._isPlayingAtomic.store(false);
    setPlaying(false);
    return;
  }
  bumpGeneration();
  _mirrors._isPlayingAtomic.store(true, std::memory_order_release);
  setPlaying(true);
  if (_listener) _listener->displayTimerShouldRun(true);
}

void PlaybackController::pause() {
  _mirrors._isPlayingAtomic.store(false, std::memory_order_release);
  setPlaying(false);
  if (_listener) _listener->displayTimerShouldRun(false);
  const double rate = sampleRate();
  if (_holdsPlayStart && _nudgeAnchorFrame >= 0 && _nudgeAnchorFrame < totalFrames()) {
    bumpGeneration();
    _mirrors._playbackFrame.store(_nudgeAnchorFrame);
    const double anchorTime = static_cast<double>(_nudgeAnchorFrame) / rate;
    setCurrentTime(anchorTime);
    if (LoudnessProcessor* loudness = _graph.loudnessProcessor()) {
      loudness->setBlockIndex(static_cast<std::int64_t>(anchorTime / 0.1));
    }
  } else if (_source.buffer) {
    // The playhead shows where play will resume, not where the last tick saw it.
    setCurrentTime(static_cast<double>(_mirrors._playbackFrame.load()) / rate);
  }
}

void PlaybackController::stop() {
  _graph.stop();
  _mirrors._isPlayingAtomic.store(false, std::memory_order_release);
  setPlaying(false);
  bumpGeneration();
  _mirrors._playbackFrame.store(0);
  setCurrentTime(0.0);
  if (_listener) _listener->displayTimerShouldRun(false);
  if (LoudnessProcessor* loudness = _graph.loudnessProcessor()) {
    // The stream is stopped: nothing feeds the processor while the main thread ends the pass.
    loudness->flushPartialBlock();
    FinalLoudnessFigures figures{loudness->integratedLUFS(), loudness->truePeakDB(),
                                 loudness->speechGatedLUFS(), loudness->speechPercentage(),
                                 loudness->speechGatedNoiseFloorDBRMS(), loudness->loudnessRange()};
    _finalLoudness = figures;
    if (_listener) _listener->finalLoudnessPublished(figures);
    loudness->reset();
  }
}

void PlaybackController::togglePlayPause() {
  if (_isPlaying) {
    pause();
  } else {
    play();
  }
}

void PlaybackController::seek(double seconds, bool updatesAnchor) {
  const bool wasPlaying = _isPlaying;
  if (wasPlaying) pause();
  const FrameCount frame = std::clamp<FrameCount>(
      static_cast<FrameCount>(seconds * sampleRate()), 0, totalFrames());
  bumpGeneration();
  _mirrors._playbackFrame.store(frame, std::memory_order_release);
  if (updatesAnchor) _nudgeAnchorFrame = frame;
  setCurrentTime(seconds);
  if (_listener) _listener->liveCurvesBroken();
  if (LoudnessProcessor* loudness = _graph.loudnessProcessor()) {
    loudness->setBlockIndex(static_cast<std::int64_t>(seconds / 0.1));
  }
  if (wasPlaying) play();
  if (!_isPlaying && _listener) _listener->stillPlayheadMoved();
}

void PlaybackController::placePlayhead(double seconds) { seek(seconds, true); }

void PlaybackController::skip(double deltaSeconds) {
  placePlayhead(std::clamp(_currentTime + deltaSeconds, 0.0, duration()));
}

bool PlaybackController::setSelection(std::optional<PlaybackSelection> selection) {
  const bool changed = selection != _selection;
  _selection = selection;
  _mirrors._atomicSelection.publish(selection ? std::make_unique<PlaybackSelection>(*selection)
                                              : nullptr);
  return changed;
}

bool PlaybackController::setLooping(bool looping) {
  const bool changed = looping != _isLooping;
  _isLooping = looping;
  _mirrors._atomicIsLooping.store(looping);
  return changed;
}

bool PlaybackController::setPlaybackRate(double rate) {
  rate = limitPlaybackRate(rate);
  if (rate == _playbackRate) return false;
  _playbackRate = rate;
  _graph.updatePlaybackRate(_playbackRate, _preservePitch);
  return true;
}

bool PlaybackController::setPreservePitch(bool preserve) {
  if (preserve == _preservePitch) return false;
  _preservePitch = preserve;
  _graph.updatePlaybackRate(_playbackRate, _preservePitch);
  return true;
}

// ---- Routing, meters, filter ------------------------------------------------------------------

void PlaybackController::setRoutings(ChannelRoutings routings) {
  _routings = std::move(routings);
  _mirrors._atomicRoutings.publish(std::make_unique<RenderRouting>(compileRenderRouting(_routings)));
  syncPhaseAtomics(_routings, _mirrors);
  if (_mirrors._atomicUseIdentityRouting.load() && !_loadInProgress && _graph.exists()) {
    rebuildLiveGraphPreservingPlayback();
  }
}

void PlaybackController::setupRoutings(int fileChannels, int deviceChannels) {
  const std::vector<std::string> labels = labelsFor(deviceChannels);
  setRoutings(defaultRoutings(fileChannels, deviceChannels, labels));
}

void PlaybackController::setMutedSourceChannels(const std::vector<int>& channels) {
  std::uint64_t mask = 0;
  for (int c : channels) {
    if (c >= 0 && c < 64) mask |= std::uint64_t{1} << c;
  }
  _mirrors._atomicMutedChannelMask.store(mask);
}

void PlaybackController::setSlotGain(float linearGain) { _mirrors._atomicSlotGain.store(linearGain); }

void PlaybackController::setFreqFilter(std::optional<FreqRange> selection, FreqFilterMode mode) {
  _freqSelection = selection;
  _filterMode = mode;
  _graph.applyFreqFilter(selection, mode);
}

// ---- Timers ------------------------------------------------------------------------------------

void PlaybackController::displayTick() {
  if (_source.buffer) {
    setCurrentTime(static_cast<double>(_mirrors._playbackFrame.load()) / sampleRate());
  }
  const std::uint64_t ended = _mirrors._atomicEndOfFileGeneration.load(std::memory_order_acquire);
  if (_isPlaying && ended != 0 &&
      ended == _mirrors._atomicTransportGeneration.load(std::memory_order_acquire)) {
    stop();
  }
  housekeeping();
}

void PlaybackController::housekeeping() {
  if (!_graph.poll()) return;
  // The stream is gone: the transport cannot go on playing into nothing.
  _mirrors._isPlayingAtomic.store(false);
  setPlaying(false);
  if (_listener) {
    _listener->displayTimerShouldRun(false);
    _listener->outputDeviceLost();
  }
}

}  // namespace corvane
