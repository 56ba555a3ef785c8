#include "core/ChannelOrder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <initializer_list>
#include <numeric>

namespace corvane::ChannelOrder {
namespace {

// Positions assumed for a buffer that carries none: the canonical layout of its channel count
// (mono, stereo, 3.0, quad, 5.0, 5.1, 7.1 in L R C LFE Ls Rs Lss Rss order). Other counts are
// discrete channels, each weighted 1.0.
std::vector<ChannelPosition> layoutForWeights(int channelCount) {
  using P = ChannelPosition;
  switch (channelCount) {
    case 1: return {P::Mono};
    case 2: return {P::FrontLeft, P::FrontRight};
    case 3: return {P::FrontLeft, P::FrontRight, P::FrontCenter};
    case 4: return {P::FrontLeft, P::FrontRight, P::BackLeft, P::BackRight};
    case 5: return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::BackLeft, P::BackRight};
    case 6:
      return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft,
              P::BackRight};
    case 8:
      return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency,
              P::BackLeft,  P::BackRight,  P::SideLeft,    P::SideRight};
    default: return std::vector<ChannelPosition>(static_cast<std::size_t>(std::max(channelCount, 0)), P::Unknown);
  }
}

}  // namespace

std::vector<double> bs1770Weights(std::span<const ChannelPosition> positions, int channelCount) {
  const int count = std::max(channelCount, 0);
  std::vector<ChannelPosition> assumed;
  if (static_cast<int>(positions.size()) != count) {
    assumed = layoutForWeights(count);
    positions = assumed;
  }
  // Layouts name their surrounds in two ways. With side channels present (7.1), the sides sit
  // at ±90°..±110° and the back pair at ±135°..±150°. Without them (5.1 as WAVE_FORMAT_EXTENSIBLE
  // usually writes it, quad), the "back" pair is the surround pair at ±110°.
  const bool hasSides = std::any_of(positions.begin(), positions.end(), [](ChannelPosition p) {
    return p == ChannelPosition::SideLeft || p == ChannelPosition::SideRight;
  });
  constexpr double kSurround = 1.41;  // +1.5 dB: 60° ≤ |azimuth| ≤ 120°, elevation below 30°
  std::vector<double> weights;
  weights.reserve(positions.size());
  for (ChannelPosition p : positions) {
    switch (p) {
      case ChannelPosition::LowFrequency: weights.push_back(0.0); break;
      case ChannelPosition::SideLeft:
      case ChannelPosition::SideRight: weights.push_back(kSurround); break;
      case ChannelPosition::BackLeft:
      case ChannelPosition::BackRight: weights.push_back(hasSides ? 1.0 : kSurround); break;
      default: weights.push_back(1.0); break;  // front, centre, back centre, heights, unknown
    }
  }
  return weights;
}

std::vector<double> bs1770Weights(const AudioBuffer& buffer) {
  return bs1770Weights(buffer.channelPositions(), buffer.channelCount());
}

// ---------------------------------------------------------------------------------------------
// Canonical order, display names and WAV order: what the file layer needs to read layouts.
// ---------------------------------------------------------------------------------------------

namespace {

using P = ChannelPosition;

// One canonical channel: the speaker positions that may fill it.
using Slot = std::initializer_list<P>;

// The canonical slots of a known layout by channel count, in ChannelLayout's order; empty for
// counts without a known layout (and for mono, whose single channel has nothing to reorder).
std::vector<std::vector<P>> canonicalSlots(int channelCount) {
  const Slot left{P::FrontLeft};
  const Slot right{P::FrontRight};
  const Slot centre{P::FrontCenter};
  const Slot lfe{P::LowFrequency};
  // A 4-, 5- or 6-channel layout has one surround pair, which files label as rear (WAV's
  // 5.1 mask 0x3F) or side speakers (5.1(side), 0x60F) for the same loudspeakers.
  const Slot leftSurround{P::BackLeft, P::SideLeft};
  const Slot rightSurround{P::BackRight, P::SideRight};
  switch (channelCount) {
    case 2: return {left, right};
    case 3: return {left, right, centre};
    case 4: return {left, right, leftSurround, rightSurround};
    case 5: return {left, right, centre, leftSurround, rightSurround};
    case 6: return {left, right, centre, lfe, leftSurround, rightSurround};
    case 8:
      return {left, right, centre, lfe, {P::BackLeft}, {P::BackRight}, {P::SideLeft}, {P::SideRight}};
    default: return {};
  }
}

// The bit of a position in WAVE_FORMAT_EXTENSIBLE's dwChannelMask; -1 for positions that have
// none. A mono channel is stored as the front centre speaker.
int wavSpeakerBit(ChannelPosition position) {
  switch (position) {
    case P::FrontLeft: return 0;
    case P::FrontRight: return 1;
    case P::FrontCenter: return 2;
    case P::Mono: return 2;
    case P::LowFrequency: return 3;
    case P::BackLeft: return 4;
    case P::BackRight: return 5;
    case P::FrontLeftOfCenter: return 6;
    case P::FrontRightOfCenter: return 7;
    case P::BackCenter: return 8;
    case P::SideLeft: return 9;
    case P::SideRight: return 10;
    case P::TopCenter: return 11;
    case P::TopFrontLeft: return 12;
    case P::TopFrontCenter: return 13;
    case P::TopFrontRight: return 14;
    case P::TopBackLeft: return 15;
    case P::TopBackCenter: return 16;
    case P::TopBackRight: return 17;
    case P::Unknown: return -1;
  }
  return -1;
}

std::string lowercase(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

}  // namespace

std::vector<int> canonicalPermutation(std::span<const ChannelPosition> positions) {
  const auto slots = canonicalSlots(static_cast<int>(positions.size()));
  if (slots.empty()) return {};
  std::vector<int> sourceOf(slots.size(), -1);
  std::vector<bool> used(positions.size(), false);
  for (std::size_t k = 0; k < slots.size(); ++k) {
    for (std::size_t c = 0; c < positions.size(); ++c) {
      if (used[c]) continue;
      if (std::find(slots[k].begin(), slots[k].end(), positions[c]) == slots[k].end()) continue;
      // A second channel that could fill the same slot makes the layout ambiguous (two
      // front-left speakers, rear and side pairs mixed): keep the file's order.
      for (std::size_t other = c + 1; other < positions.size(); ++other) {
        if (!used[other] && positions[other] == positions[c]) return {};
      }
      sourceOf[k] = static_cast<int>(c);
      used[c] = true;
      break;
    }
    if (sourceOf[k] < 0) return {};
  }
  // A surround pair must be one family: a rear left with a side right is no known layout.
  if (slots.size() == 4 || slots.size() == 5 || slots.size() == 6) {
    const std::size_t ls = slots.size() - 2;
    const bool leftIsRear = positions[static_cast<std::size_t>(sourceOf[ls])] == P::BackLeft;
    const bool rightIsRear = positions[static_cast<std::size_t>(sourceOf[ls + 1])] == P::BackRight;
    if (leftIsRear != rightIsRear) return {};
  }
  std::vector<int> identity(sourceOf.size());
  std::iota(identity.begin(), identity.end(), 0);
  if (sourceOf == identity) return {};
  return sourceOf;
}

SharedAudioBuffer canonicalize(SharedAudioBuffer buffer) {
  if (!buffer) return buffer;
  const auto permutation = canonicalPermutation(buffer->channelPositions());
  if (permutation.empty()) return buffer;
  if (buffer.use_count() > 1) buffer = buffer->clone();
  buffer->permuteChannels(permutation);
  return buffer;
}

std::vector<std::string> displayShortNames(std::span<const ChannelPosition> positions) {
  if (positions.empty()) return {};
  if (positions.size() == 1 && (positions[0] == P::FrontCenter || positions[0] == P::Mono)) {
    return {"M"};
  }
  const bool hasRearPair = std::find(positions.begin(), positions.end(), P::BackLeft) != positions.end() ||
                           std::find(positions.begin(), positions.end(), P::BackRight) != positions.end();
  std::vector<std::string> names;
  names.reserve(positions.size());
  for (ChannelPosition position : positions) {
    switch (position) {
      case P::FrontLeft: names.emplace_back("L"); break;
      case P::FrontRight: names.emplace_back("R"); break;
      case P::FrontCenter: names.emplace_back("C"); break;
      case P::LowFrequency: names.emplace_back("LFE"); break;
      case P::BackLeft: names.emplace_back("Ls"); break;
      case P::BackRight: names.emplace_back("Rs"); break;
      case P::SideLeft: names.emplace_back(hasRearPair ? "Lss" : "Ls"); break;
      case P::SideRight: names.emplace_back(hasRearPair ? "Rss" : "Rs"); break;
      case P::FrontLeftOfCenter: names.emplace_back("Lc"); break;
      case P::FrontRightOfCenter: names.emplace_back("Rc"); break;
      case P::BackCenter: names.emplace_back("Cs"); break;
      case P::TopCenter: names.emplace_back("Ts"); break;
      case P::TopFrontLeft: names.emplace_back("Tfl"); break;
      case P::TopFrontCenter: names.emplace_back("Tfc"); break;
      case P::TopFrontRight: names.emplace_back("Tfr"); break;
      case P::TopBackLeft: names.emplace_back("Tbl"); break;
      case P::TopBackCenter: names.emplace_back("Tbc"); break;
      case P::TopBackRight: names.emplace_back("Tbr"); break;
      case P::Mono: names.emplace_back("M"); break;
      case P::Unknown: return {};
    }
  }
  return names;
}

bool wavPreservesChannelOrder(std::span<const ChannelPosition> positions) {
  int lastBit = -1;
  bool unlabelledSeen = false;
  for (ChannelPosition position : positions) {
    const int bit = wavSpeakerBit(position);
    if (bit < 0) {
      unlabelledSeen = true;
      continue;
    }
    // A labelled channel after an unlabelled one, or out of ascending bit order (a repeat
    // included), would be read back at another place.
    if (unlabelledSeen || bit <= lastBit) return false;
    lastBit = bit;
  }
  return true;
}

bool is71SMPTEOrdered(std::span<const std::string> labels) {
  static const std::array<std::vector<std::string>, 8> accepted{{
      {"l", "fl", "left"},
      {"r", "fr", "right"},
      {"c", "fc", "center", "centre"},
      {"lfe", "lfe1", "sub"},
      {"ls", "bl", "lrs", "rls", "lb"},
      {"rs", "br", "rrs", "rb"},
      {"lss", "sl", "lsd"},
      {"rss", "sr", "rsd"},
  }};
  if (labels.size() != accepted.size()) return false;
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const std::string label = lowercase(labels[i]);
    const auto& names = accepted[i];
    if (std::find(names.begin(), names.end(), label) == names.end()) return false;
  }
  return true;
}

}  // namespace corvane::ChannelOrder
