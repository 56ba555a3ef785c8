// The waveform data of loaded files: the peak bins and clip regions each load carries, and the
// pyramid that lands later for long files, through the session's road.
#include <cmath>

#include "SessionTestSupport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

using Landing = AudioEngine::Landing;

class WaveformData : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    engine = makeEngine();
    log = std::make_unique<LandingLog>(*engine);
  }
  const AudioFileModel& load(const std::string& name, const Planar& signal) {
    const int decoded = log->count(Landing::decoded);
    engine->loadFile(url(writeFile(name, signal)));
    EXPECT_TRUE(waitUntil([&] { return log->count(Landing::decoded) == decoded + 1; }));
    return *engine->loadedFile();
  }

  std::unique_ptr<AudioEngine> engine;
  std::unique_ptr<LandingLog> log;
};

TEST_F(WaveformData, LoadedFilesCarryPeakBinsOfTheFixedResolution) {
  // Bins of max(frames / 4096, 1) frames from frame 0, the last one possibly short.
  struct Case {
    FrameCount frames;
    std::size_t bins;
    FrameCount binFrames;
  };
  for (const Case& c : {Case{10, 10, 1}, Case{8191, 8191, 1}, Case{8192, 4096, 2}, Case{12287, 6144, 2},
                        Case{1000000, 4099, 244}}) {
    SCOPED_TRACE(c.frames);
    Planar signal = sine(48000.0, 2, static_cast<double>(c.frames) / 48000.0, 997.0, 0.8);
    ASSERT_EQ(signal.frames(), c.frames);
    const AudioFileModel& model = load("peaks-" + std::to_string(c.frames) + ".wav", signal);
    ASSERT_EQ(model.waveformPeaks.size(), 2u);
    ASSERT_EQ(model.waveformPeaks[1].size(), c.bins);
    // The last bin: its extremes and root mean square over the frames it holds.
    const FrameCount first = static_cast<FrameCount>(c.bins - 1) * c.binFrames;
    const std::vector<float>& x = signal.channels[1];
    float low = x[static_cast<std::size_t>(first)], high = low;
    double squares = 0.0;
    for (FrameCount i = first; i < c.frames; ++i) {
      low = std::min(low, x[static_cast<std::size_t>(i)]);
      high = std::max(high, x[static_cast<std::size_t>(i)]);
      squares += static_cast<double>(x[static_cast<std::size_t>(i)]) * x[static_cast<std::size_t>(i)];
    }
    const WaveformPeak& last = model.waveformPeaks[1].back();
    EXPECT_EQ(last.min, low);
    EXPECT_EQ(last.max, high);
    EXPECT_NEAR(last.rms, std::sqrt(squares / static_cast<double>(c.frames - first)), 1e-6);
    EXPECT_TRUE(model.waveformPyramid.empty());
  }
}

TEST_F(WaveformData, ClippedRunsAcrossScanChunksAndAtTheEndAreWhole) {
  Planar signal(48000.0, 2, 20000);
  for (FrameCount i = 0; i < 20000; ++i) signal.channels[0][static_cast<std::size_t>(i)] = 0.5f * std::sin(0.01f * i);
  signal.channels[1] = signal.channels[0];
  auto clip = [&](int channel, FrameCount from, FrameCount to, float value) {
    for (FrameCount i = from; i <= to; ++i) signal.channels[static_cast<std::size_t>(channel)][static_cast<std::size_t>(i)] = value;
  };
  clip(0, 4090, 4101, 1.0f);    // across the first chunk border
  clip(0, 8191, 8191, -1.0f);   // a chunk's last sample alone
  clip(0, 12288, 12288, 1.0f);  // a chunk's first sample alone
  clip(0, 19998, 19999, -1.0f); // up to the last frame
  clip(1, 19999, 19999, 0.99995f);
  clip(1, 100, 102, 0.9998f);   // below the threshold
  const AudioFileModel& model = load("clipped.wav", signal);
  ASSERT_EQ(model.clipRegions.size(), 2u);
  EXPECT_EQ(model.clipRegions[0], (ChannelClipRegions{{4090, 4101}, {8191, 8191}, {12288, 12288}, {19998, 19999}}));
  EXPECT_EQ(model.clipRegions[1], (ChannelClipRegions{{19999, 19999}}));
}

TEST_F(WaveformData, ALongFileGetsItsPyramidLaterAndAShortOneNever) {
  const FrameCount threshold = kWaveformPyramidMinFrames;
  Planar shortSignal(48000.0, 1, threshold - 1);
  load("almost.wav", shortSignal);
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  EXPECT_EQ(log->count(Landing::pyramid), 0);

  Planar signal = sine(48000.0, 1, static_cast<double>(threshold) / 48000.0, 50.0, 0.9);
  ASSERT_EQ(signal.frames(), threshold);
  const AudioFileModel& model = load("long.wav", signal);
  EXPECT_TRUE(model.waveformPyramid.empty());  // at the first landing, the pyramid isn't there yet
  ASSERT_TRUE(waitUntil([&] { return log->count(Landing::pyramid) == 1; }));
  const auto& levels = engine->loadedFile()->waveformPyramid;
  ASSERT_EQ(levels.size(), 4u);
  const FrameCount framesPerBin[] = {4, 16, 64, 256};
  const std::size_t bins[] = {1048576, 262144, 65536, 16384};
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(levels[k].framesPerBin, framesPerBin[k]);
    EXPECT_EQ(levels[k].peaks[0].size(), bins[k]);
  }
  EXPECT_EQ(levels, buildWaveformPyramid(*engine->pcmBuffer()));
}

TEST_F(WaveformData, APyramidOfAudioThatChangedMeanwhileIsDropped) {
  // An edit of the samples between the scheduling and the landing moves bufferEpoch.
  QObject::connect(engine.get(), &AudioEngine::landed, engine.get(), [&](Landing landing) {
    if (landing == Landing::decoded) engine->bumpBufferEpoch();
  });
  load("edited.wav", Planar(48000.0, 1, kWaveformPyramidMinFrames + 100));
  waitForBackgroundWork();
  QCoreApplication::processEvents();
  EXPECT_EQ(log->count(Landing::pyramid), 0);
  EXPECT_TRUE(engine->loadedFile()->waveformPyramid.empty());

  // Scheduled again for the buffer as it now stands, it lands.
  engine->schedulePyramidRebuild();
  ASSERT_TRUE(waitUntil([&] { return log->count(Landing::pyramid) == 1; }));
  EXPECT_EQ(engine->loadedFile()->waveformPyramid.size(), 4u);
}

TEST(WaveformPyramidLevels, AnHourAt48kHz) {
  // 172,800,000 frames: 165 frames per base bin (ceil of frames / 2^20), then ratio 4 until the
  // top level has fewer than 16,385 bins.
  const auto hour = AudioBuffer::createZeroed(1, 172800000, 48000.0);
  const auto levels = buildWaveformPyramid(*hour);
  ASSERT_EQ(levels.size(), 4u);
  const FrameCount framesPerBin[] = {165, 660, 2640, 10560};
  const std::size_t bins[] = {1047273, 261819, 65455, 16364};
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(levels[k].framesPerBin, framesPerBin[k]) << k;
    EXPECT_EQ(levels[k].peaks[0].size(), bins[k]) << k;
  }
}

}  // namespace
}  // namespace corvane::test
