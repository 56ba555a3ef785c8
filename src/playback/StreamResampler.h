// StreamResampler: sample-rate conversion of a pulled stream with libsoxr.
//
// Used twice in the render chain: to the device's rate when it differs from the file's (JACK
// fixes the rate for every client), and as the time-pitch stage's plain resampling when the
// pitch follows the speed (a factor of `rate` between the pulled and the delivered rate).
//
// libsoxr's input-function mode pulls exactly as much input as each output block needs, so
// the stage can hand out any requested count. Its buffers reach their final size in the
// first blocks; the constructor runs those blocks on silence, so that the render thread later
// finds everything allocated.
//
// Thread class: construction and destruction on the main thread (allocate); process() on the
// render thread (no allocation after construction, no lock, noexcept).
#pragma once

#include <memory>
#include <vector>

#include "playback/RenderPull.h"

struct soxr;

namespace corvane {

class StreamResampler {
 public:
  // `inputRate` and `outputRate` in Hz (only their ratio matters). Throws std::runtime_error
  // with libsoxr's message if it cannot be made.
  StreamResampler(int channels, double inputRate, double outputRate);
  ~StreamResampler();
  StreamResampler(const StreamResampler&) = delete;
  StreamResampler& operator=(const StreamResampler&) = delete;

  int channels() const { return _channels; }
  // Render thread: `frames` output frames (any count) into `out`, pulling input from `source`.
  void process(RenderPull source, float* const* out, int frames) noexcept;
  // Output frames by which the output lags the input.
  double delayFrames() const;

 private:
  static size_t supplyInput(void* self, const void** data, size_t requested);

  int _channels;
  soxr* _soxr = nullptr;
  RenderPull _source;
  std::vector<float> _input;            // channels × kInputChunk, planar
  std::vector<float*> _inputChannels;
  std::vector<float> _interleaved;      // the same, interleaved for libsoxr
  std::vector<float> _output;           // channels × kMaxRenderBlockFrames, interleaved
  bool _silentSource = false;
};

}  // namespace corvane
