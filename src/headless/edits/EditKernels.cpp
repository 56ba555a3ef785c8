#include "headless/edits/EditKernels.h"

#include <algorithm>
#include <cmath>

#include "core/Decibels.h"

namespace corvane::EditKernels {
namespace {

// The part of [startFrame, endFrame) inside the window, as offsets into it.
struct Span {
  FrameCount begin;
  FrameCount end;
  bool empty() const { return begin >= end; }
};

Span intersect(const Window& window, FrameCount startFrame, FrameCount endFrame) {
  const FrameCount begin = std::max(startFrame, window.firstFrame) - window.firstFrame;
  const FrameCount end = std::min(endFrame, window.firstFrame + window.frames) - window.firstFrame;
  return {begin, std::max(begin, end)};
}

}  // namespace

void applyGain(const Window& window, FrameCount startFrame, FrameCount endFrame, double factor) {
  const Span span = intersect(window, startFrame, endFrame);
  for (int c = 0; c < window.channelCount; ++c) {
    float* x = window.channels[c];
    for (FrameCount i = span.begin; i < span.end; ++i) x[i] = static_cast<float>(static_cast<double>(x[i]) * factor);
  }
}

void applyInvert(const Window& window, FrameCount startFrame, FrameCount endFrame) {
  const Span span = intersect(window, startFrame, endFrame);
  for (int c = 0; c < window.channelCount; ++c) {
    float* x = window.channels[c];
    for (FrameCount i = span.begin; i < span.end; ++i) x[i] = -x[i];
  }
}

void applyFade(const Window& window, FrameCount startFrame, FrameCount endFrame,
               EditOperations::FadeDirection direction, EditOperations::FadeCurve curve) {
  const Span span = intersect(window, startFrame, endFrame);
  const auto length = static_cast<double>(endFrame - startFrame);
  const bool fadeIn = direction == EditOperations::FadeDirection::fadeIn;
  for (FrameCount i = span.begin; i < span.end; ++i) {
    const auto position = static_cast<double>(window.firstFrame + i - startFrame);
    const double gain = EditOperations::fadeGain(curve, fadeIn ? position / length : (length - position) / length);
    for (int c = 0; c < window.channelCount; ++c) {
      float& x = window.channels[c][i];
      x = static_cast<float>(static_cast<double>(x) * gain);
    }
  }
}

// ---- NonSpeechGain -------------------------------------------------------------------------

NonSpeechGain::NonSpeechGain(const SpeechHistory& speechMask, FrameCount blockFrames, double reductionDB,
                             double makeupDB, double attackMs, double releaseMs, double sampleRate)
    : _speech(speechMask),
      _blockFrames(std::max<FrameCount>(1, blockFrames)),
      _reductionDB(-std::fabs(reductionDB)),
      _makeupDB(makeupDB),
      _speechFactor(dbToLinear(makeupDB)),
      _duckedFactor(dbToLinear(-std::fabs(reductionDB) + makeupDB)),
      _identity(speechMask.empty() || (reductionDB == 0.0 && makeupDB == 0.0)) {
  // A transition takes the whole depth in attackMs or releaseMs (at least one frame: 0 ms is
  // a hard switch).
  const double depth = -_reductionDB;
  _attackStepDB = depth / std::max(1.0, attackMs * 1e-3 * sampleRate);
  _releaseStepDB = depth / std::max(1.0, releaseMs * 1e-3 * sampleRate);
  const auto blocks = static_cast<std::int64_t>(_speech.size());
  _previousSpeech.assign(static_cast<std::size_t>(blocks), -1);
  _nextSpeech.assign(static_cast<std::size_t>(blocks), -1);
  std::int64_t last = -1;
  for (std::int64_t b = 0; b < blocks; ++b) {
    if (_speech[static_cast<std::size_t>(b)]) last = b;
    _previousSpeech[static_cast<std::size_t>(b)] = last;
  }
  std::int64_t next = -1;
  for (std::int64_t b = blocks - 1; b >= 0; --b) {
    if (_speech[static_cast<std::size_t>(b)]) next = b;
    _nextSpeech[static_cast<std::size_t>(b)] = next;
  }
}

bool NonSpeechGain::isSpeechBlock(std::int64_t block) const {
  return block >= 0 && block < static_cast<std::int64_t>(_speech.size()) && _speech[static_cast<std::size_t>(block)];
}

double NonSpeechGain::gainDB(FrameCount frame) const {
  const std::int64_t block = frame / _blockFrames;
  if (isSpeechBlock(block)) return _makeupDB;
  const auto blocks = static_cast<std::int64_t>(_speech.size());
  const std::int64_t previous =
      blocks == 0 ? -1 : _previousSpeech[static_cast<std::size_t>(std::min(block, blocks - 1))];
  const std::int64_t next = block < blocks ? _nextSpeech[static_cast<std::size_t>(block)] : -1;
  double db = _reductionDB;
  if (previous >= 0) {
    const FrameCount sinceSpeech = frame - ((previous + 1) * _blockFrames - 1);
    db = std::max(db, -static_cast<double>(sinceSpeech) * _releaseStepDB);
  }
  if (next >= 0) {
    const FrameCount untilSpeech = next * _blockFrames - frame;
    db = std::max(db, -static_cast<double>(untilSpeech) * _attackStepDB);
  }
  return db + _makeupDB;
}

void NonSpeechGain::apply(const Window& window) const {
  if (_identity) return;
  const double duckedDB = _reductionDB + _makeupDB;
  FrameCount i = 0;
  while (i < window.frames) {
    const FrameCount frame = window.firstFrame + i;
    const std::int64_t block = frame / _blockFrames;
    // The frames of this block inside the window.
    const FrameCount blockEnd = std::min(window.frames, (block + 1) * _blockFrames - window.firstFrame);
    if (isSpeechBlock(block)) {
      for (int c = 0; c < window.channelCount; ++c) {
        float* x = window.channels[c];
        for (FrameCount k = i; k < blockEnd; ++k) x[k] = static_cast<float>(static_cast<double>(x[k]) * _speechFactor);
      }
    } else {
      for (FrameCount k = i; k < blockEnd; ++k) {
        const double db = gainDB(window.firstFrame + k);
        const double factor = db == duckedDB ? _duckedFactor : dbToLinear(db);
        for (int c = 0; c < window.channelCount; ++c) {
          float& x = window.channels[c][k];
          x = static_cast<float>(static_cast<double>(x) * factor);
        }
      }
    }
    i = blockEnd;
  }
}

}  // namespace corvane::EditKernels
