// TimePitchStage: playback speed, with or without the pitch.
//
// Three forms, chosen by the speed and whether the pitch is kept:
//   - bypass at 1.0×: the stage is left out of the chain altogether;
//   - stretch (pitch kept): Rubber Band in real-time mode. Its start-up latency is padded
//     away as the library recommends (a preferred start pad of silence in, the start delay
//     dropped from the output), so the first frame out belongs to the first frame in;
//   - varispeed (pitch follows the speed, as on tape): plain resampling by the speed factor.
// The stage pulls file frames from the source at `rate` times the speed it delivers them.
//
// A change of speed builds a new stage on the main thread and swaps it in (RenderChain), so
// the render thread never reconfigures the stretcher, which could allocate.
//
// Thread class: construction/destruction on the main thread (allocates, primes the
// stretcher); process() on the render thread (no allocation, no lock, noexcept).
#pragma once

#include <memory>
#include <vector>

#include "playback/RenderPull.h"

namespace RubberBand {
class RubberBandStretcher;
}

namespace corvane {

class StreamResampler;

class TimePitchStage {
 public:
  enum class Mode { bypass, stretch, varispeed };

  // The form for a speed; 1.0× is always bypass.
  static Mode modeFor(double rate, bool preservePitch);

  // `rate` is the speed factor (0.25 ... 2), `sampleRate` the file's. Throws
  // std::runtime_error if the stretcher or resampler cannot be made.
  TimePitchStage(int channels, double sampleRate, double rate, bool preservePitch);
  ~TimePitchStage();
  TimePitchStage(const TimePitchStage&) = delete;
  TimePitchStage& operator=(const TimePitchStage&) = delete;

  Mode mode() const { return _mode; }
  double rate() const { return _rate; }
  int channels() const { return _channels; }

  // Render thread: `frames` output frames, pulling from `source` as needed. In bypass the
  // source fills `out` directly.
  void process(RenderPull source, float* const* out, int frames) noexcept;

  // Output frames the stage still holds once its input ends: how long the end of the file
  // takes to come out.
  int tailFrames() const { return _tailFrames; }

 private:
  void processStretch(RenderPull source, float* const* out, int frames) noexcept;

  Mode _mode;
  int _channels;
  double _rate;
  int _tailFrames = 0;
  std::unique_ptr<RubberBand::RubberBandStretcher> _stretcher;
  std::unique_ptr<StreamResampler> _resampler;
  std::vector<float> _storage;  // input block and a discard block, channels × max block each
  std::vector<float*> _input;
  std::vector<float*> _discard;
  std::vector<float*> _outputOffset;
  long _startFramesToDrop = 0;
};

}  // namespace corvane
