// PCMWriteSettings: everything a writer needs to know about the file it makes.
//
// Byte order follows the container: WAV, RF64, Wave64 and CAF are written little-endian (CAF
// explicitly so; its big-endian default would cost every reader a swap), AIFF and AIFF-C
// big-endian (AIFF-C integers with compression type 'NONE', floats as 'fl32'/'fl64'). A float
// file asked for as AIFF becomes AIFF-C, since plain AIFF can't hold float samples.
//
// Thread class: a plain value; any thread.
#pragma once

#include <optional>
#include <stdexcept>
#include <vector>

#include "core/AudioBuffer.h"
#include "headless/files/AudioContainer.h"
#include "headless/files/PCMEncoding.h"

namespace corvane {

// A write that failed; what() is the text for the user.
class AudioWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The shape of the audio to write.
struct AudioStreamFormat {
  double sampleRate = 48000.0;
  int channelCount = 2;
  // Speaker positions to record in the file, one per channel, or empty. WAV and RF64 store
  // them as a channel mask when ChannelOrder::wavPreservesChannelOrder allows, CAF always (a
  // layout tag, a bitmap or per-channel descriptions); Wave64 and AIFF have no place for them.
  std::vector<ChannelPosition> channelPositions;

  static AudioStreamFormat of(const AudioBuffer& buffer);
};

struct PCMWriteSettings {
  AudioContainer container = AudioContainer::wav;
  PCMEncoding encoding = PCMEncoding::float32;
  AudioStreamFormat format;
  // Stored samples are big-endian (see above; fixed by make()).
  bool bigEndian = false;
  // Frames the caller will write, when known. A WAV whose data would pass 4 GiB is then
  // written as RF64 from the start; without it a WAV is begun as RF64 with room for its
  // 64-bit sizes and turned into a plain WAV at the end if it stayed small.
  std::optional<FrameCount> expectedFrames;

  // Throws AudioWriteError for BW64 (no writer here makes its header), a sample rate that
  // isn't a positive whole number of Hz below 2^31 (the containers' integer rate fields), or
  // a channel count outside 1 ... 1024.
  static PCMWriteSettings make(AudioContainer container, const AudioStreamFormat& format, PCMEncoding encoding);

  int bytesPerSample() const { return bitDepth(encoding) / 8; }
};

}  // namespace corvane
