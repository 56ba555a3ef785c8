#include "playback/ChannelRouting.h"

#include <algorithm>
#include <random>

#include "playback/RoutingGain.h"

namespace corvane {

RoutingId RoutingId::create() {
  // One generator per thread, seeded once from the system's entropy: ids only need to be
  // unique within a session and across saved presets, not unpredictable.
  thread_local std::mt19937_64 generator([] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }());
  RoutingId id;
  for (int half = 0; half < 2; ++half) {
    const std::uint64_t bits = generator();
    for (int b = 0; b < 8; ++b) {
      id.bytes[static_cast<std::size_t>(half * 8 + b)] = static_cast<std::uint8_t>(bits >> (8 * b));
    }
  }
  id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);  // version 4
  id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return id;
}

std::string RoutingId::toString() const {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kHex[bytes[i] >> 4]);
    text.push_back(kHex[bytes[i] & 0x0F]);
  }
  return text;
}

std::optional<RoutingPhase> routingPhaseFromDegrees(int degrees) {
  switch (degrees) {
    case 0: return RoutingPhase::inPhase;
    case 90: return RoutingPhase::plus90;
    case -90: return RoutingPhase::minus90;
    case 180: return RoutingPhase::invert;
    default: return std::nullopt;
  }
}

std::string_view routingPhaseLabel(RoutingPhase phase) {
  switch (phase) {
    case RoutingPhase::inPhase: return "0°";
    case RoutingPhase::plus90: return "+90°";
    case RoutingPhase::minus90: return "\xE2\x88\x92" "90°";
    case RoutingPhase::invert: return "180°";
  }
  return "0°";
}

std::string_view monitorModeRawValue(MonitorMode mode) {
  return mode == MonitorMode::pre ? "PRE" : "POST";
}

std::optional<MonitorMode> monitorModeFromRawValue(std::string_view raw) {
  if (raw == "PRE") return MonitorMode::pre;
  if (raw == "POST") return MonitorMode::post;
  return std::nullopt;
}

RoutingPhase nextRoutingPhase(RoutingPhase phase) {
  switch (phase) {
    case RoutingPhase::inPhase: return RoutingPhase::plus90;
    case RoutingPhase::plus90: return RoutingPhase::minus90;
    case RoutingPhase::minus90: return RoutingPhase::invert;
    case RoutingPhase::invert: return RoutingPhase::inPhase;
  }
  return RoutingPhase::inPhase;
}

namespace {

ChannelSourceSlot makeSlot(int source, float gain) {
  ChannelSourceSlot slot;
  slot.sourceChannelIndex = source;
  slot.gain = gain;
  return slot;
}

std::string outputLabel(int index, std::span<const std::string> labels) {
  std::string label;
  if (index < static_cast<int>(labels.size())) {
    label = labels[static_cast<std::size_t>(index)];
  } else {
    label = "Ch";
    label += std::to_string(index + 1);
  }
  label += " Out";
  return label;
}

ChannelRoutingEntry* entryAt(ChannelRoutings& routings, int outIdx) {
  if (outIdx < 0 || outIdx >= static_cast<int>(routings.size())) return nullptr;
  return &routings[static_cast<std::size_t>(outIdx)];
}

const ChannelRoutingEntry* entryAt(const ChannelRoutings& routings, int outIdx) {
  if (outIdx < 0 || outIdx >= static_cast<int>(routings.size())) return nullptr;
  return &routings[static_cast<std::size_t>(outIdx)];
}

template <typename Entry>
auto firstSlotOf(Entry& entry, int src) {
  return std::find_if(entry.sources.begin(), entry.sources.end(),
                      [src](const ChannelSourceSlot& s) { return s.sourceChannelIndex == src; });
}

ChannelSourceSlot* slotAt(ChannelRoutings& routings, int outIdx, int src) {
  ChannelRoutingEntry* entry = entryAt(routings, outIdx);
  if (!entry) return nullptr;
  auto it = firstSlotOf(*entry, src);
  return it == entry->sources.end() ? nullptr : &*it;
}

}  // namespace

ChannelRoutings defaultRoutings(int fileChannels, int deviceChannels,
                                std::span<const std::string> outputLabels) {
  ChannelRoutings routings;
  if (deviceChannels < 1) return routings;
  routings.reserve(static_cast<std::size_t>(deviceChannels));
  const bool monoSpread = fileChannels == 1 && deviceChannels >= 2;
  for (int i = 0; i < deviceChannels; ++i) {
    ChannelRoutingEntry entry;
    entry.outputChannelLabel = outputLabel(i, outputLabels);
    if (monoSpread) {
      entry.sources.push_back(i < 2 ? makeSlot(0, kMonoToStereoGain) : makeSlot(-1, 1.0f));
    } else {
      entry.sources.push_back(makeSlot(i < fileChannels ? i : -1, 1.0f));
    }
    routings.push_back(std::move(entry));
  }
  return routings;
}

std::optional<float> routingGainFor(const ChannelRoutings& routings, int outIdx, int src) {
  const ChannelRoutingEntry* entry = entryAt(routings, outIdx);
  if (!entry) return std::nullopt;
  auto it = firstSlotOf(*entry, src);
  if (it == entry->sources.end()) return std::nullopt;
  return it->gain;
}

std::optional<RoutingPhase> routingPhaseFor(const ChannelRoutings& routings, int outIdx, int src) {
  const ChannelRoutingEntry* entry = entryAt(routings, outIdx);
  if (!entry) return std::nullopt;
  auto it = firstSlotOf(*entry, src);
  if (it == entry->sources.end()) return std::nullopt;
  return it->phase;
}

bool addRoute(ChannelRoutings& routings, int outIdx, int src) {
  ChannelRoutingEntry* entry = entryAt(routings, outIdx);
  if (!entry) return false;
  if (firstSlotOf(*entry, src) != entry->sources.end()) return false;
  if (entry->sources.size() == 1 && entry->sources.front().sourceChannelIndex == -1) {
    entry->sources.front() = makeSlot(src, 1.0f);
  } else {
    entry->sources.push_back(makeSlot(src, 1.0f));
  }
  return true;
}

bool removeRoute(ChannelRoutings& routings, int outIdx, int src) {
  ChannelRoutingEntry* entry = entryAt(routings, outIdx);
  if (!entry) return false;
  auto it = firstSlotOf(*entry, src);
  if (it == entry->sources.end()) return false;
  entry->sources.erase(it);
  if (entry->sources.empty()) entry->sources.push_back(makeSlot(-1, 1.0f));
  return true;
}

bool setRouteGainDB(ChannelRoutings& routings, int outIdx, int src, double gainDB) {
  ChannelSourceSlot* slot = slotAt(routings, outIdx, src);
  if (!slot) return false;
  slot->gain = routingGainFromDB(gainDB);
  return true;
}

bool adjustRouteGain(ChannelRoutings& routings, int outIdx, int src, double deltaDB) {
  ChannelSourceSlot* slot = slotAt(routings, outIdx, src);
  if (!slot) return false;
  slot->gain = adjustedRoutingGain(slot->gain, deltaDB);
  return true;
}

bool resetRouteGain(ChannelRoutings& routings, int outIdx, int src) {
  ChannelSourceSlot* slot = slotAt(routings, outIdx, src);
  if (!slot) return false;
  slot->gain = 1.0f;
  return true;
}

bool cycleRoutePhase(ChannelRoutings& routings, int outIdx, int src) {
  ChannelSourceSlot* slot = slotAt(routings, outIdx, src);
  if (!slot) return false;
  slot->phase = nextRoutingPhase(slot->phase);
  return true;
}

PhaseShiftNeeds phaseShiftNeeds(const ChannelRoutings& routings) {
  PhaseShiftNeeds needs;
  for (const ChannelRoutingEntry& entry : routings) {
    for (const ChannelSourceSlot& slot : entry.sources) {
      if (!needsQuadrature(slot.phase)) continue;
      needs.anyPhaseShift = true;
      if (slot.sourceChannelIndex >= 0 && slot.sourceChannelIndex < 64) {
        needs.srcQuadMask |= std::uint64_t{1} << slot.sourceChannelIndex;
      }
    }
  }
  return needs;
}

std::vector<std::int32_t> editModeChannelMap(const ChannelRoutings& routings, int deviceChannels,
                                             int sourceChannels) {
  std::vector<std::int32_t> map;
  if (deviceChannels < 1) return map;
  const int limit = sourceChannels < 2 ? 1 : 2;
  map.assign(static_cast<std::size_t>(deviceChannels), -1);
  for (int i = 0; i < deviceChannels; ++i) {
    const ChannelRoutingEntry* entry = entryAt(routings, i);
    if (!entry) {
      map[static_cast<std::size_t>(i)] = i < limit ? i : -1;
      continue;
    }
    for (const ChannelSourceSlot& slot : entry->sources) {
      if (slot.sourceChannelIndex < limit) {
        map[static_cast<std::size_t>(i)] = slot.sourceChannelIndex;
        break;
      }
    }
  }
  return map;
}

ChannelRoutings editModeIdentityRoutings(int fileChannels) {
  ChannelRoutings routings(2);
  routings[0].outputChannelLabel.assign(1, 'L');
  routings[0].sources.push_back(makeSlot(0, 1.0f));
  routings[1].outputChannelLabel.assign(1, 'R');
  routings[1].sources.push_back(makeSlot(std::min(1, std::max(fileChannels - 1, 0)), 1.0f));
  return routings;
}

}  // namespace corvane
