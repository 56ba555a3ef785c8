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

// For positions that describe one of ChannelLayout's known layouts in some other order, the
// source channel of each canonical channel (result[k] = index of the channel that becomes
// channel k). Empty when the positions are already canonical, are empty, or describe no known
// layout (unknown, duplicate or extra speakers, or a count without a known layout): such
// channels keep the file's order. Surrounds of 4, 5 and 6 channels may be rear or side
// speakers; 7.1 needs both pairs (rear = Ls/Rs, side = Lss/Rss).
std::vector<int> canonicalPermutation(std::span<const ChannelPosition> positions);

// The buffer with its channels in canonical order, positions updated; the same buffer when it
// is already in order or carries no positions. Channels are moved, never mixed: a buffer that
// only the caller holds is reordered in place without copying samples, a shared one is
// copied first so that other readers never see it change.
SharedAudioBuffer canonicalize(SharedAudioBuffer buffer);

// Short display names ("L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss", ...) of the positions,
// one per channel; empty when the positions are empty or include an Unknown channel.
// Surrounds are named by their role in the layout, as ChannelLayout labels them: a rear pair
// is "Ls"/"Rs"; a side pair is "Ls"/"Rs" too unless a rear pair is also present (7.1), where
// it becomes "Lss"/"Rss". A lone centre or mono channel is "M". Other speakers: "Lc", "Rc"
// (front left/right of centre), "Cs" (rear centre), "Ts" (top centre), "Tfl", "Tfc", "Tfr",
// "Tbl", "Tbc", "Tbr" (top front/back), "M" (mono).
std::vector<std::string> displayShortNames(std::span<const ChannelPosition> positions);

// Whether a WAV file (WAVE_FORMAT_EXTENSIBLE channel mask) can store these positions in this
// order: a mask fixes the order to ascending speaker bits, so any other order is lost. Unknown
// (unlabelled) channels may only follow the labelled ones; positions that are empty or all
// unknown lose nothing and give true.
bool wavPreservesChannelOrder(std::span<const ChannelPosition> positions);

// Whether eight labels are in the SMPTE 7.1 order the routing presets assume
// ("L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss" or the equivalent names, compared without
// regard to case: "FL"/"Left", "FR"/"Right", "FC"/"Center"/"Centre", "LFE1"/"Sub",
// "BL"/"Lrs"/"Rls"/"Lb", "BR"/"Rrs"/"Rb", "SL"/"Lsd"/"Lss", "SR"/"Rsd"/"Rss").
bool is71SMPTEOrdered(std::span<const std::string> labels);

}  // namespace corvane::ChannelOrder
