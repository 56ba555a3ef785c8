// EditStreams: the plumbing that lets one body of code serve an edit in memory and streamed
// to disk. Internal to EditOperations.cpp.
//
// An edit reads its EditSource chunk by chunk and writes its output frames, in order, to a
// FrameSink: channel arrays for the in-memory members, a float WAV for the streaming twins.
// Stateful stages (the loudness and true-peak meters, the limiter) are always fed in blocks
// of a fixed size through a Reblocker, so what they compute never depends on where the
// chunks happen to end; that is what makes the two roads agree bit for bit.
//
// Thread class: one object per thread.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/LoudnessProcessor.h"
#include "core/TruePeakLimiterDSP.h"
#include "headless/edits/EditSource.h"
#include "headless/files/PCMEncoding.h"

namespace corvane {

class AudioFileWriter;

namespace editstreams {

// Where an edit's output goes, in order.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void write(const float* const* channels, FrameCount frames) = 0;
};

// Channel arrays of a known final length, filled front to back.
class ChannelDataSink final : public FrameSink {
 public:
  ChannelDataSink(int channelCount, FrameCount totalFrames);
  void write(const float* const* channels, FrameCount frames) override;
  ChannelData take();

 private:
  ChannelData _data;
  FrameCount _totalFrames;
  FrameCount _position = 0;
};

// A WAV file (RF64 when its data passes 4 GiB) of a known length. Until finish() the file is
// incomplete, and destroying the sink removes it.
class WAVFileSink final : public FrameSink {
 public:
  WAVFileSink(std::filesystem::path url, double sampleRate, int channelCount, std::vector<ChannelPosition> positions,
              FrameCount expectedFrames, PCMEncoding encoding = PCMEncoding::float32);
  ~WAVFileSink() override;
  void write(const float* const* channels, FrameCount frames) override;
  void finish();

 private:
  std::filesystem::path _url;
  std::unique_ptr<AudioFileWriter> _writer;
  bool _finished = false;
};

// Planar scratch of `frames` frames per channel.
class ChunkBuffer {
 public:
  ChunkBuffer(int channelCount, FrameCount frames);
  float* const* pointers() { return _pointers.data(); }
  const float* const* constPointers() const { return _constPointers.data(); }
  float* channel(int c) { return _pointers[static_cast<std::size_t>(c)]; }
  FrameCount capacity() const { return _frames; }
  int channelCount() const { return static_cast<int>(_pointers.size()); }

 private:
  std::vector<float> _samples;
  std::vector<float*> _pointers;
  std::vector<const float*> _constPointers;
  FrameCount _frames;
};

// Pointers offset by `frames`.
class OffsetPointers {
 public:
  OffsetPointers(const float* const* base, int channelCount, FrameCount offset);
  const float* const* get() const { return _pointers.data(); }

 private:
  std::vector<const float*> _pointers;
};

// Visits [start, end) of the source in pieces of at most chunkFrames frames:
// visit(pointers, firstFrame, frames). The pointers look straight into memory sources and
// into `scratch` otherwise; they are valid for the call only.
template <class Visit>
void forEachChunk(EditSource& source, FrameCount start, FrameCount end, FrameCount chunkFrames, ChunkBuffer& scratch,
                  Visit&& visit) {
  for (FrameCount first = start; first < end;) {
    const FrameCount n = std::min(end - first, chunkFrames);
    const float* const* pointers = source.view(first);
    if (pointers == nullptr) {
      source.read(first, n, scratch.pointers());
      pointers = scratch.constPointers();
    }
    visit(pointers, first, n);
    first += n;
  }
}

// Copies [start, end) of the source to the sink.
void copyRange(EditSource& source, FrameSink& sink, FrameCount start, FrameCount end, FrameCount chunkFrames,
               ChunkBuffer& scratch);

// Writes `frames` frames of digital silence.
void writeSilence(FrameSink& sink, FrameCount frames, ChunkBuffer& scratch);

// Cuts arbitrary pieces into blocks of a fixed size.
class Reblocker {
 public:
  Reblocker(int channelCount, FrameCount blockFrames);

  // Appends; onBlock(float* const* block, FrameCount frames) gets every block completed. The
  // block may be changed in place.
  template <class OnBlock>
  void push(const float* const* input, FrameCount frames, OnBlock&& onBlock) {
    FrameCount done = 0;
    while (done < frames) {
      const FrameCount n = std::min(frames - done, _block.capacity() - _filled);
      for (int c = 0; c < _block.channelCount(); ++c) {
        std::copy_n(input[c] + done, n, _block.channel(c) + _filled);
      }
      _filled += n;
      done += n;
      if (_filled == _block.capacity()) {
        onBlock(_block.pointers(), _filled);
        _filled = 0;
      }
    }
  }

  // Hands on the unfinished block, if any.
  template <class OnBlock>
  void flush(OnBlock&& onBlock) {
    if (_filled > 0) onBlock(_block.pointers(), _filled);
    _filled = 0;
  }

 private:
  ChunkBuffer _block;
  FrameCount _filled = 0;
};

// Corvane's true-peak meter (LoudnessProcessor's), fed in whole 0.1 s blocks.
class TruePeakMeter {
 public:
  TruePeakMeter(double sampleRate, int channelCount);
  void push(const float* const* channels, FrameCount frames);
  // Runs the interpolator out and gives the true peak over everything pushed, dBTP.
  double finishDB();

 private:
  LoudnessProcessor _processor;
  Reblocker _reblocker;
};

// Integrated loudness (BS.1770 with the given weights), fed in whole 0.1 s blocks.
class LoudnessMeter {
 public:
  LoudnessMeter(double sampleRate, int channelCount, std::vector<double> channelWeights);
  void push(const float* const* channels, FrameCount frames);
  double finishIntegratedLUFS();

 private:
  LoudnessProcessor _processor;
  Reblocker _reblocker;
};

// Passes frames on to another sink, measuring their true peak on the way, and their
// integrated loudness when given channel weights.
class MeasuringSink final : public FrameSink {
 public:
  MeasuringSink(FrameSink& downstream, double sampleRate, int channelCount,
                const std::vector<double>* loudnessWeights = nullptr);
  void write(const float* const* channels, FrameCount frames) override;
  // After the last write: the true peak (dBTP) and the integrated loudness (LUFS; negative
  // infinity when no weights were given).
  double finishTruePeakDB() { return _truePeak.finishDB(); }
  double finishIntegratedLUFS();

 private:
  FrameSink& _downstream;
  TruePeakMeter _truePeak;
  std::unique_ptr<LoudnessMeter> _loudness;
};

// TruePeakLimiterDSP with its latency removed: exactly `totalFrames` frames come out, each
// lined up with the input frame it was made from. Fed in blocks of 1024 frames.
class LimiterStage {
 public:
  static constexpr float kLookaheadMs = 5.0f;
  static constexpr float kReleaseMs = 50.0f;
  static constexpr int kBlockFrames = 1024;

  LimiterStage(double sampleRate, int channelCount, double ceilingDB, FrameCount totalFrames, FrameSink& out);
  void push(const float* const* channels, FrameCount frames);
  // Pushes the rest of the input out with silence behind it.
  void finish();

 private:
  void processBlock(float* const* block, FrameCount frames);

  TruePeakLimiterDSP _limiter;
  Reblocker _reblocker;
  FrameSink& _out;
  FrameCount _totalFrames;
  FrameCount _toSkip;
  FrameCount _emitted = 0;
};

}  // namespace editstreams
}  // namespace corvane
