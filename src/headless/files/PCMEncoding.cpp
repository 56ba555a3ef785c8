#include "headless/files/PCMEncoding.h"

namespace corvane {

int bitDepth(PCMEncoding encoding) {
  switch (encoding) {
    case PCMEncoding::int8: return 8;
    case PCMEncoding::int16: return 16;
    case PCMEncoding::int24: return 24;
    case PCMEncoding::int32: return 32;
    case PCMEncoding::float32: return 32;
    case PCMEncoding::float64: return 64;
  }
  return 32;
}

bool isFloat(PCMEncoding encoding) {
  return encoding == PCMEncoding::float32 || encoding == PCMEncoding::float64;
}

std::string_view label(PCMEncoding encoding) {
  switch (encoding) {
    case PCMEncoding::int8: return "8-bit integer";
    case PCMEncoding::int16: return "16-bit integer";
    case PCMEncoding::int24: return "24-bit integer";
    case PCMEncoding::int32: return "32-bit integer";
    case PCMEncoding::float32: return "32-bit float";
    case PCMEncoding::float64: return "64-bit float";
  }
  return "32-bit float";
}

std::optional<PCMEncoding> pcmEncodingFor(int bitsPerSample, bool floatingPoint) {
  if (floatingPoint) {
    if (bitsPerSample == 32) return PCMEncoding::float32;
    if (bitsPerSample == 64) return PCMEncoding::float64;
    return std::nullopt;
  }
  switch (bitsPerSample) {
    case 8: return PCMEncoding::int8;
    case 16: return PCMEncoding::int16;
    case 24: return PCMEncoding::int24;
    case 32: return PCMEncoding::int32;
    default: return std::nullopt;
  }
}

}  // namespace corvane
