#include "playback/RenderRouting.h"

#include "playback/RenderMirrors.h"

namespace corvane {

RenderRouting compileRenderRouting(const ChannelRoutings& routings) {
  RenderRouting compiled;
  compiled.firstSource.reserve(routings.size() + 1);
  for (const ChannelRoutingEntry& entry : routings) {
    for (const ChannelSourceSlot& slot : entry.sources) {
      if (slot.sourceChannelIndex < 0) continue;
      compiled.sources.push_back({slot.sourceChannelIndex, slot.gain, slot.phase});
    }
    compiled.firstSource.push_back(static_cast<int>(compiled.sources.size()));
  }
  return compiled;
}

void syncPhaseAtomics(const ChannelRoutings& routings, RenderMirrors& mirrors) {
  const PhaseShiftNeeds needs = phaseShiftNeeds(routings);
  mirrors._atomicSrcQuadMask.store(needs.srcQuadMask);
  mirrors._atomicAnyPhaseShift.store(needs.anyPhaseShift);
}

}  // namespace corvane
