// The model patched after in-place edits against the model computed anew from the edited
// samples: base peaks, clip regions and the pyramid. The edits are the editor's own in-place
// members (gain, fades, polarity, DC removal) plus stamped clipped runs, at random places.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include "headless/edits/EditOperations.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {
namespace {

// A model as the load makes it, pyramid included (the session adds that in the background).
AudioFileModel modelOf(const SharedAudioBuffer& buffer) {
  AudioFileModel model;
  model.url = "/tmp/patched.wav";
  model.name = "patched";
  model.sampleRate = buffer->sampleRate();
  model.channelCount = buffer->channelCount();
  model.totalFrames = buffer->frameLength();
  model.duration = static_cast<double>(model.totalFrames) / model.sampleRate;
  model.waveformPeaks = computeWaveformPeaks(*buffer, kWaveformPeakResolution);
  model.clipRegions = computeClipRegions(*buffer, kClipThreshold);
  model.waveformPyramid = buildWaveformPyramid(*buffer);
  model.pcmBuffer = buffer;
  return model;
}

// Noise at up to 0.7 with a slow envelope, and full-scale runs on chunk borders, at the start
// and at the very end.
SharedAudioBuffer material(FrameCount frames, int channels, std::uint64_t seed) {
  auto buffer = AudioBuffer::create(channels, frames, 48000.0);
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  for (int c = 0; c < channels; ++c) {
    float* x = buffer->channel(c);
    for (FrameCount i = 0; i < frames; ++i) x[i] = 0.7f * unit(random) * (0.3f + 0.7f * static_cast<float>((i / 4099) % 5) / 4.0f);
    for (FrameCount i : {FrameCount{0}, FrameCount{1}, FrameCount{4094}, FrameCount{4095}, FrameCount{4096}, frames - 1}) {
      x[i] = c == 0 ? 1.0f : -1.0f;
    }
  }
  return buffer;
}

void expectSameAsRecomputed(const AudioFileModel& patched, const SharedAudioBuffer& buffer, int editsSoFar) {
  SCOPED_TRACE(testing::Message() << "after " << editsSoFar << " edits");
  const AudioFileModel fresh = modelOf(buffer);
  // Base peaks and clip regions are made from the samples both ways: equal to the bit.
  ASSERT_EQ(patched.waveformPeaks, fresh.waveformPeaks);
  ASSERT_EQ(patched.clipRegions, fresh.clipRegions);
  ASSERT_EQ(patched.waveformPyramid.size(), fresh.waveformPyramid.size());
  for (std::size_t k = 0; k < fresh.waveformPyramid.size(); ++k) {
    const auto& a = patched.waveformPyramid[k];
    const auto& b = fresh.waveformPyramid[k];
    ASSERT_EQ(a.framesPerBin, b.framesPerBin);
    ASSERT_EQ(a.peaks.size(), b.peaks.size());
    for (std::size_t c = 0; c < b.peaks.size(); ++c) {
      ASSERT_EQ(a.peaks[c].size(), b.peaks[c].size());
      for (std::size_t i = 0; i < b.peaks[c].size(); ++i) {
        // Extremes are exact at every level. A rebuilt upper level derives its rms from the
        // level below (float roots squared again), a patched bin from the samples: they agree
        // to float rounding.
        ASSERT_EQ(a.peaks[c][i].min, b.peaks[c][i].min) << "level " << k << " channel " << c << " bin " << i;
        ASSERT_EQ(a.peaks[c][i].max, b.peaks[c][i].max) << "level " << k << " channel " << c << " bin " << i;
        ASSERT_NEAR(a.peaks[c][i].rms, b.peaks[c][i].rms, 2e-6f + 2e-6f * b.peaks[c][i].rms)
            << "level " << k << " channel " << c << " bin " << i;
      }
    }
  }
}

TEST(InPlacePatch, AThousandRandomEditsPatchToWhatAFullRecomputeGives) {
  // Just past the pyramid's threshold, with a short last bin on every level.
  const FrameCount frames = 4194304 + 12345;
  const auto buffer = material(frames, 2, 20261123);
  AudioFileModel model = modelOf(buffer);
  ASSERT_EQ(model.waveformPyramid.size(), 4u);

  std::mt19937_64 random(7);
  const auto pick = [&](FrameCount low, FrameCount high) {
    return std::uniform_int_distribution<FrameCount>(low, high)(random);
  };
  float* const* channels = buffer->channels();
  for (int edit = 1; edit <= 1000; ++edit) {
    // Mostly short stretches anywhere, some reaching an end of the file, a few whole-file
    // edits and empty ranges.
    FrameCount start = pick(0, frames);
    FrameCount length = pick(0, 20) == 0 ? pick(0, frames) : pick(1, 30000);
    if (pick(0, 9) == 0) start = pick(0, 1) == 0 ? 0 : frames - length;
    if (pick(0, 49) == 0) length = 0;
    start = std::clamp<FrameCount>(start, 0, frames);
    const FrameCount end = std::min(frames, start + length);
    switch (pick(0, 4)) {
      case 0:  // a gain that may push into clipping or pull out of it
        EditOperations::changeLevelInPlace(channels, 2, frames, static_cast<double>(pick(-12, 9)), start, end);
        break;
      case 1:
        EditOperations::fadeInPlace(channels, 2, frames,
                                    pick(0, 1) ? EditOperations::FadeDirection::fadeIn : EditOperations::FadeDirection::fadeOut,
                                    EditOperations::FadeCurve::linear, start, end);
        break;
      case 2:
        EditOperations::invertPhaseInPlace(channels, 2, frames, start, end);
        break;
      case 3:
        EditOperations::removeDCOffsetInPlace(channels, 2, frames, start, end);
        break;
      default:  // a clipped run stamped into one channel
        for (FrameCount i = start; i < end; ++i) channels[edit % 2][i] = 1.0f;
        break;
    }
    model = std::move(model).refreshedAfterInPlaceEdit(buffer, start, end, kClipThreshold);
    if (edit % 100 == 0) expectSameAsRecomputed(model, buffer, edit);
    if (HasFatalFailure()) return;
  }
}

TEST(InPlacePatch, AnEditEndingInsideAClippedRunRescansTheWholeRun) {
  auto buffer = AudioBuffer::createZeroed(1, 20000, 48000.0);
  float* x = buffer->channel(0);
  for (FrameCount i = 100; i < 200; ++i) x[i] = 1.0f;
  for (FrameCount i = 5000; i < 5010; ++i) x[i] = -1.0f;
  AudioFileModel model = modelOf(buffer);
  ASSERT_EQ(model.clipRegions[0], (ChannelClipRegions{{100, 199}, {5000, 5009}}));

  // Half a clipped run pulled down by 6 dB: the rest of the run stays a region of its own, the
  // other run is untouched.
  EditOperations::changeLevelInPlace(buffer->channels(), 1, 20000, -6.0, 50, 150);
  model = model.refreshedAfterInPlaceEdit(buffer, 50, 150, kClipThreshold);
  EXPECT_EQ(model.clipRegions[0], (ChannelClipRegions{{150, 199}, {5000, 5009}}));

  // An edit that starts inside a run: the part before it is rescanned too.
  for (FrameCount i = 5005; i < 5010; ++i) x[i] = 0.5f;
  model = model.refreshedAfterInPlaceEdit(buffer, 5005, 5010, kClipThreshold);
  EXPECT_EQ(model.clipRegions[0], (ChannelClipRegions{{150, 199}, {5000, 5004}}));

  // An edit that joins two runs makes one region.
  for (FrameCount i = 200; i < 300; ++i) x[i] = -1.0f;
  for (FrameCount i = 300; i < 400; ++i) x[i] = 1.0f;
  model = model.refreshedAfterInPlaceEdit(buffer, 300, 400, kClipThreshold);
  EXPECT_EQ(model.clipRegions[0], (ChannelClipRegions{{150, 399}, {5000, 5004}}));
  EXPECT_EQ(model.clipRegions, computeClipRegions(*buffer, kClipThreshold));
}

TEST(InPlacePatch, EmptyRangesAndShortBuffersPatchNothing) {
  const auto buffer = material(4194304, 1, 3);
  const AudioFileModel model = modelOf(buffer);
  // Samples changed behind the model's back: an empty range must not look at them.
  buffer->channel(0)[10] = 1.0f;
  buffer->channel(0)[4194303] = 0.0f;
  for (const auto& [start, end] : {std::pair<FrameCount, FrameCount>{10, 10}, {500, 20}, {-5, 0}, {4194304, 4194400}}) {
    const AudioFileModel patched = model.refreshedAfterInPlaceEdit(buffer, start, end, kClipThreshold);
    EXPECT_EQ(patched.waveformPeaks, model.waveformPeaks) << start << "..." << end;
    EXPECT_EQ(patched.clipRegions, model.clipRegions) << start << "..." << end;
    EXPECT_EQ(patched.waveformPyramid, model.waveformPyramid) << start << "..." << end;
  }
  // A new buffer of the same length becomes the model's buffer even for an empty range.
  const auto copy = buffer->clone();
  EXPECT_EQ(model.refreshedAfterInPlaceEdit(copy, 0, 0, kClipThreshold).pcmBuffer, copy);
  // Without channels the model comes back as it was.
  const auto none = AudioBuffer::create(0, 100, 48000.0);
  EXPECT_EQ(model.refreshedAfterInPlaceEdit(none, 0, 100, kClipThreshold), model);
}

}  // namespace
}  // namespace corvane
