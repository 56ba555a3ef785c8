#include "playback/StreamResampler.h"

#include <soxr.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace corvane {

namespace {

constexpr int kInputChunk = 1024;

void pullSilence(void*, float* const* out, int frames) noexcept {
  (void)out;
  (void)frames;
}

}  // namespace

StreamResampler::StreamResampler(int channels, double inputRate, double outputRate)
    : _channels(std::max(channels, 1)) {
  // Interleaved both ways: libsoxr 0.1.3 writes through a null pointer when split-channel
  // buffers meet an input function.
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  _soxr = soxr_create(inputRate, outputRate, static_cast<unsigned>(_channels), &error, &io,
                      &quality, &runtime);
  if (!_soxr || error) {
    if (_soxr) soxr_delete(_soxr);
    throw std::runtime_error(std::string("Couldn't set up the sample-rate converter: ") +
                             soxr_strerror(error));
  }
  _input.assign(static_cast<std::size_t>(_channels) * kInputChunk, 0.0f);
  _interleaved.assign(static_cast<std::size_t>(_channels) * kInputChunk, 0.0f);
  for (int c = 0; c < _channels; ++c) {
    _inputChannels.push_back(_input.data() + static_cast<std::size_t>(c) * kInputChunk);
  }
  _output.assign(static_cast<std::size_t>(_channels) * kMaxRenderBlockFrames, 0.0f);
  error = soxr_set_input_fn(_soxr, reinterpret_cast<soxr_input_fn_t>(&StreamResampler::supplyInput),
                            this, kInputChunk);
  if (error) {
    soxr_delete(_soxr);
    throw std::runtime_error(std::string("Couldn't set up the sample-rate converter: ") +
                             soxr_strerror(error));
  }
  // Let libsoxr size its buffers now, on silence, rather than on the render thread. Its FIFOs
  // grow by reallocation until the read position has moved far enough for a compaction to
  // take the place of growth, which takes some seconds of varied block sizes.
  std::vector<float> scratch(static_cast<std::size_t>(_channels) * kMaxRenderBlockFrames, 0.0f);
  std::vector<float*> scratchChannels;
  for (int c = 0; c < _channels; ++c) {
    scratchChannels.push_back(scratch.data() + static_cast<std::size_t>(c) * kMaxRenderBlockFrames);
  }
  _silentSource = true;
  static constexpr int kPrimingBlocks[] = {64, 256, 1024, kMaxRenderBlockFrames, 333, 2048, 1, 4000};
  for (int round = 0; round < 24; ++round) {
    for (int frames : kPrimingBlocks) {
      process(RenderPull{&pullSilence, nullptr}, scratchChannels.data(), frames);
    }
  }
  _silentSource = false;
}

StreamResampler::~StreamResampler() { soxr_delete(_soxr); }

size_t StreamResampler::supplyInput(void* opaque, const void** data, size_t requested) {
  auto* self = static_cast<StreamResampler*>(opaque);
  const int frames = static_cast<int>(std::min<size_t>(requested, kInputChunk));
  if (self->_silentSource) {
    std::fill(self->_interleaved.begin(), self->_interleaved.end(), 0.0f);
  } else {
    self->_source(self->_inputChannels.data(), frames);
    const int channels = self->_channels;
    float* out = self->_interleaved.data();
    for (int c = 0; c < channels; ++c) {
      const float* in = self->_inputChannels[static_cast<std::size_t>(c)];
      for (int i = 0; i < frames; ++i) out[i * channels + c] = in[i];
    }
  }
  *data = self->_interleaved.data();
  return static_cast<size_t>(frames);
}

void StreamResampler::process(RenderPull source, float* const* out, int frames) noexcept {
  _source = source;
  int done = 0;
  // soxr_output() delivers all it was asked for unless the input ends, which ours never does;
  // the turn limit only guards against a short count.
  for (int turn = 0; done < frames && turn < 64; ++turn) {
    const int want = std::min(frames - done, kMaxRenderBlockFrames);
    const int got = static_cast<int>(soxr_output(_soxr, _output.data(), static_cast<size_t>(want)));
    for (int c = 0; c < _channels; ++c) {
      float* target = out[c] + done;
      for (int i = 0; i < got; ++i) target[i] = _output[static_cast<std::size_t>(i * _channels + c)];
    }
    done += got;
  }
  if (done < frames) {
    for (int c = 0; c < _channels; ++c) std::fill(out[c] + done, out[c] + frames, 0.0f);
  }
}

double StreamResampler::delayFrames() const { return soxr_delay(_soxr); }

}  // namespace corvane
