// EditKernels: the per-frame rules of the in-place edits, for any window of a signal.
//
// An in-place edit's effect on a frame depends only on the frame's position in the whole
// signal (and, for the dialogue gate, on the speech mask), never on what came before in the
// same call. So the rules can be applied to the whole buffer at once (the ...InPlace members
// of EditOperations), or chunk by chunk to a signal streamed from disk (`corvane process`
// on a file too large to load), with the same samples as the result.
//
// A Window is `frames` frames of every channel that begin at frame `firstFrame` of the
// signal. Ranges are in frames of the whole signal, already clamped to it by the caller;
// only their part inside the window is touched.
//
// Thread class: pure functions over the caller's memory; any thread.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"
#include "headless/edits/EditOperations.h"

namespace corvane::EditKernels {

struct Window {
  float* const* channels = nullptr;
  int channelCount = 0;
  FrameCount firstFrame = 0;
  FrameCount frames = 0;
};

// x ← x · factor over [startFrame, endFrame).
void applyGain(const Window& window, FrameCount startFrame, FrameCount endFrame, double factor);

// x ← −x over [startFrame, endFrame).
void applyInvert(const Window& window, FrameCount startFrame, FrameCount endFrame);

// The fade of EditOperations::fadeInPlace over the range [startFrame, endFrame).
void applyFade(const Window& window, FrameCount startFrame, FrameCount endFrame,
               EditOperations::FadeDirection direction, EditOperations::FadeCurve curve);

// The gain curve of the dialogue gate (EditOperations::expandNonSpeech). Construction reads
// the mask once (O(blocks)); gainDB() and apply() are then pure.
class NonSpeechGain {
 public:
  NonSpeechGain(const SpeechHistory& speechMask, FrameCount blockFrames, double reductionDB, double makeupDB,
                double attackMs, double releaseMs, double sampleRate);

  // Whether the gate changes anything at all (a mask, and a reduction or a makeup).
  bool isIdentity() const { return _identity; }

  // The gain of one frame of the signal, dB.
  double gainDB(FrameCount frame) const;

  void apply(const Window& window) const;

 private:
  bool isSpeechBlock(std::int64_t block) const;

  std::vector<bool> _speech;
  // For each block, the index of the nearest speech block at or before it (−1: none) and at
  // or after it (−1: none).
  std::vector<std::int64_t> _previousSpeech;
  std::vector<std::int64_t> _nextSpeech;
  FrameCount _blockFrames;
  double _reductionDB;
  double _makeupDB;
  double _attackStepDB;   // dB per frame while opening
  double _releaseStepDB;  // dB per frame while closing
  double _speechFactor;
  double _duckedFactor;
  bool _identity;
};

}  // namespace corvane::EditKernels
