#include "headless/analysis/SelectionFrames.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace corvane {

namespace {

// Int(seconds × rate) limited to 0 ... frameLength; NaN reads as 0.
FrameCount frameAt(double seconds, double sampleRate, FrameCount frameLength) {
  const double frame = seconds * sampleRate;
  if (!(frame > 0.0)) return 0;
  if (frame >= static_cast<double>(frameLength)) return frameLength;
  return static_cast<FrameCount>(frame);
}

void checkRange(const AudioBuffer& buffer, FrameCount startFrame, FrameCount frameCount) {
  if (buffer.channelCount() < 1) throw std::invalid_argument("The selection has no audio channels.");
  if (startFrame < 0 || frameCount < 1 || startFrame > buffer.frameLength() - frameCount) {
    throw std::invalid_argument("The selection lies outside the audio.");
  }
}

}  // namespace

std::optional<SelectionFrameRange> selectionFrameRange(double lowerSec, double upperSec, double sampleRate,
                                                       FrameCount frameLength) {
  if (frameLength < 1 || !(sampleRate > 0.0)) return std::nullopt;
  SelectionFrameRange r;
  r.startFrame = std::min(frameAt(lowerSec, sampleRate, frameLength), frameLength - 1);
  r.endFrame = frameAt(upperSec, sampleRate, frameLength);
  r.frameCount = std::max<FrameCount>(r.endFrame - r.startFrame, 1);
  r.fullFile = r.startFrame == 0 && r.endFrame >= frameLength;
  return r;
}

std::optional<SelectionFrames> SelectionFrames::capture(const SharedAudioBuffer& buffer, double lowerSec,
                                                        double upperSec) {
  if (buffer == nullptr || buffer->channelCount() < 1) return std::nullopt;
  const auto range = selectionFrameRange(lowerSec, upperSec, buffer->sampleRate(), buffer->frameLength());
  if (!range) return std::nullopt;
  const SecondsRange timeRange{lowerSec, upperSec};
  if (range->fullFile) return sharing(buffer, timeRange, 0, range->frameCount);
  return copying(*buffer, timeRange, range->startFrame, range->frameCount);
}

SelectionFrames SelectionFrames::sharing(SharedAudioBuffer buffer, SecondsRange timeRange, FrameCount startFrame,
                                         FrameCount frameCount) {
  if (buffer == nullptr) throw std::invalid_argument("The selection lies outside the audio.");
  checkRange(*buffer, startFrame, frameCount);
  SelectionFrames f;
  f._timeRange = timeRange;
  f._startFrame = startFrame;
  f._frameCount = frameCount;
  f._channelCount = buffer->channelCount();
  f._sampleRate = buffer->sampleRate();
  f._fullFile = startFrame == 0 && frameCount == buffer->frameLength();
  f._buffer = std::move(buffer);
  return f;
}

SelectionFrames SelectionFrames::copying(const AudioBuffer& buffer, SecondsRange timeRange, FrameCount startFrame,
                                         FrameCount frameCount) {
  checkRange(buffer, startFrame, frameCount);
  SelectionFrames f;
  f._timeRange = timeRange;
  f._startFrame = startFrame;
  f._frameCount = frameCount;
  f._channelCount = buffer.channelCount();
  f._sampleRate = buffer.sampleRate();
  f._fullFile = startFrame == 0 && frameCount == buffer.frameLength();
  f._copies.reserve(static_cast<std::size_t>(buffer.channelCount()));
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* from = buffer.channel(c) + startFrame;
    f._copies.emplace_back(from, from + frameCount);
  }
  return f;
}

std::vector<const float*> SelectionFrames::channelPointers() const {
  std::vector<const float*> pointers;
  pointers.reserve(static_cast<std::size_t>(_channelCount));
  if (_buffer) {
    for (int c = 0; c < _channelCount; ++c) pointers.push_back(_buffer->channel(c) + _startFrame);
  } else {
    for (const std::vector<float>& copy : _copies) pointers.push_back(copy.data());
  }
  return pointers;
}

}  // namespace corvane
