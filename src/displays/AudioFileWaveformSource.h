// The waveform source over a loaded file: base peaks, pyramid and clip regions from the
// AudioFileModel, samples from its pcmBuffer, labels and colours from its layout.
//
// The model is held read-only and shared; the owner makes a new source (with a higher
// revision) when the model changes, e.g. when the pyramid lands or an edit patches the peaks.
//
// Thread class: a value; reading it is safe from any thread as long as the model isn't changed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "displays/WaveformSource.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {

class AudioFileWaveformSource final : public WaveformSource {
 public:
  AudioFileWaveformSource(std::shared_ptr<const AudioFileModel> model, std::uint64_t revision);

  FrameCount frameCount() const override;
  double sampleRate() const override;
  int channelCount() const override;
  std::string channelLabel(int channel) const override;
  ChannelColor channelColor(int channel) const override;
  const ChannelPeaks& basePeaks(int channel) const override;
  bool pyramidPeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                    ChannelPeaks& out) const override;
  void samplePeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                   ChannelPeaks& out) const override;
  const ChannelClipRegions& clipRegions(int channel) const override;
  std::uint64_t revision() const override { return _revision; }

 private:
  std::shared_ptr<const AudioFileModel> _model;
  std::uint64_t _revision;
  std::vector<std::string> _labels;
  ChannelLayout _layout;
};

}  // namespace corvane
