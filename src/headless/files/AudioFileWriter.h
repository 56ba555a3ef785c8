// AudioFileWriter: streams planar float audio into a WAV, RF64, Wave64, AIFF, AIFF-C or CAF
// file at 8/16/24/32-bit integer or 32/64-bit float.
//
// Integer samples are scaled by Corvane itself: × 2^(bits − 1), rounded to the nearest
// integer, clipped to the integer range (NaN written as 0). So a float buffer that passes full
// scale clips at the largest code instead of wrapping to the opposite sign, and a sample read
// from a 16- or 24-bit file is written back to the code it came from (libsndfile's own
// float-to-integer path is asymmetric and wraps above full scale). Float samples are stored
// unchanged, beyond full scale included.
//
// WAV, RF64, Wave64, plain AIFF and float AIFF-C headers are libsndfile's. CAF and integer
// AIFF-C are written here: libsndfile can't store a CAF channel layout (and defaults to
// big-endian CAF samples), and writes AIFF-C integers only as 'twos'/'in24'/'in32', which sox
// can't read, where 'NONE' is read everywhere. A CAF being written declares its data "to the
// end of the file", so a process killed while writing leaves a readable file; finish()
// records the exact size. A WAV is WAVE_FORMAT_EXTENSIBLE when it has more than two channels
// or speaker positions to store.
//
// Thread class: one writer per thread. Errors: AudioWriteError with the text for the user
// (disk full, file too large, write failure). A writer destroyed before finish() leaves
// whatever it wrote; callers that must not leave partial files write to a temporary file
// (InPlaceSave does).
#pragma once

#include <filesystem>
#include <memory>

#include "headless/files/PCMWriteSettings.h"

namespace corvane {

class AudioFileWriter {
 public:
  virtual ~AudioFileWriter() = default;

  // Creates (or truncates) the file at `url`, mode 0666 less the umask.
  static std::unique_ptr<AudioFileWriter> create(const std::filesystem::path& url, const PCMWriteSettings& settings);

  // Writes into the open, empty, writable descriptor `fd`, which stays the caller's: it is
  // neither closed nor synced. `url` names the file in error texts.
  static std::unique_ptr<AudioFileWriter> create(int fd, const PCMWriteSettings& settings,
                                                 const std::filesystem::path& url);

  // Appends `frames` frames from channels[c][0 ...], one pointer per channel of the settings.
  void write(const float* const* channels, FrameCount frames);

  // Appends the buffer's frameLength() frames (its channel count must match).
  void write(const AudioBuffer& buffer);

  // Rewrites the header for the frames so far, so that the file reads correctly as it stands
  // (for long recordings, about once a second).
  virtual void updateHeader() = 0;

  // Completes the header. The writer takes no more frames afterwards.
  virtual void finish() = 0;

  FrameCount framesWritten() const { return _framesWritten; }
  const PCMWriteSettings& settings() const { return _settings; }

 protected:
  AudioFileWriter(const PCMWriteSettings& settings, std::filesystem::path url)
      : _settings(settings), _url(std::move(url)) {}

  // Appends interleaved samples already in the stored encoding's scale: int32 values
  // left-aligned in 32 bits for integer encodings, floats or doubles for float encodings.
  virtual void appendInt32(const std::int32_t* interleaved, FrameCount frames) = 0;
  virtual void appendFloat(const float* interleaved, FrameCount frames) = 0;
  virtual void appendDouble(const double* interleaved, FrameCount frames) = 0;

  // The user's text for a failed write, from errno.
  [[noreturn]] void failWrite(int error) const;

  PCMWriteSettings _settings;
  std::filesystem::path _url;
  FrameCount _framesWritten = 0;
  bool _finished = false;
};

// Corvane's float-to-integer scaling for one sample: round(x × 2^(bits − 1)) clipped to
// [−2^(bits − 1), 2^(bits − 1) − 1]; NaN gives 0. `bits` is 8, 16, 24 or 32.
std::int32_t floatToInteger(float x, int bits);

}  // namespace corvane
