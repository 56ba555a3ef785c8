// SelectionFrames: the audio an offline pass reads, captured on the main thread.
//
// Frame rules, from a selection lower ... upper in seconds and a buffer of frameLength frames:
//   startFrame = Int(lower × rate), at least 0, and at most frameLength − 1 (a selection that
//                lies wholly past the end, left behind by an edit that shortened the file,
//                reads the last frame instead of memory beyond the buffer);
//   endFrame   = Int(upper × rate), at most frameLength;
//   frameCount = max(endFrame − startFrame, 1): even an empty selection measures one frame;
//   fullFile   = startFrame is 0 and endFrame reaches frameLength.
// Int() truncates toward zero, as frame positions everywhere else do.
//
// Two roads to the same frames. A whole-file pass reads the shared buffer in place and keeps
// it alive (the session then guards the landing with bufferEpoch, as an in-place edit may
// change samples under the pass). Any other selection is copied into arrays of its own at
// capture, so the pass touches no shared buffer at all and no edit can harm it.
//
// Thread class: capture() and copying() on the thread that may read the buffer safely (the
// main thread in the session); the object is then immutable and may be read from any thread.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/LevelViolations.h"

namespace corvane {

struct SelectionFrameRange {
  FrameCount startFrame = 0;
  FrameCount endFrame = 0;
  FrameCount frameCount = 1;
  bool fullFile = false;
};

// The frame rules above; none when the buffer has no frames or the rate is not positive.
std::optional<SelectionFrameRange> selectionFrameRange(double lowerSec, double upperSec, double sampleRate,
                                                       FrameCount frameLength);

class SelectionFrames {
 public:
  // The session's capture: applies the frame rules to `buffer` and reads it in place for a
  // whole-file selection, else copies the slice now. None when there is no buffer, no
  // channel or no frame, or the rate is not positive.
  static std::optional<SelectionFrames> capture(const SharedAudioBuffer& buffer, double lowerSec, double upperSec);

  // The two roads by hand (for callers that already hold frame positions). Throw
  // std::invalid_argument for a buffer without channels, and unless 0 ≤ startFrame, 1 ≤ frameCount and startFrame + frameCount
  // ≤ the buffer's frameLength; std::bad_alloc when a copy does not fit.
  static SelectionFrames sharing(SharedAudioBuffer buffer, SecondsRange timeRange, FrameCount startFrame,
                                 FrameCount frameCount);
  static SelectionFrames copying(const AudioBuffer& buffer, SecondsRange timeRange, FrameCount startFrame,
                                 FrameCount frameCount);

  // The selection as asked for, seconds.
  SecondsRange timeRange() const { return _timeRange; }
  FrameCount startFrame() const { return _startFrame; }
  FrameCount frameCount() const { return _frameCount; }
  int channelCount() const { return _channelCount; }
  double sampleRate() const { return _sampleRate; }
  // True when the frames are the whole buffer (from frame 0 to its length).
  bool fullFile() const { return _fullFile; }
  // True when the pass reads the shared buffer in place: its landing must compare bufferEpoch.
  bool readsSharedBuffer() const { return _buffer != nullptr; }

  // Runs `body` with one pointer per channel to the selection's first frame (frameCount
  // floats each) and returns what it returns. The pointers are valid during the call only.
  template <class Body>
  decltype(auto) withPinnedChannelPointers(Body&& body) const {
    const std::vector<const float*> pointers = channelPointers();
    return body(std::span<const float* const>(pointers));
  }

 private:
  SelectionFrames() = default;
  std::vector<const float*> channelPointers() const;

  SecondsRange _timeRange;
  FrameCount _startFrame = 0;
  FrameCount _frameCount = 0;
  int _channelCount = 0;
  double _sampleRate = 0.0;
  bool _fullFile = false;
  SharedAudioBuffer _buffer;                 // the whole-file road
  std::vector<std::vector<float>> _copies;   // the copied road
};

}  // namespace corvane
