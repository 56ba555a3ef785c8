// RenderRouting: the routing as the render callback reads it.
//
// The main thread compiles the routing records into two flat arrays once per change, so that
// the callback walks plain memory and never touches strings, ids or nested vectors.
//
// Thread class: compileRenderRouting allocates (main thread); a compiled value is immutable
// and read by the render thread through a SnapshotSlot.
#pragma once

#include <vector>

#include "playback/ChannelRouting.h"

namespace corvane {

struct RenderRouting {
  struct Source {
    int channel = -1;  // file channel; out-of-range and placeholder slots are dropped
    float gain = 1.0f;
    RoutingPhase phase = RoutingPhase::inPhase;
  };
  // Output o sums sources[firstSource[o] ... firstSource[o + 1]).
  std::vector<int> firstSource{0};
  std::vector<Source> sources;

  int outputCount() const { return static_cast<int>(firstSource.size()) - 1; }
};

// Placeholders (negative channels) are left out; an output whose slots are all placeholders
// has no sources and plays silence.
RenderRouting compileRenderRouting(const ChannelRoutings& routings);

}  // namespace corvane
