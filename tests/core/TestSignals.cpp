#include "TestSignals.h"

#include <ebur128.h>
#include <fftw3.h>
#include <sndfile.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "core/ProgrammeSignal.h"

namespace corvane::test {
namespace {

// Sine by complex rotation in double, re-anchored to the exact phase every 4096 frames so an
// hour of tone keeps its frequency and level to 1e-12.
class Oscillator {
 public:
  Oscillator(double rate, double frequencyHz, double phase)
      : _step(2.0 * std::numbers::pi * frequencyHz / rate), _phase0(phase) {
    anchor(0);
  }
  double next() {
    if (_n % 4096 == 0) anchor(_n);
    const double v = _s;
    const double c = _c * _cosStep - _s * _sinStep;
    _s = _s * _cosStep + _c * _sinStep;
    _c = c;
    ++_n;
    return v;
  }

 private:
  void anchor(std::int64_t n) {
    const double phase = _phase0 + _step * static_cast<double>(n);
    _s = std::sin(phase);
    _c = std::cos(phase);
    _cosStep = std::cos(_step);
    _sinStep = std::sin(_step);
  }
  double _step, _phase0;
  double _s = 0, _c = 1, _cosStep = 1, _sinStep = 0;
  std::int64_t _n = 0;
};

class SplitMix {
 public:
  explicit SplitMix(std::uint64_t seed) : _state(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  double uniform() { return (static_cast<double>(next() >> 11) + 0.5) * 0x1.0p-53; }
  double gaussian() {
    if (_hasSpare) {
      _hasSpare = false;
      return _spare;
    }
    const double r = std::sqrt(-2.0 * std::log(uniform()));
    const double a = 2.0 * std::numbers::pi * uniform();
    _spare = r * std::sin(a);
    _hasSpare = true;
    return r * std::cos(a);
  }

 private:
  std::uint64_t _state;
  bool _hasSpare = false;
  double _spare = 0.0;
};

FrameCount framesOf(double rate, double seconds) {
  return static_cast<FrameCount>(std::llround(seconds * rate));
}

}  // namespace

Planar sine(double rate, int channelCount, double seconds, double frequencyHz, double amplitude,
            double phase, std::vector<int> onChannels) {
  Planar p(rate, channelCount, framesOf(rate, seconds));
  if (onChannels.empty()) {
    for (int c = 0; c < channelCount; ++c) onChannels.push_back(c);
  }
  Oscillator osc(rate, frequencyHz, phase);
  std::vector<float>& first = p.channels[static_cast<std::size_t>(onChannels[0])];
  for (float& v : first) v = static_cast<float>(amplitude * osc.next());
  for (std::size_t i = 1; i < onChannels.size(); ++i) p.channels[static_cast<std::size_t>(onChannels[i])] = first;
  return p;
}

Planar silence(double rate, int channelCount, double seconds) {
  return Planar(rate, channelCount, framesOf(rate, seconds));
}

void taper(Planar& signal, double seconds) {
  const FrameCount n = std::min(framesOf(signal.rate, seconds), signal.frames() / 2);
  for (auto& ch : signal.channels) {
    const FrameCount len = static_cast<FrameCount>(ch.size());
    for (FrameCount i = 0; i < n; ++i) {
      const double g = 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(i) / static_cast<double>(n));
      ch[static_cast<std::size_t>(i)] *= static_cast<float>(g);
      ch[static_cast<std::size_t>(len - 1 - i)] *= static_cast<float>(g);
    }
  }
}

Planar toneSequence(double rate, const std::vector<std::pair<double, double>>& segments,
                    double frequencyHz, int channelCount) {
  FrameCount total = 0;
  for (const auto& [seconds, level] : segments) total += framesOf(rate, seconds);
  Planar p(rate, channelCount, total);
  Oscillator osc(rate, frequencyHz, 0.0);
  FrameCount at = 0;
  for (const auto& [seconds, level] : segments) {
    const FrameCount n = framesOf(rate, seconds);
    const double amplitude = level < -200.0 ? 0.0 : dbfs(level);
    for (FrameCount i = 0; i < n; ++i, ++at) {
      const auto v = static_cast<float>(amplitude * osc.next());
      for (auto& ch : p.channels) ch[static_cast<std::size_t>(at)] = v;
    }
  }
  return p;
}

Planar programme(double rate, int channelCount, double seconds, std::uint64_t seed) {
  const SharedAudioBuffer b = synthesiseProgramme({rate, channelCount, seconds, seed});
  Planar p(rate, channelCount);
  for (int c = 0; c < channelCount; ++c) {
    p.channels[static_cast<std::size_t>(c)].assign(b->channel(c), b->channel(c) + b->frameLength());
  }
  return p;
}

Planar bandLimitedNoise(double rate, int channelCount, double seconds, double cutoffHz,
                        double rmsDB, double swingDB, std::uint64_t seed) {
  Planar p(rate, channelCount, framesOf(rate, seconds));
  // Three RBJ low-pass sections (Q 0.707): −36 dB an octave above the cutoff.
  const double w = 2.0 * std::numbers::pi * cutoffHz / rate;
  const double alpha = std::sin(w) / (2.0 * std::sqrt(0.5));
  const double a0 = 1.0 + alpha;
  const double b0 = (1.0 - std::cos(w)) / 2.0 / a0, b1 = (1.0 - std::cos(w)) / a0, b2 = b0;
  const double a1 = -2.0 * std::cos(w) / a0, a2 = (1.0 - alpha) / a0;
  for (int c = 0; c < channelCount; ++c) {
    SplitMix random(seed * 7919 + static_cast<std::uint64_t>(c) + 1);
    std::vector<double> x(p.channels[static_cast<std::size_t>(c)].size());
    double s[3][2] = {};
    double sum = 0;
    for (double& v : x) {
      double y = random.gaussian();
      for (auto& st : s) {
        const double out = b0 * y + st[0];
        st[0] = b1 * y - a1 * out + st[1];
        st[1] = b2 * y - a2 * out;
        y = out;
      }
      v = y;
      sum += v * v;
    }
    const double scale = dbfs(rmsDB) / std::sqrt(sum / static_cast<double>(std::max<std::size_t>(x.size(), 1)));
    for (std::size_t i = 0; i < x.size(); ++i) {
      const double t = static_cast<double>(i) / rate;
      // Level moves (periods of 5.3 s and 8.9 s) so short-term loudness spreads, fast enough
      // that a 40 s stretch holds many cycles and its range statistics settle.
      const double swing = swingDB * (0.6 * std::sin(2 * std::numbers::pi * t / 5.3 + c) +
                                      0.4 * std::sin(2 * std::numbers::pi * t / 8.9));
      p.channels[static_cast<std::size_t>(c)][i] = static_cast<float>(x[i] * scale * dbfs(swing));
    }
  }
  return p;
}

void feed(LoudnessProcessor& processor, const Planar& signal, FrameCount chunk, bool flush) {
  if (chunk <= 0) chunk = std::max<FrameCount>(1, std::llround(signal.rate * 0.1));
  const FrameCount frames = signal.frames();
  for (FrameCount start = 0; start < frames; start += chunk) {
    const FrameCount n = std::min(chunk, frames - start);
    const auto ptrs = signal.pointers(start);
    processor.updateTruePeak(ptrs.data(), n);
    processor.process(ptrs.data(), n);
  }
  if (flush) processor.flushPartialBlock();
}

Measured measure(const Planar& signal, std::vector<double> weights) {
  LoudnessProcessor p(signal.rate, signal.channelCount(), nullptr, std::move(weights));
  p.setOfflineFeed(true);
  feed(p, signal);
  return {p.integratedLUFS(), p.momentaryLUFS(), p.shortTermLUFS(), p.loudnessRange(),
          p.truePeakDB(), p.maxMomentaryLUFS(), p.maxShortTermLUFS(), p.truePeakDBByChannel(),
          p.blockHistory()};
}

OracleResult ebur128Measure(const Planar& signal, const std::vector<int>& channelMap) {
  const int channels = signal.channelCount();
  ebur128_state* st = ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(signal.rate),
                                   EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK |
                                       EBUR128_MODE_M | EBUR128_MODE_S);
  if (st == nullptr) throw std::runtime_error("libebur128 could not start");
  for (std::size_t c = 0; c < channelMap.size(); ++c) {
    ebur128_set_channel(st, static_cast<unsigned>(c), channelMap[c]);
  }
  const FrameCount frames = signal.frames();
  // 0.1 s chunks, so the short-term value can be read at the 10 Hz the range needs.
  const FrameCount kChunk = std::llround(signal.rate * 0.1);
  OracleResult r{};
  std::vector<float> interleaved(static_cast<std::size_t>(kChunk * channels));
  for (FrameCount start = 0; start < frames; start += kChunk) {
    const FrameCount n = std::min(kChunk, frames - start);
    for (FrameCount i = 0; i < n; ++i) {
      for (int c = 0; c < channels; ++c) {
        interleaved[static_cast<std::size_t>(i * channels + c)] =
            signal.channels[static_cast<std::size_t>(c)][static_cast<std::size_t>(start + i)];
      }
    }
    ebur128_add_frames_float(st, interleaved.data(), static_cast<std::size_t>(n));
    if (start + n >= 30 * kChunk && n == kChunk) {
      double s = 0.0;
      ebur128_loudness_shortterm(st, &s);
      r.shortTermSeries.push_back(s);
    }
  }
  ebur128_loudness_global(st, &r.integrated);
  ebur128_loudness_range(st, &r.range);
  ebur128_loudness_momentary(st, &r.momentary);
  ebur128_loudness_shortterm(st, &r.shortTerm);
  for (int c = 0; c < channels; ++c) {
    double peak = 0.0;
    ebur128_true_peak(st, static_cast<unsigned>(c), &peak);
    r.truePeakDB.push_back(peak > 0.0 ? 20.0 * std::log10(peak) : -INFINITY);
  }
  ebur128_destroy(&st);
  return r;
}

double tech3342Range(std::vector<double> shortTermLUFS) {
  std::vector<double> gated;
  for (double v : shortTermLUFS) {
    if (v >= -70.0) gated.push_back(v);
  }
  if (gated.empty()) return 0.0;
  double power = 0.0;
  for (double v : gated) power += std::pow(10.0, v / 10.0);
  const double relative = 10.0 * std::log10(power / static_cast<double>(gated.size())) - 20.0;
  std::vector<double> kept;
  for (double v : gated) {
    if (v >= relative) kept.push_back(v);
  }
  std::sort(kept.begin(), kept.end());
  const auto n = static_cast<double>(kept.size());
  const auto at = [&](double p) { return kept[static_cast<std::size_t>(std::llround((n - 1) * p))]; };
  return at(0.95) - at(0.10);
}

double idealTruePeakDB(const std::vector<float>& samples) {
  constexpr int kSegment = 8192, kContext = 1024, kFactor = 8;
  constexpr int kUp = kSegment * kFactor;
  const auto frames = static_cast<std::ptrdiff_t>(samples.size());
  std::vector<float> in(kSegment), out(kUp);
  std::vector<fftwf_complex> spectrum(kSegment / 2 + 1), padded(kUp / 2 + 1);
  const fftwf_plan forward = fftwf_plan_dft_r2c_1d(kSegment, in.data(), spectrum.data(), FFTW_ESTIMATE);
  const fftwf_plan backward = fftwf_plan_dft_c2r_1d(kUp, padded.data(), out.data(), FFTW_ESTIMATE);
  double peak = 0.0;
  for (std::ptrdiff_t start = -kContext; start < frames - kContext; start += kSegment - 2 * kContext) {
    for (int i = 0; i < kSegment; ++i) {
      const std::ptrdiff_t at = start + i;
      in[static_cast<std::size_t>(i)] = at >= 0 && at < frames ? samples[static_cast<std::size_t>(at)] : 0.0f;
    }
    fftwf_execute(forward);
    for (auto& bin : padded) bin[0] = bin[1] = 0.0f;
    for (int k = 0; k <= kSegment / 2; ++k) {
      const float scale = (k == kSegment / 2 ? 0.5f : 1.0f) / kSegment;  // Nyquist split in two
      padded[static_cast<std::size_t>(k)][0] = spectrum[static_cast<std::size_t>(k)][0] * scale;
      padded[static_cast<std::size_t>(k)][1] = spectrum[static_cast<std::size_t>(k)][1] * scale;
    }
    fftwf_execute(backward);
    for (int i = kContext * kFactor; i < (kSegment - kContext) * kFactor; ++i) {
      const std::ptrdiff_t at = start + i / kFactor;
      const double y = std::fabs(out[static_cast<std::size_t>(i)]);
      if (at < 0 || at >= frames || y <= peak) continue;
      // Parabola through the neighbours: the 8× grid's own under-read (up to 0.17 dB just
      // below Nyquist) drops below 0.005 dB.
      const double a = std::fabs(out[static_cast<std::size_t>(i - 1)]), b = std::fabs(out[static_cast<std::size_t>(i + 1)]);
      const double curvature = a - 2 * y + b;
      peak = std::max(peak, curvature < 0 && a <= y && b <= y ? y - (b - a) * (b - a) / (8 * curvature) : y);
    }
  }
  fftwf_destroy_plan(forward);
  fftwf_destroy_plan(backward);
  return peak > 0.0 ? 20.0 * std::log10(peak) : -INFINITY;
}

void writeWav(const std::string& path, const Planar& signal) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(signal.rate);
  info.channels = signal.channelCount();
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) throw std::runtime_error("cannot write " + path);
  const FrameCount frames = signal.frames();
  std::vector<float> interleaved(static_cast<std::size_t>(frames * info.channels));
  for (FrameCount i = 0; i < frames; ++i) {
    for (int c = 0; c < info.channels; ++c) {
      interleaved[static_cast<std::size_t>(i * info.channels + c)] =
          signal.channels[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)];
    }
  }
  const sf_count_t written = sf_writef_float(file, interleaved.data(), frames);
  sf_close(file);
  if (written != frames) throw std::runtime_error("short write to " + path);
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
  _path = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

CommandResult runCommand(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, {}};
  std::string output;
  char buffer[4096];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

}  // namespace corvane::test
