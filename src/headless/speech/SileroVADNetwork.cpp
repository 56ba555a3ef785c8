#include "headless/speech/SileroVADNetwork.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

// Not under sanitizers: an ifunc resolver runs while the program is relocated, before the
// sanitizer's runtime is up, and its instrumented code crashes there.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define CORVANE_VAD_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define CORVANE_VAD_CLONES
#endif

namespace corvane {
namespace {

// Windows per matrix product: the scratch of one batch (about 1 MB at 16 kHz) stays in a
// core's L2 cache while the weights stream past it.
constexpr int kBatchWindows = 64;

using Vec8 = float __attribute__((vector_size(32)));
using Int8 = std::int32_t __attribute__((vector_size(32)));

inline Vec8 splat(float v) { return Vec8{v, v, v, v, v, v, v, v}; }

inline Vec8 load8(const float* p) {
  Vec8 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void store8(float* p, Vec8 v) { std::memcpy(p, &v, sizeof v); }

// e^x to about one unit in the last place: Cody–Waite reduction by ln 2 and a degree-6
// polynomial, the standard single-precision construction. Vectorised because the LSTM cell
// needs 640 exponentials per window and is the one part that cannot be batched.
inline Vec8 exp8(Vec8 x) {
  x = x < splat(-87.0f) ? splat(-87.0f) : x;
  x = x > splat(88.0f) ? splat(88.0f) : x;
  Vec8 fx = x * splat(1.44269504088896341f) + splat(0.5f);
  Vec8 truncated = __builtin_convertvector(__builtin_convertvector(fx, Int8), Vec8);
  const Vec8 n = truncated > fx ? truncated - splat(1.0f) : truncated;
  const Vec8 r = x - n * splat(0.693359375f) + n * splat(2.12194440e-4f);
  Vec8 y = splat(1.9875691500e-4f);
  y = y * r + splat(1.3981999507e-3f);
  y = y * r + splat(8.3334519073e-3f);
  y = y * r + splat(4.1665795894e-2f);
  y = y * r + splat(1.6666665459e-1f);
  y = y * r + splat(5.0000001201e-1f);
  y = y * r * r + r + splat(1.0f);
  const Int8 bits = (__builtin_convertvector(n, Int8) + 127) << 23;
  Vec8 scale;
  std::memcpy(&scale, &bits, sizeof scale);
  return y * scale;
}

inline Vec8 sigmoid8(Vec8 x) { return splat(1.0f) / (splat(1.0f) + exp8(-x)); }
inline Vec8 tanh8(Vec8 x) { return splat(2.0f) * sigmoid8(splat(2.0f) * x) - splat(1.0f); }

constexpr int kHidden = SileroVADNetwork::kHidden;
constexpr int kGates = SileroVADNetwork::kGates;

// One window of the LSTM cell, the decoder and the sigmoid.
CORVANE_VAD_CLONES
void recurImpl(const float* gatesIn, std::int64_t windowCount, const float* hiddenWeightsT,
               const float* decoderWeight, float decoderBias, float* hidden, float* cell,
               float* probabilities) {
  alignas(32) float gates[kGates];
  for (std::int64_t w = 0; w < windowCount; ++w) {
    const float* in = gatesIn + w * kGates;
    Vec8 acc[kGates / 8];
    for (int j = 0; j < kGates / 8; ++j) acc[j] = load8(in + 8 * j);
    for (int k = 0; k < kHidden; ++k) {
      const Vec8 h = splat(hidden[k]);
      const float* row = hiddenWeightsT + static_cast<std::size_t>(k) * kGates;
      for (int j = 0; j < kGates / 8; ++j) acc[j] += h * load8(row + 8 * j);
    }
    for (int j = 0; j < kGates / 8; ++j) store8(gates + 8 * j, acc[j]);

    Vec8 logit = splat(0.0f);
    for (int j = 0; j < kHidden; j += 8) {
      const Vec8 inputGate = sigmoid8(load8(gates + j));
      const Vec8 forgetGate = sigmoid8(load8(gates + kHidden + j));
      const Vec8 candidate = tanh8(load8(gates + 2 * kHidden + j));
      const Vec8 outputGate = sigmoid8(load8(gates + 3 * kHidden + j));
      const Vec8 c = forgetGate * load8(cell + j) + inputGate * candidate;
      const Vec8 h = outputGate * tanh8(c);
      store8(cell + j, c);
      store8(hidden + j, h);
      const Vec8 rectified = h > splat(0.0f) ? h : splat(0.0f);
      logit += rectified * load8(decoderWeight + j);
    }
    float sum = decoderBias;
    for (int i = 0; i < 8; ++i) sum += logit[i];
    probabilities[w] = 1.0f / (1.0f + std::exp(-sum));
  }
}

}  // namespace

class SileroVADNetwork::Workspace {
 public:
  explicit Workspace(const SileroVADNetwork& net) {
    const int frames = net._framesPerWindow;
    paddedLength = net._contextSamples + net._windowSamples + net._reflectPadding;
    padded.assign(static_cast<std::size_t>(kBatchWindows) * paddedLength, 0.0f);
    stftOut.assign(static_cast<std::size_t>(kBatchWindows) * frames * 2 * net._stftBins, 0.0f);
    // Each window's magnitudes sit between a zero row before and after: the conv layers'
    // padding, so that three neighbouring rows are one contiguous input row of the product.
    magnitudes.assign(static_cast<std::size_t>(kBatchWindows) * (frames + 2) * net._stftBins, 0.0f);
    conv1Out.assign(static_cast<std::size_t>(kBatchWindows) * (frames + 1) * 128, 0.0f);
    conv2Out.assign(static_cast<std::size_t>(kBatchWindows) * 2 * 64, 0.0f);
    conv3Out.assign(static_cast<std::size_t>(kBatchWindows) * 64, 0.0f);
    conv4Out.assign(static_cast<std::size_t>(kBatchWindows) * 128, 0.0f);

    for (int w = 0; w < kBatchWindows; ++w) {
      for (int f = 0; f < frames; ++f) {
        frameRows.push_back(padded.data() + static_cast<std::size_t>(w) * paddedLength + f * net._stftStride);
        stftRows.push_back(stftOut.data() + (static_cast<std::size_t>(w) * frames + f) * 2 * net._stftBins);
        conv1In.push_back(magnitudes.data() + (static_cast<std::size_t>(w) * (frames + 2) + f) * net._stftBins);
        conv1Rows.push_back(conv1Out.data() + (static_cast<std::size_t>(w) * (frames + 1) + 1 + f) * 128);
      }
      for (int t = 0; t < 2; ++t) {
        conv2In.push_back(conv1Out.data() + (static_cast<std::size_t>(w) * (frames + 1) + 2 * t) * 128);
        conv2Rows.push_back(conv2Out.data() + (static_cast<std::size_t>(w) * 2 + t) * 64);
      }
      conv3In.push_back(conv2Out.data() + static_cast<std::size_t>(w) * 128);
      conv3Rows.push_back(conv3Out.data() + static_cast<std::size_t>(w) * 64);
      conv4Rows.push_back(conv4Out.data() + static_cast<std::size_t>(w) * 128);
    }
    gateRows.resize(kBatchWindows);
  }

  int paddedLength;
  std::vector<float> padded, stftOut, magnitudes, conv1Out, conv2Out, conv3Out, conv4Out;
  std::vector<const float*> frameRows, conv1In, conv2In, conv3In;
  std::vector<float*> stftRows, conv1Rows, conv2Rows, conv3Rows, conv4Rows, gateRows;
};

SileroVADNetwork::SileroVADNetwork(const SileroVADBranch& branch)
    : _sampleRate(branch.sampleRate),
      _windowSamples(branch.windowSamples),
      _contextSamples(branch.contextSamples),
      _stftKernel(branch.stftKernel),
      _stftStride(branch.stftStride()),
      _stftBins(branch.stftBins),
      _reflectPadding(branch.reflectPadding()),
      _framesPerWindow(branch.framesPerWindow()),
      _decoderBias(branch.decoderBias) {
  // The layer shapes below (two stride-2 layers taking 4 frames to 1) hold for 4 frames.
  if (_framesPerWindow != 4) throw SpeechModelError("Speech detection is unavailable: unexpected model geometry.");
  const int bins = _stftBins;
  const auto& basis = branch.stftBasis;
  const int kernel = _stftKernel;
  _stft = speech::PackedMatrix(kernel, 2 * bins, [&](int k, int n) { return basis[static_cast<std::size_t>(n) * kernel + k]; });

  // Conv weights [out][in][tap]; an input row of the product is taps side by side: index tap·in + c.
  auto convMatrix = [](const SileroConvLayer& layer, int firstTap, int taps) {
    return speech::PackedMatrix(taps * layer.inChannels, layer.outChannels, [&](int k, int o) {
      const int tap = firstTap + k / layer.inChannels;
      const int c = k % layer.inChannels;
      return layer.weight[(static_cast<std::size_t>(o) * layer.inChannels + c) * layer.kernel + tap];
    });
  };
  _conv1 = convMatrix(branch.encoder[0], 0, 3);
  _conv2 = convMatrix(branch.encoder[1], 0, 3);
  _conv3 = convMatrix(branch.encoder[2], 1, 2);  // its only output step sees padding, s0, s1
  _conv4 = convMatrix(branch.encoder[3], 1, 1);  // its only output step sees padding, x, padding
  _bias1 = branch.encoder[0].bias;
  _bias2 = branch.encoder[1].bias;
  _bias3 = branch.encoder[2].bias;
  _bias4 = branch.encoder[3].bias;

  const auto& wih = branch.weightIH;
  _inputGates = speech::PackedMatrix(kHidden, kGates, [&](int k, int g) { return wih[static_cast<std::size_t>(g) * kHidden + k]; });
  _gateBias.resize(kGates);
  for (int g = 0; g < kGates; ++g) _gateBias[g] = branch.biasIH[g] + branch.biasHH[g];
  _hiddenWeightsT.resize(static_cast<std::size_t>(kHidden) * kGates);
  for (int g = 0; g < kGates; ++g) {
    for (int k = 0; k < kHidden; ++k) {
      _hiddenWeightsT[static_cast<std::size_t>(k) * kGates + g] = branch.weightHH[static_cast<std::size_t>(g) * kHidden + k];
    }
  }
  _decoderWeight = branch.decoderWeight;
}

SileroVADNetwork::~SileroVADNetwork() = default;

void SileroVADNetwork::WorkspaceDeleter::operator()(Workspace* workspace) const { delete workspace; }

SileroVADNetwork::WorkspacePointer SileroVADNetwork::makeWorkspace() const {
  return WorkspacePointer(new Workspace(*this));
}

void SileroVADNetwork::encode(const float* samples, std::int64_t windowCount, float* gates,
                              Workspace& ws) const {
  const int frames = _framesPerWindow;
  const int bins = _stftBins;
  const int chunk = _contextSamples + _windowSamples;
  for (std::int64_t first = 0; first < windowCount; first += kBatchWindows) {
    const int n = static_cast<int>(std::min<std::int64_t>(kBatchWindows, windowCount - first));
    for (int w = 0; w < n; ++w) {
      float* padded = ws.padded.data() + static_cast<std::size_t>(w) * ws.paddedLength;
      std::memcpy(padded, samples + (first + w) * _windowSamples, sizeof(float) * chunk);
      // Reflection about the last sample, which itself is not repeated.
      for (int k = 0; k < _reflectPadding; ++k) padded[chunk + k] = padded[chunk - 2 - k];
      ws.gateRows[w] = gates + (first + w) * kGates;
    }
    speech::multiplyRows(ws.frameRows.data(), n * frames, _stft, nullptr, false, ws.stftRows.data());
    for (int w = 0; w < n; ++w) {
      for (int f = 0; f < frames; ++f) {
        const float* spectrum = ws.stftRows[w * frames + f];
        float* magnitude = ws.magnitudes.data() + (static_cast<std::size_t>(w) * (frames + 2) + 1 + f) * bins;
        for (int c = 0; c < bins; ++c) {
          const float re = spectrum[c];
          const float im = spectrum[bins + c];
          magnitude[c] = std::sqrt(re * re + im * im);
        }
      }
    }
    speech::multiplyRows(ws.conv1In.data(), n * frames, _conv1, _bias1.data(), true, ws.conv1Rows.data());
    speech::multiplyRows(ws.conv2In.data(), n * 2, _conv2, _bias2.data(), true, ws.conv2Rows.data());
    speech::multiplyRows(ws.conv3In.data(), n, _conv3, _bias3.data(), true, ws.conv3Rows.data());
    speech::multiplyRows(const_cast<const float* const*>(ws.conv3Rows.data()), n, _conv4, _bias4.data(), true,
                         ws.conv4Rows.data());
    speech::multiplyRows(const_cast<const float* const*>(ws.conv4Rows.data()), n, _inputGates, _gateBias.data(),
                         false, ws.gateRows.data());
  }
}

void SileroVADNetwork::recur(const float* gates, std::int64_t windowCount, State& state,
                             float* probabilities) const {
  recurImpl(gates, windowCount, _hiddenWeightsT.data(), _decoderWeight.data(), _decoderBias,
            state.hidden.data(), state.cell.data(), probabilities);
}

std::vector<float> SileroVADNetwork::probabilities(std::span<const float> samples, int threadCount) const {
  std::size_t position = 0;
  return probabilities(
      [&](float* out, std::int64_t count) {
        const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(count), samples.size() - position);
        std::copy_n(samples.data() + position, n, out);
        position += n;
        return static_cast<std::int64_t>(n);
      },
      threadCount);
}

// The pipeline. A segment of windows passes three stages: reading (in order, one thread at a
// time: the source may resample and so carries state), encoding (any thread, in parallel),
// and the recurrent pass (in order, one thread at a time). Every thread runs the same loop and
// takes the recurrent pass when it is due, else reads and encodes the next segment; at most
// a few segments are in flight, so memory stays bounded on hours of audio.
std::vector<float> SileroVADNetwork::probabilities(const SampleSource& source, int threadCount) const {
  if (threadCount <= 0) threadCount = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const std::int64_t segmentSamples = static_cast<std::int64_t>(std::max(1, _segmentWindows)) * _windowSamples;

  struct Segment {
    std::int64_t windows = 0;
    std::vector<float> samples;  // context, then the windows (zero beyond the signal's end)
    std::vector<float> gates;
    bool encoded = false;
  };

  // Shared state, under `mutex`. The reading stage alone touches `context`, the recurrent
  // stage alone `state` and `result`; the flags hand each stage to one thread at a time.
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::unique_ptr<Segment>> inFlight;  // in signal order
  std::vector<float> context(static_cast<std::size_t>(_contextSamples), 0.0f);
  std::vector<float> result;
  State state;
  bool reading = false, recurring = false, sourceEnded = false;
  std::exception_ptr failure;
  const std::size_t maxInFlight = static_cast<std::size_t>(threadCount) + 1;

  // Reads the next segment: the previous segment's last samples as context, then the signal.
  auto read = [&](Segment& segment) {
    segment.samples.assign(static_cast<std::size_t>(_contextSamples + segmentSamples), 0.0f);
    std::copy(context.begin(), context.end(), segment.samples.begin());
    float* out = segment.samples.data() + _contextSamples;
    std::int64_t got = 0;
    while (got < segmentSamples) {
      const std::int64_t n = source(out + got, segmentSamples - got);
      if (n <= 0) break;
      got += n;
    }
    std::copy_n(segment.samples.end() - _contextSamples, _contextSamples, context.begin());
    segment.windows = (got + _windowSamples - 1) / _windowSamples;
    return got;
  };

  auto worker = [&] {
    std::unique_lock lock(mutex, std::defer_lock);
    try {
      auto workspace = makeWorkspace();
      lock.lock();
      for (;;) {
        if (failure) return;
        if (!recurring && !inFlight.empty() && inFlight.front()->encoded) {
          recurring = true;
          std::unique_ptr<Segment> segment = std::move(inFlight.front());
          inFlight.pop_front();
          lock.unlock();
          const std::size_t offset = result.size();
          result.resize(offset + static_cast<std::size_t>(segment->windows));
          recur(segment->gates.data(), segment->windows, state, result.data() + offset);
          segment.reset();
          lock.lock();
          recurring = false;
          changed.notify_all();
        } else if (!reading && !sourceEnded && inFlight.size() < maxInFlight) {
          reading = true;
          auto segment = std::make_unique<Segment>();
          lock.unlock();
          const std::int64_t got = read(*segment);
          lock.lock();
          reading = false;
          if (got < segmentSamples) sourceEnded = true;
          changed.notify_all();
          if (segment->windows == 0) continue;
          Segment* raw = segment.get();
          inFlight.push_back(std::move(segment));
          lock.unlock();
          raw->gates.resize(static_cast<std::size_t>(raw->windows) * kGates);
          encode(raw->samples.data(), raw->windows, raw->gates.data(), *workspace);
          raw->samples = {};
          lock.lock();
          raw->encoded = true;
          changed.notify_all();
        } else if (sourceEnded && !reading && !recurring && inFlight.empty()) {
          changed.notify_all();
          return;
        } else {
          changed.wait(lock);
        }
      }
    } catch (...) {
      // Stops every thread at its next look at the state; the caller rethrows.
      if (!lock.owns_lock()) lock.lock();
      if (!failure) failure = std::current_exception();
      changed.notify_all();
    }
  };

  std::vector<std::thread> helpers;
  try {
    for (int i = 1; i < threadCount; ++i) helpers.emplace_back(worker);
  } catch (const std::system_error&) {
    // No more threads to be had: the ones that started do the work.
  }
  worker();
  for (auto& helper : helpers) helper.join();
  if (failure) std::rethrow_exception(failure);
  return result;
}

}  // namespace corvane
