// Channel routing: which file channels feed each output of the device, with a linear gain
// and a phase per source.
//
// Routing is a main-thread value. The output panel edits it through the matrix operations
// below; the render side never sees these records, only the flat RenderRouting that
// compileRenderRouting() makes of them (RenderRouting.h), handed over as an immutable
// snapshot. The records are plain values, copied and compared whole (ids included).
//
// Thread class: every function here is pure or works on a caller-owned vector; main thread
// by convention, any thread in fact. Nothing throws except std::bad_alloc.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Identity of a routing record for lists and editors: a random (version 4) UUID. Equality
// is by value; a copied record keeps its id.
struct RoutingId {
  std::array<std::uint8_t, 16> bytes{};

  // A fresh random id. Thread-safe.
  static RoutingId create();
  // Lower-case "8-4-4-4-12" hexadecimal form.
  std::string toString() const;

  friend bool operator==(const RoutingId&, const RoutingId&) = default;
};

// Phase of one source. The raw values are degrees; they are what routing presets store.
// ±90° is a broadband Hilbert shift of the source; 180° is a polarity inversion (a negated
// gain, no filter).
enum class RoutingPhase : int {
  inPhase = 0,
  plus90 = 90,
  minus90 = -90,
  invert = 180,
};

// The phase of a stored raw value; nothing for any value but 0, 90, -90 and 180.
std::optional<RoutingPhase> routingPhaseFromDegrees(int degrees);
// Interface label: "0°", "+90°", "−90°" (a true minus sign), "180°".
std::string_view routingPhaseLabel(RoutingPhase phase);
// The next phase of the matrix's phasor: 0° → +90° → −90° → 180° → 0°.
RoutingPhase nextRoutingPhase(RoutingPhase phase);
// What the channel meters show: the source before routing (`pre`, "PRE") or what leaves the
// graph (`post`, "POST"). It changes only the reading, never the audio; the render side has
// no use for it.
enum class MonitorMode { pre, post };
// "PRE" or "POST", as stored.
std::string_view monitorModeRawValue(MonitorMode mode);
// The mode of a stored raw value; nothing for any other text.
std::optional<MonitorMode> monitorModeFromRawValue(std::string_view raw);

// Whether the phase needs the quadrature (Hilbert) signal of its source.
constexpr bool needsQuadrature(RoutingPhase phase) {
  return phase == RoutingPhase::plus90 || phase == RoutingPhase::minus90;
}

// One source of an output.
struct ChannelSourceSlot {
  RoutingId id = RoutingId::create();
  // File channel from 0; -1 marks a placeholder: the slot is silent and only keeps the output
  // from having no slot at all. An index at or past the file's channel count is silent too.
  int sourceChannelIndex = -1;
  // Linear factor; 1.0 is unity.
  float gain = 1.0f;
  RoutingPhase phase = RoutingPhase::inPhase;

  friend bool operator==(const ChannelSourceSlot&, const ChannelSourceSlot&) = default;
};

// One output of the device: index i of the routing vector is device output i.
struct ChannelRoutingEntry {
  RoutingId id = RoutingId::create();
  std::string outputChannelLabel;  // "L Out"
  // Summed into this output. Never empty: a placeholder stands in for the last source.
  std::vector<ChannelSourceSlot> sources;

  friend bool operator==(const ChannelRoutingEntry&, const ChannelRoutingEntry&) = default;
};

using ChannelRoutings = std::vector<ChannelRoutingEntry>;

// -3 dB, the gain of a mono file on each of the first two outputs.
inline constexpr float kMonoToStereoGain = 0.70794576f;

// The default routing of a file on a device of `deviceChannels` outputs.
//
// Output i is labelled "<label> Out" with `outputLabels[i]` (the device layout's channel
// labels, from ChannelLayout), or "Ch<i + 1> Out" past the end of the labels. A mono file on
// two or more outputs feeds outputs 0 and 1 at kMonoToStereoGain; otherwise output i takes
// source i at unity while i < fileChannels. Every other output gets a placeholder. One slot per
// output, in phase, fresh ids. Empty for deviceChannels below 1.
ChannelRoutings defaultRoutings(int fileChannels, int deviceChannels,
                                std::span<const std::string> outputLabels);

// --- Matrix operations ------------------------------------------------------------------
// Each addresses an output by index and a source by file channel. An output index outside the
// routing does nothing (and the queries give nothing). They act on the first slot of the
// source when an output holds it twice.

// Gain and phase of the first slot of `src` on output `outIdx`; nothing if there is none.
std::optional<float> routingGainFor(const ChannelRoutings& routings, int outIdx, int src);
std::optional<RoutingPhase> routingPhaseFor(const ChannelRoutings& routings, int outIdx, int src);

// Adds `src` at unity, in phase. No change if the output already has it; a lone placeholder is
// replaced rather than kept beside it. Returns whether the routing changed.
bool addRoute(ChannelRoutings& routings, int outIdx, int src);
// Removes the first slot of `src`; a placeholder (-1, unity, in phase) takes the place of the
// last slot. Returns whether the routing changed.
bool removeRoute(ChannelRoutings& routings, int outIdx, int src);
// Sets the gain from decibels, clamped to kRoutingGainMinDB ... kRoutingGainMaxDB.
bool setRouteGainDB(ChannelRoutings& routings, int outIdx, int src, double gainDB);
// Adds `deltaDB` to the slot's current level (a gain below 0.001 counts as -60 dB), clamped.
bool adjustRouteGain(ChannelRoutings& routings, int outIdx, int src, double deltaDB);
// Back to unity.
bool resetRouteGain(ChannelRoutings& routings, int outIdx, int src);
// Steps the phase along nextRoutingPhase().
bool cycleRoutePhase(ChannelRoutings& routings, int outIdx, int src);

// --- Where quadrature signals are needed --------------------------------------------------

struct PhaseShiftNeeds {
  bool anyPhaseShift = false;  // some slot is at ±90°
  std::uint64_t srcQuadMask = 0;  // bit n: file channel n (below 64) feeds a ±90° slot
};

// Over every slot of every entry. 180° is not a phase shift (the callback negates the gain).
PhaseShiftNeeds phaseShiftNeeds(const ChannelRoutings& routings);

// --- Edit mode on a wide device -----------------------------------------------------------

// The device channel map of the two-channel edit graph: one entry per device output, holding
// the graph channel it plays or -1 for silence. `sourceChannels` is the file's channel count;
// graph channels 0 and 1 exist only for a file of two or more channels (else only 0). An
// output past the routing plays its own index when that graph channel exists; otherwise the
// first slot whose source is a graph channel (a placeholder's -1 included) decides. Empty for
// deviceChannels below 1.
std::vector<std::int32_t> editModeChannelMap(const ChannelRoutings& routings, int deviceChannels,
                                             int sourceChannels);

// The fixed routing of edit mode on a device of three or more outputs: "L" from channel 0 and
// "R" from channel min(1, fileChannels - 1), unity, in phase.
ChannelRoutings editModeIdentityRoutings(int fileChannels);

}  // namespace corvane
