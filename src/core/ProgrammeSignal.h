// ProgrammeSignal: deterministic, programme-like test material.
//
// Measurements are only convincing on material that behaves like real programmes: level
// changes that the gates must sort out, transients that make true peaks differ from sample
// peaks, speech with pauses, a quiet floor, bass that the K-filter's high pass shapes. This
// synthesiser makes such material from nothing but the arguments, bit-identical on every
// machine (its own random generator, no library distributions), so the demo recording, the
// oracle comparisons and the benchmarks all measure the same thing.
//
// Shape over the duration D (fractions of D, so any duration keeps the structure):
//   0.00 – 0.27  music: a chord progression, bass line and drums at 120 BPM, moderate level
//   0.27 – 0.55  speech-like: voiced syllables through moving formants, with pauses of
//                0.1 – 0.6 s over a room-tone floor about 60 dB down
//   0.55 – 0.87  music again, louder, with a crescendo into the last bars
//   0.87 – 1.00  fade-out, then a quiet tail
// Channels: 1 is a mono mix, 2 a stereo mix; with more, channel 2 (C) carries the speech and
// centred bass, 3 (LFE, in 5.1 and 7.1 order) only low frequencies, and the others ambience
// and decorrelated parts of the music. The result is scaled to a sample peak of −1 dBFS.
//
// Thread class: pure function, any thread (allocates the buffer).
#pragma once

#include <cstdint>

#include "core/AudioBuffer.h"

namespace corvane {

struct ProgrammeSignalOptions {
  double sampleRate = 48000.0;
  int channelCount = 2;
  double durationSeconds = 30.0;
  std::uint64_t seed = 1;
};

// Throws std::invalid_argument for a non-positive rate, channel count or duration.
SharedAudioBuffer synthesiseProgramme(const ProgrammeSignalOptions& options);

}  // namespace corvane
