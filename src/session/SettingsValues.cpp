#include "session/SettingsValues.h"

#include <array>
#include <utility>

namespace corvane {

namespace {

// A lookup of raw values for an enumeration whose cases are numbered from 0.
template <typename Enum, std::size_t N>
std::optional<Enum> parseRaw(const std::array<const char*, N>& raws, QStringView raw) {
  for (std::size_t i = 0; i < N; ++i) {
    if (raw == QLatin1String(raws[i])) return static_cast<Enum>(i);
  }
  return std::nullopt;
}

constexpr std::array<const char*, 3> kTextScaleRaw = {"standard", "large", "extraLarge"};
constexpr std::array<const char*, 3> kReadoutRateRaw = {"hz10", "hz5", "hz2"};
constexpr std::array<const char*, 4> kColormapRaw = {"Inferno", "Turbo", "Plasma", "Viridis"};
constexpr std::array<const char*, 2> kFreqScaleRaw = {"Log", "Mel"};
constexpr std::array<const char*, 2> kDisplayModeRaw = {"live", "offline"};

}  // namespace

QString rawValue(CorvaneTextScale scale) { return QLatin1String(kTextScaleRaw[static_cast<std::size_t>(scale)]); }
std::optional<CorvaneTextScale> parseCorvaneTextScale(QStringView raw) { return parseRaw<CorvaneTextScale>(kTextScaleRaw, raw); }
QString displayName(CorvaneTextScale scale) {
  switch (scale) {
    case CorvaneTextScale::standard: return QStringLiteral("Standard");
    case CorvaneTextScale::large: return QStringLiteral("Large");
    case CorvaneTextScale::extraLarge: return QStringLiteral("Extra Large");
  }
  return {};
}

QString rawValue(MeterReadoutRate rate) { return QLatin1String(kReadoutRateRaw[static_cast<std::size_t>(rate)]); }
std::optional<MeterReadoutRate> parseMeterReadoutRate(QStringView raw) { return parseRaw<MeterReadoutRate>(kReadoutRateRaw, raw); }
QString displayName(MeterReadoutRate rate) {
  switch (rate) {
    case MeterReadoutRate::hz10: return QStringLiteral("10 Hz (EBU Tech 3341)");
    case MeterReadoutRate::hz5: return QStringLiteral("5 Hz");
    case MeterReadoutRate::hz2: return QStringLiteral("2 Hz");
  }
  return {};
}
double readoutIntervalSec(MeterReadoutRate rate) {
  switch (rate) {
    case MeterReadoutRate::hz10: return 0.1;
    case MeterReadoutRate::hz5: return 0.2;
    case MeterReadoutRate::hz2: return 0.5;
  }
  return 0.1;
}

QString rawValue(SpectrogramColormap colormap) { return QLatin1String(kColormapRaw[static_cast<std::size_t>(colormap)]); }
std::optional<SpectrogramColormap> parseSpectrogramColormap(QStringView raw) {
  return parseRaw<SpectrogramColormap>(kColormapRaw, raw);
}

QString rawValue(SpectrogramFreqScale scale) { return QLatin1String(kFreqScaleRaw[static_cast<std::size_t>(scale)]); }
std::optional<SpectrogramFreqScale> parseSpectrogramFreqScale(QStringView raw) {
  return parseRaw<SpectrogramFreqScale>(kFreqScaleRaw, raw);
}

int overlapFactor(SpectrogramOverlap overlap) { return static_cast<int>(overlap); }
std::optional<SpectrogramOverlap> spectrogramOverlapFromFactor(long long factor) {
  for (SpectrogramOverlap o : {SpectrogramOverlap::overlap75, SpectrogramOverlap::overlap875, SpectrogramOverlap::overlap9375,
                               SpectrogramOverlap::overlap96875, SpectrogramOverlap::overlap984375}) {
    if (factor == overlapFactor(o)) return o;
  }
  return std::nullopt;
}
QString displayName(SpectrogramOverlap overlap) {
  switch (overlap) {
    case SpectrogramOverlap::overlap75: return QStringLiteral("75% (default)");
    case SpectrogramOverlap::overlap875: return QStringLiteral("87.5%");
    case SpectrogramOverlap::overlap9375: return QStringLiteral("93.75%");
    case SpectrogramOverlap::overlap96875: return QStringLiteral("96.875%");
    case SpectrogramOverlap::overlap984375: return QStringLiteral("98.4375%");
  }
  return {};
}

QString rawValue(LoudnessDisplayMode mode) { return QLatin1String(kDisplayModeRaw[static_cast<std::size_t>(mode)]); }
std::optional<LoudnessDisplayMode> parseLoudnessDisplayMode(QStringView raw) {
  return parseRaw<LoudnessDisplayMode>(kDisplayModeRaw, raw);
}

bool isAcceptedSpectrogramFftSize(long long size) {
  return size >= 256 && size <= 16384 && (size & (size - 1)) == 0;
}

}  // namespace corvane
