// The settings store against settings files as they lie on disk (written here by hand, as a
// user's older version or a hand edit might leave them), and the session reading them once.
#include <QSettings>
#include <QSignalSpy>
#include <fstream>

#include "SessionTestSupport.h"
#include "measurement/FileAnalysis.h"
#include "session/SessionSettings.h"

namespace corvane::test {
namespace {

class Settings : public SessionTest {
 protected:
  // A store over an INI file holding exactly `lines` under [General].
  std::unique_ptr<SettingsStore> storeWith(const std::vector<std::string>& lines) {
    const std::string path = folder.file("written-" + std::to_string(++_files) + ".ini");
    std::ofstream out(path);
    out << "[General]\n";
    for (const auto& line : lines) out << line << '\n';
    out.close();
    return std::make_unique<SettingsStore>(QString::fromStdString(path));
  }

 private:
  int _files = 0;
};

TEST_F(Settings, EveryKeyHasItsDefaultWhenNothingIsStored) {
  const SettingsStore& s = *store;
  EXPECT_TRUE(s.defaultShowWaveform());
  EXPECT_TRUE(s.defaultShowLoudnessCurve());
  EXPECT_TRUE(s.defaultShowSpectrogram());
  EXPECT_TRUE(s.defaultShowFFT());
  EXPECT_TRUE(s.defaultShowStereoWidth());
  EXPECT_EQ(s.corvaneTextScale(), CorvaneTextScale::standard);
  EXPECT_FALSE(s.corvaneCompactModeLabels());
  EXPECT_EQ(s.meterReadoutRate(), MeterReadoutRate::hz10);
  EXPECT_FALSE(s.meterRollAnimation());
  EXPECT_TRUE(s.corvaneLiquidGlassEnabled());
  EXPECT_EQ(s.spectrogramColormap(), SpectrogramColormap::inferno);
  EXPECT_EQ(s.spectrogramFreqScale(), SpectrogramFreqScale::logarithmic);
  EXPECT_EQ(s.spectrogramFftSize(), 4096);
  EXPECT_EQ(s.spectrogramOverlap(), SpectrogramOverlap::overlap75);
  EXPECT_FALSE(s.autoComputeSpectrogramOnLoad());
  EXPECT_EQ(s.spectrogramDBFloor(), -96.0);
  EXPECT_EQ(s.spectrogramDBCeiling(), 0.0);
  EXPECT_EQ(s.spectrogramGlow(), 0.6);
  EXPECT_EQ(s.spectrogramGamma(), 1.0);
  EXPECT_FALSE(s.fftExactAverage());
  EXPECT_EQ(s.vadThreshold(), 0.5);
  EXPECT_EQ(s.vadMinSpeechDuration(), 0.1);
  EXPECT_EQ(s.vadMinSilenceDuration(), 0.1);
  EXPECT_EQ(s.loudnessTargetSelection(), LoudnessTargetSelection::defaultSelection());
  EXPECT_TRUE(s.reportIncludeLoudnessCurve());
  EXPECT_TRUE(s.reportIncludeStereoWidth());
  EXPECT_TRUE(s.reportIncludeChannels());
  EXPECT_TRUE(s.reportIncludeViolations());
  EXPECT_FALSE(s.corvaneAllowSaveOverwrite());
  EXPECT_TRUE(s.corvaneConfirmSaveOverwrite());
  EXPECT_TRUE(s.chainPreferOutOfProcess());
  EXPECT_TRUE(s.corvaneShowInfoPanel());
  EXPECT_EQ(s.loudnessDisplayMode(), LoudnessDisplayMode::live);
  EXPECT_TRUE(s.chapterAutoRecall());
  EXPECT_FALSE(s.chapterDetectionSettings());
  EXPECT_EQ(s.recordingCrossfadeMs(), 10.0);
  EXPECT_FALSE(s.rawPCMFileFormats());
  EXPECT_FALSE(s.routingUserPresets());
  EXPECT_TRUE(s.routingUseMatrixView());  // the matrix is the routing panel's default form
  EXPECT_FALSE(s.generatorDraft());
  EXPECT_FALSE(s.chainIncludeTail());
  EXPECT_TRUE(s.spectralWaveStrip());
  EXPECT_EQ(s.spectralFeatherTimeMs(), 20.0);
  EXPECT_EQ(s.spectralFeatherFreqHz(), 50.0);
  EXPECT_EQ(s.spectralEraseDepthDb(), 12.0);
  EXPECT_TRUE(s.recentDocuments().isEmpty());
}

TEST_F(Settings, SpectrogramWindowAndOverlapTakeOnlyWhatTheSpectrogramCanUse) {
  for (const auto& [stored, read] : std::vector<std::pair<std::string, int>>{
           {"128", 4096}, {"3000", 4096}, {"32768", 4096}, {"256", 256}, {"16384", 16384}, {"512", 512},
           {"0", 4096}, {"-4096", 4096}, {"4096.0", 4096}, {"lots", 4096}}) {
    EXPECT_EQ(storeWith({"spectrogramFftSize=" + stored})->spectrogramFftSize(), read) << stored;
  }
  for (const auto& [stored, read] : std::vector<std::pair<std::string, SpectrogramOverlap>>{
           {"5", SpectrogramOverlap::overlap75}, {"8", SpectrogramOverlap::overlap875},
           {"64", SpectrogramOverlap::overlap984375}, {"128", SpectrogramOverlap::overlap75},
           {"sixteen", SpectrogramOverlap::overlap75}}) {
    EXPECT_EQ(storeWith({"spectrogramOverlap=" + stored})->spectrogramOverlap(), read) << stored;
  }
}

TEST_F(Settings, AStoredZeroIsAValueNotAMissingKey) {
  const auto s = storeWith({"spectrogramDBCeiling=0", "spectrogramGlow=0", "vadThreshold=0", "recordingCrossfadeMs=0",
                            "spectrogramDBFloor=-120", "com.fenwright.Corvane.spectral.featherTimeMs=0"});
  EXPECT_EQ(s->spectrogramDBCeiling(), 0.0);
  EXPECT_EQ(s->spectrogramGlow(), 0.0);
  EXPECT_EQ(s->vadThreshold(), 0.0);
  EXPECT_EQ(s->recordingCrossfadeMs(), 0.0);
  EXPECT_EQ(s->spectrogramDBFloor(), -120.0);
  EXPECT_EQ(s->spectralFeatherTimeMs(), 0.0);
}

TEST_F(Settings, ValuesThatDoNotDecodeStrictlyFallBackToTheDefault) {
  const auto s = storeWith({"defaultShowWaveform=yes", "defaultShowFFT=false", "meterRollAnimation=1",
                            "fftExactAverage=TRUE", "corvaneCompactModeLabels=true", "spectrogramGlow=0.6abc",
                            "spectrogramGamma=inf", "vadThreshold=0.35", "vadMinSpeechDuration=nan",
                            "meterReadoutRate=hz3", "spectrogramColormap=turbo", "spectrogramFreqScale=Mel",
                            "corvaneTextScale=extraLarge", "loudnessDisplayMode=offline",
                            "com.fenwright.Corvane.spectral.waveStrip=0"});
  EXPECT_TRUE(s->defaultShowWaveform());
  EXPECT_FALSE(s->defaultShowFFT());
  EXPECT_FALSE(s->meterRollAnimation());
  EXPECT_FALSE(s->fftExactAverage());
  EXPECT_TRUE(s->corvaneCompactModeLabels());
  EXPECT_EQ(s->spectrogramGlow(), 0.6);
  EXPECT_EQ(s->spectrogramGamma(), 1.0);
  EXPECT_EQ(s->vadThreshold(), 0.35);
  EXPECT_EQ(s->vadMinSpeechDuration(), 0.1);
  EXPECT_EQ(s->meterReadoutRate(), MeterReadoutRate::hz10);
  EXPECT_EQ(s->spectrogramColormap(), SpectrogramColormap::inferno);  // raw values are case-exact: "Turbo"
  EXPECT_EQ(s->spectrogramFreqScale(), SpectrogramFreqScale::mel);
  EXPECT_EQ(s->corvaneTextScale(), CorvaneTextScale::extraLarge);
  EXPECT_EQ(s->loudnessDisplayMode(), LoudnessDisplayMode::offline);
  EXPECT_TRUE(s->spectralWaveStrip());
}

TEST_F(Settings, JsonThatDoesNotDecodeCountsAsAbsent) {
  // Written as QSettings writes bytes: quoted, inner quotes escaped.
  const auto broken = storeWith({R"ini(loudnessTargetSelection="@ByteArray({\"mode\": \"podcast\", )")ini",
                                 "rawPCMFileFormats=@ByteArray(not json at all)",
                                 "corvane.routing.userPresets.v1=@ByteArray([1, 2)", "CorvaneGeneratorDraft=42",
                                 "recentDocumentPaths=@ByteArray({\"a\": 1})"});
  EXPECT_EQ(broken->loudnessTargetSelection(), LoudnessTargetSelection::defaultSelection());
  EXPECT_FALSE(broken->rawPCMFileFormats());
  EXPECT_FALSE(broken->routingUserPresets());
  EXPECT_FALSE(broken->generatorDraft());
  EXPECT_TRUE(broken->recentDocuments().isEmpty());

  // JSON that decodes but isn't the selection's object is the default too; an object is read.
  const auto array = storeWith({R"ini(loudnessTargetSelection="@ByteArray([\"podcast\"])")ini"});
  EXPECT_EQ(array->loudnessTargetSelection(), LoudnessTargetSelection::defaultSelection());
  const auto podcast = storeWith({R"ini(loudnessTargetSelection="@ByteArray({\"mode\": \"podcast\"})")ini"});
  EXPECT_EQ(podcast->loudnessTargetSelection().mode(), LoudnessTargetMode::podcast);
  EXPECT_EQ(podcast->loudnessTargetSelection().selectedIDs(LoudnessTargetMode::music),
            LoudnessTargetSelection::defaultSelection().selectedIDs(LoudnessTargetMode::music));
}

TEST_F(Settings, WhatIsWrittenReadsBackFromTheFile) {
  {
    SettingsStore s(QString::fromStdString(folder.file("settings.ini")));
    s.setSpectrogramGlow(0.0);
    s.setSpectrogramFftSize(16384);
    s.setSpectrogramOverlap(SpectrogramOverlap::overlap9375);
    s.setMeterReadoutRate(MeterReadoutRate::hz2);
    s.setRoutingUseMatrixView(false);
    s.setVadThreshold(0.65);
    LoudnessTargetSelection selection = LoudnessTargetSelection::defaultSelection();
    selection.setMode(LoudnessTargetMode::broadcast);
    s.setLoudnessTargetSelection(selection);
    s.setRecentDocuments({"/music/a.wav", "/music/b.flac"});
  }
  const SettingsStore s(QString::fromStdString(folder.file("settings.ini")));
  EXPECT_EQ(s.spectrogramGlow(), 0.0);
  EXPECT_EQ(s.spectrogramFftSize(), 16384);
  EXPECT_EQ(s.spectrogramOverlap(), SpectrogramOverlap::overlap9375);
  EXPECT_EQ(s.meterReadoutRate(), MeterReadoutRate::hz2);
  EXPECT_FALSE(s.routingUseMatrixView());
  EXPECT_EQ(s.vadThreshold(), 0.65);
  EXPECT_EQ(s.loudnessTargetSelection().mode(), LoudnessTargetMode::broadcast);
  EXPECT_EQ(s.recentDocuments(), (QStringList{"/music/a.wav", "/music/b.flac"}));
  // The user's own settings file sits where the organisation and application name put it.
  SettingsStore user;
  user.setChainIncludeTail(true);
  user.sync();
  EXPECT_TRUE(QFile::exists(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME")) + "/fenwright/Corvane.conf"));
}

TEST_F(Settings, TheSessionReadsItsKeysOnceAndWritesThemOnChange) {
  {
    SettingsStore s(QString::fromStdString(folder.file("settings.ini")));
    s.setSpectrogramFftSize(1024);
    s.setAutoComputeSpectrogramOnLoad(true);
    s.setVadThreshold(0.7);
  }
  store = std::make_shared<SettingsStore>(QString::fromStdString(folder.file("settings.ini")));
  auto engine = makeEngine();
  SessionSettings& settings = engine->sessionSettings();
  EXPECT_EQ(settings.spectrogramFftSize(), 1024);
  EXPECT_TRUE(settings.autoComputeSpectrogramOnLoad());
  EXPECT_EQ(settings.currentVADTuning().threshold, 0.7);

  // Read once: a later change of the stored value leaves the session's alone.
  store->setSpectrogramFftSize(8192);
  EXPECT_EQ(settings.spectrogramFftSize(), 1024);

  // A change writes its key; the same value again neither notifies nor writes.
  QSignalSpy glow(&settings, &SessionSettings::spectrogramGlowChanged);
  settings.setSpectrogramGlow(0.6);
  EXPECT_EQ(glow.count(), 0);
  EXPECT_FALSE(store->contains(SettingsKey::spectrogramGlow));
  settings.setSpectrogramGlow(0.0);
  EXPECT_EQ(glow.count(), 1);
  EXPECT_EQ(store->spectrogramGlow(), 0.0);
  settings.setFftSize(8192);
  EXPECT_FALSE(store->contains("fftSize"));  // the session's own, never persisted

  // The load captures the window size at its head: a change after it doesn't reach that load.
  LandingLog log(*engine);
  engine->loadFile(url(writeFile("tone.wav", sine(48000.0, 1, 1.0, 1000.0, 0.5))));
  settings.setSpectrogramFftSize(2048);
  ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::spectrogram) == 1; }));
  EXPECT_EQ(engine->analysis().offlineSpectrogramColumns()->front().mags.size(), 512u);
}

}  // namespace
}  // namespace corvane::test
