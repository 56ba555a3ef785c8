// AudioFileIdentity: what a file really is, from its own bytes, never from its name.
//
// Users open what they were delivered, and a delivery named "mix.wav" may hold AIFF, FLAC or
// an MP3. The identity names the true container and encoding for the info panel, tells the
// user when the name lies (formatHelp), and decides whether Save may rewrite the file in
// place: only a container and encoding Corvane's writers reproduce exactly qualify.
//
// Thread class: a plain value; inspect() reads the file and may run on any thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "headless/files/AudioContainer.h"
#include "headless/files/PCMEncoding.h"

namespace corvane {

struct AudioFileIdentity {
  // The container the bytes are, as shown to the user: "WAV", "RF64", "BW64", "Wave64",
  // "AIFF", "AIFF-C", "CAF", "FLAC", "Ogg Vorbis", "Opus", "Ogg FLAC", "Ogg Speex", "Ogg",
  // "MP3", "MP2", "MP1", "AAC (ADTS)", "MPEG-4", "AU", "WavPack", "Monkey's Audio", "AMR",
  // "DSF", "DSDIFF", "TTA", "VOC", "ASF", "Matroska", "RIFX".
  std::string formatLabel;
  // The sample encoding inside: "16-bit integer", "8-bit unsigned integer", "32-bit float",
  // "µ-law", "A-law", "IMA ADPCM", "FLAC (24-bit)", "ALAC (16-bit)", "AAC", "MP3", "Vorbis",
  // "Opus", ...; "unknown" when the header doesn't say.
  std::string encodingName;
  // The file name's extension in lower case without the dot; empty when it has none.
  std::string nameExtension;
  // The name says one container and the bytes another ("take.wav" holding AIFF). An extension
  // that names no container Corvane knows ("take.raw", no extension) never counts as a lie.
  bool isMisnamed = false;
  // Save may rewrite this file in its own container and encoding: WAV, RF64, Wave64, AIFF,
  // AIFF-C or CAF holding 8/16/24/32-bit integer or 32/64-bit float samples.
  bool isRewritableInPlace = false;
  // The bytes' container when it is one of AudioContainer's cases.
  std::optional<AudioContainer> container;
  // The stored samples' encoding when they are linear PCM Corvane can write.
  std::optional<PCMEncoding> pcmEncoding;
  // Stored PCM samples are big-endian (AIFF, AIFF-C "NONE", big-endian CAF).
  bool isBigEndian = false;
  // From the header, 0 when it doesn't say (the decoder has the final word).
  int channelCount = 0;
  double sampleRate = 0.0;

  friend bool operator==(const AudioFileIdentity&, const AudioFileIdentity&) = default;

  // Reads the file's headers. None when the file can't be opened, is not a regular file, or
  // its bytes match no container Corvane knows (headerless PCM, text, random data). Never
  // throws.
  static std::optional<AudioFileIdentity> inspect(const std::filesystem::path& url);

  // As above on an open descriptor (read with pread only); `url` gives the name's extension.
  static std::optional<AudioFileIdentity> inspect(int fd, const std::filesystem::path& url);
};

}  // namespace corvane
