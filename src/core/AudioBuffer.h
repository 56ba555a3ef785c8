// AudioBuffer: the one in-memory form of audio in Corvane.
//
// Planar 32-bit float, one contiguous array per channel, 64-bit frame counts. A loaded file
// lives in one AudioBuffer that the session, the render callback and background readers
// share through SharedAudioBuffer. Only the in-place edit road writes into a shared buffer
// (on the main thread, with playback paused); every other change builds a new buffer and
// swaps it in, so readers on other threads never see a half-written edit.
//
// Thread class: construction allocates; every accessor is wait-free and may be called from
// the render callback. The object does not synchronise writes to the samples themselves.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace corvane {

// Frame numbers and counts are signed 64-bit: hours at high rates overflow 32 bits, and
// frame arithmetic (lags, offsets between compared files) legitimately goes below zero.
using FrameCount = std::int64_t;

// Where a channel sits in a speaker layout. The set follows the speaker positions of
// WAVE_FORMAT_EXTENSIBLE, which CAF and FFmpeg layouts map onto; `Unknown` marks a channel
// whose file gave no position (discrete or unlabelled audio).
enum class ChannelPosition : std::uint8_t {
  Unknown,
  FrontLeft,
  FrontRight,
  FrontCenter,
  LowFrequency,
  BackLeft,
  BackRight,
  FrontLeftOfCenter,
  FrontRightOfCenter,
  BackCenter,
  SideLeft,
  SideRight,
  TopCenter,
  TopFrontLeft,
  TopFrontCenter,
  TopFrontRight,
  TopBackLeft,
  TopBackCenter,
  TopBackRight,
  Mono,
};

class AudioBuffer {
 public:
  // Allocates `channelCount` arrays of `frameCapacity` floats each, uninitialised (an hour
  // of stereo is 690 MB; zero-filling it first would double the cost of a load). Arrays of
  // 4 MiB and more are aligned to 2 MiB and offered to the kernel for transparent huge pages:
  // the first write to a fresh page costs more than decoding into it, and a huge page is one
  // fault instead of 512.
  // frameLength() starts at frameCapacity. Throws std::bad_alloc when memory is short and
  // std::invalid_argument for a negative count or a non-positive sample rate.
  static std::shared_ptr<AudioBuffer> create(int channelCount, FrameCount frameCapacity,
                                             double sampleRate);

  // As create(), with every sample 0.
  static std::shared_ptr<AudioBuffer> createZeroed(int channelCount, FrameCount frameCapacity,
                                                   double sampleRate);
  // Takes `channels` (one array per channel, all of one length) as the buffer's arrays without
  // copying a sample: an edit's result becomes the session's buffer without touching another
  // hour's worth of fresh memory. Throws std::invalid_argument when the arrays differ in length
  // or the sample rate is not positive.
  static std::shared_ptr<AudioBuffer> adopt(std::vector<std::vector<float>>&& channels, double sampleRate);

  AudioBuffer(const AudioBuffer&) = delete;
  AudioBuffer& operator=(const AudioBuffer&) = delete;

  int channelCount() const { return static_cast<int>(_channels.size()); }
  double sampleRate() const { return _sampleRate; }

  // Frames allocated per channel.
  FrameCount frameCapacity() const { return _frameCapacity; }
  // Frames that hold audio; at most frameCapacity (a truncated file holds fewer than its
  // header promised).
  FrameCount frameLength() const { return _frameLength; }
  // Clamped into 0 ... frameCapacity.
  void setFrameLength(FrameCount frames);

  float* channel(int index) { return _channelPointers[static_cast<std::size_t>(index)]; }
  const float* channel(int index) const {
    return _channelPointers[static_cast<std::size_t>(index)];
  }
  // One pointer per channel, in channel order; valid for the buffer's lifetime.
  float* const* channels() { return _channelPointers.data(); }
  const float* const* channels() const { return _channelPointers.data(); }

  // Speaker positions by channel; empty when the source gave none. When set, it holds one
  // entry per channel.
  const std::vector<ChannelPosition>& channelPositions() const { return _positions; }
  // Throws std::invalid_argument unless `positions` is empty or has one entry per channel.
  void setChannelPositions(std::vector<ChannelPosition> positions);

  // A deep copy of the first frameLength() frames (capacity = length), positions kept.
  std::shared_ptr<AudioBuffer> clone() const;

  // Reorders the channels without copying samples: channel k takes what was channel
  // sourceOfChannel[k], with its position. `sourceOfChannel` must be a permutation of
  // 0 ... channelCount() - 1, else std::invalid_argument and nothing changes. Channel pointers
  // change, so this is only for a buffer no other thread reads yet (a load in progress).
  void permuteChannels(const std::vector<int>& sourceOfChannel);

 private:
  AudioBuffer(int channelCount, FrameCount frameCapacity, double sampleRate, bool zeroed);
  AudioBuffer(std::vector<std::vector<float>>&& channels, double sampleRate);

  // Channel arrays come from malloc-family allocators (large ones aligned for huge pages), or
  // are adopted arrays, which the deleter owns.
  struct FreeChannel {
    std::vector<float>* adopted = nullptr;
    void operator()(float* data) const noexcept;
  };
  using ChannelStorage = std::unique_ptr<float[], FreeChannel>;
  static ChannelStorage allocateChannel(std::size_t frames, bool zeroed);

  double _sampleRate;
  FrameCount _frameCapacity;
  FrameCount _frameLength;
  std::vector<ChannelStorage> _channels;
  std::vector<float*> _channelPointers;
  std::vector<ChannelPosition> _positions;
};

using SharedAudioBuffer = std::shared_ptr<AudioBuffer>;

}  // namespace corvane
