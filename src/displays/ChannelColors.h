// The screen colours of the channel colour families, and the other colours the time displays
// share, defined once so that lanes, meters and the routing matrix agree.
//
// Thread class: pure functions, any thread (QColor is a value).
#pragma once

#include <QColor>

#include "core/ChannelLayout.h"

namespace corvane {

QColor channelQColor(ChannelColor color);

// Colours of the waveform and the panels beside it.
struct DisplayPalette {
  static QColor background() { return QColor(0x16, 0x18, 0x1c); }
  static QColor laneBackground() { return QColor(0x1c, 0x1f, 0x25); }
  static QColor laneCentreLine() { return QColor(0x34, 0x3a, 0x42); }
  static QColor rulerBackground() { return QColor(0x22, 0x25, 0x2b); }
  static QColor rulerText() { return QColor(0xa4, 0xac, 0xb6); }
  static QColor rulerTick() { return QColor(0x5a, 0x62, 0x6c); }
  static QColor clipMarker() { return QColor(0xff, 0x3b, 0x30); }
  static QColor playhead() { return QColor(0xf5, 0xf5, 0xf7); }
  static QColor hoverLine() { return QColor(0xf5, 0xf5, 0xf7, 0x60); }
  static QColor selectionTint() { return QColor(0x78, 0xaa, 0xff, 0x48); }
  static QColor selectionEdge() { return QColor(0x8c, 0xb8, 0xff); }
  static QColor chapterBoundary() { return QColor(0xff, 0xcc, 0x33); }
  static QColor dialogueRegion() { return QColor(0x5f, 0xe0, 0xc0, 0x30); }
  static QColor speechRange() { return QColor(0x5f, 0xe0, 0xc0, 0x22); }
  // Momentary (0), short-term (1) and true-peak (2) threshold breaks.
  static QColor violation(int kind) {
    return kind == 0 ? QColor(0xf0, 0x99, 0x3a) : kind == 1 ? QColor(0xee, 0x5a, 0x5a) : QColor(0xff, 0x3b, 0x30);
  }
};

}  // namespace corvane
