#include "core/NumberFormat.h"

#include <charconv>
#include <cmath>

namespace corvane {

namespace {

std::string nonFinite(double value) {
  if (std::isnan(value)) return "nan";
  return value < 0 ? "-inf" : "inf";
}

}  // namespace

std::string formatFixed(double value, int decimals) {
  if (!std::isfinite(value)) return nonFinite(value);
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed,
                              decimals);
  std::string text(buffer, result.ptr);
  if (text.front() == '-' && text.find_first_not_of("-0.") == std::string::npos) {
    text.erase(0, 1);
  }
  return text;
}

std::string formatSigned(double value, int decimals) {
  std::string text = formatFixed(value, decimals);
  if (std::isfinite(value) && text.front() != '-') text.insert(0, 1, '+');
  return text;
}

std::string formatCompact(double value) {
  std::string text = formatFixed(value, 1);
  if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) {
    text.resize(text.size() - 2);
  }
  return text;
}

}  // namespace corvane
