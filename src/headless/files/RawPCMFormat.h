// RawPCMFormat: the user's declaration of a headerless PCM file.
//
// Nothing in a headerless file says what it is, so the user declares it: rate, channels,
// sample encoding, byte order, interleaved or planar layout, bytes to skip at the start and
// bytes that may be left over at the end. RawPCMReader decodes a file under it.
//
// Thread class: a plain value; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

struct RawPCMFormat {
  // In this order; the labels are the pickers' (label()).
  enum class Encoding { u8, s16, s24, s24in32, s32, f32, f64 };
  enum class Endianness { little, big };

  double sampleRate = 48000.0;  // Hz; positive and finite
  int channelCount = 2;         // 1 ... 64
  Encoding encoding = Encoding::s16;
  Endianness endianness = Endianness::little;
  bool planar = false;          // false: frames interleaved; true: one section per channel
  std::int64_t headerSkip = 0;  // bytes before the audio; at least 0
  std::int64_t tolerance = 0;   // bytes after the audio that may be left over; at least 0

  static constexpr int kMaxChannels = 64;

  // Rate positive and finite, 1 ... 64 channels, skip and tolerance not negative.
  bool isValid() const;

  // Frames in a file of that size: the payload after the header skip must divide into whole
  // frames (interleaved) or into `channelCount` equal sections of whole samples (planar),
  // with at most `tolerance` bytes left over at the end. None when it doesn't, when the skip
  // passes the end of the file, or when the format is invalid.
  std::optional<std::int64_t> frameCount(std::int64_t fileSize) const;

  int bytesPerSample() const;
  // Bits of one decoded sample: 8, 16, 24, 24, 32, 32, 64 for the encodings in order.
  int bitDepth() const;
  bool isFloat() const { return encoding == Encoding::f32 || encoding == Encoding::f64; }

  // "48000 Hz · 2 ch · 16-bit integer (s16) · little-endian · interleaved", then
  // " · skip 44 bytes" and " · tolerate 3 bytes" when those are set. 8-bit has no byte order.
  std::string summary() const;

  // The file's format as the info panel shows it: "Raw PCM (s16le)", "Raw PCM (u8)",
  // "Raw PCM (f32be, planar)".
  std::string fileFormatLabel() const;

  // "8-bit unsigned (u8)", "16-bit integer (s16)", "24-bit packed (s24)",
  // "24-bit in 32 (s24_32)", "32-bit integer (s32)", "32-bit float (f32)",
  // "64-bit float (f64)".
  static std::string_view label(Encoding encoding);
  // "u8", "s16", "s24", "s24_32", "s32", "f32", "f64".
  static std::string_view shortName(Encoding encoding);

  friend bool operator==(const RawPCMFormat&, const RawPCMFormat&) = default;
};

}  // namespace corvane
