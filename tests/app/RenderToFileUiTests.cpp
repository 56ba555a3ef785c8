// The output panel's "Render to File…" as a user gives it: the button under the routing, the
// real save panel answered by typing a name, and the file it leaves read back by libsndfile,
// judged against the routing's mix computed here from the source samples.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <QPushButton>
#include <QTest>
#include <cmath>
#include <filesystem>

#include "DialogScript.h"
#include "NoPresetDialogs.h"
#include "SessionTestSupport.h"
#include "app/OutputPanel.h"
#include "app/PresetBar.h"
#include "playback/ChannelRouting.h"
#include "playback/RoutedOutputExport.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"

namespace corvane {
namespace {

using test::DialogScript;
using test::waitUntil;

class RenderToFileUi : public test::SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    engine = std::make_unique<AudioEngine>(engineOptions());
    presets = std::make_unique<UserPresetStore>(engine->settings());
    panel = std::make_unique<OutputPanel>(*engine, *presets, std::make_shared<test::NoPresetDialogs>());
    panel->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(panel.get()));
  }
  void TearDown() override {
    panel.reset();
    presets.reset();
    engine.reset();
    SessionTest::TearDown();
  }

  std::unique_ptr<AudioEngine> engine;
  std::unique_ptr<UserPresetStore> presets;
  std::unique_ptr<OutputPanel> panel;
};

TEST_F(RenderToFileUi, TheButtonWritesOnlyTheRoutedOutputsAsTheRoutingMixesThem) {
  // Without a file there is nothing to render: the button is out of sight with the routing.
  EXPECT_FALSE(panel->renderButton()->isVisible());

  // Two different channels, so the file shows which one fed the output.
  test::Planar source(48000.0, 2, 48000);
  for (std::size_t i = 0; i < 48000; ++i) {
    source.channels[0][i] = 0.5f * static_cast<float>(std::sin(2.0 * M_PI * 440.0 * double(i) / 48000.0));
    source.channels[1][i] = 0.4f * static_cast<float>(std::sin(2.0 * M_PI * 1000.0 * double(i) / 48000.0));
  }
  const std::string input = writeFile("take.wav", source);
  engine->loadFile(url(input));
  ASSERT_TRUE(waitUntil([&] { return !engine->isLoading() && engine->pcmBuffer() != nullptr; }));
  QCoreApplication::processEvents();
  QPushButton* button = panel->renderButton();
  ASSERT_TRUE(button->isVisible());
  EXPECT_EQ(button->text(), "Render to File\u2026");
  EXPECT_EQ(button->toolTip(),
            "Render the current routing (downmix or reorder, with per-route gain and phase) to a new audio file. Only "
            "the outputs you've routed are written.");

  // Output 1 silenced, output 0 fed by the right channel at -6 dB: a one-channel file.
  Transport& transport = engine->transport();
  ChannelRoutings routings = transport.routings();
  ASSERT_EQ(routings.size(), 2u);
  ASSERT_TRUE(removeRoute(routings, 0, 0) && addRoute(routings, 0, 1) && setRouteGainDB(routings, 0, 1, -6.0));
  ASSERT_TRUE(removeRoute(routings, 1, 1));
  transport.setRoutings(routings);

  const std::string chosen = folder.file("routed");  // the panel adds the one type's extension
  test::SeenPanel seen;
  DialogScript script;
  script.then(test::inSavePanel(seen, chosen));
  button->click();
  ASSERT_TRUE(script.finished());
  EXPECT_EQ(seen.title, "Render Routed Output");
  EXPECT_EQ(std::filesystem::path(seen.proposed.toStdString()).filename(), "take_routed.wav");

  SF_INFO info{};
  SNDFILE* file = sf_open((chosen + ".wav").c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
  EXPECT_EQ(info.channels, 1);
  EXPECT_EQ(info.samplerate, 48000);
  EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
  ASSERT_EQ(info.frames, static_cast<sf_count_t>(source.channels[1].size()));
  std::vector<float> written(static_cast<std::size_t>(info.frames));
  sf_readf_float(file, written.data(), info.frames);
  sf_close(file);
  const double gain = std::pow(10.0, -6.0 / 20.0);
  double worst = 0.0;
  for (std::size_t i = 0; i < written.size(); ++i) worst = std::max(worst, std::fabs(written[i] - gain * source.channels[1][i]));
  EXPECT_LT(worst, 1e-6);

  // Nothing routed: the command says so, asks for no file and writes nothing.
  ChannelRoutings none = transport.routings();
  ASSERT_TRUE(removeRoute(none, 0, 1));
  transport.setRoutings(none);
  const auto filesBefore = std::distance(std::filesystem::directory_iterator(folder.path()), {});
  user->seen.clear();
  EXPECT_FALSE(panel->renderToFile().has_value());
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].informativeText,
            "No output has a routed source yet, so there's nothing to render. Route at least one source in the matrix "
            "first.");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), filesBefore);
}

}  // namespace
}  // namespace corvane
