#include "core/ChannelLayout.h"

#include <algorithm>
#include <array>

namespace corvane {

namespace {

struct KnownLayout {
  ChannelLayout::Kind kind;
  int channelCount;
  const char* displayName;
  std::vector<const char*> labels;
  std::vector<ChannelColor> colors;
};

const std::array<KnownLayout, 7>& knownLayouts() {
  using C = ChannelColor;
  using K = ChannelLayout::Kind;
  static const std::array<KnownLayout, 7> layouts{{
      {K::mono, 1, "Mono", {"M"}, {C::cyan}},
      {K::stereo, 2, "Stereo", {"L", "R"}, {C::cyan, C::green}},
      {K::surround30, 3, "3.0", {"L", "R", "C"}, {C::cyan, C::green, C::yellow}},
      {K::quad, 4, "Quad", {"L", "R", "Ls", "Rs"}, {C::cyan, C::green, C::orange, C::purple}},
      {K::surround50, 5, "5.0", {"L", "R", "C", "Ls", "Rs"},
       {C::cyan, C::green, C::yellow, C::orange, C::purple}},
      {K::surround51, 6, "5.1", {"L", "R", "C", "LFE", "Ls", "Rs"},
       {C::cyan, C::green, C::yellow, C::red, C::orange, C::purple}},
      {K::surround71, 8, "7.1", {"L", "R", "C", "LFE", "Ls", "Rs", "Lss", "Rss"},
       {C::cyan, C::green, C::yellow, C::red, C::orange, C::purple, C::mint, C::pink}},
  }};
  return layouts;
}

const KnownLayout* findKnown(ChannelLayout::Kind kind) {
  for (const auto& layout : knownLayouts()) {
    if (layout.kind == kind) return &layout;
  }
  return nullptr;
}

}  // namespace

std::string_view channelColorName(ChannelColor color) {
  switch (color) {
    case ChannelColor::cyan: return "cyan";
    case ChannelColor::green: return "green";
    case ChannelColor::yellow: return "yellow";
    case ChannelColor::orange: return "orange";
    case ChannelColor::red: return "red";
    case ChannelColor::purple: return "purple";
    case ChannelColor::mint: return "mint";
    case ChannelColor::pink: return "pink";
  }
  return "cyan";
}

ChannelLayout::ChannelLayout(int channelCount)
    : _kind(Kind::custom), _channelCount(std::max(channelCount, 0)) {
  for (const auto& layout : knownLayouts()) {
    if (layout.channelCount == _channelCount) _kind = layout.kind;
  }
}

std::string ChannelLayout::displayName() const {
  if (const auto* known = findKnown(_kind)) return known->displayName;
  return std::to_string(_channelCount) + " ch";
}

std::vector<std::string> ChannelLayout::channelLabels() const {
  std::vector<std::string> labels;
  labels.reserve(static_cast<std::size_t>(_channelCount));
  if (const auto* known = findKnown(_kind)) {
    for (const char* label : known->labels) labels.emplace_back(label);
    return labels;
  }
  for (int i = 0; i < _channelCount; ++i) labels.push_back("Ch" + std::to_string(i + 1));
  return labels;
}

std::vector<ChannelColor> ChannelLayout::colors() const {
  std::vector<ChannelColor> result;
  result.reserve(static_cast<std::size_t>(_channelCount));
  for (int i = 0; i < _channelCount; ++i) result.push_back(color(i));
  return result;
}

ChannelColor ChannelLayout::color(int channel) const {
  if (const auto* known = findKnown(_kind)) {
    if (channel >= 0 && channel < known->channelCount) {
      return known->colors[static_cast<std::size_t>(channel)];
    }
  }
  const int index = ((channel % 8) + 8) % 8;
  return static_cast<ChannelColor>(index);
}

}  // namespace corvane
