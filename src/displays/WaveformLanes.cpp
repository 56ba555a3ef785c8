#include "displays/WaveformLanes.h"

#include <algorithm>
#include <cmath>

namespace corvane {

std::vector<LaneGeometry> laneGeometry(int channelCount, int areaTop, int areaHeight, int spacing) {
  std::vector<LaneGeometry> lanes;
  if (channelCount < 1) return lanes;
  spacing = std::max(spacing, 0);
  const int height = std::max(1, (areaHeight - spacing * (channelCount - 1)) / channelCount);
  lanes.reserve(static_cast<std::size_t>(channelCount));
  for (int c = 0; c < channelCount; ++c) lanes.push_back({areaTop + c * (height + spacing), height});
  return lanes;
}

double laneYForValue(const LaneGeometry& lane, double value, double verticalScale) {
  double scaled = value * verticalScale;
  if (std::isnan(scaled)) scaled = 0.0;
  scaled = std::clamp(scaled, -1.0, 1.0);
  return lane.top + (1.0 - scaled) / 2.0 * (lane.height - 1);
}

std::optional<int> laneAtY(const std::vector<LaneGeometry>& lanes, double y) {
  for (std::size_t c = 0; c < lanes.size(); ++c) {
    if (y >= lanes[c].top && y < lanes[c].top + lanes[c].height) return static_cast<int>(c);
  }
  return std::nullopt;
}

}  // namespace corvane
