#include "headless/edits/EditSource.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "core/ChannelOrder.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileReader.h"

namespace corvane {
namespace {

void checkRange(FrameCount start, FrameCount frames, FrameCount length) {
  if (start < 0 || frames < 0 || start > length || frames > length - start) {
    throw std::out_of_range("An edit read frames outside its source.");
  }
}

}  // namespace

// ---- BufferEditSource ----------------------------------------------------------------------

BufferEditSource::BufferEditSource(const AudioBuffer& buffer)
    : _buffer(buffer), _pointers(static_cast<std::size_t>(buffer.channelCount())) {}

void BufferEditSource::read(FrameCount start, FrameCount frames, float* const* out) {
  checkRange(start, frames, frameLength());
  for (int c = 0; c < channelCount(); ++c) {
    std::memcpy(out[c], _buffer.channel(c) + start, static_cast<std::size_t>(frames) * sizeof(float));
  }
}

const float* const* BufferEditSource::view(FrameCount start) {
  checkRange(start, 0, frameLength());
  for (int c = 0; c < channelCount(); ++c) _pointers[static_cast<std::size_t>(c)] = _buffer.channel(c) + start;
  return _pointers.data();
}

// ---- ChannelDataEditSource -----------------------------------------------------------------

ChannelDataEditSource::ChannelDataEditSource(const ChannelData& channelData, double sampleRate,
                                             std::vector<ChannelPosition> positions)
    : _data(channelData),
      _sampleRate(sampleRate),
      _frames(channelData.empty() ? 0 : static_cast<FrameCount>(channelData.front().size())),
      _positions(std::move(positions)),
      _pointers(channelData.size()) {
  if (!(sampleRate > 0.0)) throw std::invalid_argument("An edit needs a positive sample rate.");
  for (const auto& channel : channelData) {
    if (static_cast<FrameCount>(channel.size()) != _frames) {
      throw std::invalid_argument("The channels of an edit must all have the same length.");
    }
  }
  if (!_positions.empty() && _positions.size() != channelData.size()) _positions.clear();
}

void ChannelDataEditSource::read(FrameCount start, FrameCount frames, float* const* out) {
  checkRange(start, frames, _frames);
  for (std::size_t c = 0; c < _data.size(); ++c) {
    std::memcpy(out[c], _data[c].data() + start, static_cast<std::size_t>(frames) * sizeof(float));
  }
}

const float* const* ChannelDataEditSource::view(FrameCount start) {
  checkRange(start, 0, _frames);
  for (std::size_t c = 0; c < _data.size(); ++c) _pointers[c] = _data[c].data() + start;
  return _pointers.data();
}

// ---- FileEditSource ------------------------------------------------------------------------

FileEditSource::FileEditSource(std::filesystem::path url) : _url(std::move(url)) {
  reopen();
  _channelCount = _reader->channelCount();
  _sampleRate = _reader->sampleRate();
  if (_channelCount < 1 || !(_sampleRate > 0.0)) throw AudioError(AudioError::Kind::formatNotSupported);
  const auto& filePositions = _reader->channelPositions();
  _permutation = ChannelOrder::canonicalPermutation(filePositions);
  if (_permutation.empty()) {
    _positions = filePositions;
  } else {
    _positions.resize(_permutation.size());
    for (std::size_t k = 0; k < _permutation.size(); ++k) {
      _positions[k] = filePositions[static_cast<std::size_t>(_permutation[k])];
    }
  }
  if (_reader->lengthIsExact() && _reader->pcmEncoding()) {
    _frames = _reader->length();
  } else {
    // Estimated lengths (streams without a frame count) and the lengths of lossy streams
    // (whose headers count encoder padding that decoders drop, or don't) are counted once, so
    // that every operation knows its result's length before it writes the first frame.
    std::vector<float> scratch(static_cast<std::size_t>(_channelCount) * 65536);
    std::vector<float*> pointers(static_cast<std::size_t>(_channelCount));
    for (int c = 0; c < _channelCount; ++c) pointers[static_cast<std::size_t>(c)] = scratch.data() + static_cast<std::size_t>(c) * 65536;
    FrameCount counted = 0;
    for (FrameCount got; (got = _reader->read(pointers.data(), 65536)) > 0;) counted += got;
    _frames = counted;
    reopen();
  }
}

FileEditSource::~FileEditSource() = default;

void FileEditSource::reopen() {
  _reader = AudioFileReader::open(_url);
  _position = 0;
}

FrameCount FileEditSource::decode(float* const* into, FrameCount frames) {
  FrameCount done = 0;
  std::vector<float*> offset(static_cast<std::size_t>(_channelCount));
  while (done < frames) {
    for (int c = 0; c < _channelCount; ++c) offset[static_cast<std::size_t>(c)] = into[c] + done;
    const FrameCount got = _reader->read(offset.data(), frames - done);
    if (got <= 0) break;
    done += got;
  }
  _position += done;
  return done;
}

void FileEditSource::read(FrameCount start, FrameCount frames, float* const* out) {
  checkRange(start, frames, _frames);
  if (start < _position) reopen();
  if (start > _position) {
    constexpr FrameCount kSkip = 65536;
    _discard.resize(static_cast<std::size_t>(_channelCount) * kSkip);
    std::vector<float*> pointers(static_cast<std::size_t>(_channelCount));
    for (int c = 0; c < _channelCount; ++c) pointers[static_cast<std::size_t>(c)] = _discard.data() + static_cast<std::size_t>(c) * kSkip;
    while (_position < start) {
      const FrameCount want = std::min(kSkip, start - _position);
      if (decode(pointers.data(), want) < want) break;
    }
  }
  // File channel i lands in the output of the canonical channel that takes it.
  std::vector<float*> into(static_cast<std::size_t>(_channelCount));
  for (int k = 0; k < _channelCount; ++k) {
    const int fileChannel = _permutation.empty() ? k : _permutation[static_cast<std::size_t>(k)];
    into[static_cast<std::size_t>(fileChannel)] = out[k];
  }
  if (_position != start || decode(into.data(), frames) < frames) {
    throw AudioDecodeError("The audio of " + _url.filename().string() + " ended before its header said it would.");
  }
}

}  // namespace corvane
