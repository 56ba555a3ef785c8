#include "headless/files/UserText.h"

#include <charconv>
#include <cmath>

namespace corvane::detail {

std::string formatFixed(double value, int decimals) {
  if (!std::isfinite(value)) return std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf");
  char text[400];
  const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  return std::string(text, result.ptr);
}

std::string formatGeneral(double value) {
  if (!std::isfinite(value)) return std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf");
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  return std::string(text, result.ptr);
}

std::string displayFileName(const std::filesystem::path& url) {
  std::string name = url.filename().string();
  return name.empty() ? url.string() : name;
}

}  // namespace corvane::detail
