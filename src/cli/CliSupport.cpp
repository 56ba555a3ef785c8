#include "cli/CliSupport.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace corvane::cli {

void printError(std::string_view message) {
  std::cerr << message << '\n';
}

std::string jsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char buffer[64];
  // std::to_chars without a precision gives the shortest round-trip form, locale-free.
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string jsonString(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out.push_back('"');
  for (unsigned char ch : text) {
    switch (ch) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (ch < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", ch);
          out += escaped;
        } else {
          out.push_back(static_cast<char>(ch));
        }
    }
  }
  out.push_back('"');
  return out;
}

}  // namespace corvane::cli
