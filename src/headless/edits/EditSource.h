// EditSource: the audio an edit reads, wherever it lies.
//
// The edit operations read their input in chunks through this interface, so that one body of
// code serves the three places audio comes from: the session's buffer (the streaming road of
// a file too large to rebuild in memory), the channel arrays of an in-memory rebuild, and a
// file on disk (`corvane process` on a file too large to load, and the intermediate files of
// a chain of streamed edits). Because every operation reads and computes in the same order
// whatever the source, the in-memory and streaming roads give the same samples bit for bit.
//
// A source has a fixed shape: channel count, rate, frame count and speaker positions, in
// Corvane's canonical channel order (a file source puts the file's channels into that order
// as a load does).
//
// Thread class: one source per thread at a time. Sources over memory only borrow it: the
// buffer or the arrays must outlive the source and stay unchanged while it is read.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane {

class AudioFileReader;

// One float array per channel, all of one length: the form in which the rebuilding edit
// operations take and give audio.
using ChannelData = std::vector<std::vector<float>>;

class EditSource {
 public:
  virtual ~EditSource() = default;

  virtual int channelCount() const = 0;
  virtual double sampleRate() const = 0;
  virtual FrameCount frameLength() const = 0;
  // One position per channel, or empty when the source has none.
  virtual std::vector<ChannelPosition> channelPositions() const = 0;

  // Copies frames [start, start + frames) of every channel into out[c][0 ...]. The range must
  // lie inside 0 ... frameLength() (std::out_of_range otherwise). Sources over files throw
  // AudioDecodeError when the file can't be read or ends early.
  virtual void read(FrameCount start, FrameCount frames, float* const* out) = 0;

  // Pointers to frame `start` of every channel when the samples are in memory (no copy
  // needed), else null. Valid while the source lives.
  virtual const float* const* view(FrameCount start) { (void)start; return nullptr; }
};

// The first frameLength() frames of an AudioBuffer.
class BufferEditSource final : public EditSource {
 public:
  explicit BufferEditSource(const AudioBuffer& buffer);
  int channelCount() const override { return _buffer.channelCount(); }
  double sampleRate() const override { return _buffer.sampleRate(); }
  FrameCount frameLength() const override { return _buffer.frameLength(); }
  std::vector<ChannelPosition> channelPositions() const override { return _buffer.channelPositions(); }
  void read(FrameCount start, FrameCount frames, float* const* out) override;
  const float* const* view(FrameCount start) override;

 private:
  const AudioBuffer& _buffer;
  std::vector<const float*> _pointers;
};

// Channel arrays at a sample rate. Throws std::invalid_argument when the arrays differ in
// length or the rate is not positive.
class ChannelDataEditSource final : public EditSource {
 public:
  ChannelDataEditSource(const ChannelData& channelData, double sampleRate,
                        std::vector<ChannelPosition> positions = {});
  int channelCount() const override { return static_cast<int>(_data.size()); }
  double sampleRate() const override { return _sampleRate; }
  FrameCount frameLength() const override { return _frames; }
  std::vector<ChannelPosition> channelPositions() const override { return _positions; }
  void read(FrameCount start, FrameCount frames, float* const* out) override;
  const float* const* view(FrameCount start) override;

 private:
  const ChannelData& _data;
  double _sampleRate;
  FrameCount _frames;
  std::vector<ChannelPosition> _positions;
  std::vector<const float*> _pointers;
};

// An audio file, decoded as a load decodes it (libsndfile, else FFmpeg; channels in canonical
// order). Reading forward is sequential decoding; reading backwards reopens the file, and
// skipping forward decodes and discards. A lossy file, or one whose header gives no exact
// length, is counted by one decoding pass when the source is opened.
//
// Throws AudioDecodeError as AudioFileReader::open does.
class FileEditSource final : public EditSource {
 public:
  explicit FileEditSource(std::filesystem::path url);
  ~FileEditSource() override;

  int channelCount() const override { return _channelCount; }
  double sampleRate() const override { return _sampleRate; }
  FrameCount frameLength() const override { return _frames; }
  std::vector<ChannelPosition> channelPositions() const override { return _positions; }
  void read(FrameCount start, FrameCount frames, float* const* out) override;


 private:
  void reopen();
  // Decodes `frames` frames at the current position into the file-order pointers `into`.
  FrameCount decode(float* const* into, FrameCount frames);

  std::filesystem::path _url;
  std::unique_ptr<AudioFileReader> _reader;
  int _channelCount = 0;
  double _sampleRate = 0.0;
  FrameCount _frames = 0;
  FrameCount _position = 0;
  std::vector<ChannelPosition> _positions;  // canonical order
  std::vector<int> _permutation;            // canonical channel k comes from file channel _permutation[k]
  std::vector<float> _discard;
};

}  // namespace corvane
