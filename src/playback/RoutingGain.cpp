#include "playback/RoutingGain.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace corvane {

float routingGainFromDB(double gainDB) {
  if (std::isnan(gainDB)) gainDB = 0.0;
  const double clamped = std::clamp(gainDB, kRoutingGainMinDB, kRoutingGainMaxDB);
  return static_cast<float>(std::pow(10.0, clamped / 20.0));
}

double routingGainDB(float gain) {
  return 20.0 * std::log10(static_cast<double>(std::max(gain, kRoutingGainFloor)));
}

float adjustedRoutingGain(float gain, double deltaDB) {
  return routingGainFromDB(routingGainDB(gain) + deltaDB);
}

namespace {

// "%.1f" in the C locale; `plus` adds '+' to non-negative values as "%+.1f" does.
std::string formatOneDecimal(double value, bool plus) {
  std::array<char, 64> text{};
  char* first = text.data();
  if (plus && !std::signbit(value)) *first++ = '+';
  const auto result = std::to_chars(first, text.data() + text.size(), value,
                                    std::chars_format::fixed, 1);
  return std::string(text.data(), result.ptr);
}

}  // namespace

bool isUnityRoutingGain(float gain) { return std::fabs(routingGainDB(gain)) < 0.05; }

std::string formatRoutingGainValue(float gain) {
  if (isUnityRoutingGain(gain)) return "0.0";
  return formatOneDecimal(routingGainDB(gain), true);
}

std::string formatRoutingGainEditText(float gain) {
  return formatOneDecimal(routingGainDB(gain), false);
}

std::optional<double> parseRoutingGainText(std::string_view text) {
  std::string cleaned;
  cleaned.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if ((c == 'd' || c == 'D') && i + 1 < text.size() && (text[i + 1] == 'b' || text[i + 1] == 'B')) {
      ++i;
      continue;
    }
    cleaned.push_back(c);
  }
  const auto isSpace = [](char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
  };
  std::size_t begin = 0;
  std::size_t end = cleaned.size();
  while (begin < end && isSpace(cleaned[begin])) ++begin;
  while (end > begin && isSpace(cleaned[end - 1])) --end;
  std::string_view number(cleaned.data() + begin, end - begin);

  bool negative = false;
  static constexpr std::string_view kMinusSign = "\xE2\x88\x92";  // U+2212
  if (number.starts_with(kMinusSign)) {
    negative = true;
    number.remove_prefix(kMinusSign.size());
  } else if (!number.empty() && (number.front() == '-' || number.front() == '+')) {
    negative = number.front() == '-';
    number.remove_prefix(1);
  }
  // A second sign ("--6", "+-6") is no number.
  if (number.empty() || number.front() == '-' || number.front() == '+') return std::nullopt;

  double value = 0.0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value,
                                      std::chars_format::fixed);
  if (result.ec != std::errc() || result.ptr != number.data() + number.size()) return std::nullopt;
  if (!std::isfinite(value)) return std::nullopt;
  return negative ? -value : value;
}

}  // namespace corvane
