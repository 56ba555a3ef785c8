// Gain of a routing slot as the matrix shows, edits and types it.
//
// The routing stores linear gains; the interface speaks decibels, limited to ±24 dB. Texts
// are formatted and parsed in the C locale whatever the user's locale is.
//
// Thread class: pure functions, any thread. None throws.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

inline constexpr double kRoutingGainMinDB = -24.0;
inline constexpr double kRoutingGainMaxDB = 24.0;
// Below this a gain counts as this for its level in dB (-60 dB), so that an adjustment from
// silence starts somewhere finite.
inline constexpr float kRoutingGainFloor = 0.001f;

// Linear gain for a level in dB, clamped to kRoutingGainMinDB ... kRoutingGainMaxDB
// (+24 dB gives 15.848932). NaN counts as 0 dB.
float routingGainFromDB(double gainDB);
// 20 log10 of the gain, floored at kRoutingGainFloor.
double routingGainDB(float gain);
// The gain after adding `deltaDB` to its level, clamped.
float adjustedRoutingGain(float gain, double deltaDB);

// What a routed cell shows: "%+.1f" of the level in dB, or "0.0" within 0.05 dB of unity.
std::string formatRoutingGainValue(float gain);
// Whether the cell counts as unity (its value reads "0.0").
bool isUnityRoutingGain(float gain);
// What the value field starts editing with: "%.1f" of the level in dB.
std::string formatRoutingGainEditText(float gain);

// A typed level: "dB" removed in any case, white space trimmed, then a decimal number with
// an optional sign ('+', '-' or the minus sign U+2212). Nothing if that is not a number; the
// caller then keeps the old value. Not clamped: setRouteGainDB clamps.
std::optional<double> parseRoutingGainText(std::string_view text);

}  // namespace corvane
