#include "playback/PlaybackRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "playback/RenderPull.h"

namespace corvane {

// --- SpeechHistoryHandover -----------------------------------------------------------------

SpeechHistoryHandover::~SpeechHistoryHandover() {
  delete _offered.exchange(nullptr);
  collect();
}

void SpeechHistoryHandover::offer(SharedSpeechHistory history) {
  auto* parcel = new Parcel{std::move(history), nullptr};
  delete _offered.exchange(parcel, std::memory_order_acq_rel);
  collect();
}

bool SpeechHistoryHandover::collect() {
  Parcel* parcel = _returned.exchange(nullptr, std::memory_order_acquire);
  while (parcel) {
    Parcel* next = parcel->next;
    delete parcel;
    parcel = next;
  }
  return _offered.load(std::memory_order_acquire) != nullptr;
}

void SpeechHistoryHandover::deliver(LoudnessProcessor& processor) noexcept {
  Parcel* parcel = _offered.exchange(nullptr, std::memory_order_acq_rel);
  if (!parcel) return;
  // The parcel goes back carrying the replaced history, so nothing is freed here.
  parcel->history = processor.exchangeSpeechHistory(std::move(parcel->history));
  Parcel* head = _returned.load(std::memory_order_relaxed);
  do {
    parcel->next = head;
  } while (!_returned.compare_exchange_weak(head, parcel, std::memory_order_release,
                                            std::memory_order_relaxed));
}

// --- PlaybackRenderer ----------------------------------------------------------------------

PlaybackRenderer::PlaybackRenderer(RenderMirrors& mirrors, const Setup& setup)
    : _mirrors(mirrors),
      _outputChannels(std::max(setup.outputChannels, 0)),
      _fileChannels(std::max(setup.fileChannels, 0)),
      _loudness(setup.loudness),
      _limiter(setup.limiter),
      _speechHandover(setup.speechHandover) {
  const auto channels = static_cast<std::size_t>(_fileChannels);
  _hilbertShifters.reserve(channels);
  for (std::size_t c = 0; c < channels; ++c) {
    _hilbertShifters.push_back(std::make_unique<HilbertPhaseShifter>());
  }
  _hilbertRef.assign(channels * kHilbertMaxFrames, 0.0f);
  _hilbertQuad.assign(channels * kHilbertMaxFrames, 0.0f);
  _sourcePointers.assign(channels, nullptr);
  _pieceOutputs.assign(static_cast<std::size_t>(_outputChannels), nullptr);
  _sourceRMS = std::make_unique<std::atomic<float>[]>(std::max<std::size_t>(channels, 1));
  for (std::size_t c = 0; c < std::max<std::size_t>(channels, 1); ++c) _sourceRMS[c].store(0.0f);
}

float PlaybackRenderer::sourceRMS(int channel) const noexcept {
  if (channel < 0 || channel >= _fileChannels) return 0.0f;
  return _sourceRMS[static_cast<std::size_t>(channel)].load(std::memory_order_relaxed);
}

void PlaybackRenderer::silence(float* const* outputs, int frames) noexcept {
  for (int o = 0; o < _outputChannels; ++o) {
    if (outputs[o]) std::memset(outputs[o], 0, sizeof(float) * static_cast<std::size_t>(frames));
  }
}

SourceRenderResult PlaybackRenderer::render(float* const* outputs, int frames) noexcept {
  SourceRenderResult result;
  result.generation = _mirrors._atomicTransportGeneration.load(std::memory_order_acquire);
  if (frames <= 0) return result;

  // Histories are handed over even while paused, so that one offered then is in place when
  // play resumes; nothing else is fed then.
  if (_loudness && _speechHandover) _speechHandover->deliver(*_loudness);

  // Blocks of at most kMaxRenderBlockFrames keep every stage inside what it was sized for.
  int offset = 0;
  while (offset < frames) {
    const int n = std::min(frames - offset, kMaxRenderBlockFrames);
    float* const* target = outputs;
    if (offset > 0) {
      for (int o = 0; o < _outputChannels; ++o) {
        _pieceOutputs[static_cast<std::size_t>(o)] = outputs[o] ? outputs[o] + offset : nullptr;
      }
      target = _pieceOutputs.data();
    }
    renderBlock(target, n, result);
    offset += n;
  }
  return result;
}

void PlaybackRenderer::renderBlock(float* const* outputs, int F, SourceRenderResult& result) noexcept {
  RenderMirrors& m = _mirrors;
  if (!m._isPlayingAtomic.load(std::memory_order_acquire)) {
    silence(outputs, F);
    return;
  }

  const SourceSnapshot* source = m._atomicSource.acquire();
  const AudioBuffer* buffer = source ? source->buffer.get() : nullptr;
  const double rate = source ? source->sampleRate : 48000.0;

  if (_loudness && m._atomicPendingLoudnessReset.exchange(false, std::memory_order_acq_rel)) {
    _loudness->resetState();
    const FrameCount frameNow = m._playbackFrame.load(std::memory_order_acquire);
    _loudness->setBlockIndex(static_cast<std::int64_t>(static_cast<double>(frameNow) / (rate * 0.1)));
  }

  const float targetGain = m._atomicTargetMatchEnabled.load(std::memory_order_relaxed)
                               ? m._atomicTargetMatchGain.load(std::memory_order_relaxed)
                               : 1.0f;
  const float slotGain = m._atomicSlotGain.load(std::memory_order_relaxed);
  if (m._atomicPendingTargetMatchReset.exchange(false, std::memory_order_acq_rel) && _limiter) {
    _limiter->reset();
  }

  if (!buffer || source->channelCount < 1) {
    silence(outputs, F);
    return;
  }
  const int C = std::min(source->channelCount, buffer->channelCount());
  const FrameCount total = std::min(source->totalFrames, buffer->frameLength());

  const RenderRouting* routing = m._atomicUseIdentityRouting.load(std::memory_order_relaxed)
                                     ? m._atomicIdentityRoutings.acquire()
                                     : m._atomicRoutings.acquire();

  // Bounds of this pass.
  FrameCount start = 0;
  FrameCount end = total;
  if (const PlaybackSelection* selection = m._atomicSelection.acquire()) {
    start = std::max<FrameCount>(0, static_cast<FrameCount>(selection->lowerSec * rate));
    end = std::min<FrameCount>(total, static_cast<FrameCount>(selection->upperSec * rate));
  }
  const bool looping = m._atomicIsLooping.load(std::memory_order_relaxed);
  FrameCount startedAt = m._playbackFrame.load(std::memory_order_acquire);
  FrameCount frame = std::max(startedAt, start);
  if (frame >= end) {
    if (looping && start < end) {
      frame = start;
    } else {
      silence(outputs, F);
      result.reachedEnd = true;
      return;
    }
  }
  const int n = static_cast<int>(std::min<FrameCount>(end - frame, F));
  result.rendered = true;

  for (int c = 0; c < C && c < _fileChannels; ++c) {
    _sourcePointers[static_cast<std::size_t>(c)] = buffer->channel(c) + frame;
  }

  // Hilbert path.
  const bool hilbert = m._atomicAnyPhaseShift.load(std::memory_order_relaxed) &&
                       n <= kHilbertMaxFrames && C <= _fileChannels &&
                       static_cast<int>(_hilbertShifters.size()) >= C;
  const std::uint64_t quadMask = m._atomicSrcQuadMask.load(std::memory_order_relaxed);
  if (hilbert) {
    for (int c = 0; c < C; ++c) {
      float* ref = _hilbertRef.data() + static_cast<std::size_t>(c) * kHilbertMaxFrames;
      float* quad = (c < 64 && ((quadMask >> c) & 1u))
                        ? _hilbertQuad.data() + static_cast<std::size_t>(c) * kHilbertMaxFrames
                        : nullptr;
      _hilbertShifters[static_cast<std::size_t>(c)]->process(buffer->channel(c) + frame, n, ref, quad);
    }
  }

  // Mix.
  const std::uint64_t muted = m._atomicMutedChannelMask.load(std::memory_order_relaxed);
  const int routedOutputs = routing ? routing->outputCount() : 0;
  for (int o = 0; o < _outputChannels; ++o) {
    float* out = outputs[o];
    if (!out) continue;
    std::memset(out, 0, sizeof(float) * static_cast<std::size_t>(F));
    const RenderRouting::Source* first = nullptr;
    const RenderRouting::Source* last = nullptr;
    RenderRouting::Source ownChannel{o, 1.0f, RoutingPhase::inPhase};
    if (o < routedOutputs) {
      first = routing->sources.data() + routing->firstSource[static_cast<std::size_t>(o)];
      last = routing->sources.data() + routing->firstSource[static_cast<std::size_t>(o) + 1];
    } else if (o < C) {
      first = &ownChannel;
      last = first + 1;
    }
    for (const RenderRouting::Source* s = first; s != last; ++s) {
      const int ch = s->channel;
      if (ch < 0 || ch >= C) continue;
      if (ch < 64 && ((muted >> ch) & 1u)) continue;
      float g = s->gain * slotGain * targetGain;
      if (s->phase == RoutingPhase::minus90 || s->phase == RoutingPhase::invert) g = -g;
      const float* in;
      if (hilbert) {
        // A ±90° slot reads the quadrature row of its channel when one was made for it (the
        // mask names channels below 64), otherwise the reference row.
        const bool quadrature =
            needsQuadrature(s->phase) && ch < 64 && ((quadMask >> ch) & 1u);
        in = (quadrature ? _hilbertQuad : _hilbertRef).data() +
             static_cast<std::size_t>(ch) * kHilbertMaxFrames;
      } else {
        in = buffer->channel(ch) + frame;
      }
      for (int i = 0; i < n; ++i) out[i] += g * in[i];
    }
  }

  // Advance from the frame this call started with; a seek stored meanwhile wins.
  FrameCount next = frame + n;
  if (next >= end && looping) next = start;
  m._playbackFrame.compare_exchange_strong(startedAt, next, std::memory_order_acq_rel,
                                           std::memory_order_relaxed);

  if (_limiter && n >= 1 && m._atomicTargetMatchEnabled.load(std::memory_order_relaxed) &&
      _limiter->channelCount() == _outputChannels) {
    _limiter->process(outputs, n);
  }

  if (const FilterSnapshot* filter = m._atomicFilterSpec.acquire()) {
    const int filtered = std::min(_outputChannels, static_cast<int>(filter->state.size()));
    for (int o = 0; o < filtered; ++o) {
      if (!outputs[o]) continue;
      processBiquadStages(filter->spec, filter->state[static_cast<std::size_t>(o)], outputs[o], F);
    }
  }

  // Analysis feed: the source as it is, before routing, gain and filter.
  if (const AnalysisRings* rings = m._atomicAnalysisRings.acquire()) {
    if (rings->channelCount() == C) {
      for (int c = 0; c < C; ++c) rings->rings[static_cast<std::size_t>(c)]->write(buffer->channel(c) + frame, n);
    }
  }
  if (C <= _fileChannels) {
    if (_loudness && _loudness->channelCount() == C) {
      _loudness->updateTruePeak(_sourcePointers.data(), n);
      _loudness->process(_sourcePointers.data(), n);
    }
    for (int c = 0; c < C; ++c) {
      const float* x = _sourcePointers[static_cast<std::size_t>(c)];
      double sum = 0.0;
      for (int i = 0; i < n; ++i) sum += static_cast<double>(x[i]) * x[i];
      _sourceRMS[static_cast<std::size_t>(c)].store(
          n > 0 ? static_cast<float>(std::sqrt(sum / n)) : 0.0f, std::memory_order_relaxed);
    }
  }
}

}  // namespace corvane
