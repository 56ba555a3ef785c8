#include "displays/TimeFormat.h"

#include <charconv>
#include <cmath>
#include <cstdint>

#include "core/NumberFormat.h"

namespace corvane {

namespace {

int decimalsForInterval(double interval) {
  if (interval >= 1.0) return 0;
  if (interval >= 0.1) return 1;
  if (interval >= 0.01) return 2;
  return 3;  // also NaN
}

std::string twoDigits(std::int64_t value) {
  std::string text = std::to_string(value);
  if (text.size() < 2) text.insert(0, 2 - text.size(), '0');
  return text;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// A whole number of digits only: no sign, no point, no blanks.
std::optional<std::int64_t> parseWhole(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::int64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || text.front() == '-') return std::nullopt;
  return value;
}

// A plain decimal ("5", "5.25", ".5"), no sign or exponent.
std::optional<double> parseDecimal(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::string formatTime(double seconds, double interval) {
  if (!(seconds > 0.0) || !std::isfinite(seconds)) seconds = 0.0;
  const int decimals = decimalsForInterval(interval);
  // Rounded once, as text, exactly as "%.Nf" rounds; the carry into minutes and hours then
  // comes from the whole seconds of that text.
  const std::string rounded = formatFixed(seconds, decimals);
  const auto point = rounded.find('.');
  const std::string whole = rounded.substr(0, point);
  std::int64_t total = 0;
  std::from_chars(whole.data(), whole.data() + whole.size(), total);
  const std::int64_t hours = total / 3600;
  const std::int64_t minutes = total / 60 % 60;
  std::string text = hours > 0 ? std::to_string(hours) + ":" + twoDigits(minutes) + ":"
                               : std::to_string(minutes) + ":";
  text += twoDigits(total % 60);
  if (point != std::string::npos) text += rounded.substr(point);
  return text;
}

std::string formatPosition(double seconds, RulerMode mode, double sampleRate) {
  if (mode == RulerMode::samples) {
    const double frame = std::isfinite(seconds) && std::isfinite(sampleRate) ? std::round(seconds * sampleRate) : 0.0;
    return std::to_string(static_cast<std::int64_t>(frame));
  }
  return formatTime(seconds, 0.001);
}

std::optional<double> parsePosition(std::string_view text, RulerMode mode, double sampleRate) {
  text = trimmed(text);
  if (mode == RulerMode::samples) {
    if (!(sampleRate > 0.0)) return std::nullopt;
    const auto frames = parseWhole(text);
    if (!frames) return std::nullopt;
    return static_cast<double>(*frames) / sampleRate;
  }
  std::string_view parts[3];
  int count = 0;
  while (true) {
    const auto colon = text.find(':');
    if (count == 2 && colon != std::string_view::npos) return std::nullopt;  // four parts
    parts[count++] = text.substr(0, colon);
    if (colon == std::string_view::npos) break;
    text.remove_prefix(colon + 1);
  }
  const auto seconds = parseDecimal(trimmed(parts[count - 1]));
  if (!seconds) return std::nullopt;
  double total = *seconds;
  double scale = 60.0;
  for (int i = count - 2; i >= 0; --i, scale *= 60.0) {
    const auto whole = parseWhole(trimmed(parts[i]));
    if (!whole) return std::nullopt;
    total += static_cast<double>(*whole) * scale;
  }
  return total;
}

std::string timeLabel(double seconds) {
  if (!(seconds > 0.0) || !std::isfinite(seconds)) seconds = 0.0;
  const std::string rounded = formatFixed(seconds, 2);
  const auto point = rounded.find('.');
  std::int64_t total = 0;
  std::from_chars(rounded.data(), rounded.data() + point, total);
  return std::to_string(total / 60) + ":" + twoDigits(total % 60) + rounded.substr(point);
}

std::string zoomLabel(double zoom) {
  if (!(zoom >= 1.5)) return "fit";
  return formatFixed(zoom, zoom < 1000.0 ? 1 : 0) + "x";
}

std::string amplitudeZoomLabel(double amplitudeZoom) {
  if (std::fabs(amplitudeZoom - 1.0) <= 0.02) return "amp";
  return "×" + formatFixed(amplitudeZoom, amplitudeZoom < 10.0 ? 1 : 0);
}

}  // namespace corvane
