// RawPCMReader: decodes a headerless PCM file under a declared RawPCMFormat.
//
// Samples become planar float: integers scaled by 1 / 2^(bits − 1) (u8 around 128), floats
// as they are (NaN and values beyond full scale kept: the user should see what the bytes
// hold). "24-bit in 32" takes the low three bytes of each four (ALSA's S24_LE/S24_BE), the
// top byte ignored, so both sign-extended and zero-padded writers decode alike.
//
// Thread class: any thread; reads the file with pread, holds no state.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>

#include "core/AudioBuffer.h"
#include "headless/files/RawPCMFormat.h"

namespace corvane {

// A raw read that failed; what() is the text for the user (shown as the note of the raw
// import sheet when a declared load fails).
class RawPCMReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RawPCMReader {
  // At most `maxFrames` frames (all of them without a limit) from the start of the payload.
  // Throws RawPCMReadError for an invalid declaration, a size that doesn't fit it, or a
  // failing read; AudioError(fileTooLarge) when the buffer exceeds AudioLoadLimits and
  // AudioError(bufferCreationFailed) when it can't be allocated. The buffer carries no
  // channel positions.
  static SharedAudioBuffer read(const std::filesystem::path& url, const RawPCMFormat& format,
                                std::optional<FrameCount> maxFrames = std::nullopt);
};

}  // namespace corvane
