#include "headless/files/RawPCMFormat.h"

#include <cmath>

#include "headless/files/UserText.h"

namespace corvane {

bool RawPCMFormat::isValid() const {
  return std::isfinite(sampleRate) && sampleRate > 0.0 && channelCount >= 1 && channelCount <= kMaxChannels &&
         headerSkip >= 0 && tolerance >= 0;
}

int RawPCMFormat::bytesPerSample() const {
  switch (encoding) {
    case Encoding::u8: return 1;
    case Encoding::s16: return 2;
    case Encoding::s24: return 3;
    case Encoding::s24in32: return 4;
    case Encoding::s32: return 4;
    case Encoding::f32: return 4;
    case Encoding::f64: return 8;
  }
  return 2;
}

int RawPCMFormat::bitDepth() const {
  switch (encoding) {
    case Encoding::u8: return 8;
    case Encoding::s16: return 16;
    case Encoding::s24: return 24;
    case Encoding::s24in32: return 24;
    case Encoding::s32: return 32;
    case Encoding::f32: return 32;
    case Encoding::f64: return 64;
  }
  return 16;
}

std::optional<std::int64_t> RawPCMFormat::frameCount(std::int64_t fileSize) const {
  if (!isValid() || fileSize < headerSkip) return std::nullopt;
  const std::int64_t payload = fileSize - headerSkip;
  // Interleaved frames and planar sections both come in steps of channels × sample size.
  const std::int64_t step = static_cast<std::int64_t>(bytesPerSample()) * channelCount;
  const std::int64_t leftover = payload % step;
  if (leftover > tolerance) return std::nullopt;
  return payload / step;
}

std::string_view RawPCMFormat::label(Encoding encoding) {
  switch (encoding) {
    case Encoding::u8: return "8-bit unsigned (u8)";
    case Encoding::s16: return "16-bit integer (s16)";
    case Encoding::s24: return "24-bit packed (s24)";
    case Encoding::s24in32: return "24-bit in 32 (s24_32)";
    case Encoding::s32: return "32-bit integer (s32)";
    case Encoding::f32: return "32-bit float (f32)";
    case Encoding::f64: return "64-bit float (f64)";
  }
  return "16-bit integer (s16)";
}

std::string_view RawPCMFormat::shortName(Encoding encoding) {
  switch (encoding) {
    case Encoding::u8: return "u8";
    case Encoding::s16: return "s16";
    case Encoding::s24: return "s24";
    case Encoding::s24in32: return "s24_32";
    case Encoding::s32: return "s32";
    case Encoding::f32: return "f32";
    case Encoding::f64: return "f64";
  }
  return "s16";
}

std::string RawPCMFormat::summary() const {
  std::string text = detail::formatGeneral(sampleRate) + " Hz · " + std::to_string(channelCount) + " ch · " + std::string(label(encoding));
  if (encoding != Encoding::u8) text += endianness == Endianness::little ? " · little-endian" : " · big-endian";
  text += planar ? " · planar" : " · interleaved";
  if (headerSkip > 0) text += " · skip " + std::to_string(headerSkip) + " bytes";
  if (tolerance > 0) text += " · tolerate " + std::to_string(tolerance) + " bytes";
  return text;
}

std::string RawPCMFormat::fileFormatLabel() const {
  std::string name(shortName(encoding));
  if (encoding != Encoding::u8) name += endianness == Endianness::little ? "le" : "be";
  if (planar) name += ", planar";
  return "Raw PCM (" + name + ")";
}

}  // namespace corvane
