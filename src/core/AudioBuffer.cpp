#include "core/AudioBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace corvane {

AudioBuffer::AudioBuffer(int channelCount, FrameCount frameCapacity, double sampleRate, bool zeroed)
    : _sampleRate(sampleRate), _frameCapacity(frameCapacity), _frameLength(frameCapacity) {
  if (channelCount < 0 || frameCapacity < 0) {
    throw std::invalid_argument("AudioBuffer: negative channel or frame count");
  }
  if (!(sampleRate > 0.0)) {
    throw std::invalid_argument("AudioBuffer: sample rate must be positive");
  }
  _channels.reserve(static_cast<std::size_t>(channelCount));
  _channelPointers.reserve(static_cast<std::size_t>(channelCount));
  const auto frames = static_cast<std::size_t>(frameCapacity);
  for (int c = 0; c < channelCount; ++c) {
    // At least one float, so that every channel pointer is valid even for an empty buffer.
    auto data = allocateChannel(std::max<std::size_t>(frames, 1), zeroed);
    _channelPointers.push_back(data.get());
    _channels.push_back(std::move(data));
  }
}

AudioBuffer::AudioBuffer(std::vector<std::vector<float>>&& channels, double sampleRate)
    : _sampleRate(sampleRate),
      _frameCapacity(channels.empty() ? 0 : static_cast<FrameCount>(channels.front().size())),
      _frameLength(_frameCapacity) {
  if (!(sampleRate > 0.0)) {
    throw std::invalid_argument("AudioBuffer: sample rate must be positive");
  }
  for (const auto& channel : channels) {
    if (static_cast<FrameCount>(channel.size()) != _frameCapacity) {
      throw std::invalid_argument("AudioBuffer: adopted channels must all have the same length");
    }
  }
  _channels.reserve(channels.size());
  _channelPointers.reserve(channels.size());
  for (auto& channel : channels) {
    auto owned = std::make_unique<std::vector<float>>(std::move(channel));
    owned->reserve(1);  // every channel pointer valid, even for an empty buffer
    float* data = owned->data();
    _channels.emplace_back(data, FreeChannel{owned.release()});
    _channelPointers.push_back(data);
  }
}

void AudioBuffer::FreeChannel::operator()(float* data) const noexcept {
  if (adopted) {
    delete adopted;
    return;
  }
  std::free(data);
}

AudioBuffer::ChannelStorage AudioBuffer::allocateChannel(std::size_t frames, bool zeroed) {
  constexpr std::size_t kHugePage = std::size_t{2} << 20;
  if (frames > SIZE_MAX / sizeof(float) - kHugePage) throw std::bad_alloc();
  const std::size_t bytes = frames * sizeof(float);
  void* data = nullptr;
  if (bytes >= 2 * kHugePage) {
    const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    data = std::aligned_alloc(kHugePage, rounded);
    if (data) {
      ::madvise(data, rounded, MADV_HUGEPAGE);  // advice only: without THP nothing changes
      if (zeroed) std::memset(data, 0, bytes);
    }
  } else {
    data = zeroed ? std::calloc(frames, sizeof(float)) : std::malloc(bytes);
  }
  if (!data) throw std::bad_alloc();
  return ChannelStorage(static_cast<float*>(data));
}

std::shared_ptr<AudioBuffer> AudioBuffer::create(int channelCount, FrameCount frameCapacity,
                                                 double sampleRate) {
  return std::shared_ptr<AudioBuffer>(new AudioBuffer(channelCount, frameCapacity, sampleRate, false));
}

std::shared_ptr<AudioBuffer> AudioBuffer::createZeroed(int channelCount, FrameCount frameCapacity,
                                                       double sampleRate) {
  return std::shared_ptr<AudioBuffer>(new AudioBuffer(channelCount, frameCapacity, sampleRate, true));
}

std::shared_ptr<AudioBuffer> AudioBuffer::adopt(std::vector<std::vector<float>>&& channels, double sampleRate) {
  return std::shared_ptr<AudioBuffer>(new AudioBuffer(std::move(channels), sampleRate));
}

void AudioBuffer::setFrameLength(FrameCount frames) {
  _frameLength = std::clamp<FrameCount>(frames, 0, _frameCapacity);
}

void AudioBuffer::setChannelPositions(std::vector<ChannelPosition> positions) {
  if (!positions.empty() && positions.size() != _channels.size()) {
    throw std::invalid_argument("AudioBuffer: one position per channel");
  }
  _positions = std::move(positions);
}

void AudioBuffer::permuteChannels(const std::vector<int>& sourceOfChannel) {
  const int count = channelCount();
  if (static_cast<int>(sourceOfChannel.size()) != count) {
    throw std::invalid_argument("AudioBuffer: a permutation needs one entry per channel");
  }
  std::vector<bool> seen(static_cast<std::size_t>(count), false);
  for (int source : sourceOfChannel) {
    if (source < 0 || source >= count || seen[static_cast<std::size_t>(source)]) {
      throw std::invalid_argument("AudioBuffer: not a permutation of the channels");
    }
    seen[static_cast<std::size_t>(source)] = true;
  }
  std::vector<ChannelStorage> channels(static_cast<std::size_t>(count));
  std::vector<ChannelPosition> positions;
  for (int k = 0; k < count; ++k) {
    const auto source = static_cast<std::size_t>(sourceOfChannel[static_cast<std::size_t>(k)]);
    channels[static_cast<std::size_t>(k)] = std::move(_channels[source]);
    if (!_positions.empty()) positions.push_back(_positions[source]);
  }
  _channels = std::move(channels);
  for (int k = 0; k < count; ++k) {
    _channelPointers[static_cast<std::size_t>(k)] = _channels[static_cast<std::size_t>(k)].get();
  }
  if (!_positions.empty()) _positions = std::move(positions);
}

std::shared_ptr<AudioBuffer> AudioBuffer::clone() const {
  auto copy = create(channelCount(), _frameLength, _sampleRate);
  for (int c = 0; c < channelCount(); ++c) {
    std::memcpy(copy->channel(c), channel(c), static_cast<std::size_t>(_frameLength) * sizeof(float));
  }
  copy->_positions = _positions;
  return copy;
}

}  // namespace corvane
