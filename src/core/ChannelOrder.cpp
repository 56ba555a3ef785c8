#include "core/ChannelOrder.h"

#include <algorithm>
#include <array>

namespace corvane::ChannelOrder {
namespace {

// Positions assumed for a buffer that carries none: the canonical layout of its channel count
// (mono, stereo, 3.0, quad, 5.0, 5.1, 7.1 in L R C LFE Ls Rs Lss Rss order). Other counts are
// discrete channels, each weighted 1.0.
std::vector<ChannelPosition> canonicalPositions(int channelCount) {
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
    assumed = canonicalPositions(count);
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

}  // namespace corvane::ChannelOrder
