#include "core/FFTProcessor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <numbers>
#include <stdexcept>
#include <vector>

#include "core/FftwPlanner.h"

namespace corvane {
namespace {

constexpr float kLiveFloorDB = -160.0f;
constexpr float kOfflineFloorDB = -300.0f;

// Periodic (DFT-even) cosine-sum windows.
std::vector<float> makeWindow(FFTWindowType type, int n, double& sum) {
  std::vector<double> a;
  switch (type) {
    case FFTWindowType::Hann: a = {0.5, 0.5}; break;
    case FFTWindowType::Hamming: a = {0.54, 0.46}; break;
    case FFTWindowType::Blackman: a = {0.42, 0.5, 0.08}; break;
    case FFTWindowType::BlackmanHarris: a = {0.35875, 0.48829, 0.14128, 0.01168}; break;
    case FFTWindowType::FlatTop:
      a = {0.21557895, 0.41663158, 0.277263158, 0.083578947, 0.006947368};
      break;
  }
  std::vector<float> w(static_cast<std::size_t>(n));
  sum = 0.0;
  for (int i = 0; i < n; ++i) {
    const double theta = 2.0 * std::numbers::pi * i / n;
    double v = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) {
      v += ((k % 2 == 0) ? 1.0 : -1.0) * a[k] * std::cos(static_cast<double>(k) * theta);
    }
    w[static_cast<std::size_t>(i)] = static_cast<float>(v);
    sum += static_cast<float>(v);
  }
  return w;
}

// An array from fftwf_malloc (aligned as FFTW's SIMD code wants it), freed with the owner.
template <typename T>
struct FftwArray {
  T* data = nullptr;
  explicit FftwArray(std::size_t n) : data(static_cast<T*>(fftwf_malloc(sizeof(T) * n))) {
    if (data == nullptr) throw std::bad_alloc();
  }
  ~FftwArray() { fftwf_free(data); }
  FftwArray(const FftwArray&) = delete;
  FftwArray& operator=(const FftwArray&) = delete;
};

}  // namespace

const char* fftWindowTypeName(FFTWindowType type) noexcept {
  switch (type) {
    case FFTWindowType::Hann: return "Hann";
    case FFTWindowType::Hamming: return "Hamming";
    case FFTWindowType::Blackman: return "Blackman";
    case FFTWindowType::BlackmanHarris: return "Blackman-Harris";
    case FFTWindowType::FlatTop: return "Flat Top";
  }
  return "Hann";
}

struct FFTProcessor::State {
  State(int n, double rate, FFTWindowType type)
      : fftSize(n), sampleRate(rate), input(static_cast<std::size_t>(n)),
        spectrum(static_cast<std::size_t>(n / 2 + 1)),
        magnitudes(static_cast<std::size_t>(n / 2)) {
    for (int t = 0; t < kWindowTypes; ++t) {
      double sum = 0.0;
      windows[static_cast<std::size_t>(t)] = makeWindow(static_cast<FFTWindowType>(t), n, sum);
      // 20·log10(2|X| / Σw) = 10·log10(|X|² · (2 / Σw)²)
      powerScales[static_cast<std::size_t>(t)] = static_cast<float>((2.0 / sum) * (2.0 / sum));
    }
    windowType = type;
    plan = FftwPlanner::planRealToComplex(n, input.data, spectrum.data);
    if (plan == nullptr) throw std::bad_alloc();
  }
  ~State() { FftwPlanner::destroy(plan); }

  static constexpr int kWindowTypes = 5;

  int fftSize;
  double sampleRate;
  FFTWindowType windowType = FFTWindowType::Hann;
  bool liveMode = true;
  // Every type's window is made up front, so a change of type on the display thread never
  // allocates.
  std::array<std::vector<float>, kWindowTypes> windows;
  std::array<float, kWindowTypes> powerScales{};
  FftwArray<float> input;
  FftwArray<fftwf_complex> spectrum;
  std::vector<float> magnitudes;
  fftwf_plan plan = nullptr;
  const float liveFloorPower = std::pow(10.0f, kLiveFloorDB / 10.0f);
  const float offlineFloorPower = std::pow(10.0f, kOfflineFloorDB / 10.0f);
};

FFTProcessor::FFTProcessor(int fftSize, double sampleRate, FFTWindowType windowType) {
  if (fftSize < 2 || fftSize % 2 != 0) {
    throw std::invalid_argument("The FFT size must be an even number of at least 2.");
  }
  if (!(sampleRate > 0.0)) throw std::invalid_argument("The sample rate must be positive.");
  _state = std::make_unique<State>(fftSize, sampleRate, windowType);
}

FFTProcessor::~FFTProcessor() = default;

int FFTProcessor::fftSize() const noexcept { return _state->fftSize; }
double FFTProcessor::sampleRate() const noexcept { return _state->sampleRate; }
FFTWindowType FFTProcessor::windowType() const noexcept { return _state->windowType; }
bool FFTProcessor::liveMode() const noexcept { return _state->liveMode; }
void FFTProcessor::setLiveMode(bool liveMode) noexcept { _state->liveMode = liveMode; }
void FFTProcessor::setWindowType(FFTWindowType windowType) noexcept {
  const int t = static_cast<int>(windowType);
  if (t >= 0 && t < State::kWindowTypes) _state->windowType = windowType;
}

std::span<const float> FFTProcessor::processPower(const float* samples, int count) noexcept {
  State& s = *_state;
  const int n = s.fftSize;
  const int used = samples == nullptr ? 0 : std::clamp(count, 0, n);
  const auto type = static_cast<std::size_t>(s.windowType);
  const std::vector<float>& window = s.windows[type];
  float* in = s.input.data;
  for (int i = 0; i < used; ++i) {
    const float v = samples[i];
    in[i] = (std::isfinite(v) ? v : 0.0f) * window[static_cast<std::size_t>(i)];
  }
  std::fill(in + used, in + n, 0.0f);
  fftwf_execute_dft_r2c(s.plan, in, s.spectrum.data);
  const float floorPower = s.liveMode ? s.liveFloorPower : s.offlineFloorPower;
  const float scale = s.powerScales[type];
  for (int k = 0; k < n / 2; ++k) {
    const float re = s.spectrum.data[k][0], im = s.spectrum.data[k][1];
    s.magnitudes[static_cast<std::size_t>(k)] = std::max((re * re + im * im) * scale, floorPower);
  }
  return s.magnitudes;
}

float FFTProcessor::decibels(float power) const noexcept {
  const State& s = *_state;
  return power > (s.liveMode ? s.liveFloorPower : s.offlineFloorPower)
             ? 10.0f * std::log10(power)
             : (s.liveMode ? kLiveFloorDB : kOfflineFloorDB);
}

std::span<const float> FFTProcessor::process(const float* samples, int count) noexcept {
  processPower(samples, count);
  for (float& m : _state->magnitudes) m = decibels(m);
  return _state->magnitudes;
}

}  // namespace corvane
