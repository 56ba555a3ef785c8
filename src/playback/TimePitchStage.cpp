#include "playback/TimePitchStage.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "playback/StreamResampler.h"

namespace corvane {

using RubberBand::RubberBandStretcher;

TimePitchStage::Mode TimePitchStage::modeFor(double rate, bool preservePitch) {
  if (rate == 1.0) return Mode::bypass;
  return preservePitch ? Mode::stretch : Mode::varispeed;
}

TimePitchStage::TimePitchStage(int channels, double sampleRate, double rate, bool preservePitch)
    : _mode(modeFor(rate, preservePitch)), _channels(std::max(channels, 1)), _rate(rate) {
  const std::size_t block = kMaxRenderBlockFrames;
  _storage.assign(static_cast<std::size_t>(_channels) * block * 2, 0.0f);
  for (int c = 0; c < _channels; ++c) {
    _input.push_back(_storage.data() + static_cast<std::size_t>(c) * block);
    _discard.push_back(_storage.data() + (static_cast<std::size_t>(_channels + c)) * block);
  }
  _outputOffset.assign(static_cast<std::size_t>(_channels), nullptr);

  if (_mode == Mode::varispeed) {
    _resampler = std::make_unique<StreamResampler>(_channels, sampleRate * rate, sampleRate);
    _tailFrames = static_cast<int>(std::ceil(_resampler->delayFrames())) + kMaxRenderBlockFrames;
  } else if (_mode == Mode::stretch) {
    // Real-time mode, no worker threads (the render thread must not wait on one); the finer
    // engine, which keeps tones clean at the speeds offered.
    const RubberBandStretcher::Options options =
        RubberBandStretcher::OptionProcessRealTime | RubberBandStretcher::OptionThreadingNever |
        RubberBandStretcher::OptionEngineFiner |
        (_channels == 2 ? RubberBandStretcher::OptionChannelsTogether : 0);
    _stretcher = std::make_unique<RubberBandStretcher>(static_cast<size_t>(sampleRate),
                                                       static_cast<size_t>(_channels), options,
                                                       1.0 / rate, 1.0);
    _stretcher->setMaxProcessSize(block);
    // Pad its start with silence so that output frame 0 lines up with input frame 0.
    long pad = static_cast<long>(_stretcher->getPreferredStartPad());
    std::fill(_storage.begin(), _storage.end(), 0.0f);
    while (pad > 0) {
      const long n = std::min<long>(pad, static_cast<long>(block));
      _stretcher->process(_input.data(), static_cast<size_t>(n), false);
      pad -= n;
    }
    _startFramesToDrop = static_cast<long>(_stretcher->getStartDelay());
    _tailFrames = static_cast<int>(_stretcher->getStartDelay()) + kMaxRenderBlockFrames;
  }
}

TimePitchStage::~TimePitchStage() = default;

void TimePitchStage::process(RenderPull source, float* const* out, int frames) noexcept {
  switch (_mode) {
    case Mode::bypass: source(out, frames); return;
    case Mode::varispeed: _resampler->process(source, out, frames); return;
    case Mode::stretch: processStretch(source, out, frames); return;
  }
}

void TimePitchStage::processStretch(RenderPull source, float* const* out, int frames) noexcept {
  int produced = 0;
  // Each turn either drops, delivers or feeds; the bound only guards against a stretcher that
  // stops producing, in which case the rest of the block is silence.
  for (int turn = 0; produced < frames && turn < 256; ++turn) {
    const int available = _stretcher->available();
    if (available > 0 && _startFramesToDrop > 0) {
      const int n = static_cast<int>(std::min<long>({_startFramesToDrop, available, kMaxRenderBlockFrames}));
      _stretcher->retrieve(_discard.data(), static_cast<size_t>(n));
      _startFramesToDrop -= n;
      continue;
    }
    if (available > 0) {
      const int n = std::min(available, frames - produced);
      for (int c = 0; c < _channels; ++c) _outputOffset[static_cast<std::size_t>(c)] = out[c] + produced;
      produced += static_cast<int>(_stretcher->retrieve(_outputOffset.data(), static_cast<size_t>(n)));
      continue;
    }
    std::size_t wanted = _stretcher->getSamplesRequired();
    if (wanted == 0) wanted = 256;
    const int n = static_cast<int>(std::min<std::size_t>(wanted, kMaxRenderBlockFrames));
    source(_input.data(), n);
    _stretcher->process(_input.data(), static_cast<size_t>(n), false);
  }
  if (produced < frames) {
    for (int c = 0; c < _channels; ++c) std::fill(out[c] + produced, out[c] + frames, 0.0f);
  }
}

}  // namespace corvane
