#include "headless/files/ContainerProbe.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string_view>

namespace corvane::detail {

namespace {

using P = ChannelPosition;

// Chunk walks stop after this many chunks: a crafted file of tiny chunks must not keep the
// probe busy.
constexpr int kMaxChunks = 4096;
// The largest MP4 'moov' box the probe reads whole; longer ones are not worth the memory for a
// label (an hour of AAC has a moov of about a megabyte).
constexpr std::int64_t kMaxMoovBytes = 64 << 20;

class Bytes {
 public:
  explicit Bytes(int fd) : _fd(fd) {
    struct stat info {};
    _size = ::fstat(fd, &info) == 0 ? static_cast<std::int64_t>(info.st_size) : 0;
  }

  std::int64_t size() const { return _size; }

  // Reads exactly n bytes at offset; false if the file holds fewer.
  bool read(std::int64_t offset, void* destination, std::size_t n) const {
    if (offset < 0 || n > static_cast<std::size_t>(INT64_MAX) ||
        offset > _size - static_cast<std::int64_t>(n)) {
      return false;
    }
    auto* out = static_cast<unsigned char*>(destination);
    std::size_t done = 0;
    while (done < n) {
      const ssize_t got = ::pread(_fd, out + done, n - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      done += static_cast<std::size_t>(got);
    }
    return true;
  }

  // Up to n bytes at offset (fewer at the end of the file).
  std::vector<unsigned char> readUpTo(std::int64_t offset, std::size_t n) const {
    if (offset < 0 || offset >= _size) return {};
    const auto available = static_cast<std::size_t>(std::min<std::int64_t>(_size - offset, static_cast<std::int64_t>(n)));
    std::vector<unsigned char> data(available);
    if (!read(offset, data.data(), available)) return {};
    return data;
  }

 private:
  int _fd;
  std::int64_t _size = 0;
};

std::uint16_t le16(const unsigned char* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }
std::uint32_t le32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
std::uint64_t le64(const unsigned char* p) {
  return static_cast<std::uint64_t>(le32(p)) | (static_cast<std::uint64_t>(le32(p + 4)) << 32);
}
std::uint16_t be16(const unsigned char* p) { return static_cast<std::uint16_t>((p[0] << 8) | p[1]); }
std::uint32_t be32(const unsigned char* p) {
  return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
         (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}
std::uint64_t be64(const unsigned char* p) {
  return (static_cast<std::uint64_t>(be32(p)) << 32) | static_cast<std::uint64_t>(be32(p + 4));
}
double beDouble(const unsigned char* p) {
  const std::uint64_t bits = be64(p);
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

bool tagIs(const unsigned char* p, std::string_view tag) { return std::memcmp(p, tag.data(), 4) == 0; }

// The 80-bit IEEE extended number AIFF stores its sample rate in.
double extended80(const unsigned char* p) {
  const int exponent = ((p[0] & 0x7F) << 8) | p[1];
  std::uint64_t mantissa = 0;
  for (int i = 0; i < 8; ++i) mantissa = (mantissa << 8) | p[2 + i];
  if (exponent == 0 || exponent == 0x7FFF || mantissa == 0) return 0.0;
  const double value = std::ldexp(static_cast<double>(mantissa), exponent - 16383 - 63);
  return (p[0] & 0x80) ? -value : value;
}

double sane(double rate) { return std::isfinite(rate) && rate > 0.0 && rate < 1e7 ? rate : 0.0; }

void clampPayload(ContainerProbe& probe, std::int64_t fileSize) {
  if (probe.dataOffset < 0) return;
  if (probe.dataOffset > fileSize) {
    probe.dataOffset = -1;
    probe.dataBytes = -1;
    return;
  }
  if (probe.dataBytes < 0 || probe.dataBytes > fileSize - probe.dataOffset) {
    probe.dataBytes = fileSize - probe.dataOffset;
  }
}

// ---- RIFF family ------------------------------------------------------------------------------

// WAVE_FORMAT_* tags (also the first two bytes of an extensible subformat GUID).
void applyWaveFormatTag(ContainerProbe& probe, unsigned tag, int bits) {
  switch (tag) {
    case 0x0001: probe.codec = bits == 8 ? SampleCodec::pcmUnsigned : SampleCodec::pcmSigned; break;
    case 0x0003: probe.codec = SampleCodec::pcmFloat; break;
    case 0x0006: probe.codec = SampleCodec::alaw; break;
    case 0x0007: probe.codec = SampleCodec::ulaw; break;
    case 0x0002: probe.codec = SampleCodec::msAdpcm; break;
    case 0x0011: probe.codec = SampleCodec::imaAdpcm; break;
    case 0x0031: probe.codec = SampleCodec::gsm610; break;
    case 0x0050: probe.codec = SampleCodec::mp2; break;
    case 0x0055: probe.codec = SampleCodec::mp3; break;
    case 0x2000: probe.codec = SampleCodec::ac3; break;
    default:
      probe.codec = SampleCodec::other;
      probe.codecName = "WAVE format 0x";
      static const char* hex = "0123456789ABCDEF";
      for (int shift = 12; shift >= 0; shift -= 4) probe.codecName += hex[(tag >> shift) & 0xF];
      break;
  }
}

// Parses a WAVEFORMAT(EX|TENSIBLE) body of `size` bytes (little-endian, or big-endian in RIFX).
void parseWaveFormat(ContainerProbe& probe, const unsigned char* p, std::size_t size, bool bigEndian) {
  if (size < 16) return;
  auto u16 = [&](std::size_t at) { return bigEndian ? be16(p + at) : le16(p + at); };
  auto u32 = [&](std::size_t at) { return bigEndian ? be32(p + at) : le32(p + at); };
  unsigned tag = u16(0);
  probe.channels = u16(2);
  probe.sampleRate = sane(static_cast<double>(u32(4)));
  probe.blockAlign = u16(12);
  probe.bitsPerSample = u16(14);
  if (tag == 0xFFFE && size >= 40) {
    const std::uint32_t mask = u32(20);
    tag = u16(24);
    probe.positions = positionsFromWavMask(mask, probe.channels);
  }
  applyWaveFormatTag(probe, tag, probe.bitsPerSample);
  // A PCM sample occupies whole bytes of the block; some writers put the valid bits (20, 24)
  // in wBitsPerSample of a wider container, so the block decides the stored width.
  if ((probe.codec == SampleCodec::pcmSigned || probe.codec == SampleCodec::pcmUnsigned ||
       probe.codec == SampleCodec::pcmFloat) &&
      probe.channels > 0 && probe.blockAlign > 0 && probe.blockAlign % probe.channels == 0) {
    probe.bitsPerSample = 8 * (probe.blockAlign / probe.channels);
  }
}

std::optional<ContainerProbe> probeRiff(const Bytes& bytes, ContainerKind kind) {
  ContainerProbe probe;
  probe.container = kind;
  probe.bigEndian = kind == ContainerKind::rifx;
  const bool sizesIn64 = kind == ContainerKind::rf64 || kind == ContainerKind::bw64;
  std::int64_t ds64DataSize = -1;
  bool haveFormat = false;
  std::int64_t position = 12;
  for (int chunk = 0; chunk < kMaxChunks && position + 8 <= bytes.size(); ++chunk) {
    unsigned char header[8];
    if (!bytes.read(position, header, 8)) break;
    const std::uint32_t size32 = probe.bigEndian ? be32(header + 4) : le32(header + 4);
    std::int64_t size = size32;
    const std::int64_t body = position + 8;
    if (tagIs(header, "ds64") && size >= 24) {
      unsigned char ds64[24];
      if (bytes.read(body, ds64, sizeof ds64)) ds64DataSize = static_cast<std::int64_t>(std::min<std::uint64_t>(le64(ds64 + 8), INT64_MAX / 2));
    } else if (tagIs(header, "fmt ")) {
      const auto format = bytes.readUpTo(body, static_cast<std::size_t>(std::min<std::int64_t>(size, 64)));
      parseWaveFormat(probe, format.data(), format.size(), probe.bigEndian);
      haveFormat = true;
    } else if (tagIs(header, "data")) {
      if (sizesIn64 && size32 == 0xFFFFFFFFu && ds64DataSize >= 0) size = ds64DataSize;
      probe.dataOffset = body;
      probe.dataBytes = size;
      if (haveFormat) break;
    }
    position = body + size + (size & 1);
  }
  clampPayload(probe, bytes.size());
  return probe;
}

// Sony Wave64: 16-byte GUID chunk ids whose first four bytes spell the RIFF FourCC, 64-bit
// sizes that include the 24-byte chunk header, chunks aligned to 8 bytes.
std::optional<ContainerProbe> probeWave64(const Bytes& bytes) {
  static const unsigned char kChunkSuffix[12] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1,
                                                 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
  ContainerProbe probe;
  probe.container = ContainerKind::wave64;
  bool haveFormat = false;
  std::int64_t position = 40;
  for (int chunk = 0; chunk < kMaxChunks && position + 24 <= bytes.size(); ++chunk) {
    unsigned char header[24];
    if (!bytes.read(position, header, 24)) break;
    const std::uint64_t rawSize = le64(header + 16);
    if (rawSize < 24 || rawSize > static_cast<std::uint64_t>(INT64_MAX / 2)) break;
    const auto size = static_cast<std::int64_t>(rawSize);
    const std::int64_t body = position + 24;
    const bool known = std::memcmp(header + 4, kChunkSuffix, 12) == 0;
    if (known && tagIs(header, "fmt ")) {
      const auto format = bytes.readUpTo(body, static_cast<std::size_t>(std::min<std::int64_t>(size - 24, 64)));
      parseWaveFormat(probe, format.data(), format.size(), false);
      haveFormat = true;
    } else if (known && tagIs(header, "data")) {
      probe.dataOffset = body;
      probe.dataBytes = size - 24;
      if (haveFormat) break;
    }
    position += (size + 7) & ~std::int64_t{7};
  }
  clampPayload(probe, bytes.size());
  return probe;
}

// ---- AIFF -------------------------------------------------------------------------------------

std::optional<ContainerProbe> probeAiff(const Bytes& bytes, bool isAifc) {
  ContainerProbe probe;
  probe.container = isAifc ? ContainerKind::aiffc : ContainerKind::aiff;
  probe.bigEndian = true;
  probe.codec = SampleCodec::pcmSigned;
  std::int64_t position = 12;
  bool haveCommon = false;
  for (int chunk = 0; chunk < kMaxChunks && position + 8 <= bytes.size(); ++chunk) {
    unsigned char header[8];
    if (!bytes.read(position, header, 8)) break;
    const std::int64_t size = be32(header + 4);
    const std::int64_t body = position + 8;
    if (tagIs(header, "COMM") && size >= 18) {
      unsigned char comm[22] = {};
      const bool full = bytes.read(body, comm, static_cast<std::size_t>(std::min<std::int64_t>(size, 22)));
      if (full) {
        probe.channels = std::max<int>(0, static_cast<std::int16_t>(be16(comm)));
        probe.bitsPerSample = std::max<int>(0, static_cast<std::int16_t>(be16(comm + 6)));
        probe.sampleRate = sane(extended80(comm + 8));
        haveCommon = true;
        if (isAifc && size >= 22) {
          const std::string_view type(reinterpret_cast<const char*>(comm + 18), 4);
          if (type == "NONE" || type == "twos") {
            probe.codec = SampleCodec::pcmSigned;
          } else if (type == "sowt") {
            probe.codec = SampleCodec::pcmSigned;
            probe.bigEndian = false;
          } else if (type == "fl32" || type == "FL32") {
            probe.codec = SampleCodec::pcmFloat;
            probe.bitsPerSample = 32;
          } else if (type == "fl64" || type == "FL64") {
            probe.codec = SampleCodec::pcmFloat;
            probe.bitsPerSample = 64;
          } else if (type == "in24" || type == "in32") {
            probe.codec = SampleCodec::pcmSigned;
            probe.bitsPerSample = type == "in24" ? 24 : 32;
          } else if (type == "raw ") {
            probe.codec = SampleCodec::pcmUnsigned;
            probe.bitsPerSample = 8;
          } else if (type == "ulaw" || type == "ULAW") {
            probe.codec = SampleCodec::ulaw;
          } else if (type == "alaw" || type == "ALAW") {
            probe.codec = SampleCodec::alaw;
          } else if (type == "ima4") {
            probe.codec = SampleCodec::imaAdpcm;
          } else if (type == "GSM ") {
            probe.codec = SampleCodec::gsm610;
          } else {
            probe.codec = SampleCodec::other;
            probe.codecName = std::string(type);
          }
        }
      }
    } else if (tagIs(header, "SSND") && size >= 8) {
      unsigned char ssnd[8];
      if (bytes.read(body, ssnd, 8)) {
        probe.dataOffset = body + 8 + be32(ssnd);
        probe.dataBytes = size - 8 - be32(ssnd);
      }
      if (haveCommon) break;
    }
    position = body + size + (size & 1);
  }
  if ((probe.codec == SampleCodec::pcmSigned || probe.codec == SampleCodec::pcmUnsigned ||
       probe.codec == SampleCodec::pcmFloat) && probe.channels > 0 && probe.bitsPerSample > 0) {
    // AIFF stores 12- or 20-bit samples in whole bytes.
    const int bytesPerSample = (probe.bitsPerSample + 7) / 8;
    probe.blockAlign = bytesPerSample * probe.channels;
  }
  clampPayload(probe, bytes.size());
  return probe;
}

// ---- CAF --------------------------------------------------------------------------------------

// Core Audio channel labels (kAudioChannelLabel_*) to positions. "Left/Right Surround" is the
// rear pair (as WAV's mask and libsndfile read it) unless the layout also names rear surrounds
// (kAudioChannelLabel_RearSurround*, as 7.1 layouts do); then it is the side pair.
ChannelPosition positionFromCoreAudioLabel(std::uint32_t label, bool layoutHasRearSurround) {
  switch (label) {
    case 1: return P::FrontLeft;
    case 2: return P::FrontRight;
    case 3: return P::FrontCenter;
    case 4: return P::LowFrequency;
    case 5: return layoutHasRearSurround ? P::SideLeft : P::BackLeft;
    case 6: return layoutHasRearSurround ? P::SideRight : P::BackRight;
    case 7: return P::FrontLeftOfCenter;
    case 8: return P::FrontRightOfCenter;
    case 9: return P::BackCenter;
    case 10: return P::SideLeft;
    case 11: return P::SideRight;
    case 12: return P::TopCenter;
    case 13: return P::TopFrontLeft;
    case 14: return P::TopFrontCenter;
    case 15: return P::TopFrontRight;
    case 16: return P::TopBackLeft;
    case 17: return P::TopBackCenter;
    case 18: return P::TopBackRight;
    case 33: return P::BackLeft;
    case 34: return P::BackRight;
    case 42: return P::Mono;
    default: return P::Unknown;
  }
}

std::vector<ChannelPosition> positionsFromCoreAudioLabels(const std::vector<std::uint32_t>& labels) {
  const bool hasRear = std::find(labels.begin(), labels.end(), 33u) != labels.end() ||
                       std::find(labels.begin(), labels.end(), 34u) != labels.end();
  std::vector<ChannelPosition> positions;
  positions.reserve(labels.size());
  for (auto label : labels) positions.push_back(positionFromCoreAudioLabel(label, hasRear));
  if (std::all_of(positions.begin(), positions.end(), [](P p) { return p == P::Unknown; })) return {};
  return positions;
}

// The layout tags (kAudioChannelLayoutTag_*) Corvane reads, as channel labels in file order.
std::vector<std::uint32_t> coreAudioLabelsForTag(std::uint32_t tag) {
  enum : std::uint32_t { L = 1, R = 2, C = 3, LFE = 4, Ls = 5, Rs = 6, Lc = 7, Rc = 8, Cs = 9, Rls = 33, Rrs = 34, M = 42 };
  switch (tag >> 16) {
    case 100: return {M};
    case 101: case 102: return {L, R};
    case 108: return {L, R, Ls, Rs};
    case 113: return {L, R, C};
    case 114: return {C, L, R};
    case 115: return {L, R, C, Cs};
    case 116: return {C, L, R, Cs};
    case 117: return {L, R, C, Ls, Rs};
    case 118: return {L, R, Ls, Rs, C};
    case 119: return {L, C, R, Ls, Rs};
    case 120: return {C, L, R, Ls, Rs};
    case 121: return {L, R, C, LFE, Ls, Rs};
    case 122: return {L, R, Ls, Rs, C, LFE};
    case 123: return {L, C, R, Ls, Rs, LFE};
    case 124: return {C, L, R, Ls, Rs, LFE};
    case 126: return {L, R, C, LFE, Ls, Rs, Lc, Rc};
    case 127: return {C, Lc, Rc, L, R, Ls, Rs, LFE};
    case 128: return {L, R, C, LFE, Ls, Rs, Rls, Rrs};
    default: return {};
  }
}

void parseCafChannelLayout(ContainerProbe& probe, const Bytes& bytes, std::int64_t body, std::int64_t size) {
  if (size < 12) return;
  unsigned char head[12];
  if (!bytes.read(body, head, 12)) return;
  const std::uint32_t tag = be32(head);
  const std::uint32_t bitmap = be32(head + 4);
  const std::uint32_t count = be32(head + 8);
  if (tag == 0x10000) {  // kAudioChannelLayoutTag_UseChannelBitmap: WAV's mask bits
    probe.positions = positionsFromWavMask(bitmap, probe.channels);
    return;
  }
  std::vector<std::uint32_t> labels;
  if (tag == 0) {  // kAudioChannelLayoutTag_UseChannelDescriptions
    if (count > 1024 || size < 12 + 20 * static_cast<std::int64_t>(count)) return;
    const auto descriptions = bytes.readUpTo(body + 12, 20 * static_cast<std::size_t>(count));
    if (descriptions.size() != 20 * static_cast<std::size_t>(count)) return;
    for (std::uint32_t i = 0; i < count; ++i) labels.push_back(be32(descriptions.data() + 20 * i));
  } else {
    labels = coreAudioLabelsForTag(tag);
  }
  if (labels.empty() || static_cast<int>(labels.size()) != probe.channels) return;
  probe.positions = positionsFromCoreAudioLabels(labels);
}

std::optional<ContainerProbe> probeCaf(const Bytes& bytes) {
  ContainerProbe probe;
  probe.container = ContainerKind::caf;
  std::int64_t position = 8;
  std::int64_t chanBody = -1;
  std::int64_t chanSize = 0;
  for (int chunk = 0; chunk < kMaxChunks && position + 12 <= bytes.size(); ++chunk) {
    unsigned char header[12];
    if (!bytes.read(position, header, 12)) break;
    auto size = static_cast<std::int64_t>(be64(header + 4));
    const std::int64_t body = position + 12;
    if (tagIs(header, "data")) {
      // -1 means "to the end of the file" (a file still being written).
      if (size < 0 || size > bytes.size() - body) size = bytes.size() - body;
      probe.dataOffset = body + 4;  // after the edit count
      probe.dataBytes = size - 4;
    } else if (size < 0) {
      break;
    } else if (tagIs(header, "desc") && size >= 32) {
      unsigned char desc[32];
      if (bytes.read(body, desc, 32)) {
        probe.sampleRate = sane(beDouble(desc));
        const std::string_view format(reinterpret_cast<const char*>(desc + 8), 4);
        const std::uint32_t flags = be32(desc + 12);
        const std::uint32_t bytesPerPacket = be32(desc + 16);
        const std::uint32_t framesPerPacket = be32(desc + 20);
        probe.channels = static_cast<int>(std::min<std::uint32_t>(be32(desc + 24), 65535));
        probe.bitsPerSample = static_cast<int>(std::min<std::uint32_t>(be32(desc + 28), 1024));
        if (format == "lpcm") {
          probe.codec = (flags & 1) ? SampleCodec::pcmFloat : SampleCodec::pcmSigned;
          probe.bigEndian = (flags & 2) == 0;
          if (framesPerPacket == 1 && bytesPerPacket <= 65535) probe.blockAlign = static_cast<int>(bytesPerPacket);
          if (probe.channels > 0 && probe.blockAlign > 0 && probe.blockAlign % probe.channels == 0) {
            probe.bitsPerSample = 8 * (probe.blockAlign / probe.channels);
          }
        } else if (format == "alac") {
          probe.codec = SampleCodec::alac;
          static const int kAlacBits[] = {0, 16, 20, 24, 32};
          probe.bitsPerSample = flags >= 1 && flags <= 4 ? kAlacBits[flags] : 0;
        } else if (format == "ulaw") {
          probe.codec = SampleCodec::ulaw;
        } else if (format == "alaw") {
          probe.codec = SampleCodec::alaw;
        } else if (format == "ima4") {
          probe.codec = SampleCodec::imaAdpcm;
        } else if (format == "aac ") {
          probe.codec = SampleCodec::aac;
          probe.bitsPerSample = 0;
        } else if (format == ".mp3") {
          probe.codec = SampleCodec::mp3;
          probe.bitsPerSample = 0;
        } else if (format == "opus") {
          probe.codec = SampleCodec::opus;
          probe.bitsPerSample = 0;
        } else {
          probe.codec = SampleCodec::other;
          probe.codecName = std::string(format);
        }
      }
    } else if (tagIs(header, "chan")) {
      chanBody = body;
      chanSize = size;
    }
    if (size > bytes.size() - body) break;
    position = body + size;
  }
  // The layout is read last, when the channel count from 'desc' is known.
  if (chanBody >= 0) parseCafChannelLayout(probe, bytes, chanBody, chanSize);
  clampPayload(probe, bytes.size());
  return probe;
}

// ---- FLAC and Ogg ---------------------------------------------------------------------------

// STREAMINFO's packed fields (34 bytes): rate 20 bits, channels - 1 3 bits, bits - 1 5 bits.
void parseFlacStreamInfo(ContainerProbe& probe, const unsigned char* info) {
  const std::uint32_t packed = be32(info + 10);
  probe.sampleRate = sane(static_cast<double>(packed >> 12));
  probe.channels = static_cast<int>(((packed >> 9) & 0x7) + 1);
  probe.bitsPerSample = static_cast<int>(((packed >> 4) & 0x1F) + 1);
}

// FLAC may carry WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x... in its Vorbis comment when the layout
// is not the one FLAC implies for the count (FFmpeg and flac(1) write it).
std::optional<std::uint32_t> channelMaskFromVorbisComment(const std::vector<unsigned char>& block) {
  if (block.size() < 8) return std::nullopt;
  std::size_t at = 0;
  const std::uint32_t vendorLength = le32(block.data());
  at = 4 + static_cast<std::size_t>(vendorLength);
  if (at + 4 > block.size() || at < 4) return std::nullopt;
  const std::uint32_t count = le32(block.data() + at);
  at += 4;
  static constexpr std::string_view kKey = "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=";
  for (std::uint32_t i = 0; i < count && at + 4 <= block.size(); ++i) {
    const std::uint32_t length = le32(block.data() + at);
    at += 4;
    if (length > block.size() - at) return std::nullopt;
    std::string_view entry(reinterpret_cast<const char*>(block.data() + at), length);
    at += length;
    if (entry.size() > kKey.size() && std::equal(kKey.begin(), kKey.end(), entry.begin(), [](char a, char b) {
          return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
        })) {
      const std::string value(entry.substr(kKey.size()));
      char* end = nullptr;
      const unsigned long mask = std::strtoul(value.c_str(), &end, 0);
      if (end != value.c_str()) return static_cast<std::uint32_t>(mask);
    }
  }
  return std::nullopt;
}

std::optional<ContainerProbe> probeFlac(const Bytes& bytes, std::int64_t start) {
  ContainerProbe probe;
  probe.container = ContainerKind::flac;
  probe.codec = SampleCodec::flac;
  std::int64_t position = start + 4;
  std::optional<std::uint32_t> mask;
  for (int block = 0; block < 256 && position + 4 <= bytes.size(); ++block) {
    unsigned char header[4];
    if (!bytes.read(position, header, 4)) break;
    const int type = header[0] & 0x7F;
    const bool last = (header[0] & 0x80) != 0;
    const std::int64_t length = (header[1] << 16) | (header[2] << 8) | header[3];
    if (type == 0 && length >= 34) {
      unsigned char info[34];
      if (bytes.read(position + 4, info, 34)) parseFlacStreamInfo(probe, info);
    } else if (type == 4) {
      mask = channelMaskFromVorbisComment(bytes.readUpTo(position + 4, static_cast<std::size_t>(length)));
    }
    position += 4 + length;
    if (last) break;
  }
  probe.positions = mask ? positionsFromWavMask(*mask, probe.channels) : flacChannelOrder(probe.channels);
  return probe;
}

std::optional<ContainerProbe> probeOgg(const Bytes& bytes) {
  ContainerProbe probe;
  probe.container = ContainerKind::ogg;
  unsigned char page[27];
  if (!bytes.read(0, page, 27)) return probe;
  const int segments = page[26];
  const auto table = bytes.readUpTo(27, static_cast<std::size_t>(segments));
  if (static_cast<int>(table.size()) != segments) return probe;
  std::size_t packetLength = 0;
  for (int i = 0; i < segments; ++i) {
    packetLength += table[static_cast<std::size_t>(i)];
    if (table[static_cast<std::size_t>(i)] < 255) break;
  }
  const auto packet = bytes.readUpTo(27 + segments, std::min<std::size_t>(packetLength, 512));
  auto starts = [&](std::string_view magic) {
    return packet.size() >= magic.size() && std::memcmp(packet.data(), magic.data(), magic.size()) == 0;
  };
  if (starts(std::string_view("\x01vorbis", 7)) && packet.size() >= 16) {
    probe.codec = SampleCodec::vorbis;
    probe.channels = packet[11];
    probe.sampleRate = sane(static_cast<double>(le32(packet.data() + 12)));
    probe.positions = vorbisChannelOrder(probe.channels);
  } else if (starts("OpusHead") && packet.size() >= 19) {
    probe.codec = SampleCodec::opus;
    probe.channels = packet[9];
    // Opus always decodes at 48 kHz; the header's rate only records the original input.
    probe.sampleRate = 48000.0;
    const int family = packet[18];
    if (family == 0 || family == 1) probe.positions = vorbisChannelOrder(probe.channels);
  } else if (starts(std::string_view("\x7F" "FLAC", 5)) && packet.size() >= 13 + 34) {
    probe.codec = SampleCodec::flac;
    parseFlacStreamInfo(probe, packet.data() + 13 + 4);
    probe.positions = flacChannelOrder(probe.channels);
  } else if (starts("Speex   ") && packet.size() >= 52) {
    probe.codec = SampleCodec::speex;
    probe.sampleRate = sane(static_cast<double>(le32(packet.data() + 36)));
    probe.channels = static_cast<int>(le32(packet.data() + 48));
  }
  return probe;
}

// ---- MPEG audio and ADTS ----------------------------------------------------------------------

struct MpegFrame {
  int version = 0;  // 1, 2, or 25 (MPEG-2.5)
  int layer = 0;    // 1, 2, 3
  int sampleRate = 0;
  int channels = 0;
  int length = 0;   // bytes, header included
};

std::optional<MpegFrame> parseMpegHeader(const unsigned char* h) {
  if (h[0] != 0xFF || (h[1] & 0xE0) != 0xE0) return std::nullopt;
  const int versionBits = (h[1] >> 3) & 3;
  const int layerBits = (h[1] >> 1) & 3;
  const int bitrateIndex = h[2] >> 4;
  const int rateIndex = (h[2] >> 2) & 3;
  if (versionBits == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3) {
    return std::nullopt;
  }
  static const int kBitrates[2][3][15] = {
      {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
       {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
       {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
      {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
       {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
       {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
  static const int kRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};
  MpegFrame frame;
  frame.version = versionBits == 3 ? 1 : versionBits == 2 ? 2 : 25;
  frame.layer = 4 - layerBits;
  const int table = frame.version == 1 ? 0 : 1;
  const int bitrate = kBitrates[table][frame.layer - 1][bitrateIndex] * 1000;
  frame.sampleRate = kRates[frame.version == 1 ? 0 : frame.version == 2 ? 1 : 2][rateIndex];
  frame.channels = (h[3] >> 6) == 3 ? 1 : 2;
  const int padding = (h[2] >> 1) & 1;
  if (frame.layer == 1) {
    frame.length = (12 * bitrate / frame.sampleRate + padding) * 4;
  } else if (frame.layer == 3 && frame.version != 1) {
    frame.length = 72 * bitrate / frame.sampleRate + padding;
  } else {
    frame.length = 144 * bitrate / frame.sampleRate + padding;
  }
  if (frame.length < 4) return std::nullopt;
  return frame;
}

struct AdtsFrame {
  int sampleRate = 0;
  int channels = 0;
  int length = 0;
};

std::optional<AdtsFrame> parseAdtsHeader(const unsigned char* h) {
  if (h[0] != 0xFF || (h[1] & 0xF6) != 0xF0) return std::nullopt;
  static const int kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
  const int rateIndex = (h[2] >> 2) & 0xF;
  if (rateIndex >= 13) return std::nullopt;
  AdtsFrame frame;
  frame.sampleRate = kRates[rateIndex];
  frame.channels = ((h[2] & 1) << 2) | (h[3] >> 6);
  frame.length = ((h[3] & 3) << 11) | (h[4] << 3) | (h[5] >> 5);
  if (frame.length < 7) return std::nullopt;
  return frame;
}

// MPEG or ADTS frames at `offset`. Raw frames are only believed when a second frame of the same
// kind follows where the first one ends (headerless PCM often starts with 0xFF bytes); after
// an ID3 tag a single frame is enough.
std::optional<ContainerProbe> probeFrames(const Bytes& bytes, std::int64_t offset, bool afterTag) {
  unsigned char h[8];
  if (!bytes.read(offset, h, 8)) return std::nullopt;
  if (auto adts = parseAdtsHeader(h)) {
    unsigned char next[8];
    const bool confirmed = bytes.read(offset + adts->length, next, 8) && parseAdtsHeader(next) &&
                           parseAdtsHeader(next)->sampleRate == adts->sampleRate;
    if (!confirmed && !afterTag) return std::nullopt;
    ContainerProbe probe;
    probe.container = ContainerKind::adts;
    probe.codec = SampleCodec::aac;
    probe.sampleRate = adts->sampleRate;
    probe.channels = adts->channels;
    return probe;
  }
  if (auto frame = parseMpegHeader(h)) {
    unsigned char next[4];
    std::optional<MpegFrame> second;
    if (bytes.read(offset + frame->length, next, 4)) second = parseMpegHeader(next);
    const bool confirmed = second && second->version == frame->version && second->layer == frame->layer &&
                           second->sampleRate == frame->sampleRate;
    if (!confirmed && !afterTag) return std::nullopt;
    ContainerProbe probe;
    probe.container = ContainerKind::mpegAudio;
    probe.codec = frame->layer == 3 ? SampleCodec::mp3 : frame->layer == 2 ? SampleCodec::mp2 : SampleCodec::mp1;
    probe.sampleRate = frame->sampleRate;
    probe.channels = frame->channels;
    return probe;
  }
  return std::nullopt;
}

// ---- ISO base media (MP4, M4A, MOV) ---------------------------------------------------------

struct Box {
  std::string_view type;
  std::size_t body = 0;  // offset of the body within the buffer
  std::size_t end = 0;
};

// The boxes in buffer[begin, end).
std::vector<Box> childBoxes(const std::vector<unsigned char>& buffer, std::size_t begin, std::size_t end) {
  std::vector<Box> boxes;
  std::size_t at = begin;
  while (at + 8 <= end && boxes.size() < 512) {
    std::uint64_t size = be32(buffer.data() + at);
    std::size_t header = 8;
    if (size == 1) {
      if (at + 16 > end) break;
      size = be64(buffer.data() + at + 8);
      header = 16;
    } else if (size == 0) {
      size = end - at;
    }
    if (size < header || size > end - at) break;
    boxes.push_back({std::string_view(reinterpret_cast<const char*>(buffer.data() + at + 4), 4), at + header,
                     at + static_cast<std::size_t>(size)});
    at += static_cast<std::size_t>(size);
  }
  return boxes;
}

const Box* findBox(const std::vector<Box>& boxes, std::string_view type) {
  for (const auto& box : boxes) {
    if (box.type == type) return &box;
  }
  return nullptr;
}

void parseAudioSampleEntry(ContainerProbe& probe, const std::vector<unsigned char>& moov, const Box& entry) {
  const std::string_view format = entry.type;
  if (entry.end - entry.body < 28) return;
  const unsigned char* p = moov.data() + entry.body;
  const int version = be16(p + 8);
  probe.channels = be16(p + 16);
  probe.bitsPerSample = be16(p + 18);
  probe.sampleRate = sane(static_cast<double>(be32(p + 24) >> 16));
  std::size_t childrenStart = entry.body + 28 + (version == 1 ? 16 : version == 2 ? 36 : 0);
  if (version == 2 && entry.end - entry.body >= 64) {
    probe.sampleRate = sane(beDouble(p + 32));
    probe.channels = static_cast<int>(std::min<std::uint32_t>(be32(p + 40), 65535));
  }
  const auto children = childrenStart < entry.end ? childBoxes(moov, childrenStart, entry.end) : std::vector<Box>{};
  if (format == "mp4a") {
    probe.codec = SampleCodec::aac;
    probe.bitsPerSample = 0;
    if (const Box* esds = findBox(children, "esds")) {
      // ES_Descriptor (tag 3) holds a DecoderConfigDescriptor (tag 4) whose first byte is the
      // object type: 0x40 and 0x66-0x68 are AAC, 0x69 and 0x6B MPEG audio layer III.
      for (std::size_t at = esds->body + 4; at + 2 < esds->end; ++at) {
        if (moov[at] != 0x04) continue;
        std::size_t next = at + 1;
        while (next < esds->end && (moov[next] & 0x80)) ++next;
        if (next + 1 >= esds->end) break;
        const int objectType = moov[next + 1];
        if (objectType == 0x69 || objectType == 0x6B) probe.codec = SampleCodec::mp3;
        break;
      }
    }
  } else if (format == "alac") {
    probe.codec = SampleCodec::alac;
    if (const Box* config = findBox(children, "alac"); config && config->end - config->body >= 28) {
      const unsigned char* c = moov.data() + config->body;
      probe.bitsPerSample = c[4 + 5];
      probe.channels = c[4 + 9];
      probe.sampleRate = sane(static_cast<double>(be32(c + 4 + 20)));
    }
  } else if (format == "sowt" || format == "twos" || format == "lpcm" || format == "in24" || format == "in32" ||
             format == "ipcm") {
    probe.codec = SampleCodec::pcmSigned;
    if (format == "in24") probe.bitsPerSample = 24;
    if (format == "in32") probe.bitsPerSample = 32;
  } else if (format == "fl32" || format == "fl64" || format == "fpcm") {
    probe.codec = SampleCodec::pcmFloat;
    if (format == "fl32") probe.bitsPerSample = 32;
    if (format == "fl64") probe.bitsPerSample = 64;
  } else if (format == "Opus") {
    probe.codec = SampleCodec::opus;
    probe.bitsPerSample = 0;
  } else if (format == "fLaC") {
    probe.codec = SampleCodec::flac;
  } else if (format == "ac-3") {
    probe.codec = SampleCodec::ac3;
    probe.bitsPerSample = 0;
  } else if (format == "ec-3") {
    probe.codec = SampleCodec::eac3;
    probe.bitsPerSample = 0;
  } else if (format == ".mp3") {
    probe.codec = SampleCodec::mp3;
    probe.bitsPerSample = 0;
  } else {
    probe.codec = SampleCodec::other;
    probe.codecName = std::string(format);
    probe.bitsPerSample = 0;
  }
}

std::optional<ContainerProbe> probeMp4(const Bytes& bytes) {
  ContainerProbe probe;
  probe.container = ContainerKind::mp4;
  // Top-level boxes: find 'moov' wherever it lies (before or after 'mdat').
  std::int64_t position = 0;
  std::int64_t moovOffset = -1;
  std::int64_t moovSize = 0;
  for (int box = 0; box < kMaxChunks && position + 8 <= bytes.size(); ++box) {
    unsigned char header[16];
    if (!bytes.read(position, header, 8)) break;
    std::uint64_t size = be32(header);
    std::int64_t headerSize = 8;
    if (size == 1) {
      if (!bytes.read(position, header, 16)) break;
      size = be64(header + 8);
      headerSize = 16;
    } else if (size == 0) {
      size = static_cast<std::uint64_t>(bytes.size() - position);
    }
    if (size < static_cast<std::uint64_t>(headerSize) || size > static_cast<std::uint64_t>(bytes.size() - position)) break;
    if (tagIs(header + 4, "moov")) {
      moovOffset = position + headerSize;
      moovSize = static_cast<std::int64_t>(size) - headerSize;
      break;
    }
    position += static_cast<std::int64_t>(size);
  }
  if (moovOffset < 0 || moovSize > kMaxMoovBytes) return probe;
  const auto moov = bytes.readUpTo(moovOffset, static_cast<std::size_t>(moovSize));
  for (const auto& trak : childBoxes(moov, 0, moov.size())) {
    if (trak.type != "trak") continue;
    const auto trakChildren = childBoxes(moov, trak.body, trak.end);
    const Box* mdia = findBox(trakChildren, "mdia");
    if (!mdia) continue;
    const auto mdiaChildren = childBoxes(moov, mdia->body, mdia->end);
    const Box* hdlr = findBox(mdiaChildren, "hdlr");
    if (!hdlr || hdlr->end - hdlr->body < 12 || !tagIs(moov.data() + hdlr->body + 8, "soun")) continue;
    const Box* minf = findBox(mdiaChildren, "minf");
    if (!minf) continue;
    const auto minfChildren = childBoxes(moov, minf->body, minf->end);
    const Box* stbl = findBox(minfChildren, "stbl");
    if (!stbl) continue;
    const auto stblChildren = childBoxes(moov, stbl->body, stbl->end);
    const Box* stsd = findBox(stblChildren, "stsd");
    if (!stsd || stsd->end - stsd->body < 8) continue;
    const auto entries = childBoxes(moov, stsd->body + 8, stsd->end);
    if (entries.empty()) continue;
    parseAudioSampleEntry(probe, moov, entries.front());
    break;
  }
  return probe;
}

// ---- Sun/NeXT AU ------------------------------------------------------------------------------

std::optional<ContainerProbe> probeAu(const Bytes& bytes) {
  unsigned char h[24];
  if (!bytes.read(0, h, 24)) return std::nullopt;
  ContainerProbe probe;
  probe.container = ContainerKind::au;
  probe.bigEndian = true;
  const std::uint32_t offset = be32(h + 4);
  const std::uint32_t size = be32(h + 8);
  const std::uint32_t encoding = be32(h + 12);
  probe.sampleRate = sane(static_cast<double>(be32(h + 16)));
  probe.channels = static_cast<int>(std::min<std::uint32_t>(be32(h + 20), 65535));
  switch (encoding) {
    case 1: probe.codec = SampleCodec::ulaw; probe.bitsPerSample = 8; break;
    case 2: probe.codec = SampleCodec::pcmSigned; probe.bitsPerSample = 8; break;
    case 3: probe.codec = SampleCodec::pcmSigned; probe.bitsPerSample = 16; break;
    case 4: probe.codec = SampleCodec::pcmSigned; probe.bitsPerSample = 24; break;
    case 5: probe.codec = SampleCodec::pcmSigned; probe.bitsPerSample = 32; break;
    case 6: probe.codec = SampleCodec::pcmFloat; probe.bitsPerSample = 32; break;
    case 7: probe.codec = SampleCodec::pcmFloat; probe.bitsPerSample = 64; break;
    case 27: probe.codec = SampleCodec::alaw; probe.bitsPerSample = 8; break;
    default: probe.codec = SampleCodec::other; probe.codecName = "AU encoding " + std::to_string(encoding); break;
  }
  probe.dataOffset = offset;
  probe.dataBytes = size == 0xFFFFFFFFu ? -1 : static_cast<std::int64_t>(size);
  if (probe.bitsPerSample > 0) probe.blockAlign = probe.bitsPerSample / 8 * probe.channels;
  clampPayload(probe, bytes.size());
  return probe;
}

std::optional<ContainerProbe> simple(ContainerKind kind, SampleCodec codec = SampleCodec::other,
                                     std::string name = {}) {
  ContainerProbe probe;
  probe.container = kind;
  probe.codec = codec;
  probe.codecName = std::move(name);
  return probe;
}

}  // namespace

std::vector<ChannelPosition> positionsFromWavMask(std::uint32_t mask, int channelCount) {
  static constexpr std::array<P, 18> kBits{
      P::FrontLeft,    P::FrontRight,   P::FrontCenter,    P::LowFrequency,   P::BackLeft,
      P::BackRight,    P::FrontLeftOfCenter, P::FrontRightOfCenter, P::BackCenter, P::SideLeft,
      P::SideRight,    P::TopCenter,    P::TopFrontLeft,   P::TopFrontCenter, P::TopFrontRight,
      P::TopBackLeft,  P::TopBackCenter, P::TopBackRight};
  if (mask == 0 || channelCount <= 0 || channelCount > 4096) return {};
  std::vector<ChannelPosition> positions;
  for (std::size_t bit = 0; bit < kBits.size() && static_cast<int>(positions.size()) < channelCount; ++bit) {
    if (mask & (1u << bit)) positions.push_back(kBits[bit]);
  }
  while (static_cast<int>(positions.size()) < channelCount) positions.push_back(P::Unknown);
  return positions;
}

std::vector<ChannelPosition> flacChannelOrder(int channelCount) {
  switch (channelCount) {
    case 1: return {P::FrontCenter};
    case 2: return {P::FrontLeft, P::FrontRight};
    case 3: return {P::FrontLeft, P::FrontRight, P::FrontCenter};
    case 4: return {P::FrontLeft, P::FrontRight, P::BackLeft, P::BackRight};
    case 5: return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::BackLeft, P::BackRight};
    case 6: return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight};
    case 7:
      return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackCenter, P::SideLeft, P::SideRight};
    case 8:
      return {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency,
              P::BackLeft,  P::BackRight,  P::SideLeft,    P::SideRight};
    default: return {};
  }
}

std::vector<ChannelPosition> vorbisChannelOrder(int channelCount) {
  switch (channelCount) {
    case 1: return {P::FrontCenter};
    case 2: return {P::FrontLeft, P::FrontRight};
    case 3: return {P::FrontLeft, P::FrontCenter, P::FrontRight};
    case 4: return {P::FrontLeft, P::FrontRight, P::BackLeft, P::BackRight};
    case 5: return {P::FrontLeft, P::FrontCenter, P::FrontRight, P::BackLeft, P::BackRight};
    case 6: return {P::FrontLeft, P::FrontCenter, P::FrontRight, P::BackLeft, P::BackRight, P::LowFrequency};
    case 7:
      return {P::FrontLeft, P::FrontCenter, P::FrontRight, P::SideLeft, P::SideRight, P::BackCenter, P::LowFrequency};
    case 8:
      return {P::FrontLeft, P::FrontCenter, P::FrontRight, P::SideLeft,
              P::SideRight, P::BackLeft,    P::BackRight,  P::LowFrequency};
    default: return {};
  }
}

std::optional<ContainerProbe> probeContainer(int fd) {
  const Bytes bytes(fd);
  unsigned char head[40] = {};
  const auto available = static_cast<std::size_t>(std::min<std::int64_t>(bytes.size(), 40));
  if (available < 4 || !bytes.read(0, head, available)) return std::nullopt;
  auto at = [&](std::size_t offset, std::string_view magic) {
    return offset + magic.size() <= available && std::memcmp(head + offset, magic.data(), magic.size()) == 0;
  };

  if (at(8, "WAVE")) {
    if (at(0, "RIFF")) return probeRiff(bytes, ContainerKind::wav);
    if (at(0, "RIFX")) return probeRiff(bytes, ContainerKind::rifx);
    if (at(0, "RF64")) return probeRiff(bytes, ContainerKind::rf64);
    if (at(0, "BW64")) return probeRiff(bytes, ContainerKind::bw64);
  }
  static const unsigned char kWave64Riff[16] = {'r', 'i', 'f', 'f', 0x2E, 0x91, 0xCF, 0x11,
                                                0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
  static const unsigned char kWave64Wave[16] = {'w', 'a', 'v', 'e', 0xF3, 0xAC, 0xD3, 0x11,
                                                0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
  if (available >= 40 && std::memcmp(head, kWave64Riff, 16) == 0 && std::memcmp(head + 24, kWave64Wave, 16) == 0) {
    return probeWave64(bytes);
  }
  if (at(0, "FORM") && at(8, "AIFF")) return probeAiff(bytes, false);
  if (at(0, "FORM") && at(8, "AIFC")) return probeAiff(bytes, true);
  if (at(0, "caff")) return probeCaf(bytes);
  if (at(0, "fLaC")) return probeFlac(bytes, 0);
  if (at(0, "OggS")) return probeOgg(bytes);
  if (at(4, "ftyp") || at(4, "moov") || at(4, "mdat") || at(4, "wide") || at(4, "free")) {
    // Only ISO media whose top-level walk finds a sound track is audio to Corvane; other
    // QuickTime/MP4 files still get the container label.
    return probeMp4(bytes);
  }
  if (at(0, ".snd")) return probeAu(bytes);
  if (at(0, "wvpk")) return simple(ContainerKind::wavpack, SampleCodec::other, "WavPack");
  if (at(0, "MAC ")) return simple(ContainerKind::ape, SampleCodec::other, "Monkey's Audio");
  if (at(0, "#!AMR")) return simple(ContainerKind::amr, SampleCodec::other, "AMR");
  if (at(0, "DSD ")) return simple(ContainerKind::dsf, SampleCodec::other, "DSD");
  if (at(0, "FRM8")) return simple(ContainerKind::dsdiff, SampleCodec::other, "DSD");
  if (at(0, "TTA1")) return simple(ContainerKind::tta, SampleCodec::other, "TTA");
  if (at(0, "Creative Voice File")) return simple(ContainerKind::voc, SampleCodec::other, "VOC");
  static const unsigned char kAsf[8] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11};
  if (available >= 8 && std::memcmp(head, kAsf, 8) == 0) return simple(ContainerKind::asf, SampleCodec::other, "WMA");
  static const unsigned char kEbml[4] = {0x1A, 0x45, 0xDF, 0xA3};
  if (std::memcmp(head, kEbml, 4) == 0) return simple(ContainerKind::matroska, SampleCodec::unknown);

  // ID3v2 tags (possibly several) before MPEG frames or, now and then, a FLAC stream.
  std::int64_t offset = 0;
  bool tagged = false;
  for (int tag = 0; tag < 16; ++tag) {
    unsigned char id3[10];
    if (!bytes.read(offset, id3, 10) || std::memcmp(id3, "ID3", 3) != 0) break;
    if ((id3[6] | id3[7] | id3[8] | id3[9]) & 0x80) break;
    const std::int64_t size = (id3[6] << 21) | (id3[7] << 14) | (id3[8] << 7) | id3[9];
    offset += 10 + size + ((id3[5] & 0x10) ? 10 : 0);
    tagged = true;
  }
  if (tagged) {
    unsigned char magic[4];
    if (bytes.read(offset, magic, 4) && std::memcmp(magic, "fLaC", 4) == 0) return probeFlac(bytes, offset);
  }
  return probeFrames(bytes, offset, tagged);
}

}  // namespace corvane::detail
