#include "headless/files/PCMWriteSettings.h"

#include <cmath>

#include "headless/files/UserText.h"

namespace corvane {

AudioStreamFormat AudioStreamFormat::of(const AudioBuffer& buffer) {
  return {buffer.sampleRate(), buffer.channelCount(), buffer.channelPositions()};
}

PCMWriteSettings PCMWriteSettings::make(AudioContainer container, const AudioStreamFormat& format, PCMEncoding encoding) {
  if (!isWritable(container)) {
    throw AudioWriteError("Corvane can't write " + std::string(displayName(container)) +
                          " files. Choose WAV, RF64, Wave64, AIFF, AIFF-C or CAF.");
  }
  const double rate = format.sampleRate;
  if (!std::isfinite(rate) || rate < 1.0 || rate >= 2147483648.0 || rate != std::floor(rate)) {
    throw AudioWriteError("Audio at " + detail::formatGeneral(rate) + " Hz can't be written: the sample rate must be a whole number of hertz.");
  }
  if (format.channelCount < 1 || format.channelCount > 1024) {
    throw AudioWriteError("Audio with " + std::to_string(format.channelCount) +
                          " channels can't be written: files hold 1 to 1024 channels.");
  }
  if (!format.channelPositions.empty() && static_cast<int>(format.channelPositions.size()) != format.channelCount) {
    throw AudioWriteError("The channel layout doesn't match the channel count.");
  }
  PCMWriteSettings settings;
  settings.container = container;
  settings.encoding = encoding;
  settings.format = format;
  settings.bigEndian = container == AudioContainer::aiff || container == AudioContainer::aiffc;
  return settings;
}

}  // namespace corvane
