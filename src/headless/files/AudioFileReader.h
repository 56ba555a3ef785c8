// AudioFileReader: an open audio file, decoded to planar float on request.
//
// libsndfile reads what it knows (WAV and WAVE_FORMAT_EXTENSIBLE, RF64, Wave64, AIFF/AIFF-C,
// CAF, Ogg Vorbis/Opus/FLAC, MP3, AU and more); the FFmpeg libraries read the rest (AAC/M4A,
// ALAC in MP4, BW64, WMA, ...). Native FLAC goes to libFLAC directly, the library libsndfile
// would use anyway, minus two conversion passes (it then decodes at libFLAC's own speed). The file is opened by descriptor and identified by
// its bytes only: neither library is shown its name, so a headerless file called ".au" or
// ".vox" is never decoded as noise by a guess from its extension. FFmpeg's format probe must
// be confident (a score above AVPROBE_SCORE_RETRY): a weak guess is a failure, so that
// headerless data reaches the raw-PCM road instead of playing as noise.
//
// Samples arrive as libsndfile and FFmpeg scale them: integers × 1 / 2^(bits − 1) (unsigned
// 8-bit around 128), floats unchanged (values beyond full scale kept). Channels come in file
// order; channelPositions() says which speaker each one is, from the file (a
// WAVE_FORMAT_EXTENSIBLE mask, a CAF layout, FLAC's or Vorbis' implied order, FFmpeg's
// layout), for ChannelOrder::canonicalize.
//
// Thread class: one reader per thread; distinct readers may run on distinct threads.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "headless/files/PCMEncoding.h"

namespace corvane {

class AudioFileReader {
 public:
  enum class Decoder { libflac, libsndfile, ffmpeg };

  virtual ~AudioFileReader() = default;

  // Opens `url` with libFLAC (native FLAC), else libsndfile, else FFmpeg. Throws
  // AudioDecodeError with the reason
  // for the user: no such file, a folder, not a regular file, empty, unreadable, or not audio
  // that either library can decode.
  static std::unique_ptr<AudioFileReader> open(const std::filesystem::path& url);

  // Opens `url` with one decoder only (the load's second road, after a failing read; libflac
  // opens native FLAC only).
  static std::unique_ptr<AudioFileReader> open(const std::filesystem::path& url, Decoder decoder);

  Decoder decoder() const { return _decoder; }
  double sampleRate() const { return _sampleRate; }
  int channelCount() const { return _channelCount; }

  // The frames the file's header promises. When lengthIsExact() is false the container gave
  // only an estimate (streams without a frame count, a duration from the bit rate): the file
  // may hold more or fewer frames, and a reader should go on to the end.
  FrameCount length() const { return _length; }
  bool lengthIsExact() const { return _lengthIsExact; }

  // Speaker positions in file order, one per channel; empty when the file says nothing.
  const std::vector<ChannelPosition>& channelPositions() const { return _positions; }

  // The encoding of the stored samples for linear PCM and lossless sources (FLAC 24-bit:
  // int24); none for lossy and companded ones.
  std::optional<PCMEncoding> pcmEncoding() const { return _pcmEncoding; }

  // Bits per stored sample when the source has such a figure (PCM, FLAC, ALAC).
  std::optional<int> bitDepth() const { return _bitDepth; }

  // Decodes up to `frames` frames into channels[c][0 ...]. Returns the frames written; 0 at
  // the end of the file. Throws AudioDecodeError when the data can't be decoded.
  virtual FrameCount read(float* const* channels, FrameCount frames) = 0;

 protected:
  explicit AudioFileReader(Decoder decoder) : _decoder(decoder) {}

  Decoder _decoder;
  double _sampleRate = 0.0;
  int _channelCount = 0;
  FrameCount _length = 0;
  bool _lengthIsExact = true;
  std::vector<ChannelPosition> _positions;
  std::optional<PCMEncoding> _pcmEncoding;
  std::optional<int> _bitDepth;
};

}  // namespace corvane
