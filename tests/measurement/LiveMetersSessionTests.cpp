// The live meters as the session drives them: the spectrum of a still playhead after a seek,
// the window size and readout rate from the settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "SessionTestSupport.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/Transport.h"
#include "session/SessionSettings.h"

namespace corvane::test {
namespace {

std::size_t peakBin(const std::vector<float>& mags) {
  return static_cast<std::size_t>(std::max_element(mags.begin(), mags.end()) - mags.begin());
}

using LiveMetersInSession = SessionTest;

TEST_F(LiveMetersInSession, ASeekOfAStillPlayheadShowsTheSpectrumThereAndSettingsReachTheMeters) {
  // One second at 1500 Hz, then one at 6000 Hz.
  Planar signal = sine(48000.0, 2, 1.0, 1500.0, 0.5);
  signal.append(sine(48000.0, 2, 1.0, 6000.0, 0.5));
  auto engine = makeEngine();
  LandingLog landings(*engine);
  engine->openURLs({url(writeFile("two-tones.wav", signal))});
  ASSERT_TRUE(waitUntil([&] { return landings.count(AudioEngine::Landing::metrics) == 1; }));
  LiveMeters& meters = engine->meters();
  ASSERT_EQ(meters.fftSize(), 4096);

  engine->transport().seekImpl(1.5, true);
  ASSERT_TRUE(meters.fftMagnitudes());
  EXPECT_EQ(peakBin((*meters.fftMagnitudes())[0]), 512u);  // 6000 Hz × 4096 / 48000
  engine->transport().seekImpl(0.3, true);
  EXPECT_EQ(peakBin((*meters.fftMagnitudes())[1]), 128u);  // 1500 Hz
  ASSERT_TRUE(meters.msMagnitudes());
  EXPECT_EQ(peakBin(meters.msMagnitudes()->mid), 128u);

  // A new window size: new rings for the render side, the offline columns go too.
  engine->sessionSettings().setFftSize(2048);
  EXPECT_EQ(meters.fftSize(), 2048);
  EXPECT_EQ(engine->transport().mirrors()._atomicAnalysisRings.current()->rings[0]->capacity(), 4 * 2048);
  EXPECT_FALSE(engine->analysis().offlineSpectrogramColumns());
  engine->transport().seekImpl(1.5, true);
  EXPECT_EQ(peakBin((*meters.fftMagnitudes())[0]), 256u);

  // The readout rate is the user's and stays with the settings.
  meters.setMeterReadoutRate(MeterReadoutRate::hz2);
  EXPECT_EQ(store->meterReadoutRate(), MeterReadoutRate::hz2);
  auto later = makeEngine();
  EXPECT_EQ(later->meters().meterReadoutRate(), MeterReadoutRate::hz2);
}

}  // namespace
}  // namespace corvane::test
