// Times and zoom factors as the time displays write them: ruler labels, the selection bar's
// fields, the zoom controls' labels.
//
// Every number is written in the C locale's form (the application runs under the user's
// locale, where printf would write "1:05,5"), and a rounding that reaches the next minute or
// hour carries into it: 59.96 s at a tenth of a second reads "1:00.0", never "0:60.0".
//
// Thread class: pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// What the ruler counts and the position fields show: seconds or frame numbers.
enum class RulerMode { time, samples };

// `seconds` as "m:ss" or, from an hour on, "h:mm:ss", with as many decimals as `interval`
// (the spacing of the ruler's ticks, or the precision asked for) needs: none from 1 s (the
// time is rounded to whole seconds), one from 0.1 s, two from 0.01 s, else three. The seconds
// always have two digits before the point ("0:05", "1:02:03.5"). A negative or non-finite
// time counts as 0; a non-finite interval as the finest.
std::string formatTime(double seconds, double interval);

// A position as the selection bar writes it: the frame number round(seconds · sampleRate) in
// sample mode, formatTime(seconds, 0.001) in time mode.
std::string formatPosition(double seconds, RulerMode mode, double sampleRate);

// What formatPosition writes (and what a user types in its place) read back as seconds. In
// sample mode a whole number of frames (no sign, no point), divided by the rate; in time mode
// up to three parts split at ":", hours · 3600 + minutes · 60 + seconds, the last part real
// and the others whole. Surrounding spaces are ignored. None for anything else, for a
// negative value, and in sample mode for a rate that isn't positive.
std::optional<double> parsePosition(std::string_view text, RulerMode mode, double sampleRate);

// A span end in a panel header: whole minutes, ":", seconds "%05.2f" ("1:05.25", "61:40.00").
std::string timeLabel(double seconds);

// The time zoom's label: "fit" below 1.5, "%.1fx" below 1000, "%.0fx" from there.
std::string zoomLabel(double zoom);

// The amplitude zoom's label: "amp" within 0.02 of 1, else "×%.1f" below 10, and from there
// "×" and a whole number.
std::string amplitudeZoomLabel(double amplitudeZoom);

}  // namespace corvane
