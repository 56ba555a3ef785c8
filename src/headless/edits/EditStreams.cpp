#include "headless/edits/EditStreams.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "core/Decibels.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"

namespace corvane::editstreams {

// ---- ChannelDataSink -----------------------------------------------------------------------

// Reserved, not sized: filling a sized vector would write every sample twice.
ChannelDataSink::ChannelDataSink(int channelCount, FrameCount totalFrames)
    : _data(static_cast<std::size_t>(channelCount)), _totalFrames(totalFrames) {
  for (auto& channel : _data) channel.reserve(static_cast<std::size_t>(totalFrames));
}

void ChannelDataSink::write(const float* const* channels, FrameCount frames) {
  if (frames < 0 || frames > _totalFrames - _position) throw std::logic_error("An edit wrote more frames than it announced.");
  for (std::size_t c = 0; c < _data.size(); ++c) _data[c].insert(_data[c].end(), channels[c], channels[c] + frames);
  _position += frames;
}

ChannelData ChannelDataSink::take() {
  if (_position != _totalFrames) throw std::logic_error("An edit wrote fewer frames than it announced.");
  return std::move(_data);
}

// ---- WAVFileSink ---------------------------------------------------------------------------

WAVFileSink::WAVFileSink(std::filesystem::path url, double sampleRate, int channelCount,
                         std::vector<ChannelPosition> positions, FrameCount expectedFrames, PCMEncoding encoding)
    : _url(std::move(url)) {
  AudioStreamFormat format;
  format.sampleRate = sampleRate;
  format.channelCount = channelCount;
  if (static_cast<int>(positions.size()) == channelCount) format.channelPositions = std::move(positions);
  PCMWriteSettings settings = PCMWriteSettings::make(AudioContainer::wav, format, encoding);
  settings.expectedFrames = expectedFrames;
  _writer = AudioFileWriter::create(_url, settings);
}

WAVFileSink::~WAVFileSink() {
  if (_finished) return;
  _writer.reset();
  std::error_code ignored;
  std::filesystem::remove(_url, ignored);
}

void WAVFileSink::write(const float* const* channels, FrameCount frames) { _writer->write(channels, frames); }

void WAVFileSink::finish() {
  _writer->finish();
  _writer.reset();
  _finished = true;
}

// ---- Chunks --------------------------------------------------------------------------------

ChunkBuffer::ChunkBuffer(int channelCount, FrameCount frames)
    : _samples(static_cast<std::size_t>(std::max(channelCount, 0)) * static_cast<std::size_t>(std::max<FrameCount>(frames, 0))),
      _pointers(static_cast<std::size_t>(std::max(channelCount, 0))),
      _constPointers(_pointers.size()),
      _frames(frames) {
  for (std::size_t c = 0; c < _pointers.size(); ++c) {
    _pointers[c] = _samples.data() + c * static_cast<std::size_t>(frames);
    _constPointers[c] = _pointers[c];
  }
}

OffsetPointers::OffsetPointers(const float* const* base, int channelCount, FrameCount offset)
    : _pointers(static_cast<std::size_t>(channelCount)) {
  for (int c = 0; c < channelCount; ++c) _pointers[static_cast<std::size_t>(c)] = base[c] + offset;
}

void copyRange(EditSource& source, FrameSink& sink, FrameCount start, FrameCount end, FrameCount chunkFrames,
               ChunkBuffer& scratch) {
  forEachChunk(source, start, end, chunkFrames, scratch,
               [&](const float* const* pointers, FrameCount, FrameCount n) { sink.write(pointers, n); });
}

void writeSilence(FrameSink& sink, FrameCount frames, ChunkBuffer& scratch) {
  for (int c = 0; c < scratch.channelCount(); ++c) std::fill_n(scratch.channel(c), scratch.capacity(), 0.0f);
  for (FrameCount done = 0; done < frames;) {
    const FrameCount n = std::min(frames - done, scratch.capacity());
    sink.write(scratch.constPointers(), n);
    done += n;
  }
}

Reblocker::Reblocker(int channelCount, FrameCount blockFrames) : _block(channelCount, blockFrames) {}

// ---- Meters --------------------------------------------------------------------------------

TruePeakMeter::TruePeakMeter(double sampleRate, int channelCount)
    : _processor(sampleRate, channelCount), _reblocker(channelCount, _processor.blockFrameCount()) {}

void TruePeakMeter::push(const float* const* channels, FrameCount frames) {
  _reblocker.push(channels, frames, [&](float* const* block, FrameCount n) { _processor.updateTruePeak(block, n); });
}

double TruePeakMeter::finishDB() {
  _reblocker.flush([&](float* const* block, FrameCount n) { _processor.updateTruePeak(block, n); });
  _processor.flushPartialBlock();
  return _processor.truePeakDB();
}

LoudnessMeter::LoudnessMeter(double sampleRate, int channelCount, std::vector<double> channelWeights)
    : _processor(sampleRate, channelCount, nullptr, std::move(channelWeights)),
      _reblocker(channelCount, _processor.blockFrameCount()) {}

void LoudnessMeter::push(const float* const* channels, FrameCount frames) {
  _reblocker.push(channels, frames, [&](float* const* block, FrameCount n) { _processor.process(block, n); });
}

double LoudnessMeter::finishIntegratedLUFS() {
  _reblocker.flush([&](float* const* block, FrameCount n) { _processor.process(block, n); });
  _processor.flushPartialBlock();
  return _processor.integratedLUFS();
}

MeasuringSink::MeasuringSink(FrameSink& downstream, double sampleRate, int channelCount,
                             const std::vector<double>* loudnessWeights)
    : _downstream(downstream), _truePeak(sampleRate, channelCount) {
  if (loudnessWeights) _loudness = std::make_unique<LoudnessMeter>(sampleRate, channelCount, *loudnessWeights);
}

void MeasuringSink::write(const float* const* channels, FrameCount frames) {
  _truePeak.push(channels, frames);
  if (_loudness) _loudness->push(channels, frames);
  _downstream.write(channels, frames);
}

double MeasuringSink::finishIntegratedLUFS() {
  return _loudness ? _loudness->finishIntegratedLUFS() : -std::numeric_limits<double>::infinity();
}

// ---- LimiterStage --------------------------------------------------------------------------

LimiterStage::LimiterStage(double sampleRate, int channelCount, double ceilingDB, FrameCount totalFrames,
                           FrameSink& out)
    : _limiter(sampleRate, channelCount, static_cast<float>(ceilingDB), kLookaheadMs, kReleaseMs, kBlockFrames),
      _reblocker(channelCount, kBlockFrames),
      _out(out),
      _totalFrames(totalFrames),
      _toSkip(_limiter.latencyFrames()) {}

void LimiterStage::processBlock(float* const* block, FrameCount frames) {
  _limiter.process(block, static_cast<int>(frames));
  // The limiter's first latencyFrames() output frames are the silence its delay line started
  // with; after them, output frame k is input frame k.
  const FrameCount skip = std::min(_toSkip, frames);
  _toSkip -= skip;
  const FrameCount keep = std::min(frames - skip, _totalFrames - _emitted);
  if (keep <= 0) return;
  const OffsetPointers from(block, _limiter.channelCount(), skip);
  _out.write(from.get(), keep);
  _emitted += keep;
}

void LimiterStage::push(const float* const* channels, FrameCount frames) {
  _reblocker.push(channels, frames, [&](float* const* block, FrameCount n) { processBlock(block, n); });
}

void LimiterStage::finish() {
  _reblocker.flush([&](float* const* block, FrameCount n) { processBlock(block, n); });
  ChunkBuffer silence(_limiter.channelCount(), kBlockFrames);
  while (_emitted < _totalFrames) {
    // The limiter works in place, so the block holds delayed audio after each call.
    for (int c = 0; c < silence.channelCount(); ++c) std::fill_n(silence.channel(c), kBlockFrames, 0.0f);
    processBlock(silence.pointers(), kBlockFrames);
  }
}

}  // namespace corvane::editstreams
