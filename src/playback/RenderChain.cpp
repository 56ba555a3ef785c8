#include "playback/RenderChain.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/DenormalGuard.h"

namespace corvane {

RenderChain::RenderChain(RenderMirrors& mirrors, const RenderChainSetup& setup)
    : _mirrors(mirrors),
      _graphChannels(std::max(setup.graphChannels, 1)),
      _deviceChannels(std::max(setup.deviceChannels, 1)),
      _fileRate(setup.fileRate),
      _deviceRate(setup.deviceRate),
      _hasEq(setup.hasEq),
      _channelMap(setup.channelMap),
      _timePitch(mirrors.retirer) {
  PlaybackRenderer::Setup rendererSetup;
  rendererSetup.outputChannels = _graphChannels;
  rendererSetup.fileChannels = setup.fileChannels;
  rendererSetup.loudness = setup.loudness;
  rendererSetup.limiter = setup.limiter;
  rendererSetup.speechHandover = setup.speechHandover;
  _renderer = std::make_unique<PlaybackRenderer>(mirrors, rendererSetup);
  _tap = std::make_unique<OutputTap>(_graphChannels);
  if (_deviceRate != _fileRate) {
    _deviceResampler = std::make_unique<StreamResampler>(_graphChannels, _fileRate, _deviceRate);
  }
  _graphStorage.assign(static_cast<std::size_t>(_graphChannels) * kMaxRenderBlockFrames, 0.0f);
  for (int c = 0; c < _graphChannels; ++c) {
    _graphBuffers.push_back(_graphStorage.data() + static_cast<std::size_t>(c) * kMaxRenderBlockFrames);
  }
  _deviceOffsets.assign(static_cast<std::size_t>(_deviceChannels), nullptr);
  if (_channelMap.empty()) {
    for (int d = 0; d < _deviceChannels; ++d) _channelMap.push_back(d < _graphChannels ? d : -1);
  }
  _channelMap.resize(static_cast<std::size_t>(_deviceChannels), -1);
  setPlaybackRate(setup.playbackRate, setup.preservePitch);
}

RenderChain::~RenderChain() = default;

void RenderChain::setPlaybackRate(double rate, bool preservePitch) {
  _timePitch.publish(std::make_unique<TimePitchStage>(_graphChannels, _fileRate, rate, preservePitch));
}

TimePitchStage::Mode RenderChain::timePitchMode() const {
  const TimePitchStage* stage = _timePitch.current();
  return stage ? stage->mode() : TimePitchStage::Mode::bypass;
}

void RenderChain::setProbe(Probe probe, void* context) {
  _probeContext.store(context, std::memory_order_relaxed);
  _probe.store(probe, std::memory_order_release);
}

void RenderChain::pullSource(void* opaque, float* const* out, int frames) noexcept {
  auto* self = static_cast<RenderChain*>(opaque);
  const SourceRenderResult result = self->_renderer->render(out, frames);
  if (result.reachedEnd) {
    if (self->_endGeneration != result.generation) {
      self->_endGeneration = result.generation;
      self->_drainedFrames = 0;
    }
  } else if (result.rendered) {
    self->_endGeneration = 0;
  }
}

void RenderChain::pullGraph(void* opaque, float* const* out, int frames) noexcept {
  static_cast<RenderChain*>(opaque)->renderGraph(out, frames);
}

void RenderChain::renderGraph(float* const* out, int frames) noexcept {
  TimePitchStage* stage = _timePitch.acquire();
  const RenderPull source{&RenderChain::pullSource, this};
  if (stage) {
    stage->process(source, out, frames);
  } else {
    source(out, frames);
  }
  if (_hasEq) {
    if (const FilterSnapshot* eq = _mirrors._atomicEqSpec.acquire()) {
      const int channels = std::min(_graphChannels, static_cast<int>(eq->state.size()));
      for (int c = 0; c < channels; ++c) {
        processBiquadStages(eq->spec, eq->state[static_cast<std::size_t>(c)], out[c], frames);
      }
    }
  }
  if (_mirrors._isPlayingAtomic.load(std::memory_order_relaxed)) _tap->process(out, frames);
}

int RenderChain::tailDeviceFrames(const TimePitchStage* stage) const noexcept {
  double tail = 0.0;
  if (stage && stage->mode() != TimePitchStage::Mode::bypass) tail += stage->tailFrames();
  tail *= _deviceRate / _fileRate;
  if (_deviceResampler) tail += _deviceResampler->delayFrames() + kMaxRenderBlockFrames;
  return static_cast<int>(std::ceil(tail));
}

void RenderChain::render(float* const* deviceOut, int frames) noexcept {
  RenderEpoch::Scope scope(_mirrors.renderEpoch);
  // Decaying filter states would otherwise cost a hundred cycles per denormal sample.
  DenormalGuard denormals;
  const Probe probe = _probe.load(std::memory_order_acquire);
  void* probeContext = _probeContext.load(std::memory_order_relaxed);
  if (probe) probe(probeContext, true);

  int offset = 0;
  while (offset < frames) {
    const int n = std::min(frames - offset, kMaxRenderBlockFrames);
    if (_deviceResampler) {
      _deviceResampler->process(RenderPull{&RenderChain::pullGraph, this}, _graphBuffers.data(), n);
    } else {
      renderGraph(_graphBuffers.data(), n);
    }
    for (int d = 0; d < _deviceChannels; ++d) {
      float* out = deviceOut[d] + offset;
      const int g = _channelMap[static_cast<std::size_t>(d)];
      if (g >= 0 && g < _graphChannels) {
        std::memcpy(out, _graphBuffers[static_cast<std::size_t>(g)], sizeof(float) * static_cast<std::size_t>(n));
      } else {
        std::memset(out, 0, sizeof(float) * static_cast<std::size_t>(n));
      }
    }
    offset += n;
  }

  if (_endGeneration != 0) {
    _drainedFrames += frames;
    if (_drainedFrames >= tailDeviceFrames(_timePitch.acquire())) {
      _mirrors._atomicEndOfFileGeneration.store(_endGeneration, std::memory_order_release);
    }
  }
  if (probe) probe(probeContext, false);
}

}  // namespace corvane
