// Live equals offline: a file opened in the session and played to its end through a private
// JACK server (dummy driver) is measured by the live meter in the render callback; the offline
// pass ("Analyse") measures the same file. Both must agree: integrated loudness, loudness
// range and true peak within 0.1 LU / 0.1 dB, and the short-term and integrated values of every
// 0.1 s block, paired by the block's index, within 0.2 LU.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "SessionTestSupport.h"
#include "TestSignals.h"
#include "core/LoudnessProcessor.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/AudioDeviceManager.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"
#include "support/JackTestServer.h"

namespace corvane::test {
namespace {

using LiveOfflineAgreement = OnJackServer;

struct LiveBlock {
  double shortTermLUFS;
  double integratedLUFS;
};

TEST_F(LiveOfflineAgreement, AFilePlayedToItsEndMeasuresAsTheOfflinePassDoes) {
  JackCaptureClient capture("cvcap", 2);
  TemporaryDirectory folder;
  const std::string path = folder.file("programme.wav");
  // Eight seconds of noise whose level moves by ±5 dB, so that the range has something to
  // measure, with a tone on top that gives the true peak something between the samples.
  Planar signal = bandLimitedNoise(48000.0, 2, 8.0, 7000.0, -21.0, 5.0, 77);
  for (FrameCount i = 0; i < signal.frames(); ++i) {
    const float tone = 0.03f * static_cast<float>(std::sin(2.0 * M_PI * 11025.5 * static_cast<double>(i) / 48000.0));
    signal.channels[0][static_cast<std::size_t>(i)] += tone;
  }
  writeWav(path, signal);

  AudioEngineOptions options;
  options.settings = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini")));
  options.audioBackends = {AudioBackend::jack};
  options.rescanDevices = false;
  options.registerWithBridge = false;
  AudioEngine engine(options);
  for (const auto& device : engine.deviceManager().outputDevices()) {
    if (device.name == "cvcap") engine.deviceManager().selectDevice(device);
  }
  int metricsLandings = 0;
  QObject::connect(&engine, &AudioEngine::landed, [&](AudioEngine::Landing landing) {
    if (landing == AudioEngine::Landing::metrics) ++metricsLandings;
  });
  engine.openURLs({QUrl::fromLocalFile(QString::fromStdString(path))});
  ASSERT_TRUE(waitUntil([&] { return metricsLandings == 1; }, 30.0));
  Transport& transport = engine.transport();
  ASSERT_TRUE(transport.hasGraph());
  LoudnessProcessor* live = transport.controller().graph().loudnessProcessor();
  ASSERT_NE(live, nullptr);

  // At every display tick, the live processor's newest block: its index (blocks completed − 1)
  // with its short-term and integrated values, kept only when no block completed during the
  // read.
  std::map<std::int64_t, LiveBlock> liveBlocks;
  int ticks = 0;
  QObject::connect(&transport, &Transport::displayTicked, [&] {
    ++ticks;
    const std::int64_t before = live->blockCount();
    const LiveBlock block{live->shortTermLUFS(), live->integratedLUFS()};
    if (before > 0 && live->blockCount() == before) liveBlocks[before - 1] = block;
  });
  transport.play();
  ASSERT_TRUE(transport.isPlaying());
  ASSERT_TRUE(waitUntil([&] { return !transport.isPlaying(); }, 20.0));
  EXPECT_GT(ticks, 150);  // 8 s at 30 Hz, less what the loaded machine skips

  LiveMeters& meters = engine.meters();
  // What the ticks left for the views: a curve point every 0.09 s or more of playhead time
  // (about ten a second over 8 s), columns of the whole window, the output's scope pair.
  EXPECT_GT(meters.liveLoudnessCurve().size(), 60u);
  EXPECT_LE(meters.liveLoudnessCurve().size(), 90u);
  EXPECT_EQ(meters.liveTruePeakCurve().size(), meters.liveLoudnessCurve().size());
  EXPECT_GT(meters.liveStereoWidthCurve().size(), 60u);
  ASSERT_GT(meters.liveSpectrogramColumns().size(), 50u);
  EXPECT_EQ(meters.liveSpectrogramColumns().back().mags.size(), 2048u);
  ASSERT_TRUE(meters.phaseScopeSamples());
  EXPECT_EQ(meters.phaseScopeSamples()->left.size(), 512u);
  ASSERT_EQ(meters.channelRMS().size(), 2u);
  EXPECT_GT(meters.channelRMS()[0], 0.01f);

  const float liveIntegrated = meters.integratedLUFS();
  const float liveRange = meters.loudnessRange();
  const float liveTruePeak = meters.truePeakDB();

  engine.analysis().analyse();
  waitForBackgroundWork();
  ASSERT_TRUE(waitUntil([&] { return static_cast<bool>(engine.analysis().selectionAnalysis()); }, 30.0));
  const SelectionAnalysisResult& offline = *engine.analysis().selectionAnalysis();
  EXPECT_EQ(offline.timeRange, (SecondsRange{0.0, 8.0}));

  ASSERT_TRUE(std::isfinite(offline.integratedLUFS));
  EXPECT_NEAR(liveIntegrated, offline.integratedLUFS, 0.1);
  EXPECT_GT(offline.loudnessRange, 2.0f);
  EXPECT_NEAR(liveRange, offline.loudnessRange, 0.1);
  EXPECT_NEAR(liveTruePeak, offline.truePeakDB, 0.1);

  // Block i of the offline curves ends at (i + 1) × 0.1 s.
  ASSERT_EQ(offline.shortTermCurve.size(), 80u);
  int paired = 0;
  double worstBlock = 0.0;
  for (const auto& [index, block] : liveBlocks) {
    if (index >= static_cast<std::int64_t>(offline.shortTermCurve.size())) continue;
    const auto i = static_cast<std::size_t>(index);
    if (std::isfinite(offline.shortTermCurve[i].value)) {
      ASSERT_TRUE(std::isfinite(block.shortTermLUFS)) << "block " << index;
      EXPECT_NEAR(block.shortTermLUFS, offline.shortTermCurve[i].value, 0.2) << "block " << index;
      worstBlock = std::max(worstBlock, std::abs(block.shortTermLUFS - offline.shortTermCurve[i].value));
    }
    if (std::isfinite(offline.integratedCurve[i].value)) {
      ASSERT_TRUE(std::isfinite(block.integratedLUFS)) << "block " << index;
      EXPECT_NEAR(block.integratedLUFS, offline.integratedCurve[i].value, 0.2) << "block " << index;
      worstBlock = std::max(worstBlock, std::abs(block.integratedLUFS - offline.integratedCurve[i].value));
    }
    ++paired;
  }
  EXPECT_GT(paired, 40);
  std::printf(
      "[ measured ] live/offline: integrated %.3f/%.3f LUFS, range %.3f/%.3f LU, true peak %.3f/%.3f dBTP; "
      "%d blocks paired, largest difference %.4f LU\n",
      liveIntegrated, offline.integratedLUFS, liveRange, offline.loudnessRange, liveTruePeak, offline.truePeakDB,
      paired, worstBlock);
}

}  // namespace
}  // namespace corvane::test
