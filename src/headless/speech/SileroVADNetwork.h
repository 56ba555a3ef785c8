// SileroVADNetwork: the Silero VAD network of one sample rate, run natively.
//
// The work is split the way its data flows. Everything up to the LSTM (the STFT, the four
// conv layers and the LSTM's input product) depends on one window's samples only, so
// encode() runs it for many windows at once as matrix products, on any thread. The LSTM
// cell carries its state from window to window; recur() runs it, the decoder and the sigmoid
// strictly in order. probabilities() drives both over a whole signal with a pipeline that
// keeps every core busy, and gives the same numbers for any number of threads.
//
// Windows follow Silero's streaming convention: window n is the samples
// [n·W, (n+1)·W) preceded by the C samples before them (zeros before the first window), and
// the last, partial window is completed with zeros. W and C are the branch's windowSamples
// and contextSamples.
//
// Thread class: after construction (and setSegmentWindows, if called) a network does not
// change; encode(), recur() and probabilities() may run on any number of threads at once, each
// encode() with its own Workspace and each recur() with its own State.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "headless/speech/PackedGemm.h"
#include "headless/speech/SileroVADModel.h"

namespace corvane {

class SileroVADNetwork {
 public:
  static constexpr int kHidden = SileroVADBranch::kHidden;
  static constexpr int kGates = 4 * kHidden;

  // Packs the branch's weights; the branch need not outlive the network.
  explicit SileroVADNetwork(const SileroVADBranch& branch);
  ~SileroVADNetwork();
  SileroVADNetwork(const SileroVADNetwork&) = delete;
  SileroVADNetwork& operator=(const SileroVADNetwork&) = delete;

  int sampleRate() const { return _sampleRate; }
  int windowSamples() const { return _windowSamples; }
  int contextSamples() const { return _contextSamples; }

  // Scratch memory of encode(), one per thread. Allocates on first use.
  class Workspace;
  struct WorkspaceDeleter {
    void operator()(Workspace* workspace) const;
  };
  using WorkspacePointer = std::unique_ptr<Workspace, WorkspaceDeleter>;
  WorkspacePointer makeWorkspace() const;

  // LSTM input pre-activations (W_ih·x + b_ih + b_hh, kGates floats per window) of
  // `windowCount` windows. `samples` holds contextSamples() + windowCount × windowSamples()
  // floats: the first window's context, then the windows.
  void encode(const float* samples, std::int64_t windowCount, float* gates, Workspace& workspace) const;

  // The LSTM state (h, c) carried from one window to the next; zero at the start.
  struct State {
    alignas(32) std::array<float, kHidden> hidden{};
    alignas(32) std::array<float, kHidden> cell{};
  };

  // The speech probability of each of `windowCount` windows from encode()'s output,
  // advancing `state`.
  void recur(const float* gates, std::int64_t windowCount, State& state, float* probabilities) const;

  // A source of samples at sampleRate(): fills up to `count` floats and returns how many it
  // wrote; fewer than asked means the signal has ended. It is called from one thread at a
  // time, in order. It may throw; the exception leaves probabilities().
  using SampleSource = std::function<std::int64_t(float* out, std::int64_t count)>;

  // One probability per window of the whole signal: ceil(samples / windowSamples()) values.
  // `threadCount` 0 means one per core. The result does not depend on it.
  std::vector<float> probabilities(const SampleSource& source, int threadCount = 0) const;
  std::vector<float> probabilities(std::span<const float> samples, int threadCount = 0) const;

  // Windows per unit of pipeline work; exposed so tests can show that batching does not
  // change the result.
  void setSegmentWindows(int windows) { _segmentWindows = windows; }

 private:
  int _sampleRate;
  int _windowSamples;
  int _contextSamples;
  int _stftKernel;
  int _stftStride;
  int _stftBins;
  int _reflectPadding;
  int _framesPerWindow;
  int _segmentWindows = 1024;

  speech::PackedMatrix _stft;      // 2·bins columns over kernel taps
  speech::PackedMatrix _conv1;     // 3 taps × bins → 128
  speech::PackedMatrix _conv2;     // 3 taps × 128 → 64, stride 2
  speech::PackedMatrix _conv3;     // the two taps that meet data × 64 → 64
  speech::PackedMatrix _conv4;     // the centre tap × 64 → 128
  speech::PackedMatrix _inputGates;  // 128 → 512
  std::vector<float> _bias1, _bias2, _bias3, _bias4, _gateBias;
  std::vector<float> _hiddenWeightsT;  // [kHidden][kGates]: row k is W_hh's column k
  std::vector<float> _decoderWeight;
  float _decoderBias;
};

}  // namespace corvane
