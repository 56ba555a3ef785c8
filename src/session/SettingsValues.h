// The enumerations the settings store by raw value, with their raw values and the labels the
// settings tabs show.
//
// A stored raw value that names no case decodes to nothing; the store then gives the key's
// default (SettingsStore.h).
//
// Thread class: plain values and pure functions, any thread.
#pragma once

#include <QString>
#include <QStringView>
#include <optional>

namespace corvane {

// The text size of the main window (view layer).
enum class CorvaneTextScale { standard, large, extraLarge };
// How often the live loudness numbers repaint.
enum class MeterReadoutRate { hz10, hz5, hz2 };
enum class SpectrogramColormap { inferno, turbo, plasma, viridis };
enum class SpectrogramFreqScale { logarithmic, mel };
// Column density of the spectrogram; the value is the overlap factor, which is also what is
// stored.
enum class SpectrogramOverlap { overlap75 = 4, overlap875 = 8, overlap9375 = 16, overlap96875 = 32, overlap984375 = 64 };
// What the loudness panel calls integrated, dialogue-gated and maximum short-term.
enum class LoudnessDisplayMode { live, offline };

// Raw values: "standard", "large", "extraLarge".
QString rawValue(CorvaneTextScale scale);
std::optional<CorvaneTextScale> parseCorvaneTextScale(QStringView raw);
// "Standard", "Large", "Extra Large".
QString displayName(CorvaneTextScale scale);

// Raw values: "hz10", "hz5", "hz2".
QString rawValue(MeterReadoutRate rate);
std::optional<MeterReadoutRate> parseMeterReadoutRate(QStringView raw);
// "10 Hz (EBU Tech 3341)", "5 Hz", "2 Hz".
QString displayName(MeterReadoutRate rate);
// Seconds between two repaints of the live numbers: 0.1, 0.2, 0.5.
double readoutIntervalSec(MeterReadoutRate rate);

// Raw values (also the labels): "Inferno", "Turbo", "Plasma", "Viridis".
QString rawValue(SpectrogramColormap colormap);
std::optional<SpectrogramColormap> parseSpectrogramColormap(QStringView raw);

// Raw values (also the labels): "Log", "Mel".
QString rawValue(SpectrogramFreqScale scale);
std::optional<SpectrogramFreqScale> parseSpectrogramFreqScale(QStringView raw);

// 4, 8, 16, 32, 64.
int overlapFactor(SpectrogramOverlap overlap);
std::optional<SpectrogramOverlap> spectrogramOverlapFromFactor(long long factor);
// "75% (default)", "87.5%", "93.75%", "96.875%", "98.4375%".
QString displayName(SpectrogramOverlap overlap);

// Raw values: "live", "offline".
QString rawValue(LoudnessDisplayMode mode);
std::optional<LoudnessDisplayMode> parseLoudnessDisplayMode(QStringView raw);

// A spectrogram window size the settings accept: a power of two from 256 to 16384. (The
// picker offers 512 ... 16384; a stored 256 is kept all the same.)
bool isAcceptedSpectrogramFftSize(long long size);

}  // namespace corvane
