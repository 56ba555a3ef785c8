// Playback speeds offered by the transport, their labels, and the transport's tooltips.
//
// Thread class: pure, any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace corvane {

inline constexpr std::array<double, 7> kPlaybackRateChoices = {0.25, 0.5, 0.75, 1.0, 1.25, 1.5, 2.0};
inline constexpr double kMinPlaybackRate = 0.25;
inline constexpr double kMaxPlaybackRate = 2.0;

// "1×" for 1.0, "%.0f×" for other whole numbers ("2×"), "%g×" otherwise ("0.25×", "1.5×"),
// in the C locale.
std::string playbackRateLabel(double rate);

// A speed limited to kMinPlaybackRate ... kMaxPlaybackRate; NaN gives 1.0.
double limitPlaybackRate(double rate);

// The pitch shift of the time-pitch stage in cents: 0 with the pitch kept, else
// 1200 × log2(rate), so that the pitch follows the speed as on tape.
double playbackPitchCents(double rate, bool preservePitch);

namespace transport_text {
inline constexpr std::string_view kHoldPlayStartOn =
    "Hold play-start: On. Pause returns to where Play started; nudges re-seek there";
inline constexpr std::string_view kHoldPlayStartOff =
    "Hold play-start: Off. Pause stays at current position";
inline constexpr std::string_view kLoopOn = "Loop: On, click to disable";
inline constexpr std::string_view kLoopOff = "Loop: Off, click to enable";
inline constexpr std::string_view kPitchOn = "Pitch preservation on, click to disable";
inline constexpr std::string_view kPitchOff = "Pitch preservation off, click to enable";
inline constexpr std::string_view kSkipBack5 = "Skip Back 5 Seconds";
inline constexpr std::string_view kSkipForward5 = "Skip Forward 5 Seconds";
inline constexpr std::string_view kSkipBack1 = "Skip Back 1 Second";
inline constexpr std::string_view kSkipForward1 = "Skip Forward 1 Second";
}  // namespace transport_text

}  // namespace corvane
