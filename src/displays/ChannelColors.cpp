#include "displays/ChannelColors.h"

namespace corvane {

QColor channelQColor(ChannelColor color) {
  switch (color) {
    case ChannelColor::cyan: return QColor(0x36, 0xc5, 0xe0);
    case ChannelColor::green: return QColor(0x5b, 0xd4, 0x6a);
    case ChannelColor::yellow: return QColor(0xe8, 0xd4, 0x4d);
    case ChannelColor::orange: return QColor(0xf0, 0x99, 0x3a);
    case ChannelColor::red: return QColor(0xee, 0x5a, 0x5a);
    case ChannelColor::purple: return QColor(0xa7, 0x7b, 0xf3);
    case ChannelColor::mint: return QColor(0x5f, 0xe0, 0xc0);
    case ChannelColor::pink: return QColor(0xf0, 0x7a, 0xc0);
  }
  return QColor(0x36, 0xc5, 0xe0);
}

}  // namespace corvane
