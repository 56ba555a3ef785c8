// Where each channel's lane sits in the waveform, and where a sample value lands in it.
//
// Lanes share the height below the ruler equally, whole pixels each, with `spacing` pixels
// between them; what doesn't divide evenly stays blank at the bottom. Inside a lane +1 maps to
// its top row and −1 to its bottom row (after the vertical scale), 0 to the middle, and values
// beyond full scale are held to the lane, so a full-scale signal fills it exactly.
//
// Thread class: pure functions, any thread.
#pragma once

#include <optional>
#include <vector>

namespace corvane {

struct LaneGeometry {
  int top = 0;     // first row
  int height = 1;  // rows
  int bottom() const { return top + height - 1; }  // last row
  double centreY() const { return top + (height - 1) / 2.0; }
};

inline constexpr int kWaveformChannelSpacing = 4;  // pixels between lanes

// `channelCount` lanes in rows areaTop ... areaTop + areaHeight − 1; each at least one row high.
std::vector<LaneGeometry> laneGeometry(int channelCount, int areaTop, int areaHeight,
                                       int spacing = kWaveformChannelSpacing);

// The row (fractional) of `value` × `verticalScale` in `lane`, held to the lane.
double laneYForValue(const LaneGeometry& lane, double value, double verticalScale);

// The lane whose rows hold `y`; none between lanes, above or below them.
std::optional<int> laneAtY(const std::vector<LaneGeometry>& lanes, double y);

}  // namespace corvane
