// ChannelOrder: what Corvane knows about the order and meaning of a file's channels.
//
// Files arrive in the channel order of their container (WAVE_FORMAT_EXTENSIBLE's speaker-bit
// order, a CAF layout tag, an FFmpeg layout). Everything after the load works in one
// canonical order per layout, the order of ChannelLayout's tables (5.1: L R C LFE Ls Rs), so
// that routing presets, meters and BS.1770 weights mean the same thing for every source.
//
// Thread class: pure functions, any thread. None of them throws unless said.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane::ChannelOrder {

// BS.1770-5 channel weights by position (its Table 3): 1.41 for channels between 60° and
// 120° azimuth (the surrounds of 5.1, the side surrounds of 7.1), 1.0 for every other
// full-range channel including rear surrounds, 0 for LFE. One weight per channel. A buffer
// without positions is read as the canonical layout of its channel count.
std::vector<double> bs1770Weights(const AudioBuffer& buffer);
std::vector<double> bs1770Weights(std::span<const ChannelPosition> positions, int channelCount);

// The buffer with its channels in canonical order, positions updated; the same buffer when it
// is already in order or carries no positions. Channels are moved, never mixed.
SharedAudioBuffer canonicalize(SharedAudioBuffer buffer);

// Short display names ("L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss", ...) of the positions,
// one per channel; empty when the positions are empty or include an Unknown channel.
std::vector<std::string> displayShortNames(std::span<const ChannelPosition> positions);

// Whether a WAV file (WAVE_FORMAT_EXTENSIBLE channel mask) can store these positions in this
// order: a mask fixes the order to ascending speaker bits, so any other order is lost.
bool wavPreservesChannelOrder(std::span<const ChannelPosition> positions);

// Whether eight labels are in the SMPTE 7.1 order the routing presets assume
// ("L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss" or the equivalent names).
bool is71SMPTEOrdered(std::span<const std::string> labels);

}  // namespace corvane::ChannelOrder
