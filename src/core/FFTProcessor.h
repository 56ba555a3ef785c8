// FFTProcessor: a windowed real FFT that gives a magnitude spectrum in dB.
//
// Calibration: bin k reads 20·log10(2·|X[k]| / Σw), so a full-scale sine centred on a bin reads
// 0 dB whatever the window (the window's coherent gain is divided out). Bins 0 ... fftSize/2 − 1
// are returned; bin k lies at k · sampleRate / fftSize Hz. (Bin 0 carries DC doubled: a DC
// offset of a reads 20·log10(2a).)
//
// Windows are the periodic (DFT-even) forms, the right ones for spectral analysis:
//   Hann            0.5 − 0.5·cos θ
//   Hamming         0.54 − 0.46·cos θ
//   Blackman        0.42 − 0.5·cos θ + 0.08·cos 2θ
//   BlackmanHarris  4-term, 0.35875, 0.48829, 0.14128, 0.01168 (−92 dB side lobes)
//   FlatTop         5-term (0.21557895, 0.41663158, 0.277263158, 0.083578947, 0.006947368):
//                   amplitude-accurate to 0.01 dB between bins
// with θ = 2πn / fftSize.
//
// Live and offline use. liveMode (default true) floors the returned magnitudes at −160 dB, the
// floor of the live displays, so a silent channel reads a finite value there. Offline
// analysis clears it: magnitudes are then floored only at −300 dB, which keeps averages of very
// quiet windows (taken in power) unbiased.
//
// Thread class. Construction plans the transform with FFTW; planning is made thread-safe once
// per process (several background tasks build processors at the same time), and nothing
// plans after construction. One processor is used by one thread at a time; process() and
// setWindowType() allocate nothing and never block.
#pragma once

#include <memory>
#include <span>

namespace corvane {

enum class FFTWindowType {
  Hann,
  Hamming,
  Blackman,
  BlackmanHarris,
  FlatTop,
};

// "Hann", "Hamming", "Blackman", "Blackman-Harris", "Flat Top".
const char* fftWindowTypeName(FFTWindowType type) noexcept;

class FFTProcessor {
 public:
  // fftSize: at least 2 and even (the callers use powers of two). Throws std::invalid_argument
  // otherwise, or for a sample rate that is not positive; std::bad_alloc if memory is short.
  FFTProcessor(int fftSize, double sampleRate, FFTWindowType windowType = FFTWindowType::Hann);
  ~FFTProcessor();

  FFTProcessor(const FFTProcessor&) = delete;
  FFTProcessor& operator=(const FFTProcessor&) = delete;

  int fftSize() const noexcept;
  double sampleRate() const noexcept;
  FFTWindowType windowType() const noexcept;
  void setWindowType(FFTWindowType windowType) noexcept;
  bool liveMode() const noexcept;
  void setLiveMode(bool liveMode) noexcept;

  // Windows and transforms `count` samples and returns fftSize / 2 magnitudes in dB. Fewer
  // than fftSize samples are zero-padded at the end (the reading then drops by the share of
  // window energy that is missing); more use the first fftSize. A null `samples` or a count
  // below 1 transforms silence. Non-finite samples are read as 0. The span points into the
  // processor and stays valid until the next call of process().
  std::span<const float> process(const float* samples, int count) noexcept;

  // As process(), but the fftSize / 2 values are linear power (10^(dB / 10) of what process()
  // returns, floored at the same level), for callers that average or mix spectra in power:
  // they skip a logarithm and an exponential per bin. decibels() turns one such value into
  // exactly the dB figure process() would have given. The span stays valid until the next
  // call of process() or processPower().
  std::span<const float> processPower(const float* samples, int count) noexcept;
  // 10·log10(power), or the floor in dB for a power at or below the floor.
  float decibels(float power) const noexcept;

 private:
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace corvane
