// Where the time ruler puts its ticks.
//
// Seconds: the spacing is the first of 0.1, 0.25, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600 s
// that gives at most 10 ticks over the visible span, and 600 beyond. Frames (sample ruler): the
// first of 1, 2, 4, 10, 20, 50, then 1-2-5 in each decade up to 5,000,000 that gives at most 10
// ticks over the visible frames, and 5,000,000 beyond. 4 rather than 5 keeps the finest steps
// on whole frames at any zoom.
//
// Ticks stand at whole multiples of the spacing from the first one in view. Each is computed
// as k · spacing, never by adding spacings up, so a tick at 4500 s on a ten-hour file is
// 4500.0 and not the sum of 18,000 quarter seconds.
//
// Thread class: pure functions, any thread.
#pragma once

#include <vector>

#include "core/AudioBuffer.h"

namespace corvane {

// Seconds between ticks for `secondsVisible` seconds in view (a span of 0 or less takes 0.1).
double niceTickInterval(double secondsVisible);

// Frames between ticks for `framesVisible` frames in view.
FrameCount sampleTickInterval(double framesVisible);

// The tick times k · interval within [visibleStart, visibleEnd], ascending. Empty for an
// interval that isn't positive or an empty span.
std::vector<double> rulerTicks(double visibleStart, double visibleEnd, double interval);

// The tick frames k · interval within [firstFrame, lastFrame], ascending.
std::vector<FrameCount> rulerSampleTicks(double firstFrame, double lastFrame, FrameCount interval);

}  // namespace corvane
