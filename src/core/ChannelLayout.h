// ChannelLayout: the speaker layouts Corvane names, labels and colours.
//
// A file's channel count picks its layout: seven counts (1, 2, 3, 4, 5, 6, 8) have a known
// layout with fixed labels and colours, every other count is a custom layout whose channels
// are numbered "Ch1" ... "Ch<n>". The labels and colours here are the ones every display,
// the routing matrix and the info panel use, so they are defined once.
//
// The channel order of each known layout is Corvane's canonical order
// (ChannelOrder::canonicalize puts a decoded file into it):
//   Mono   M
//   Stereo L R
//   3.0    L R C
//   Quad   L R Ls Rs
//   5.0    L R C Ls Rs
//   5.1    L R C LFE Ls Rs
//   7.1    L R C LFE Ls Rs Lss Rss   (Ls/Rs rear surrounds, Lss/Rss side surrounds)
//
// Thread class: a plain value; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The colour family of a channel in every display. The order of the cases is the cycle used
// for the channels of a custom layout (channel index modulo 8).
enum class ChannelColor { cyan, green, yellow, orange, red, purple, mint, pink };

// "cyan", "green", ... for logs, JSON and tests.
std::string_view channelColorName(ChannelColor color);

class ChannelLayout {
 public:
  enum class Kind { mono, stereo, surround30, quad, surround50, surround51, surround71, custom };

  // The known layout of 1, 2, 3, 4, 5, 6 or 8 channels; any other count (0 included; a
  // negative count counts as 0) is the custom layout of that count.
  explicit ChannelLayout(int channelCount);

  Kind kind() const { return _kind; }
  int channelCount() const { return _channelCount; }

  // "Mono", "Stereo", "3.0", "Quad", "5.0", "5.1", "7.1", or "<n> ch" for a custom layout.
  std::string displayName() const;

  // One label per channel: the table above, or "Ch1" ... "Ch<n>".
  std::vector<std::string> channelLabels() const;

  // One colour per channel.
  std::vector<ChannelColor> colors() const;
  // The colour of one channel; channels past the count continue the custom cycle.
  ChannelColor color(int channel) const;

  friend bool operator==(const ChannelLayout&, const ChannelLayout&) = default;

 private:
  Kind _kind;
  int _channelCount;
};

}  // namespace corvane
