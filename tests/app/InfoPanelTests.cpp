// The info panel and the channel statistics window of the real window over a real session: the
// file's facts, the offline figures of the loaded file and the live figures of a pass of
// playback, with their labels and formats, against libebur128 and hand-computed levels.
#include <gtest/gtest.h>

#include <QLabel>
#include <QRegularExpression>
#include <QTableWidget>
#include <QTest>
#include <cmath>

#include "WindowTest.h"
#include "app/ContentView.h"
#include "app/MainWindow.h"
#include "app/NotificationBus.h"
#include "displays/ChannelStatsView.h"
#include "displays/InfoPanel.h"
#include "playback/PlaybackController.h"
#include "playback/Transport.h"

namespace corvane {
namespace {

using test::waitUntil;

constexpr double kRate = 48000.0;

// 997 Hz at −6.02 dBFS peak on the left, at −12.04 dBFS on the right: a steady tone, so every
// loudness figure of a pass equals the whole file's.
test::Planar twoLevelTone(double seconds) {
  test::Planar tone = test::sine(kRate, 2, seconds, 997.0, 0.5);
  for (float& v : tone.channels[1]) v *= 0.5f;
  return tone;
}

double parse(const QString& text) {
  bool ok = false;
  const double value = text.toDouble(&ok);
  return ok ? value : std::nan("");
}

class InfoPanelTest : public test::WindowTest {
 protected:
  void load(const test::Planar& signal) {
    test::LandingLog log(*engine);
    engine->loadFile(url(writeFile("two-level.wav", signal)));
    ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) > 0; }));
    QCoreApplication::processEvents();
  }
  QString text(const QString& name) const {
    auto* label = window->content()->infoPanel()->findChild<QLabel*>(name);
    return label ? label->text() : QStringLiteral("<missing %1>").arg(name);
  }
  std::vector<std::pair<QString, QString>> rowLabels() const {
    std::vector<std::pair<QString, QString>> labels;
    for (const LUFSRow& row : loudnessSection(window->content()->currentReadings()).rows) labels.emplace_back(row.label, row.sublabel);
    return labels;
  }
};

const QRegularExpression kOneDecimal(QStringLiteral("^-?\\d+\\.\\d$"));

TEST_F(InfoPanelTest, ShowsTheFileAndItsOfflineFigures) {
  const test::Planar tone = twoLevelTone(10.0);
  load(tone);
  const test::OracleResult oracle = test::ebur128Measure(tone);

  EXPECT_EQ(text("file.Name"), QStringLiteral("two-level"));
  EXPECT_EQ(text("file.Sample Rate"), QStringLiteral("48.0 kHz"));
  EXPECT_EQ(text("file.Channels"), QStringLiteral("2 (Stereo)"));
  EXPECT_EQ(text("file.Encoding"), QStringLiteral("32-bit float"));
  // 10 s of two float channels (3,840,000 bytes) and a header of a few dozen: 3.66 MiB.
  EXPECT_EQ(text("file.Size"), QStringLiteral("3.7 MB"));

  window->content()->setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  QCoreApplication::processEvents();
  using Labels = std::vector<std::pair<QString, QString>>;
  EXPECT_EQ(rowLabels(), (Labels{{"Integrated", "I"},
                                 {"Integrated", "SG-I"},
                                 {"Max Momentary", QStringLiteral("M\u2191")},
                                 {"Max Short-term", QStringLiteral("S\u2191")},
                                 {"True Peak", "dBTP"},
                                 {"Sample Peak", "dBFS"}}));

  const QString integrated = text("loudness.Integrated.I");
  EXPECT_TRUE(kOneDecimal.match(integrated).hasMatch()) << integrated.toStdString();
  EXPECT_NEAR(parse(integrated), oracle.integrated, 0.051);
  // A steady tone: its loudest 400 ms and 3 s windows read what the whole does.
  EXPECT_NEAR(parse(text(QStringLiteral("loudness.Max Momentary.M\u2191"))), oracle.momentary, 0.051);
  EXPECT_NEAR(parse(text(QStringLiteral("loudness.Max Short-term.S\u2191"))), oracle.shortTerm, 0.051);
  EXPECT_NEAR(parse(text("loudness.True Peak.dBTP")), std::max(oracle.truePeakDB[0], oracle.truePeakDB[1]), 0.11);
  EXPECT_EQ(text("loudness.Sample Peak.dBFS"), QStringLiteral("-6.0"));  // 20·log10(0.5)

  // The channel statistics window, asked for from the panel's button.
  bus.post(notification::showChannelStatsPanel);
  auto* stats = window->findChild<ChannelStatsView*>();
  ASSERT_NE(stats, nullptr);
  ASSERT_TRUE(stats->isVisible());
  QTableWidget* table = stats->table();
  ASSERT_EQ(table->rowCount(), 2);
  QStringList headings;
  for (int c = 0; c < table->columnCount(); ++c) headings << table->horizontalHeaderItem(c)->text();
  EXPECT_EQ(headings, (QStringList{"Channel", "Sample Pk", "True Pk", "RMS", "Crest", "DR", "Clipped", "DC"}));
  const auto cell = [&](int row, int column) { return table->item(row, column)->text(); };
  // Peak 0.5 and 0.25, RMS of a sine peak/√2, crest 3.01 dB, no DC, nothing clipped.
  EXPECT_EQ((QStringList{cell(0, 0), cell(0, 1), cell(0, 3), cell(0, 4), cell(0, 6), cell(0, 7)}),
            (QStringList{"L", "-6.02", "-9.03", "3.01", "0", "+0.0000"}));
  EXPECT_EQ((QStringList{cell(1, 0), cell(1, 1), cell(1, 3), cell(1, 4), cell(1, 6), cell(1, 7)}),
            (QStringList{"R", "-12.04", "-15.05", "3.01", "0", "+0.0000"}));
  EXPECT_NEAR(parse(cell(0, 2)), oracle.truePeakDB[0], 0.011);
  EXPECT_NEAR(parse(cell(1, 2)), oracle.truePeakDB[1], 0.011);
  EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d+$")).match(cell(0, 5)).hasMatch()) << cell(0, 5).toStdString();
}

TEST_F(InfoPanelTest, ShowsTheLiveFiguresOfAPassOfPlayback) {
  const test::Planar tone = twoLevelTone(8.0);
  load(tone);
  window->content()->setLoudnessDisplayMode(LoudnessDisplayMode::live);
  QCoreApplication::processEvents();
  using Labels = std::vector<std::pair<QString, QString>>;
  const Labels liveRows{{"Integrated", "I"}, {"Integrated", "SG-I"}, {"Momentary", "M"},
                        {"Short-term", "S"}, {"True Peak", "dBTP"},  {"Sample Peak", "dBFS"}};
  EXPECT_EQ(rowLabels(), liveRows);
  // Nothing has played: the live rows have no reading.
  EXPECT_EQ(text("loudness.Integrated.I"), QStringLiteral("\u2014"));

  // Five seconds through the real render chain, pulled as a device would.
  Transport& transport = engine->transport();
  transport.play();
  ASSERT_TRUE(transport.isPlaying());
  PlaybackGraph& graph = transport.controller().graph();
  constexpr int kBlock = 1024;
  std::vector<float> left(kBlock), right(kBlock);
  float* out[2] = {left.data(), right.data()};
  double played = 0.0;
  for (int i = 0; i < static_cast<int>(5.0 * kRate / kBlock); ++i) {
    graph.renderManual(out, kBlock);
    played += kBlock / kRate;
    if (i % 16 == 0) QCoreApplication::processEvents();
  }
  test::Planar heard = tone;
  for (auto& channel : heard.channels) channel.resize(static_cast<std::size_t>(played * kRate));
  const test::OracleResult oracle = test::ebur128Measure(heard);

  // While it plays: the display ticks bring the momentary and short-term loudness (a steady
  // tone: the oracle's last windows) and each channel's level (a sine's RMS is its peak / √2:
  // −9.0 and −15.1 dB).
  ASSERT_TRUE(transport.isPlaying());
  ASSERT_TRUE(waitUntil([&] { return std::isfinite(parse(text("loudness.Momentary.M"))) &&
                                     std::isfinite(parse(text("loudness.Short-term.S"))); }, 10.0));
  EXPECT_TRUE(kOneDecimal.match(text("loudness.Momentary.M")).hasMatch());
  EXPECT_NEAR(parse(text("loudness.Momentary.M")), oracle.momentary, 0.11);
  EXPECT_NEAR(parse(text("loudness.Short-term.S")), oracle.shortTerm, 0.11);
  ASSERT_TRUE(waitUntil([&] { return text("channel.1.value") != QStringLiteral("\u2014"); }, 10.0));
  EXPECT_EQ(text("channels.title"), QStringLiteral("Channels"));
  EXPECT_EQ(text("channel.0.label"), QStringLiteral("L"));
  EXPECT_EQ(text("channel.0.value"), QStringLiteral("-9.0 dB"));
  EXPECT_EQ(text("channel.1.value"), QStringLiteral("-15.1 dB"));

  transport.stop();
  ASSERT_TRUE(waitUntil([&] { return std::isfinite(parse(text("loudness.Integrated.I"))); }, 10.0));
  EXPECT_EQ(rowLabels(), liveRows);
  const QString integrated = text("loudness.Integrated.I");
  EXPECT_TRUE(kOneDecimal.match(integrated).hasMatch()) << integrated.toStdString();
  EXPECT_NEAR(parse(integrated), oracle.integrated, 0.051);
  EXPECT_NEAR(parse(text("loudness.True Peak.dBTP")), std::max(oracle.truePeakDB[0], oracle.truePeakDB[1]), 0.11);
}

// Statistics a clipped channel produces: a channel without a DR value shows a dash, its clipped
// count still stands; levels keep two decimals and DC its sign.
TEST(ChannelStatRowText, DashForAMissingDRAndCountsAndSignsAsTheyAre) {
  ChannelStatRow row;
  row.label = QStringLiteral("C");
  row.peak = 0.0f;
  row.trueP = 0.4049f;
  row.rms = -3.0f;
  row.crest = 3.0f;
  row.dr = std::nullopt;
  row.clipped = 1200;
  row.dc = -0.00012f;
  EXPECT_EQ(row.cells(), (QStringList{"C", "0.00", "0.40", "-3.00", "3.00", QStringLiteral("\u2014"), "1200", "-0.0001"}));
  row.dr = 11;
  row.dc = 0.25f;
  EXPECT_EQ(row.cells()[5], QStringLiteral("11"));
  EXPECT_EQ(row.cells()[7], QStringLiteral("+0.2500"));
}

}  // namespace
}  // namespace corvane

namespace corvane {
namespace {

// The statistics window comes back at the size and place the user left it, in a later session.
TEST_F(InfoPanelTest, TheStatisticsWindowKeepsItsFrame) {
  ChannelStatsView* stats = window->showChannelStats();
  stats->setGeometry(120, 90, 610, 260);
  QCoreApplication::processEvents();
  stats->close();

  window.reset();
  window = std::make_unique<MainWindow>(*engine, bus, user);
  window->show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
  stats = window->showChannelStats();
  EXPECT_EQ(stats->size(), QSize(610, 260));
  // The place, up to the frame the platform draws around the window.
  EXPECT_LE((stats->pos() - QPoint(120, 90)).manhattanLength(), 8);
}

}  // namespace
}  // namespace corvane
