#include "core/ProgrammeSignal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace corvane {
namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

// SplitMix64: tiny, fast and specified bit for bit, unlike the standard distributions.
class Random {
 public:
  explicit Random(std::uint64_t seed) : _state(seed * 0x9E3779B97F4A7C15ull + 0x632BE59BD9B4E019ull) {}
  std::uint64_t next() {
    std::uint64_t z = (_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
  double between(double lo, double hi) { return lo + (hi - lo) * uniform(); }
  // Sum of four uniforms: bell-shaped, unit variance, bounded (no rare huge outliers).
  double noise() { return (uniform() + uniform() + uniform() + uniform() - 2.0) * 1.7320508; }

 private:
  std::uint64_t _state;
};

// RBJ band pass, 0 dB at the centre.
class BandPass {
 public:
  void set(double frequency, double q, double rate) {
    const double w = kTwoPi * std::min(frequency, 0.45 * rate) / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double a0 = 1.0 + alpha;
    _b0 = alpha / a0;
    _b2 = -alpha / a0;
    _a1 = -2.0 * std::cos(w) / a0;
    _a2 = (1.0 - alpha) / a0;
  }
  double operator()(double x) {
    const double y = _b0 * x + _s1;
    _s1 = -_a1 * y + _s2;
    _s2 = _b2 * x - _a2 * y;
    return y;
  }

 private:
  double _b0 = 0, _b2 = 0, _a1 = 0, _a2 = 0, _s1 = 0, _s2 = 0;
};

class OnePole {
 public:
  void setCutoff(double frequency, double rate) { _a = std::exp(-kTwoPi * frequency / rate); }
  double lowPass(double x) { return _y = (1.0 - _a) * x + _a * _y; }

 private:
  double _a = 0.0, _y = 0.0;
};

double midiToHz(double note) { return 440.0 * std::pow(2.0, (note - 69.0) / 12.0); }

// Attack, exponential decay towards a sustain level, and a release before `length`.
double envelope(double t, double length, double attack, double decay, double sustain,
                double release) {
  if (t < 0.0 || t >= length) return 0.0;
  double level = t < attack ? t / attack : sustain + (1.0 - sustain) * std::exp(-(t - attack) / decay);
  const double untilEnd = length - t;
  if (untilEnd < release) level *= untilEnd / release;
  return level;
}

struct Syllable {
  double start;
  double length;
  std::array<double, 3> formants;
  double level;
  bool fricative;
};

std::vector<Syllable> speechSchedule(double start, double end, Random& random) {
  static constexpr std::array<std::array<double, 3>, 6> kVowels = {{
      {730, 1090, 2440}, {270, 2290, 3010}, {300, 870, 2240},
      {530, 1840, 2480}, {570, 840, 2410},  {440, 1020, 2240},
  }};
  std::vector<Syllable> syllables;
  double t = start + 0.2;
  while (t < end - 0.5) {
    const int inPhrase = 2 + static_cast<int>(random.uniform() * 5.0);
    for (int s = 0; s < inPhrase && t < end - 0.4; ++s) {
      Syllable syllable{};
      syllable.start = t;
      syllable.length = random.between(0.12, 0.30);
      syllable.formants = kVowels[static_cast<std::size_t>(random.uniform() * kVowels.size()) % kVowels.size()];
      syllable.level = random.between(0.65, 1.0);
      syllable.fricative = random.uniform() < 0.35;
      syllables.push_back(syllable);
      t += syllable.length + random.between(0.02, 0.06);
    }
    t += random.between(0.25, 0.6);  // pause between phrases
  }
  return syllables;
}

}  // namespace

SharedAudioBuffer synthesiseProgramme(const ProgrammeSignalOptions& options) {
  const double rate = options.sampleRate;
  if (!(rate > 0.0) || options.channelCount < 1 || !(options.durationSeconds > 0.0)) {
    throw std::invalid_argument("A programme signal needs a positive rate, channel count and duration.");
  }
  const int channels = options.channelCount;
  const double duration = options.durationSeconds;
  const auto frames = static_cast<FrameCount>(std::llround(duration * rate));
  SharedAudioBuffer buffer = AudioBuffer::createZeroed(channels, frames, rate);

  Random random(options.seed);
  const double speechStart = 0.27 * duration, speechEnd = 0.55 * duration;
  const double fadeStart = 0.87 * duration, fadeEnd = 0.97 * duration;
  const std::vector<Syllable> syllables = speechSchedule(speechStart, speechEnd, random);

  // Chords (MIDI notes) of a I–V–vi–IV progression, two seconds each at 120 BPM.
  static constexpr std::array<std::array<int, 3>, 4> kChords = {{{60, 64, 67}, {55, 59, 62}, {57, 60, 64}, {53, 57, 60}}};
  std::array<std::array<double, 3>, 4> chordHz{};
  for (std::size_t c = 0; c < kChords.size(); ++c) {
    for (std::size_t n = 0; n < 3; ++n) chordHz[c][n] = midiToHz(kChords[c][n]);
  }
  std::array<double, 6> harmonicWeights{};
  for (std::size_t h = 0; h < harmonicWeights.size(); ++h) harmonicWeights[h] = 1.0 / std::pow(h + 1.0, 1.3);
  constexpr double kBeat = 0.5;
  constexpr double kChordLength = 4 * kBeat;
  // Bar-level accents, fixed per bar so the dynamics repeat identically.
  std::vector<double> accents(static_cast<std::size_t>(duration / kChordLength) + 2);
  for (double& a : accents) a = random.between(0.75, 1.0);

  std::array<double, 3> notePhase{};
  std::array<double, 2> bassPhase{};
  double kickPhase = 0.0, voicePhase = 0.0, snarePhase = 0.0;
  std::array<BandPass, 3> formant;
  BandPass snareBand;
  snareBand.set(1800.0, 0.9, rate);
  // Bright parts stay band-limited (hats around 8 kHz, fricatives around 5 kHz): like real
  // programmes, the material has little energy in the last octave below Nyquist.
  BandPass hatFilter, fricativeFilter;
  hatFilter.set(8000.0, 1.2, rate);
  fricativeFilter.set(5000.0, 1.5, rate);
  OnePole lfeFilter;
  lfeFilter.setCutoff(120.0, rate);
  std::vector<OnePole> roomFilters(static_cast<std::size_t>(channels));
  std::vector<OnePole> ambienceFilters(static_cast<std::size_t>(channels));
  for (auto& f : roomFilters) f.setCutoff(900.0, rate);
  for (auto& f : ambienceFilters) f.setCutoff(2500.0, rate);
  std::size_t syllableIndex = 0;
  double vowelF0 = 120.0;

  const bool hasCentre = channels == 3 || channels == 5 || channels == 6 || channels == 8;
  const bool hasLfe = channels == 6 || channels == 8;

  for (FrameCount i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    const bool inSpeech = t >= speechStart && t < speechEnd;
    // ---- music ----
    double musicL = 0.0, musicR = 0.0, low = 0.0;
    if (!inSpeech && t < fadeEnd) {
      const int chordIndex = static_cast<int>(t / kChordLength);
      const double inChord = t - chordIndex * kChordLength;
      const auto chordSlot = static_cast<std::size_t>(chordIndex % 4);
      const auto& chord = kChords[chordSlot];
      double gain = t < speechStart ? 0.45 : 0.55 + 0.45 * std::clamp((t - speechEnd) / (fadeStart - speechEnd), 0.0, 1.0);
      if (t >= fadeStart) gain *= std::max(0.0, 1.0 - (t - fadeStart) / (fadeEnd - fadeStart));
      gain *= accents[static_cast<std::size_t>(chordIndex) % accents.size()];
      const double pad = envelope(inChord, kChordLength, 0.03, 0.4, 0.6, 0.08);
      for (std::size_t n = 0; n < chord.size(); ++n) {
        const double f = chordHz[chordSlot][n];
        notePhase[n] = std::fmod(notePhase[n] + f / rate, 1.0);
        // Six harmonics falling as 1/h^1.3, by the sine recurrence (one sin and one cos).
        const double theta = kTwoPi * notePhase[n];
        const double twoCos = 2.0 * std::cos(theta);
        double previous = 0.0, current = std::sin(theta), tone = 0.0;
        for (const double weight : harmonicWeights) {
          tone += weight * current;
          const double next = twoCos * current - previous;
          previous = current;
          current = next;
        }
        const double pan = n == 0 ? 0.35 : (n == 1 ? -0.35 : 0.0);
        musicL += 0.12 * pad * tone * (1.0 - pan);
        musicR += 0.12 * pad * tone * (1.0 + pan);
      }
      // Bass, one note per beat on the chord's root.
      const double inBeat = std::fmod(t, kBeat);
      const double bassF = chordHz[chordSlot][0] / 4.0;
      bassPhase[0] = std::fmod(bassPhase[0] + bassF / rate, 1.0);
      bassPhase[1] = std::fmod(bassPhase[1] + 2.0 * bassF / rate, 1.0);
      const double bass = envelope(inBeat, kBeat, 0.005, 0.25, 0.3, 0.02) *
                          (std::sin(kTwoPi * bassPhase[0]) + 0.5 * std::sin(kTwoPi * bassPhase[1]));
      // Drums: kick on beats 1 and 3, snare on 2 and 4, hats on eighths.
      const int beat = static_cast<int>(t / kBeat) % 4;
      double kick = 0.0, snare = 0.0;
      if (beat % 2 == 0 && inBeat < 0.4) {
        kickPhase = std::fmod(kickPhase + (50.0 + 100.0 * std::exp(-inBeat / 0.03)) / rate, 1.0);
        kick = std::exp(-inBeat / 0.15) * std::sin(kTwoPi * kickPhase);
      } else {
        kickPhase = 0.0;
      }
      if (beat % 2 == 1 && inBeat < 0.35) {
        snarePhase = std::fmod(snarePhase + 180.0 / rate, 1.0);
        snare = std::exp(-inBeat / 0.08) * snareBand(random.noise()) * 1.6 +
                std::exp(-inBeat / 0.05) * 0.5 * std::sin(kTwoPi * snarePhase);
      }
      const double inEighth = std::fmod(t, kBeat / 2);
      const double hat = std::exp(-inEighth / 0.02) * hatFilter(random.noise()) * 0.35;
      low = gain * (0.35 * bass + 0.55 * kick);
      musicL = gain * (musicL + 0.35 * snare + 0.6 * hat) + low;
      musicR = gain * (musicR + 0.35 * snare + 1.0 * hat) + low;
    }
    // ---- speech ----
    double speech = 0.0;
    if (inSpeech) {
      while (syllableIndex < syllables.size() &&
             t >= syllables[syllableIndex].start + syllables[syllableIndex].length) {
        ++syllableIndex;
      }
      if (syllableIndex < syllables.size() && t >= syllables[syllableIndex].start) {
        const Syllable& s = syllables[syllableIndex];
        const double inSyllable = t - s.start;
        if (inSyllable * rate < 1.0) {
          vowelF0 = random.between(105.0, 150.0);
          for (std::size_t k = 0; k < 3; ++k) formant[k].set(s.formants[k], s.formants[k] / (60.0 + 30.0 * k), rate);
        }
        const double f0 = vowelF0 * (1.0 + 0.08 * std::sin(kTwoPi * 2.5 * inSyllable));
        voicePhase = std::fmod(voicePhase + f0 / rate, 1.0);
        // Sawtooth-like glottal source, additive and band-limited to 5 kHz so it does not alias.
        const double theta = kTwoPi * voicePhase;
        const int harmonics = std::max(1, static_cast<int>(std::min(5000.0, 0.45 * rate) / f0));
        const double twoCos = 2.0 * std::cos(theta);
        double previous = 0.0, current = std::sin(theta), buzz = 0.0;
        for (int k = 1; k <= harmonics; ++k) {
          buzz += current / k;
          const double next = twoCos * current - previous;
          previous = current;
          current = next;
        }
        buzz *= 0.6;
        const double voiced = formant[0](buzz) + 0.6 * formant[1](buzz) + 0.3 * formant[2](buzz);
        double unvoiced = 0.0;
        if (s.fricative && inSyllable < 0.05) unvoiced = 0.6 * fricativeFilter(random.noise()) * (1.0 - inSyllable / 0.05);
        speech = 0.9 * s.level * envelope(inSyllable, s.length, 0.025, 0.2, 0.7, 0.06) * voiced + unvoiced * s.level;
      }
    }
    // ---- write channels ----
    for (int c = 0; c < channels; ++c) {
      const auto ci = static_cast<std::size_t>(c);
      const double room = 0.0025 * roomFilters[ci].lowPass(random.noise());
      double v = 0.0;
      if (channels == 1) {
        v = 0.5 * (musicL + musicR) + speech;
      } else if (channels == 2) {
        v = (c == 0 ? musicL : musicR) + 0.75 * speech;
      } else if (c == 0 || c == 1) {
        v = (c == 0 ? musicL - 0.5 * low : musicR - 0.5 * low);
      } else if (c == 2 && hasCentre) {
        v = speech + 0.5 * low;
      } else if (c == 3 && hasLfe) {
        v = 1.5 * lfeFilter.lowPass(low);
      } else {
        const double ambience = ambienceFilters[ci].lowPass(random.noise());
        v = 0.25 * (c % 2 == 0 ? musicL : musicR) + 0.05 * ambience * (std::fabs(musicL) + 0.2);
      }
      if (!(hasLfe && c == 3)) v += room;
      buffer->channel(c)[i] = static_cast<float>(v);
    }
  }

  // Peak at −1 dBFS: loud enough to be programme, never clipped.
  float peak = 0.0f;
  for (int c = 0; c < channels; ++c) {
    const float* x = buffer->channel(c);
    for (FrameCount i = 0; i < frames; ++i) peak = std::max(peak, std::fabs(x[i]));
  }
  if (peak > 0.0f) {
    const float scale = static_cast<float>(std::pow(10.0, -1.0 / 20.0)) / peak;
    for (int c = 0; c < channels; ++c) {
      float* x = buffer->channel(c);
      for (FrameCount i = 0; i < frames; ++i) x[i] *= scale;
    }
  }
  return buffer;
}

}  // namespace corvane
