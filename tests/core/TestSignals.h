// Signals, feeds and oracles shared by the core tests.
//
// Every signal is synthesised here from its definition (EBU Tech 3341/3342 tables, plain
// tones and noise), so no test depends on a file someone else made.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <span>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/LoudnessProcessor.h"

namespace corvane::test {

// Planar float audio owned by the test.
struct Planar {
  double rate = 48000.0;
  std::vector<std::vector<float>> channels;

  Planar() = default;
  Planar(double sampleRate, int channelCount, FrameCount frames = 0)
      : rate(sampleRate), channels(static_cast<std::size_t>(channelCount),
                                   std::vector<float>(static_cast<std::size_t>(frames), 0.0f)) {}

  int channelCount() const { return static_cast<int>(channels.size()); }
  FrameCount frames() const { return channels.empty() ? 0 : static_cast<FrameCount>(channels[0].size()); }
  std::vector<const float*> pointers(FrameCount offset = 0) const {
    std::vector<const float*> p;
    for (const auto& c : channels) p.push_back(c.data() + offset);
    return p;
  }
  std::vector<float*> mutablePointers() {
    std::vector<float*> p;
    for (auto& c : channels) p.push_back(c.data());
    return p;
  }
  // Appends the other signal (same rate and channel count).
  void append(const Planar& other) {
    for (std::size_t c = 0; c < channels.size(); ++c) {
      channels[c].insert(channels[c].end(), other.channels[c].begin(), other.channels[c].end());
    }
  }
};

inline double dbfs(double db) { return std::pow(10.0, db / 20.0); }

// A sine of `seconds` at `frequencyHz` with peak amplitude `amplitude`, starting at `phase`
// (radians), in every listed channel; other channels stay silent.
Planar sine(double rate, int channelCount, double seconds, double frequencyHz, double amplitude,
            double phase = 0.0, std::vector<int> onChannels = {});

// Same channels, rate: silence.
Planar silence(double rate, int channelCount, double seconds);

// Tapers the first and last `seconds` with a raised-cosine fade.
void taper(Planar& signal, double seconds);

// Sequence of 1 kHz stereo tones (Tech 3341 style): pairs of (seconds, dBFS peak level); a
// level of −inf (or below −200) is silence.
Planar toneSequence(double rate, const std::vector<std::pair<double, double>>& segments,
                    double frequencyHz = 1000.0, int channelCount = 2);

// Programme-like material (ProgrammeSignal) as a Planar signal.
Planar programme(double rate, int channelCount, double seconds, std::uint64_t seed);

// Band-limited noise: white noise (seeded, deterministic) through a 6th-order low pass at
// `cutoffHz`, each channel independent, scaled to `rmsDB` dBFS, with a slow level movement of
// ±`swingDB` so loudness range has something to measure.
Planar bandLimitedNoise(double rate, int channelCount, double seconds, double cutoffHz,
                        double rmsDB, double swingDB, std::uint64_t seed);

// The processor's offline feed: chunks of max(1, round(rate × 0.1)) frames (or `chunk` when
// positive), updateTruePeak then process, then flushPartialBlock().
void feed(LoudnessProcessor& processor, const Planar& signal, FrameCount chunk = 0,
          bool flush = true);

// A processor of the signal's rate and channel count with `weights`, fed offline.
struct Measured {
  double integrated, momentary, shortTerm, range, truePeak, maxMomentary, maxShortTerm;
  std::vector<double> channelTruePeak;
  std::vector<LoudnessBlock> history;
};
Measured measure(const Planar& signal, std::vector<double> weights = {});

// libebur128 on the same samples. channelMap uses libebur128's channel enum values
// (EBUR128_LEFT ...); empty means its defaults for the count.
struct OracleResult {
  double integrated, range, momentary, shortTerm;
  std::vector<double> truePeakDB;
  // libebur128's short-term loudness read after every 0.1 s of input (complete 3 s windows
  // only): the 10 Hz series Tech 3342 computes its range from.
  std::vector<double> shortTermSeries;
};
OracleResult ebur128Measure(const Planar& signal, const std::vector<int>& channelMap = {});

// Loudness range by the Tech 3342 definition (its MATLAB reference: absolute gate −70 LUFS,
// relative gate −20 LU, nearest-rank 10th and 95th percentiles of the sorted values).
double tech3342Range(std::vector<double> shortTermLUFS);

// True peak of one channel by ideal band-limited reconstruction: the signal upsampled 8× by
// zero-padding its spectrum (segments of 8192 frames, 1024 frames of context on each side
// discarded), each maximum refined by a parabola through its neighbours, in dBTP. An oracle independent of every interpolation filter; it assumes
// nothing at all above Nyquist, so it suits material with little energy in the top octave.
double idealTruePeakDB(const std::vector<float>& samples);

// Writes a 32-bit float WAV (through libsndfile); throws std::runtime_error on failure.
void writeWav(const std::string& path, const Planar& signal);

// A fresh directory under the system's temporary folder, removed with the object.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& path() const { return _path; }
  std::string file(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

// Runs a shell command and returns its exit status and standard output (add 2>&1 to the
// command to capture standard error too).
struct CommandResult {
  int exitCode;
  std::string output;
};
CommandResult runCommand(const std::string& command);

}  // namespace corvane::test
