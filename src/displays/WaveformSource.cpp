#include "displays/WaveformSource.h"

#include <algorithm>
#include <cmath>

namespace corvane {

FrameCount WaveformSource::basePeakFrames() const {
  return std::max<FrameCount>(frameCount() / kWaveformPeakResolution, 1);
}

bool basePeaksSuffice(std::size_t basePeakBins, FrameCount visibleFrames, int outputBins, FrameCount totalFrames) {
  if (basePeakBins == 0) return false;
  // Products stay far inside 64 bits: bins and output bins are thousands, frames billions.
  return static_cast<FrameCount>(basePeakBins) * visibleFrames >= static_cast<FrameCount>(outputBins) * totalFrames;
}

WaveformPeakSource visiblePeaks(const WaveformSource& source, int channel, FrameCount startFrame,
                                FrameCount endFrame, int numBins, ChannelPeaks& out) {
  const ChannelPeaks& base = source.basePeaks(channel);
  if (basePeaksSuffice(base.size(), endFrame - startFrame, numBins, source.frameCount())) {
    gatherPeaksInto(base, source.basePeakFrames(), startFrame, endFrame, numBins, out);
    return WaveformPeakSource::basePeaks;
  }
  if (source.pyramidPeaks(channel, startFrame, endFrame, numBins, out)) return WaveformPeakSource::pyramid;
  source.samplePeaks(channel, startFrame, endFrame, numBins, out);
  return WaveformPeakSource::samples;
}

double sampleLevelDBFS(float sample) {
  const double magnitude = std::fabs(static_cast<double>(sample));
  if (!(magnitude > 0.0)) return -120.0;
  return 20.0 * std::log10(magnitude);
}

}  // namespace corvane
