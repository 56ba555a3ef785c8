// The words of the routing matrix's cells: tool tips, the value a routed cell shows, and the
// items of its context menu. <src> is the file channel's label ("L"), <out> the output's
// ("R Out").
//
// Thread class: pure functions, any thread.
#pragma once

#include <QString>
#include <QStringList>
#include <optional>

#include "playback/ChannelRouting.h"

namespace corvane {

// An empty cell: "Click to enable: route <src> → <out> at unity (0 dB)."
QString emptyCellToolTip(const QString& src, const QString& out);
// The dot of a routed cell: "Disable: remove <src> → <out>".
QString dotToolTip(const QString& src, const QString& out);
// The phasor: at 0° "Phase 0°: click to cycle +90° → −90° → 180°. ±90° is a broadband Hilbert
// shift; 180° is polarity invert.", otherwise "Phase <phase>: click to cycle. ±90° is a
// broadband Hilbert shift; 180° is polarity invert."
QString phasorToolTip(RoutingPhase phase);
// A routed cell: "<src> → <out> (<gain>[, phase <phase>]). Click the dot to disable; click the
// phasor to cycle phase; click the value to edit; drag the value vertically to adjust.
// Right-click for reset / remove." The gain reads "unity" where the value reads "0.0", else
// "%+.1f dB"; the phase is named only when it isn't 0°.
QString routedCellToolTip(const QString& src, const QString& out, float gain, RoutingPhase phase);
// The context menu of a routed cell: "Cycle phase (<phase> → <next phase>)", "Reset to unity
// (0 dB)", "Remove route"; of an empty cell: "Add route at unity (0 dB)".
QStringList routedCellMenu(RoutingPhase phase);
QStringList emptyCellMenu();

// The matrix/list switch's tool tips.
QString matrixToggleToolTip(bool matrixShown, bool forMatrixSegment);

inline constexpr const char* kNoFileRoutingText = "Load an audio file to configure routing.";
inline constexpr double kGainDragDBPerPoint = 0.25;  // dB per point of vertical drag, up is louder
inline constexpr int kGainDragMinimumPoints = 5;

}  // namespace corvane
