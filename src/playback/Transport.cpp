#include "playback/Transport.h"

#include <cstdio>

#include "core/ChannelLayout.h"
#include "core/ChannelOrder.h"
#include "playback/AudioDeviceManager.h"

namespace corvane {

Transport::Transport(AudioDeviceManager* devices, QObject* parent)
    : QObject(parent), _devices(devices), _controller(devices ? &devices->catalog() : nullptr, &_listener) {
  _displayTimer.setTimerType(Qt::PreciseTimer);
  _displayTimer.setInterval(kDisplayIntervalMs);
  connect(&_displayTimer, &QTimer::timeout, this, &Transport::onDisplayTimer);
  // Default routings are labelled after the device's layout: "L Out", "R Out", "C Out" ...
  _controller.setOutputLabelProvider([](int deviceChannels) { return ChannelLayout(deviceChannels).channelLabels(); });
  if (_devices) {
    // Retired snapshots are freed, and a lost stream noticed, also while nothing plays.
    connect(_devices, &AudioDeviceManager::rescanned, this, [this] { _controller.housekeeping(); });
  }
}

Transport::~Transport() {
  _controller.setListener(nullptr);
  _controller.stopEngine();
}

void Transport::loadSource(SharedAudioBuffer buffer, SharedSpeechHistory speechHistory) {
  // The controller starts a new file without a selection; a load keeps the user's.
  const OptionalPlaybackSelection selection = _controller.selection();
  std::optional<PlaybackSource> source;
  if (buffer) source = PlaybackSource{buffer, ChannelOrder::bs1770Weights(*buffer), std::move(speechHistory)};
  _controller.loadSource(std::move(source));
  if (selection) _controller.setSelection(selection);
  setDuration(_controller.duration());
}

void Transport::swapSourceBuffer(SharedAudioBuffer buffer) {
  _controller.swapSourceBuffer(std::move(buffer));
  setDuration(_controller.duration());
}

void Transport::setupRoutings(int fileChannels, int deviceChannels) {
  _controller.setupRoutings(fileChannels, deviceChannels);
  emit routingsChanged();
}

bool Transport::setupEngine() {
  const bool built = _controller.setupEngine();
  if (!built && _controller.hasFile()) {
    std::printf("[Playback] no graph for the loaded file: %s\n", _controller.graph().lastError().c_str());
    std::fflush(stdout);
  }
  if (_devices) _devices->publishChanges();
  return built;
}

void Transport::stopEngine() { _controller.stopEngine(); }

void Transport::applySpeechHistory(SharedSpeechHistory history) { _controller.applySpeechHistory(std::move(history)); }

void Transport::setEditMode(bool editMode) { _controller.setEditMode(editMode); }

void Transport::setOutputDevice(std::optional<AudioOutputDevice> device) {
  _controller.setOutputDevice(std::move(device));
  emit routingsChanged();
  if (_devices) _devices->publishChanges();
}

void Transport::play() { _controller.play(); }
void Transport::pause() { _controller.pause(); }
void Transport::stop() { _controller.stop(); }
void Transport::togglePlayPause() { _controller.togglePlayPause(); }
void Transport::seekImpl(double seconds, bool updatesAnchor) { _controller.seek(seconds, updatesAnchor); }
void Transport::placePlayhead(double seconds) { _controller.placePlayhead(seconds); }
void Transport::skip(double deltaSeconds) { _controller.skip(deltaSeconds); }

void Transport::haltForLoad() {
  if (_controller.isPlaying()) _controller.pause();
  runDisplayTimer(false);
}

void Transport::setPlaybackRate(double rate) {
  if (_controller.setPlaybackRate(rate)) emit playbackRateChanged();
}

void Transport::setPreservePitch(bool preserve) {
  if (_controller.setPreservePitch(preserve)) emit preservePitchChanged();
}

void Transport::setSelection(const OptionalPlaybackSelection& selection) {
  // The render side gets the selection every time; observers only when it changed.
  if (_controller.setSelection(selection)) emit selectionChanged();
}

void Transport::setIsLooping(bool looping) {
  if (_controller.setLooping(looping)) emit isLoopingChanged();
}

void Transport::setHoldsPlayStart(bool hold) {
  if (hold == _controller.holdsPlayStart()) return;
  _controller.setHoldsPlayStart(hold);
  emit holdsPlayStartChanged();
}

void Transport::setRoutings(const ChannelRoutings& routings) {
  if (routings == _controller.routings()) return;
  _controller.setRoutings(routings);
  emit routingsChanged();
}

void Transport::setMutedSourceChannels(const QList<int>& channels) {
  if (channels == _mutedSourceChannels) return;
  _mutedSourceChannels = channels;
  _controller.setMutedSourceChannels(std::vector<int>(channels.begin(), channels.end()));
  emit mutedSourceChannelsChanged();
}

void Transport::setFreqSelection(const OptionalFreqRange& selection) {
  if (selection == _controller.freqSelection()) return;
  _controller.setFreqFilter(selection, _controller.filterMode());
  emit freqSelectionChanged();
}

void Transport::setFilterMode(FreqFilterMode mode) {
  if (mode == _controller.filterMode()) return;
  _controller.setFreqFilter(_controller.freqSelection(), mode);
  emit filterModeChanged();
}

void Transport::runDisplayTimer(bool run) {
  if (run) {
    if (!_displayTimer.isActive()) _displayTimer.start();
  } else {
    _displayTimer.stop();
  }
}

void Transport::recoverLostOutput() {
  if (_devices) _devices->refresh();
  setupEngine();
  emit outputDeviceLost();
}

void Transport::onDisplayTimer() {
  _controller.displayTick();
  // The end of the file stopped the transport in this tick: the timer is off and the final
  // loudness figures are out; a meters' tick now would read the processor already reset.
  if (!_controller.isPlaying()) return;
  emit displayTicked();
}

void Transport::setDuration(double seconds) {
  if (seconds == _duration) return;
  _duration = seconds;
  emit durationChanged();
}

}  // namespace corvane
