// Playback driven through the session (AudioEngine and its Transport) on a real JACK server,
// from files on disk opened by the load road, heard by a second JACK client: what the
// transport's commands and the routing and filter edits of the output panel do to the sound.
#include <QSignalSpy>
#include <cmath>
#include <complex>

#include "playback/RoutingGain.h"
#include "support/JackPlaybackRig.h"
#include "support/JackTestServer.h"
#include "support/PlaybackTestSignals.h"
#include "support/RbjOracle.h"
#include "support/SessionOnJack.h"

namespace corvane::test {
namespace {

using SessionPlayback = OnJackServer;

long captureStart(const JackCaptureClient& capture) {
  long start = -1;
  for (int c = 0; c < capture.channels(); ++c) {
    const long s = firstAbove(capture.channel(c));
    if (s >= 0 && (start < 0 || s < start)) start = s;
  }
  return start;
}

// Peak amplitude of the `frequency` component of x[from, from + count) (whole periods).
double toneAmplitude(const std::vector<float>& x, long from, long count, double frequency) {
  std::complex<double> sum = 0.0;
  for (long i = 0; i < count; ++i) sum += double(x[from + i]) * std::polar(1.0, -2.0 * M_PI * frequency * i / 48000.0);
  return 2.0 * std::abs(sum) / count;
}

TEST_F(SessionPlayback, AFiveOneFilePlaysSampleExactOnItsOwnPortsAndItsEndPublishesTheFinalLoudness) {
  JackCaptureClient capture("cvcap", 8);
  SessionOnJack session;
  // A distinct tone per channel at -20 dBFS (the LFE low), so that a swapped port or a channel
  // weight the live meter got wrong both show. Cosines: the first frame is not silent, so the
  // capture's first sound is frame 0.
  const double frequencies[6] = {440.0, 550.0, 660.0, 60.0, 770.0, 880.0};
  Planar file(48000.0, 6, 48000);
  for (int c = 0; c < 6; ++c) {
    for (FrameCount i = 0; i < file.frames(); ++i) {
      file.channels[c][i] = static_cast<float>(0.1 * std::cos(2.0 * M_PI * frequencies[c] * i / 48000.0));
    }
  }
  const std::string path = session.folder.file("surround.wav");
  writeWav(path, file);
  ASSERT_TRUE(session.open(path, "cvcap"));
  Transport& transport = session.transport();
  QSignalSpy finals(&transport, &Transport::finalLoudnessPublished);

  capture.arm();
  transport.togglePlayPause();
  ASSERT_TRUE(transport.isPlaying());
  ASSERT_TRUE(waitUntil([&] { return !transport.isPlaying(); }, 5.0)) << "the end of the file did not stop it";
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  capture.disarm();

  const long start = captureStart(capture);
  ASSERT_GE(start, 0);
  for (int c = 0; c < 6; ++c) {
    const std::vector<float> x = capture.channel(c);
    ASSERT_GE(static_cast<long>(x.size()), start + file.frames());
    for (FrameCount i = 0; i < file.frames(); ++i) {
      ASSERT_EQ(x[start + i], file.channels[c][i]) << "port " << c << " frame " << i;
    }
    EXPECT_LE(lastAbove(x), start + file.frames() - 1) << "port " << c << " went on after the file";
  }
  EXPECT_EQ(firstAbove(capture.channel(6)), -1);
  EXPECT_EQ(firstAbove(capture.channel(7)), -1);

  // The end of the file is a stop: back to the start, timer off, the pass's figures out.
  EXPECT_EQ(transport.currentTime(), 0.0);
  EXPECT_FALSE(transport.isDisplayTimerActive());
  ASSERT_EQ(finals.count(), 1);
  ASSERT_TRUE(transport.finalLoudness());
  const OracleResult oracle = ebur128Measure(file);  // L R C (LFE unused) Ls Rs
  std::printf("[ measured ] 5.1 pass: live %.3f LUFS, libebur128 %.3f LUFS\n",
              transport.finalLoudness()->integratedLUFS, oracle.integrated);
  EXPECT_NEAR(transport.finalLoudness()->integratedLUFS, oracle.integrated, 0.1);
}

// The skip commands and play/pause by the one key, on an index-coded file: every captured
// sample says which frame it came from.
TEST_F(SessionPlayback, SkipsAndTogglingLandOnTheFramesTheySay) {
  JackCaptureClient capture("cvcap", 2);
  SessionOnJack session;
  const FrameCount frames = 4 * 48000;
  ASSERT_TRUE(session.open(session.writeIndexCodedFile("coded.wav", 2, frames), "cvcap"));
  Transport& transport = session.transport();
  const double rate = 48000.0;

  capture.arm();
  transport.play();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.3; }, 3.0));
  const double t1 = transport.currentTime();
  transport.skip(1.0);  // "Skip Forward 1 Second", from the playhead as shown
  EXPECT_TRUE(transport.isPlaying());
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > t1 + 1.3; }, 3.0));
  transport.skip(-5.0);  // limited to the start
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.3; }, 3.0));
  transport.togglePlayPause();
  EXPECT_FALSE(transport.isPlaying());
  const FrameCount pausedAt = transport.controller().playbackFrame();
  EXPECT_DOUBLE_EQ(transport.currentTime(), pausedAt / rate);
  waitUntil([] { return false; }, 0.2);
  EXPECT_EQ(transport.controller().playbackFrame(), pausedAt) << "a paused transport moved";
  transport.togglePlayPause();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > pausedAt / rate + 0.2; }, 3.0));
  transport.pause();
  // Skipping past the end while paused stops at the end; play then starts from the top.
  transport.skip(10.0);
  EXPECT_DOUBLE_EQ(transport.currentTime(), transport.duration());
  EXPECT_EQ(transport.controller().playbackFrame(), frames);
  transport.play();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.1 && transport.currentTime() < 1.0; }, 3.0));
  transport.stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  capture.disarm();

  // Four runs: from 0; from the skip target; from 0 again, straight through the pause (the
  // frame after the pause is the one after the last before it); from 0 after the end.
  const auto runs = runsOf(capture.channel(0), 0);
  ASSERT_EQ(runs.size(), 4u);
  EXPECT_EQ(runs[0].first, 0);
  EXPECT_EQ(runs[1].first, static_cast<FrameCount>((t1 + 1.0) * rate));
  EXPECT_EQ(runs[2].first, 0);
  EXPECT_GT(runs[2].first + runs[2].second, pausedAt + 4800);
  EXPECT_EQ(runs[3].first, 0);
}

TEST_F(SessionPlayback, RoutingEditsWhilePlayingChangeTheSoundWithinABuffer) {
  JackCaptureClient capture("cvcap", 8);
  SessionOnJack session;
  const std::string path = session.folder.file("tone.wav");
  writeWav(path, sine(48000.0, 2, 4.0, 1000.0, 0.25));
  ASSERT_TRUE(session.open(path, "cvcap"));
  Transport& transport = session.transport();

  capture.arm();
  transport.play();
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 0.6; }, 3.0));
  // The matrix's own operations: -6 dB on L, the phasor of R stepped round to 180°, and the
  // left channel added to the third output and stepped to +90°.
  ChannelRoutings routings = transport.routings();
  ASSERT_TRUE(setRouteGainDB(routings, 0, 0, -6.0));
  for (int step = 0; step < 3; ++step) cycleRoutePhase(routings, 1, 1);
  ASSERT_TRUE(addRoute(routings, 2, 0));
  ASSERT_TRUE(cycleRoutePhase(routings, 2, 0));
  const long editAt = static_cast<long>(capture.framesRecorded());
  transport.setRoutings(routings);
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 1.4; }, 3.0));
  const long muteAt = static_cast<long>(capture.framesRecorded());
  transport.setMutedSourceChannels({1});
  ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 2.2; }, 3.0));
  ASSERT_TRUE(transport.isPlaying());
  transport.stop();
  capture.disarm();
  EXPECT_EQ(transport.currentTime(), 0.0);

  std::vector<std::vector<float>> out;
  for (int c = 0; c < 3; ++c) out.push_back(capture.channel(c));
  const long start = captureStart(capture);
  ASSERT_GE(start, 0);
  ASSERT_GT(muteAt, editAt + 9600);
  // Windows of 10 whole periods, a buffer and more past each edit.
  const long count = 480;
  const long before = start + 12000, afterEdit = editAt + 4800, afterMute = muteAt + 4800;
  ASSERT_LT(before + count, editAt);
  ASSERT_GT(static_cast<long>(out[0].size()), afterMute + count);

  const double ref = rms(out[0], before, count);
  EXPECT_NEAR(ref, 0.25 / std::sqrt(2.0), 1e-3);
  EXPECT_NEAR(wrapDegrees(phaseDegrees(out[1], before, count, 1000.0, 48000.0) -
                          phaseDegrees(out[0], before, count, 1000.0, 48000.0)), 0.0, 0.5);
  EXPECT_EQ(firstAbove(std::vector<float>(out[2].begin(), out[2].begin() + editAt)), -1);

  EXPECT_NEAR(20.0 * std::log10(rms(out[0], afterEdit, count) / ref), -6.0, 0.01);
  const double phase0 = phaseDegrees(out[0], afterEdit, count, 1000.0, 48000.0);
  EXPECT_NEAR(std::fabs(wrapDegrees(phaseDegrees(out[1], afterEdit, count, 1000.0, 48000.0) - phase0)), 180.0, 1.0);
  // +90° plays the quadrature row, a quarter period behind its reference.
  EXPECT_NEAR(wrapDegrees(phaseDegrees(out[2], afterEdit, count, 1000.0, 48000.0) - phase0), -90.0, 1.0);
  EXPECT_NEAR(rms(out[2], afterEdit, count) / ref, 1.0, 0.06);

  // Muting the right channel silences the output it feeds, and only that one.
  for (long i = afterMute; i < afterMute + count; ++i) ASSERT_EQ(out[1][i], 0.0f) << i;
  EXPECT_NEAR(20.0 * std::log10(rms(out[0], afterMute, count) / ref), -6.0, 0.01);
}

// The band filter as the spectrum view sets it, on the captured output of both graph shapes:
// a wide device (the callback's biquads) and a two-channel one (the EQ). Three tones at once,
// each read from the output by its own DFT bin, against the cookbook responses computed by scipy.
TEST_F(SessionPlayback, BandFiltersOnTheLiveOutputMatchTheCookbook) {
  const double tones[3] = {100.0, 1000.0, 8000.0};
  const double amplitude = 0.2;
  for (int ports : {8, 2}) {
    SCOPED_TRACE(std::to_string(ports) + " outputs");
    JackCaptureClient capture("cvcap", ports);
    SessionOnJack session;
    Planar file(48000.0, 2, 3 * 48000);
    for (FrameCount i = 0; i < file.frames(); ++i) {
      double v = 0.0;
      for (double f : tones) v += amplitude * std::sin(2.0 * M_PI * f * i / 48000.0);
      file.channels[0][i] = file.channels[1][i] = static_cast<float>(v);
    }
    const std::string path = session.folder.file("tones.wav");
    writeWav(path, file);
    ASSERT_TRUE(session.open(path, "cvcap"));
    Transport& transport = session.transport();
    QSignalSpy selectionSpy(&transport, &Transport::freqSelectionChanged);
    transport.setFreqSelection(FreqRange{200.0, 2000.0});
    transport.setFreqSelection(FreqRange{200.0, 2000.0});
    EXPECT_EQ(selectionSpy.count(), 1);

    capture.arm();
    transport.play();
    ASSERT_TRUE(waitUntil([&] { return transport.currentTime() > 1.0; }, 3.0));
    const long switchAt = static_cast<long>(capture.framesRecorded());
    transport.setFilterMode(FreqFilterMode::bandReject);
    transport.setFreqSelection(FreqRange{600.0, 1500.0});
    ASSERT_TRUE(waitUntil([&] { return !transport.isPlaying(); }, 5.0));
    capture.disarm();

    const std::vector<float> x = capture.channel(0);
    const long start = captureStart(capture);
    ASSERT_GE(start, 0);
    const long count = 4800;  // whole periods of all three tones
    const struct {
      long from;
      const char* form;
      double lo, hi;
    } passes[2] = {{start + 24000, "bandpass", 200.0, 2000.0},
                   {switchAt + 14400, ports > 2 ? "notch" : "peakcut", 600.0, 1500.0}};
    for (const auto& pass : passes) {
      ASSERT_GT(static_cast<long>(x.size()), pass.from + count);
      const std::vector<double> expected =
          rbjOracleDB(48000.0, pass.form, pass.lo, pass.hi, std::vector<double>(tones, tones + 3));
      ASSERT_EQ(expected.size(), 3u) << "scipy oracle did not answer";
      int compared = 0;
      for (int t = 0; t < 3; ++t) {
        const double db = 20.0 * std::log10(toneAmplitude(x, pass.from, count, tones[t]) / amplitude);
        std::printf("[ measured ] %d outputs, %s: %.0f Hz at %+.3f dB, scipy %+.3f dB\n", ports, pass.form,
                    tones[t], db, expected[t]);
        if (expected[t] < -40.0) continue;
        ++compared;
        EXPECT_NEAR(db, expected[t], 0.1) << pass.form << " at " << tones[t] << " Hz";
      }
      EXPECT_GE(compared, 2);
    }
  }
}

}  // namespace
}  // namespace corvane::test
