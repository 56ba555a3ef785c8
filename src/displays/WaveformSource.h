// WaveformSource: what the waveform reads of a loaded file, and the rule by which it picks
// the peaks it draws.
//
// The view owns no audio. The session hands it one of these: the file's frame count, rate and
// channels, the fixed base peaks (about 4096 bins per channel), the level-of-detail pyramid
// when the file has one, a way to take peaks straight from the samples, and the clip regions.
// AudioFileWaveformSource is the one over an AudioFileModel.
//
// The rule, per channel, for `numBins` output bins over the visible frames:
//   1. the base peaks, if they hold at least one bin per output bin over the visible stretch
//      (bins × visible frames ≥ output bins × total frames);
//   2. else the pyramid, if a level is fine enough;
//   3. else the samples.
// So zoomed out nothing reads the buffer, and the work per repaint follows the pixel width,
// not the file's length.
//
// Thread class: the view calls a source on the main thread only; an implementation must not
// change what it returns between two calls unless revision() changes too.
#pragma once

#include <cstdint>
#include <string>

#include "core/AudioBuffer.h"
#include "core/ChannelLayout.h"
#include "headless/files/WaveformPeaks.h"

namespace corvane {

class WaveformSource {
 public:
  virtual ~WaveformSource() = default;

  virtual FrameCount frameCount() const = 0;
  virtual double sampleRate() const = 0;  // Hz, above 0
  virtual int channelCount() const = 0;
  double duration() const { return sampleRate() > 0.0 ? static_cast<double>(frameCount()) / sampleRate() : 0.0; }

  // The lane's label and colour.
  virtual std::string channelLabel(int channel) const = 0;
  virtual ChannelColor channelColor(int channel) const = 0;

  // The base peaks of `channel` (empty when there are none), bins of basePeakFrames() frames
  // from frame 0.
  virtual const ChannelPeaks& basePeaks(int channel) const = 0;
  // As computeWaveformPeaks makes them: max(frames / 4096, 1).
  virtual FrameCount basePeakFrames() const;

  // Pyramid peaks for the stretch (pyramidPeaksInto); false when there is no pyramid yet or no
  // level is fine enough.
  virtual bool pyramidPeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                            ChannelPeaks& out) const = 0;
  // Peaks straight from the samples (computePeaksInto); `out` empty when there are none.
  virtual void samplePeaks(int channel, FrameCount startFrame, FrameCount endFrame, int numBins,
                           ChannelPeaks& out) const = 0;

  // Clipped runs of `channel`, ascending closed frame ranges (empty when none).
  virtual const ChannelClipRegions& clipRegions(int channel) const = 0;

  // Rises whenever anything above changes (a pyramid landing, an edit patching peaks), so a
  // view knows to redraw its cached picture.
  virtual std::uint64_t revision() const = 0;
};

enum class WaveformPeakSource { basePeaks, pyramid, samples };

// Step 1 of the rule: whether base peaks of `basePeakBins` bins serve `outputBins` bins over
// `visibleFrames` of `totalFrames`.
bool basePeaksSuffice(std::size_t basePeakBins, FrameCount visibleFrames, int outputBins, FrameCount totalFrames);

// `numBins` bins over frames [startFrame, endFrame) of `channel` into `out`, from the source the
// rule picks; returns which one served. `out` is empty if none could.
WaveformPeakSource visiblePeaks(const WaveformSource& source, int channel, FrameCount startFrame,
                                FrameCount endFrame, int numBins, ChannelPeaks& out);

// The hover read-out of one sample: 20 · log10 |sample| in dBFS, −120 for silence.
double sampleLevelDBFS(float sample);

}  // namespace corvane
