#include "playback/PlaybackGraph.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace corvane {

PlaybackGraph::PlaybackGraph(RenderMirrors& mirrors) : _mirrors(mirrors) {}

PlaybackGraph::~PlaybackGraph() { stopEngine(); }

bool PlaybackGraph::setupEngine(const PlaybackGraphSetup& setup) {
  stopEngine();
  _lastError.clear();
  const SharedAudioBuffer& buffer = setup.buffer;
  if (!buffer || buffer->channelCount() < 1) {
    _lastError = "no audio loaded";
    return false;
  }
  const int fileChannels = buffer->channelCount();
  _fileRate = buffer->sampleRate();

  // The output: a manual one, the selected device, or the default of the backends.
  _manual = setup.manualOutput.has_value();
  _device.reset();
  int deviceOutputs = 2;
  if (_manual) {
    deviceOutputs = std::max(setup.manualOutput->channels, 1);
  } else {
    _device = setup.device;
    if (!_device) {
      AudioDeviceCatalog defaults;
      _device = defaults.defaultOutputDevice();
    }
    if (!_device) {
      _lastError = "no output device";
      return false;
    }
    deviceOutputs = _device->outputChannelCount;
  }
  _deviceChannels = std::max(2, deviceOutputs);

  // Shape.
  _identityRouting = false;
  if (!setup.editMode || fileChannels > 2) {
    _stereoGraph = _deviceChannels <= 2;
  } else {
    _stereoGraph = true;
    _identityRouting = _deviceChannels >= 3;
  }
  const int graphChannels = _stereoGraph ? 2 : _deviceChannels;
  _channelMap.clear();
  if (_identityRouting) {
    _channelMap = editModeChannelMap(setup.routings, _deviceChannels, fileChannels);
    _mirrors._atomicIdentityRoutings.publish(
        std::make_unique<RenderRouting>(compileRenderRouting(editModeIdentityRoutings(fileChannels))));
  }
  _mirrors._atomicUseIdentityRouting.store(_identityRouting);

  // Source mirrors.
  auto source = std::make_unique<SourceSnapshot>();
  source->buffer = buffer;
  source->totalFrames = buffer->frameLength();
  source->channelCount = fileChannels;
  source->sampleRate = _fileRate;
  _mirrors._atomicSource.publish(std::move(source));

  // Target match starts cleared.
  _mirrors._atomicTargetMatchEnabled.store(false);
  _mirrors._atomicTargetMatchGain.store(1.0f);
  _mirrors._atomicPendingTargetMatchReset.store(false);

  try {
    _limiter = std::make_unique<TruePeakLimiterDSP>(_fileRate, graphChannels, kLimiterCeilingDB,
                                                    kLimiterLookaheadMs, kLimiterReleaseMs,
                                                    kMaxRenderBlockFrames);
    _loudness = std::make_unique<LoudnessProcessor>(_fileRate, fileChannels, setup.speechHistory,
                                                    setup.loudnessWeights);
    _speechHandover = std::make_unique<SpeechHistoryHandover>();

    // The stream first: its rate decides whether the chain converts to the device's rate.
    double deviceRate = _fileRate;
    int streamChannels = _deviceChannels;
    if (!_manual) {
      _stream = std::make_unique<AudioOutputStream>();
      AudioOutputStream::Params params;
      params.device = *_device;
      // The two-channel graph on a narrow device opens two channels (one on a mono device);
      // with a channel map, all of the device's.
      params.channels = (_stereoGraph && !_identityRouting) ? 2 : _deviceChannels;
      params.preferredRate = _fileRate;
      params.clientName = setup.clientName;
      _stream->open(params, &PlaybackGraph::renderFromStream, this);
      deviceRate = _stream->sampleRate();
      streamChannels = _stream->channels();
    } else {
      deviceRate = setup.manualOutput->sampleRate;
      streamChannels = deviceOutputs;
    }

    RenderChainSetup chainSetup;
    chainSetup.graphChannels = graphChannels;
    chainSetup.fileChannels = fileChannels;
    chainSetup.fileRate = _fileRate;
    chainSetup.deviceChannels = streamChannels;
    chainSetup.deviceRate = deviceRate;
    chainSetup.hasEq = _stereoGraph;
    chainSetup.channelMap = _channelMap;
    chainSetup.playbackRate = setup.playbackRate;
    chainSetup.preservePitch = setup.preservePitch;
    chainSetup.loudness = _loudness.get();
    chainSetup.limiter = _limiter.get();
    chainSetup.speechHandover = _speechHandover.get();
    _chain = std::make_unique<RenderChain>(_mirrors, chainSetup);
    _outputChannels = streamChannels;
  } catch (const std::exception& error) {
    _lastError = error.what();
    std::printf("[Playback] couldn't build the audio graph: %s\n", error.what());
    std::fflush(stdout);
    stopEngine();
    return false;
  }
  applyFreqFilter(setup.freqSelection, setup.filterMode);
  _reportedLoss = false;
  return true;
}

void PlaybackGraph::stopEngine() {
  if (_stream) {
    _stream->close();
    _stream.reset();
  }
  if (_manual) {
    _manualRunning.store(false, std::memory_order_seq_cst);
    while (_manualInside.load(std::memory_order_seq_cst)) std::this_thread::yield();
  }
  _mirrors._isPlayingAtomic.store(false);
  _chain.reset();
  _speechHandover.reset();
  _loudness.reset();
  _limiter.reset();
  _mirrors.collectRetired();
}

bool PlaybackGraph::start() {
  if (!_chain) return false;
  if (_manual) {
    _manualRunning.store(true, std::memory_order_seq_cst);
    return true;
  }
  return _stream && _stream->start();
}

void PlaybackGraph::stop() {
  if (_manual) {
    // After this no render is under way and none starts: the main thread may then use the
    // feeding side of the loudness processor.
    _manualRunning.store(false, std::memory_order_seq_cst);
    while (_manualInside.load(std::memory_order_seq_cst)) std::this_thread::yield();
    return;
  }
  if (_stream) _stream->stop();
}

bool PlaybackGraph::isRunning() const {
  if (!_chain) return false;
  if (_manual) return _manualRunning.load();
  return _stream && _stream->isRunning();
}

void PlaybackGraph::updatePlaybackRate(double rate, bool preservePitch) {
  if (!_chain) return;
  try {
    _chain->setPlaybackRate(rate, preservePitch);
  } catch (const std::exception& error) {
    std::printf("[Playback] couldn't change the speed: %s\n", error.what());
    std::fflush(stdout);
  }
}

void PlaybackGraph::applyFreqFilter(std::optional<FreqRange> selection, FreqFilterMode mode) {
  const double fs = _chain ? _fileRate : 48000.0;
  if (!selection) {
    _mirrors._atomicEqSpec.publish(nullptr);
    _mirrors._atomicFilterSpec.publish(nullptr);
    return;
  }
  if (_chain && _stereoGraph) {
    _mirrors._atomicEqSpec.publish(
        std::make_unique<FilterSnapshot>(makeEqFilterSpec(*selection, mode, fs), 2));
    _mirrors._atomicFilterSpec.publish(nullptr);
  } else {
    _mirrors._atomicEqSpec.publish(nullptr);
    _mirrors._atomicFilterSpec.publish(std::make_unique<FilterSnapshot>(
        makeCallbackFilterSpec(*selection, mode, fs), std::max(liveGraphChannels(), 1)));
  }
}

void PlaybackGraph::applySpeechHistory(SharedSpeechHistory history) {
  if (!_loudness) return;
  if (isRunning()) {
    _speechHandover->offer(std::move(history));
  } else {
    // Nothing feeds the processor while the stream is stopped.
    _loudness->exchangeSpeechHistory(std::move(history));
  }
}

void PlaybackGraph::renderManual(float* const* out, int frames) noexcept {
  _manualInside.store(true, std::memory_order_seq_cst);
  if (_manualRunning.load(std::memory_order_seq_cst) && _chain) {
    _chain->render(out, frames);
  } else {
    for (int c = 0; c < _outputChannels; ++c) std::fill(out[c], out[c] + frames, 0.0f);
  }
  _manualInside.store(false, std::memory_order_release);
}

void PlaybackGraph::renderFromStream(void* opaque, float* const* out, int channels,
                                     int frames) noexcept {
  auto* self = static_cast<PlaybackGraph*>(opaque);
  (void)channels;
  self->_chain->render(out, frames);
}

bool PlaybackGraph::poll() {
  _mirrors.collectRetired();
  if (_speechHandover) _speechHandover->collect();
  if (_stream && !_reportedLoss && _stream->deviceLost()) {
    _reportedLoss = true;
    return true;
  }
  return false;
}

}  // namespace corvane
