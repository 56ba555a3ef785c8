// The edit commands on a live session: their frame rules, defaults and fallbacks, the road the
// memory tests choose, confirmations, enablement, the Edit menu, and Split to Mono on disk.
// What the operations do to the samples is judged against sox and libebur128 by the headless
// edit tests; here sox judges the toolbar's whole-file fade.
#include <fstream>

#include "EditingTestSupport.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditCommands.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/AudioLoadLimits.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane::test {
namespace {

using Ops = EditOperations;

class EditCommandsTest : public EditingTest {
 protected:
  std::unique_ptr<AudioEngine> session(const Planar& signal, const std::string& name = "take.wav") {
    auto engine = loadSession(signal, name);
    engine->setOnEditFailure([this](const QString& text) { failures.push_back(text); });
    return engine;
  }
  static QString confirmation(AudioEngine& engine) {
    const auto& c = engine.editEngine().editConfirmation();
    return c ? c->text : QString();
  }
  // Memory figures that send every whole-file command down the streaming road (the fit and
  // factor tests fail; the read-back of a result of about the same size still loads).
  static void forceStreaming(AudioEngine& engine) {
    const std::int64_t bytes = Ops::decodedBytes(engine.pcmBuffer()->frameLength(), engine.pcmBuffer()->channelCount());
    AudioLoadLimits::setFiguresForTesting(MemoryFigures{bytes * 16, bytes * 2});
    ASSERT_FALSE(Ops::passesFactorTest(bytes, 4));
  }
  QStringList failures;
};

TEST_F(EditCommandsTest, TextFieldsParseWholeInTheCLocale) {
  EXPECT_EQ(parseEditNumber("-18"), -18.0);
  EXPECT_EQ(parseEditNumber("+3"), 3.0);
  EXPECT_EQ(parseEditNumber("0.5"), 0.5);
  EXPECT_EQ(parseEditNumber("1e-3"), 0.001);
  for (const char* bad : {"", " 1", "1 ", "1,5", "3dB", "+-1", "--1", "++1", "inf", "nan", "-"}) {
    EXPECT_FALSE(parseEditNumber(bad)) << bad;
  }
  // Every chip's text parses back to its value; gain chips carry one decimal.
  EXPECT_EQ(chipText(EditPopoverKind::changeLevel, 6.0), "6.0");
  EXPECT_EQ(chipText(EditPopoverKind::limitTP, -0.5), "-0.5");
  for (const auto kind : {EditPopoverKind::changeLevel, EditPopoverKind::cut, EditPopoverKind::normalizePeak,
                          EditPopoverKind::normalizeLUFS, EditPopoverKind::limitTP, EditPopoverKind::levelDialogue}) {
    for (const double chip : editPopover(kind).chips) EXPECT_EQ(parseEditNumber(chipText(kind, chip)), chip);
  }
}

TEST_F(EditCommandsTest, SelectionAndPlayheadBecomeFrames) {
  auto engine = session(sine(44100.0, 2, 2.0, 440.0, 0.5));
  EditCommands commands(*engine);
  Transport& transport = engine->transport();
  EXPECT_EQ(commands.frameRange(), (FrameRange{0, 88200}));
  EXPECT_FALSE(commands.editSelectionFrames());
  EXPECT_EQ(commands.scopeHint(), "Applies to the whole file.");

  // Truncated: 0.10001 s × 44100 = 4410.44 → 4410; 1.99999 s → 88199.56 → 88199.
  transport.setSelection(PlaybackSelection{0.10001, 1.99999});
  EXPECT_EQ(commands.frameRange(), (FrameRange{4410, 88199}));
  EXPECT_EQ(commands.editSelectionFrames(), (FrameRange{4410, 88199}));
  EXPECT_EQ(commands.scopeHint(), "Applies to the selection.");
  // The menu's form is clamped into the file and none when empty.
  transport.setSelection(PlaybackSelection{1.5, 3.0});
  EXPECT_EQ(commands.frameRange(), (FrameRange{66150, 132300}));
  EXPECT_EQ(commands.editSelectionFrames(), (FrameRange{66150, 88200}));
  transport.setSelection(PlaybackSelection{2.5, 3.0});
  EXPECT_FALSE(commands.editSelectionFrames());

  // The playhead is rounded: 0.50001 s → 22050.44 → 22050; 0.500015 s → 22050.66 → 22051.
  transport.setSelection(std::nullopt);
  transport.placePlayhead(0.50001);
  EXPECT_EQ(commands.editPlayheadFrame(), 22050);
  transport.placePlayhead(0.500015);
  EXPECT_EQ(commands.editPlayheadFrame(), 22051);
}

TEST_F(EditCommandsTest, EnablementFollowsHistorySelectionChannelsAndSpeech) {
  auto engine = session(burstyProgramme(48000.0, 2, 3.0));
  EditCommands commands(*engine);
  EXPECT_FALSE(commands.isEnabled(EditControl::undo));
  EXPECT_FALSE(commands.isEnabled(EditControl::redo));
  EXPECT_FALSE(commands.isEnabled(EditControl::trim));
  EXPECT_FALSE(commands.isEnabled(EditControl::cut));
  EXPECT_FALSE(commands.isEnabled(EditControl::fade));
  EXPECT_TRUE(commands.isEnabled(EditControl::changeLevel));
  EXPECT_TRUE(commands.isEnabled(EditControl::swap));
  EXPECT_TRUE(commands.isEnabled(EditControl::split));
  EXPECT_EQ(commands.isEnabled(EditControl::levelDialogue), engine->dialogue().fileSpeechHistory() != nullptr);
  EXPECT_FALSE(commands.isEnabled(EditMenuCommand::cutToStart));  // the playhead is at 0
  EXPECT_TRUE(commands.isEnabled(EditMenuCommand::cutToEnd));
  EXPECT_FALSE(commands.isEnabled(EditMenuCommand::fadeInSelection));

  engine->transport().setSelection(PlaybackSelection{0.5, 1.0});
  EXPECT_TRUE(commands.isEnabled(EditControl::trim));
  EXPECT_TRUE(commands.isEnabled(EditMenuCommand::gainUp));
  commands.perform(EditMenuCommand::gainUp);
  EXPECT_TRUE(commands.isEnabled(EditControl::undo));
  engine->editEngine().undoLastEdit();
  EXPECT_TRUE(commands.isEnabled(EditControl::redo));

  auto mono = session(sine(48000.0, 1, 1.0, 440.0, 0.5));
  EditCommands monoCommands(*mono);
  EXPECT_FALSE(monoCommands.isEnabled(EditControl::swap));
  EXPECT_FALSE(monoCommands.isEnabled(EditControl::split));
  auto surround = session(sine(48000.0, 3, 0.5, 440.0, 0.5), "three.wav");
  EditCommands threeCommands(*surround);
  EXPECT_FALSE(threeCommands.isEnabled(EditControl::swap));
  EXPECT_TRUE(threeCommands.isEnabled(EditControl::split));
}

TEST_F(EditCommandsTest, CutAndTrimRulesAndConfirmations) {
  auto engine = session(programme(48000.0, 2, 2.0, 3));
  EditCommands commands(*engine);
  EditEngine& edits = engine->editEngine();

  // A cut of the whole file is refused; of all but one frame it goes through.
  commands.applyCutRange(-10, 200000, 0);
  EXPECT_EQ(edits.undoDepth(), 0);
  commands.applyCutRange(0, 95999, 0);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 1);
  EXPECT_EQ(confirmation(*engine), "Cut 2.00s");
  edits.undoLastEdit();

  // The toolbar's cut: a crossfade field that doesn't parse means 10 ms; negatives mean 0.
  const ChannelData before = liveSamples(*engine);
  engine->transport().setSelection(PlaybackSelection{0.5, 1.0});
  EditToolbarState state;
  state.cutCrossfadeMs = "-5";
  commands.performCut(state);
  ASSERT_EQ(engine->pcmBuffer()->frameLength(), 72000);
  EXPECT_EQ(confirmation(*engine), "Cut 0.50s");
  const ChannelData hard = liveSamples(*engine);
  for (std::size_t c = 0; c < 2; ++c) {
    std::vector<float> joined(before[c].begin(), before[c].begin() + 24000);
    joined.insert(joined.end(), before[c].begin() + 48000, before[c].end());
    EXPECT_EQ(hard[c], joined);
  }
  edits.undoLastEdit();
  engine->transport().setSelection(PlaybackSelection{0.5, 1.0});
  state.cutCrossfadeMs = "ten";
  commands.performCut(state);
  const Ops::EditResult tenMs = Ops::cutRange(before, 24000, 48000, 480, 48000.0);
  EXPECT_TRUE(sameBits(liveSamples(*engine), tenMs.channelData));
  edits.undoLastEdit();

  // A trim that keeps the whole length is still an edit with a history entry.
  const int depth = edits.undoDepth();
  commands.applyTrim(0, 96000);
  EXPECT_EQ(edits.undoDepth(), depth + 1);
  EXPECT_TRUE(sameBits(liveSamples(*engine), before));
  // The playhead commands: Cut to Start removes what lies before the playhead.
  engine->transport().placePlayhead(0.25);
  commands.perform(EditMenuCommand::cutToStart);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 84000);
  EXPECT_EQ(liveSamples(*engine)[1][0], before[1][12000]);
  engine->transport().placePlayhead(0.5);
  commands.perform(EditMenuCommand::cutToEnd);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 24000);
  EXPECT_EQ(liveSamples(*engine)[0].back(), before[0][12000 + 23999]);
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(EditCommandsTest, StreamingAndMemoryRoadsOfEachWholeFileCommandAgree) {
  const Planar signal = burstyProgramme(48000.0, 2, 3.0);
  struct Case {
    const char* name;
    std::function<void(EditCommands&)> run;
    QString confirmation;
  };
  const std::vector<Case> cases{
      {"normalize LUFS", [](EditCommands& c) { c.applyNormalizeLUFS(-16.0, -1.0, std::nullopt); },
       "Normalized to -16.0 LUFS, peak-limited at -1.0 dBTP"},
      {"normalize peak", [](EditCommands& c) { c.applyNormalizePeak(-0.5, std::nullopt); },
       "Peak-normalized to -0.5 dBFS"},
      {"limit", [](EditCommands& c) { c.applyLimitTP(-12.0, std::nullopt); }, "Limited true peak to -12.0 dBTP"},
      {"gain", [](EditCommands& c) { c.applyNormalizeByGain(9.0, -2.0, QStringLiteral("Gained")); }, "Gained"},
      {"swap", [](EditCommands& c) { c.applyChannelSwap(); }, ""},
      {"silence", [](EditCommands& c) { c.applyAddSilence(1000, 2000, Ops::SilenceMode::after, 4321); }, ""},
      {"trim", [](EditCommands& c) { c.applyTrim(100, 90000); }, ""},
      {"cut", [](EditCommands& c) { c.applyCutRange(100, 90000, 960); }, "Cut 1.87s"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    auto memory = session(signal);
    EditCommands inMemory(*memory);
    test.run(inMemory);
    ASSERT_EQ(memory->editEngine().undoDepth(), 1);
    EXPECT_EQ(confirmation(*memory), test.confirmation);
    const ChannelData expected = liveSamples(*memory);
    memory.reset();

    auto engine = session(signal);
    forceStreaming(*engine);
    // Trim and cut take the fit test: a rebuild must not fit either.
    const std::int64_t bytes = Ops::decodedBytes(144000, 2);
    ASSERT_FALSE(AudioLoadLimits::rebuildEditFits(bytes));
    EditCommands streaming(*engine);
    test.run(streaming);
    EXPECT_TRUE(failures.isEmpty()) << failures.join(" | ").toStdString();
    EXPECT_EQ(engine->editEngine().undoDepth(), 1);
    EXPECT_EQ(confirmation(*engine), test.confirmation);
    EXPECT_TRUE(sameBits(liveSamples(*engine), expected));
    engine.reset();
    AudioLoadLimits::setFiguresForTesting(std::nullopt);
  }
}

TEST_F(EditCommandsTest, SelectionScopedNormalizeAndLimitTouchOnlyTheSelection) {
  auto engine = session(programme(48000.0, 2, 2.0, 5));
  EditCommands commands(*engine);
  const ChannelData before = liveSamples(*engine);
  engine->transport().setSelection(PlaybackSelection{0.5, 1.0});
  EditToolbarState state;
  state.normalizeTargetDB = "-3";
  commands.performNormalize(state);
  EXPECT_EQ(confirmation(*engine), "Peak-normalized selection to -3.0 dBFS");
  const ChannelData after = liveSamples(*engine);
  float peak = 0.0f;
  for (std::size_t c = 0; c < 2; ++c) {
    for (std::size_t i = 0; i < after[c].size(); ++i) {
      if (i >= 24000 && i < 48000) {
        peak = std::max(peak, std::fabs(after[c][i]));
      } else {
        ASSERT_EQ(after[c][i], before[c][i]) << i;
      }
    }
  }
  EXPECT_NEAR(20.0 * std::log10(peak), -3.0, 1e-4);

  state.limitTPCeilingDBTP = "-20";
  commands.performLimitTP(state);
  EXPECT_EQ(confirmation(*engine), "Limited selection true peak to -20.0 dBTP");
  // Values that don't parse do nothing.
  const int depth = engine->editEngine().undoDepth();
  state.normalizeMode = NormalizeMode::lufs;
  state.normalizeCeilingDB = "-1 dB";
  commands.performNormalize(state);
  state.limitTPCeilingDBTP = "";
  commands.performLimitTP(state);
  state.gainDB = "loud";
  commands.performGainChange(state);
  EXPECT_EQ(engine->editEngine().undoDepth(), depth);
}

TEST_F(EditCommandsTest, ToolbarFadeOverTheWholeFileLastsTenSecondsAsSoxFadesIt) {
  const TemporaryDirectory scratch;
  const Planar signal = bandLimitedNoise(8000.0, 1, 60.0, 3000.0, -24.0, 0.0, 5);
  auto engine = session(signal, "long.wav");
  EditCommands commands(*engine);
  EditToolbarState state;  // linear fade in, no selection
  commands.performFade(state);
  EXPECT_EQ(confirmation(*engine), "");

  const std::string soxOut = scratch.file("sox.wav");
  const CommandResult sox =
      runCommand("sox -V1 '" + lastPath + "' -e floating-point -b 32 '" + soxOut + "' fade t 10 2>&1");
  ASSERT_EQ(sox.exitCode, 0) << sox.output;
  const SharedAudioBuffer oracle = AudioFileModel::decode(soxOut);
  const ChannelData ours = liveSamples(*engine);
  ASSERT_EQ(static_cast<FrameCount>(ours[0].size()), oracle->frameLength());
  double worst = 0.0;
  std::size_t worstAt = 0;
  for (std::size_t i = 0; i < ours[0].size(); ++i) {
    const double d = std::fabs(double(ours[0][i]) - oracle->channel(0)[i]);
    if (d > worst) {
      worst = d;
      worstAt = i;
    }
  }
  EXPECT_LT(worst, 2e-7) << "at frame " << worstAt;
  // Past the ten seconds, untouched.
  for (std::size_t i = 80000; i < ours[0].size(); i += 997) ASSERT_EQ(ours[0][i], signal.channels[0][i]);

  // A five-second file fades over all of it, the fade out ending on silence.
  auto shortEngine = session(bandLimitedNoise(8000.0, 1, 5.0, 3000.0, -12.0, 0.0, 6), "short.wav");
  EditCommands shortCommands(*shortEngine);
  state.fadeDirection = Ops::FadeDirection::fadeOut;
  shortCommands.performFade(state);
  const ChannelData faded = liveSamples(*shortEngine);
  const Planar original = bandLimitedNoise(8000.0, 1, 5.0, 3000.0, -12.0, 0.0, 6);
  // A linear fade out over L = 40000 frames gives frame i the gain (L − i) / L.
  for (const std::size_t i : {std::size_t{0}, std::size_t{10}, std::size_t{20000}, std::size_t{39999}}) {
    EXPECT_NEAR(faded[0][i], original.channels[0][i] * (40000.0 - static_cast<double>(i)) / 40000.0, 1e-6) << i;
  }
  EXPECT_NE(faded[0][20000], original.channels[0][20000]);
}

TEST_F(EditCommandsTest, MenuFadesAndGainsUseTheirFixedShapesAndTexts) {
  auto engine = session(sine(48000.0, 2, 1.0, 440.0, 0.5));
  EditCommands commands(*engine);
  const ChannelData before = liveSamples(*engine);
  engine->transport().setSelection(PlaybackSelection{0.25, 0.5});
  commands.perform(EditMenuCommand::fadeInSelection);
  EXPECT_EQ(confirmation(*engine), "Faded in");
  ChannelData expected = before;
  auto pointers = [](ChannelData& d) { return std::vector<float*>{d[0].data(), d[1].data()}; };
  Ops::fadeInPlace(pointers(expected).data(), 2, 48000, Ops::FadeDirection::fadeIn, Ops::FadeCurve::equalPower, 12000,
                   24000);
  EXPECT_TRUE(sameBits(liveSamples(*engine), expected));

  commands.perform(EditMenuCommand::gainDown);
  EXPECT_EQ(confirmation(*engine), "Gain -1 dB");
  commands.perform(EditMenuCommand::gainUp);
  EXPECT_EQ(confirmation(*engine), "Gain +1 dB");

  // Fades to and from the playhead: nothing at the ends of the file.
  engine->transport().setSelection(std::nullopt);
  const int depth = engine->editEngine().undoDepth();
  engine->transport().placePlayhead(0.0);
  commands.perform(EditMenuCommand::fadeInToPlayhead);
  engine->transport().placePlayhead(1.0);
  commands.perform(EditMenuCommand::fadeOutFromPlayhead);
  EXPECT_EQ(engine->editEngine().undoDepth(), depth);
  commands.perform(EditMenuCommand::fadeInToPlayhead);
  EXPECT_EQ(engine->editEngine().undoDepth(), depth + 1);
  EXPECT_EQ(liveSamples(*engine)[0][0], 0.0f);

  // Silence Selection replaces the selection's samples with zeros, length unchanged.
  engine->transport().setSelection(PlaybackSelection{0.1, 0.2});
  commands.perform(EditMenuCommand::silenceSelection);
  const ChannelData silenced = liveSamples(*engine);
  EXPECT_EQ(silenced[0].size(), 48000u);
  for (std::size_t i = 4800; i < 9600; ++i) ASSERT_EQ(silenced[1][i], 0.0f);
}

TEST_F(EditCommandsTest, AddSilenceAnchorsUnitsAndFallbacks) {
  auto engine = session(sine(48000.0, 1, 1.0, 440.0, 0.5));
  EditCommands commands(*engine);
  EditEngine& edits = engine->editEngine();
  EditToolbarState state;
  state.silenceUnit = SilenceUnit::samples;
  state.silenceValue = "";
  engine->transport().placePlayhead(0.5);
  commands.performAddSilence(state);  // one second, not zero
  ASSERT_EQ(engine->pcmBuffer()->frameLength(), 96000);
  const ChannelData inserted = liveSamples(*engine);
  EXPECT_EQ(inserted[0][24000], 0.0f);
  EXPECT_EQ(inserted[0][71999], 0.0f);
  EXPECT_NE(inserted[0][72001], 0.0f);
  edits.undoLastEdit();

  state.silenceUnit = SilenceUnit::seconds;
  state.silenceValue = "0.25";
  state.silenceAnchor = SilenceAnchor::fileEnd;
  commands.performAddSilence(state);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 60000);
  edits.undoLastEdit();
  state.silenceValue = "quarter";  // falls back to 1.0 s
  state.silenceAnchor = SilenceAnchor::fileStart;
  commands.performAddSilence(state);
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 96000);
  EXPECT_EQ(liveSamples(*engine)[0][47999], 0.0f);

  // The anchor on opening the popover, and the anchors offered.
  using A = SilenceAnchor;
  EXPECT_EQ(EditCommands::anchorOnOpening(A::beforeSelection, false), A::insertAtPlayhead);
  EXPECT_EQ(EditCommands::anchorOnOpening(A::fileEnd, true), A::replaceSelection);
  EXPECT_EQ(EditCommands::anchorOnOpening(A::fileEnd, false), A::fileEnd);
  EXPECT_EQ(EditCommands::anchorOnOpening(A::insertAtPlayhead, true), A::insertAtPlayhead);
  EXPECT_EQ(EditCommands::anchorChoices(false), (std::vector<A>{A::fileStart, A::fileEnd, A::insertAtPlayhead}));
  EXPECT_EQ(displayName(A::afterSelection), "Insert after selection");
}

TEST_F(EditCommandsTest, DialogueLevellingDucksWhateverTheSignTypedAndLiftsOnlyWithAReading) {
  // Real speech, so that the detector finds dialogue and the file has a dialogue-gated reading.
  const std::string speech = folder.file("speech.wav");
  std::filesystem::copy_file(CORVANE_SOURCE_DIR "/tests/headless/speech/data/speech-16k.wav", speech);
  auto engine = makeEngine();
  engine->setOnEditFailure([this](const QString& text) { failures.push_back(text); });
  LandingLog log(*engine);
  engine->loadFile(url(speech));
  ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
  if (!engine->dialogue().fileSpeechHistory() || engine->dialogue().fileSpeechHistory()->empty()) {
    GTEST_SKIP() << "no speech model installed";
  }
  engine->analysis().targets().setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  EditCommands commands(*engine);
  EditEngine& edits = engine->editEngine();
  ASSERT_TRUE(std::isfinite(commands.dialogGatedReading()));

  // With a reading the lift lands the dialogue on its target and limits, in memory.
  EditToolbarState state;
  state.dialogueLiftToTarget = true;
  state.dialogueReductionDB = "x";  // 18 dB
  commands.performDialogueLeveling(state);
  EXPECT_EQ(confirmation(*engine), "Leveled dialogue to -16.0 LKFS, room tone ducked 18 dB, peak-limited at -1.0 dBTP");
  EXPECT_EQ(edits.undoDepth(), 1);
  // The edit took the file's measured figures with it: no reading, so the lift is dropped and
  // the room tone is still ducked, in place.
  EXPECT_FALSE(std::isfinite(commands.dialogGatedReading()));
  commands.performDialogueLeveling(state);
  EXPECT_EQ(confirmation(*engine), "Ducked room tone 18 dB between phrases");
  edits.undoLastEdit();
  edits.undoLastEdit();

  state.dialogueLiftToTarget = false;
  state.dialogueReductionDB = "-12";
  commands.performDialogueLeveling(state);
  EXPECT_EQ(confirmation(*engine), "Ducked room tone 12 dB between phrases");
  const ChannelData minus = liveSamples(*engine);
  edits.undoLastEdit();
  state.dialogueReductionDB = "12";
  commands.performDialogueLeveling(state);
  EXPECT_TRUE(sameBits(liveSamples(*engine), minus));
}

TEST_F(EditCommandsTest, TargetRequestsBecomeTheToolbarFormAndActOnTheWholeFile) {
  auto engine = session(burstyProgramme(48000.0, 2, 3.0));
  engine->analysis().targets().setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  EditCommands commands(*engine);
  EXPECT_FALSE(commands.takeTargetRequest());

  LoudnessTarget target;
  target.id = "test";
  target.displayName = "Podcast";
  target.referenceLevel = -16.0f;
  target.truePeakCeilingDBTP = -1.5f;
  target.tolerance = 1.0f;
  engine->transport().setSelection(PlaybackSelection{0.5, 1.0});
  engine->analysis().targets().requestNormalizeToTarget(target);
  ASSERT_TRUE(engine->analysis().targets().pendingNormalize());
  EXPECT_TRUE(engine->isEditMode());
  const float now = engine->analysis().targets().pendingNormalize()->nowLUFS;
  auto form = commands.takeTargetRequest();
  ASSERT_TRUE(form);
  EXPECT_FALSE(engine->analysis().targets().pendingNormalize());
  EXPECT_EQ(form->title, "Normalize");
  EXPECT_EQ(form->ceilingText, "-1.5");
  EXPECT_EQ(form->note, "True-peak limiter at the ceiling.");
  ASSERT_EQ(form->rows.size(), 4u);
  EXPECT_EQ(form->rows[0].second, QString::asprintf("%.1f LUFS", now));
  EXPECT_EQ(form->rows[1].second, "-16.0 LUFS");
  EXPECT_EQ(form->rows[2].second, QString::asprintf("%s%.1f dB", -16.0 - now >= 0 ? "+" : "", -16.0 - now));
  EXPECT_EQ(form->rows[3].second, "Integrated");

  // A ceiling that doesn't parse does nothing; Apply then normalises the whole file.
  commands.applyTargetForm(*form, "one");
  EXPECT_EQ(engine->editEngine().undoDepth(), 0);
  commands.applyTargetForm(*form, "-2");
  EXPECT_EQ(confirmation(*engine), "Normalized to -16.0 LUFS, peak-limited at -2.0 dBTP");
  EXPECT_EQ(engine->pcmBuffer()->frameLength(), 144000);

  engine->analysis().targets().requestLimitTPToTarget(target);
  form = commands.takeTargetRequest();
  ASSERT_TRUE(form);
  EXPECT_EQ(form->title, "Limit True Peak");
  EXPECT_EQ(form->note, "Caps inter-sample peaks at the ceiling; loudness unchanged.");
  EXPECT_TRUE(form->rows.empty());
  commands.applyTargetForm(*form, "-6");
  EXPECT_EQ(confirmation(*engine), "Limited true peak to -6.0 dBTP");
}

TEST_F(EditCommandsTest, SplitToMonoWritesEveryChannelOrNothing) {
  const Planar signal = programme(48000.0, 2, 0.5, 9);
  auto engine = session(signal, "dialogue mix.wav");
  EditCommands commands(*engine);
  const TemporaryDirectory out;
  EXPECT_EQ(commands.monoFileNames(), (std::vector<std::string>{"dialogue mix_L.wav", "dialogue mix_R.wav"}));

  // One name taken: nothing is written, and the alert names it.
  { std::ofstream(out.file("dialogue mix_R.wav")) << "keep me"; }
  commands.splitToMonoExport(out.path());
  EXPECT_FALSE(std::filesystem::exists(out.file("dialogue mix_L.wav")));
  ASSERT_EQ(user->seen.size(), 1u);
  EXPECT_EQ(user->seen[0].messageText, "A file with that name already exists");
  EXPECT_EQ(user->seen[0].informativeText,
            "Splitting would overwrite \"dialogue mix_R.wav\". Choose an empty folder, or move the existing files first.");
  std::filesystem::remove(out.file("dialogue mix_R.wav"));

  commands.splitToMonoExport(out.path());
  for (int c = 0; c < 2; ++c) {
    const SharedAudioBuffer mono = AudioFileModel::decode(out.file(c == 0 ? "dialogue mix_L.wav" : "dialogue mix_R.wav"));
    ASSERT_EQ(mono->channelCount(), 1);
    const std::vector<float> samples(mono->channel(0), mono->channel(0) + mono->frameLength());
    EXPECT_EQ(samples, signal.channels[static_cast<std::size_t>(c)]);
  }
  // An export leaves the session alone.
  EXPECT_EQ(engine->editEngine().undoDepth(), 0);
  EXPECT_FALSE(engine->editEngine().isDirty());
}

}  // namespace
}  // namespace corvane::test
