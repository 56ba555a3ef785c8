// ContainerProbe: what a file's own bytes say it is, read from its headers.
//
// The one parser of container headers in Corvane. AudioFileIdentity turns its result into the
// labels the user sees; the decoder takes channel positions from it where libsndfile reports
// none (FLAC's and Ogg's implied orders, CAF layouts given as bitmap or descriptions). It
// never trusts a size field: every offset is checked against the file's length, chunk walks
// are bounded, and malformed input gives "unknown" or partial fields, never an exception.
//
// Internal to the file layer (namespace detail); the public face is AudioFileIdentity.
// Thread class: any thread; reads the descriptor with pread only (the file offset is kept).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"

namespace corvane::detail {

enum class ContainerKind {
  wav,       // RIFF/WAVE
  rifx,      // RIFX/WAVE, big-endian RIFF
  rf64,      // RF64/WAVE (EBU Tech 3306)
  bw64,      // BW64/WAVE (ITU-R BS.2088)
  wave64,    // Sony Wave64
  aiff,      // FORM/AIFF
  aiffc,     // FORM/AIFC
  caf,       // Apple Core Audio Format
  flac,      // native FLAC stream
  ogg,       // Ogg (Vorbis, Opus, FLAC, Speex)
  mpegAudio, // MPEG-1/2 layer I/II/III frames, with or without ID3
  adts,      // AAC in ADTS frames
  mp4,       // ISO base media (MP4, M4A, MOV)
  au,        // Sun/NeXT .snd
  wavpack,
  ape,
  amr,
  dsf,
  dsdiff,
  tta,
  voc,
  asf,
  matroska,
};

enum class SampleCodec {
  unknown,
  pcmSigned,
  pcmUnsigned,
  pcmFloat,
  ulaw,
  alaw,
  imaAdpcm,
  msAdpcm,
  gsm610,
  mp1,
  mp2,
  mp3,
  aac,
  alac,
  flac,
  vorbis,
  opus,
  speex,
  ac3,
  eac3,
  other,
};

struct ContainerProbe {
  ContainerKind container = ContainerKind::wav;
  SampleCodec codec = SampleCodec::unknown;
  // A name for codecs the enumeration lacks ("IMA4", "WavPack", ...); empty otherwise.
  std::string codecName;
  // Bits of one stored sample (the container width for linear PCM); 0 when unknown.
  int bitsPerSample = 0;
  bool bigEndian = false;
  int channels = 0;
  double sampleRate = 0.0;
  // Linear PCM payload: the first sample byte and the byte count the header promises,
  // clamped to the file's length; -1 when the container has none or it wasn't found.
  std::int64_t dataOffset = -1;
  std::int64_t dataBytes = -1;
  // Bytes of one frame of the payload; 0 when unknown.
  int blockAlign = 0;
  // Speaker positions in file order, from the container: WAVE_FORMAT_EXTENSIBLE's mask, a
  // CAF layout, FLAC's and Vorbis' implied orders or a FLAC channel-mask tag. Empty when the
  // file says nothing.
  std::vector<ChannelPosition> positions;
};

// Probes the open file `fd`. None when the bytes match no container Corvane knows.
std::optional<ContainerProbe> probeContainer(int fd);

// The positions that FLAC implies for 1 to 8 channels (its channel assignment table); empty
// for other counts.
std::vector<ChannelPosition> flacChannelOrder(int channelCount);

// The positions that Vorbis I (and Opus mapping family 1) implies for 1 to 8 channels.
std::vector<ChannelPosition> vorbisChannelOrder(int channelCount);

// The positions of a WAVE_FORMAT_EXTENSIBLE channel mask for `channelCount` channels: the set
// bits in ascending order, then Unknown for channels the mask doesn't cover. Empty for mask 0.
std::vector<ChannelPosition> positionsFromWavMask(std::uint32_t mask, int channelCount);

}  // namespace corvane::detail
