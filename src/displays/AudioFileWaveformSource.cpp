#include "displays/AudioFileWaveformSource.h"

namespace corvane {

namespace {

template <class T>
const T& channelEntry(const std::vector<T>& perChannel, int channel) {
  static const T none{};
  if (channel < 0 || channel >= static_cast<int>(perChannel.size())) return none;
  return perChannel[static_cast<std::size_t>(channel)];
}

}  // namespace

AudioFileWaveformSource::AudioFileWaveformSource(std::shared_ptr<const AudioFileModel> model, std::uint64_t revision)
    : _model(std::move(model)), _revision(revision), _labels(_model->channelLabels()), _layout(_model->channelLayout()) {}

FrameCount AudioFileWaveformSource::frameCount() const {
  // What the buffer holds: a truncated file's header promises more frames than were read.
  return _model->pcmBuffer ? _model->pcmBuffer->frameLength() : _model->totalFrames;
}

double AudioFileWaveformSource::sampleRate() const { return _model->sampleRate; }

int AudioFileWaveformSource::channelCount() const { return _model->channelCount; }

std::string AudioFileWaveformSource::channelLabel(int channel) const {
  if (channel >= 0 && channel < static_cast<int>(_labels.size())) return _labels[static_cast<std::size_t>(channel)];
  return "Ch" + std::to_string(channel + 1);
}

ChannelColor AudioFileWaveformSource::channelColor(int channel) const { return _layout.color(channel); }

const ChannelPeaks& AudioFileWaveformSource::basePeaks(int channel) const {
  return channelEntry(_model->waveformPeaks, channel);
}

bool AudioFileWaveformSource::pyramidPeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                                           ChannelPeaks& out) const {
  return pyramidPeaksInto(_model->waveformPyramid, channel, startFrame, endFrame, numBins, out);
}

void AudioFileWaveformSource::samplePeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                                          ChannelPeaks& out) const {
  if (!_model->pcmBuffer) {
    out.clear();
    return;
  }
  computePeaksInto(*_model->pcmBuffer, channel, startFrame, endFrame, numBins, out);
}

const ChannelClipRegions& AudioFileWaveformSource::clipRegions(int channel) const {
  return channelEntry(_model->clipRegions, channel);
}

}  // namespace corvane
