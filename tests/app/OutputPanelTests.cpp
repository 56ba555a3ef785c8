// The output panel on a private JACK server (dummy driver): its device list, a device chosen
// in it, and a routing preset applied from its bar, judged by what a capture client standing
// as the output device records while the file plays.
#include <gtest/gtest.h>

#include <QLabel>
#include <QListWidget>
#include <QTest>
#include <QToolButton>
#include <cmath>

#include "NoPresetDialogs.h"
#include "SessionTestSupport.h"
#include "app/OutputPanel.h"
#include "app/PresetBar.h"
#include "app/RoutingMatrixView.h"
#include "playback/AudioDeviceManager.h"
#include "playback/RoutingPresets.h"
#include "playback/Transport.h"
#include "support/JackTestServer.h"

namespace corvane {
namespace {

using test::waitUntil;

double rms(const std::vector<float>& samples) {
  double sum = 0.0;
  for (float s : samples) sum += double(s) * s;
  return samples.empty() ? 0.0 : std::sqrt(sum / double(samples.size()));
}

class OutputPanelTest : public test::SessionTest {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<test::JackTestServer>(); }
  static void TearDownTestSuite() { server.reset(); }
  static inline std::unique_ptr<test::JackTestServer> server;
};

TEST_F(OutputPanelTest, ADeviceChosenInTheListAndAPresetFromTheBarDecideWhatIsHeard) {
  test::JackCaptureClient capture("cvcap", 2, 30.0);
  AudioEngineOptions options = engineOptions();
  options.manualOutput.reset();  // the real devices of the server
  auto engine = std::make_unique<AudioEngine>(options);
  UserPresetStore presets(engine->settings());
  OutputPanel panel(*engine, presets, std::make_shared<test::NoPresetDialogs>());
  panel.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&panel));

  // Without a file the routing says so.
  EXPECT_TRUE(panel.noFileLabel()->isVisible());
  EXPECT_EQ(panel.noFileLabel()->text(), QStringLiteral("Load an audio file to configure routing."));

  // The server's devices, each with its channel count; the capture client among them.
  QListWidget* list = panel.deviceList();
  int captureRow = -1;
  for (int row = 0; row < list->count(); ++row) {
    if (list->item(row)->text().trimmed() == QStringLiteral("cvcap (2 ch)")) captureRow = row;
  }
  ASSERT_GE(captureRow, 0) << "the capture client is not listed";
  QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, list->visualItemRect(list->item(captureRow)).center());
  ASSERT_TRUE(engine->deviceManager().selectedDevice().has_value());
  EXPECT_EQ(engine->deviceManager().selectedDevice()->name, "cvcap");
  EXPECT_TRUE(list->item(captureRow)->text().startsWith(QStringLiteral("\u2713 ")));

  // A tone on the left only.
  test::Planar tone = test::sine(48000.0, 2, 20.0, 440.0, 0.5);
  std::fill(tone.channels[1].begin(), tone.channels[1].end(), 0.0f);
  engine->loadFile(url(writeFile("left.wav", tone)));
  ASSERT_TRUE(waitUntil([&] { return engine->loadedFile().has_value() && !engine->isLoading(); }));
  QCoreApplication::processEvents();
  EXPECT_FALSE(panel.noFileLabel()->isVisible());
  ASSERT_EQ(panel.matrix()->routings().size(), 2u);

  const auto listen = [&] {
    engine->transport().play();
    EXPECT_TRUE(waitUntil([&] { return engine->transport().isPlaying(); }, 5.0));
    waitUntil([] { return false; }, 0.3);  // the stream reaches the capture client
    capture.arm();
    waitUntil([&] { return capture.framesRecorded() >= 24000; }, 10.0);
    engine->transport().pause();
    return std::make_pair(rms(capture.channel(0)), rms(capture.channel(1)));
  };
  // The default routing: left to output 1.
  auto [out1, out2] = listen();
  EXPECT_NEAR(out1, 0.5 / std::sqrt(2.0), 0.03);
  EXPECT_LT(out2, 1e-4);

  // "Swap L/R" from the bar: the left channel is heard on output 2.
  QToolButton* swap = nullptr;
  for (QToolButton* b : panel.presetBar()->builtInButtons()) {
    if (b->text() == QStringLiteral("Swap L/R")) swap = b;
  }
  ASSERT_NE(swap, nullptr);
  swap->click();
  QCoreApplication::processEvents();
  std::tie(out1, out2) = listen();
  EXPECT_LT(out1, 1e-4);
  EXPECT_NEAR(out2, 0.5 / std::sqrt(2.0), 0.03);
  EXPECT_TRUE(panel.matrix()->cell(1, 0)->isRouted());
  EXPECT_FALSE(panel.matrix()->cell(0, 0)->isRouted());

  panel.close();
  engine.reset();
}

}  // namespace
}  // namespace corvane
