// Spectrogram columns of a stretch of audio, computed offline.
//
// Two users share one loop: the load, which draws a first spectrogram of the whole file
// before anyone asks for it (computeLoadTimeSpectrogram), and the analysis of a selection when
// the spectrogram's FFT size differs from the spectrum's (computeSpectrogramColumns). Both
// keep a picture of any length to about 2048 columns by lengthening the hop, never by
// skipping windows:
//   hop = max(fftSize / max(overlapFactor, 1), (frameCount − fftSize) / 2048, 64) frames
//   windows at pos = 0, hop, 2·hop ... while pos + fftSize ≤ frameCount
// Each window goes through a Hann FFT (FFTProcessor, live mode off, so quiet bins keep their
// level down to −300 dB instead of the live floor of −160 dB). A column holds fftSize / 2
// values in dB:
//   channelIndex absent       the mean of the channels' power spectra, in dB (10·log10 of
//                             the mean power; no floor beyond the FFT's own);
//   channelIndex valid        that channel's spectrum;
//   channelIndex out of range −100 in every bin (the column still keeps its time, so the
//                             display's time axis stays whole).
// A column's time is startTime + pos / sampleRate: the start of its window, in seconds.
//
// Thread class: pure functions, any thread (FFTW plans are made through the thread-safe
// planner). They allocate the result; nothing throws except std::bad_alloc.
#pragma once

#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane {

// One spectrogram column: the time (seconds) and fftSize / 2 magnitudes in dB, bin k at
// k · sampleRate / fftSize Hz.
struct SpectrogramColumn {
  double time = 0.0;
  std::vector<float> mags;
};

using SpectrogramColumns = std::vector<SpectrogramColumn>;

// The columns of `frameCount` frames of planar channels (one pointer per channel, each valid
// for frameCount floats). Empty when fftSize is below 2 or odd, frameCount is below fftSize,
// there are no channels (or a null pointer among them) or the rate is not positive. A stop
// request ends the loop early; the columns made so far come back.
SpectrogramColumns computeSpectrogramColumns(std::span<const float* const> channelPointers,
                                             FrameCount frameCount, double sampleRate, int fftSize,
                                             int overlapFactor, std::optional<int> channelIndex,
                                             double startTime, std::stop_token stop = {});

// The load's spectrogram of a whole buffer: the first frameLen frames of its first chCount
// channels at rate sr, with column times from 0. Empty for a null buffer, frameLen below
// fftSize or beyond the buffer's length, chCount below 1 or beyond its channels, or as
// computeSpectrogramColumns.
SpectrogramColumns computeLoadTimeSpectrogram(const AudioBuffer* buffer, FrameCount frameLen, int chCount,
                                              double sr, int fftSize, int overlapFactor,
                                              std::optional<int> channelIndex, std::stop_token stop = {});

// The hop of the loop above, in frames.
FrameCount spectrogramColumnHop(FrameCount frameCount, int fftSize, int overlapFactor);

}  // namespace corvane
