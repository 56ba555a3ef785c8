// RoutedRender: the routing matrix applied offline to a whole buffer — what "Render to File…"
// writes. The same matrix the render callback plays, mixed by SurroundBake: in-phase and 180°
// slots take the source itself (bit-exact at unity), ±90° slots its latency-free quadrature.
//
// Thread class: pure functions, any thread. They allocate the result; none throws (a result
// too large for memory is reported as nothing).
#pragma once

#include <vector>

#include "core/AudioBuffer.h"
#include "playback/ChannelRouting.h"

namespace corvane {

// The outputs worth writing: indexes of the entries with at least one slot of source index 0
// or above, in order. A placeholder-only output is left out; a slot past the file's channels
// still counts (it renders as silence).
std::vector<int> routedOutputIndexes(const ChannelRoutings& routings);

// Whether a WAV file can carry the routed channels for what they are. One or two channels
// are mono or stereo; more are discrete channels in the routing's order, which a WAV has no
// way to say (a channel mask of 0 reads as "unspecified", and a reader may assume the layout
// of the count, as Corvane's own meters do: six channels are weighted as 5.1). A CAF marks
// each channel as one of no speaker.
bool routedOutputFitsWav(int channels);

// The mix of `source` through `routings`, one channel per entry (entry i becomes channel i),
// as long as the source, at its rate. Above two channels every channel's position is
// ChannelPosition::Unknown (discrete, in the routing's order); one or two carry none. Slots whose source index is negative or past the source's channels
// are skipped; the entries' other slots are summed with their linear gain, 180° and −90°
// negating it. Nothing when `outputChannels` is below 1, when it differs from the number of
// entries, when the source has no channels, or when memory runs out.
SharedAudioBuffer buildRoutedBuffer(const AudioBuffer& source, const ChannelRoutings& routings,
                                    int outputChannels);

}  // namespace corvane
