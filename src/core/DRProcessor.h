// DRProcessor: the integer dynamic-range (DR) value of the published DR meter algorithm.
//
// Per channel:
//   1. The channel is cut into blocks of 3 s (round(3 × sampleRate) frames); a shorter last
//      block counts as a block of its own.
//   2. Each block gives RMS = sqrt(2 · Σx² / n) (the √2 makes a full-scale sine read 0 dB) and
//      Peak = max |x|.
//   3. N = max(1, round(0.2 × blocks)): the loudest N blocks by RMS are kept.
//   4. Pk2 = the second-largest block peak (the largest when there is only one block).
//   5. DR = 20·log10(Pk2 / sqrt(Σ RMS² over the N blocks / N)), in dB.
// The channel's value is DR rounded to the nearest integer. The overall value is the mean of
// the channels' unrounded DR values, rounded to the nearest integer, as the algorithm combines
// channels. A channel that is digitally silent reads 0 and counts as 0 in the mean.
//
// Thread class: pure functions, any thread. They allocate (a few bytes per block), so they are
// for background work, not for the render callback.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"

namespace corvane::DRProcessor {

// channelData: channelCount pointers of frameCount floats each. Non-finite samples are read
// as 0. Returns −1 when there is nothing to measure (no channels, no frames, null data).
int computeDR(const float* const* channelData, int channelCount, FrameCount frameCount,
              double sampleRate);

// One value per channel; empty when computeDR would return −1.
std::vector<int> computeDRPerChannel(const float* const* channelData, int channelCount,
                                     FrameCount frameCount, double sampleRate);

// The unrounded DR of one channel in dB (step 5 above), 0 for silence; for callers that show
// a decimal and for tests.
double channelDRDecibels(const float* samples, FrameCount frameCount, double sampleRate);

}  // namespace corvane::DRProcessor
