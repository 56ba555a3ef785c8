// The editor in the window: the Edit menu's entries, keys and enablement as the user meets
// them; Backspace going to the command of the mode that is on; the edit toolbar's buttons,
// popovers, quick values and Apply changing the samples of a real file loaded from disk; a
// target row's request opening the toolbar's form; and Undo and Redo from the menu and the keys
// restoring the samples bit for bit. The expected samples are computed here from the file's
// own samples (gain factors, concatenations, channel swaps), not read back from the editor.
#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QToolButton>
#include <cmath>
#include <filesystem>

#include "EditingTestSupport.h"
#include "WindowTest.h"
#include "app/CommandTable.h"
#include "app/EditMenuCommands.h"
#include "app/EditToolbar.h"
#include "app/GlobalKeyFilter.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditEngine.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/BackgroundWork.h"

namespace corvane {
namespace {

using test::liveSamples;
using test::sameBits;
using test::waitUntil;

constexpr double kRate = 48000.0;

struct MenuItem {
  const char* title;  // "--" for a divider
  const char* key;    // QKeySequence::PortableText
  bool editModeOnly = true;  // the saving group works in every mode
};

// The Edit menu as the user reads it, keys in their Linux form (Ctrl for the command key, Alt
// for option, Meta for control).
const std::vector<MenuItem> kEditMenu = {
    {"Undo", "Ctrl+Z"},
    {"Redo", "Ctrl+Shift+Z"},
    {"--", ""},
    {"Save", "Ctrl+S", false},
    {"Save Edited Audio As\u2026", "Ctrl+Shift+S", false},
    {"Discard Edits\u2026", "", false},
    {"--", ""},
    {"Cut", "Backspace"},
    {"Silence Selection", "Alt+Backspace"},
    {"Trim to Selection", "Ctrl+T"},
    {"--", ""},
    {"Cut to Start (Playhead)", "Ctrl+Backspace"},
    {"Cut to End (Playhead)", "Ctrl+Shift+Backspace"},
    {"--", ""},
    {"Fade In (Selection)", "Ctrl+F"},
    {"Fade Out (Selection)", "Ctrl+Alt+F"},
    {"Fade In to Playhead", "Alt+["},
    {"Fade Out from Playhead", "Alt+]"},
    {"--", ""},
    {"Gain +1 dB (Selection)", "Meta+Up"},
    {"Gain \u22121 dB (Selection)", "Meta+Down"},
};

class EditUiTest : public test::WindowTest {
 protected:
  // Writes `signal` as a float WAV, loads it and waits until every stage has landed.
  void load(const test::Planar& signal, const std::string& name = "take.wav") {
    path = writeFile(name, signal);
    test::LandingLog log(*engine);
    engine->loadFile(url(path));
    ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
    waitForBackgroundWork();
    QCoreApplication::processEvents();
    original = signal.channels;
  }
  void editMode(bool on = true) { ASSERT_TRUE(engine->setMode(AudioEngine::Mode::edit, on)); }
  void select(double fromSec, double toSec) { engine->transport().setSelection(PlaybackSelection{fromSec, toSec}); }

  QMenu* editMenu() const {
    for (QAction* item : window->menuBar()->actions()) {
      if (item->menu() && item->menu()->objectName() == QStringLiteral("menu.Edit")) return item->menu();
    }
    return nullptr;
  }
  QAction* menuItem(const QString& title) const {
    for (QAction* item : editMenu()->actions()) {
      if (item->iconText() == title) return item;
    }
    return nullptr;
  }
  bool enabled(const char* title) const { return menuItem(QString::fromUtf8(title))->isEnabled(); }
  bool press(QKeyCombination key, CommandTable::KeyState state = {}) { return window->commands().dispatch(key, state); }

  EditToolbar* toolbar() const { return window->findChild<EditToolbar*>(); }
  template <typename T>
  T* inPopover(const QString& name, const QString& text = {}) const {
    QFrame* popover = toolbar()->popover();
    if (!popover) return nullptr;
    for (T* widget : popover->findChildren<T*>(name)) {
      if (text.isEmpty()) return widget;
      if constexpr (std::is_base_of_v<QAbstractButton, T> || std::is_same_v<T, QLabel>) {
        if (widget->text() == text) return widget;
      }
    }
    return nullptr;
  }
  QLineEdit* field() const { return inPopover<QLineEdit>(QStringLiteral("editPopover.field")); }
  QPushButton* chip(const QString& face) const { return inPopover<QPushButton>(QStringLiteral("editPopover.chip"), face); }
  void apply() {
    auto* button = inPopover<QPushButton>(QStringLiteral("editPopover.apply"));
    ASSERT_NE(button, nullptr);
    button->click();
    QCoreApplication::processEvents();
  }

  std::string path;
  ChannelData original;
};

// Every sample of [from, to) scaled by `gain` (computed in double, as written to float), the
// rest untouched.
void expectScaled(const ChannelData& now, const ChannelData& before, FrameCount from, FrameCount to, double gain) {
  ASSERT_EQ(now.size(), before.size());
  for (std::size_t c = 0; c < now.size(); ++c) {
    ASSERT_EQ(now[c].size(), before[c].size());
    int wrong = 0;
    for (std::size_t i = 0; i < now[c].size(); ++i) {
      const auto n = static_cast<FrameCount>(i);
      const double expected = n >= from && n < to ? before[c][i] * gain : before[c][i];
      if (std::fabs(now[c][i] - expected) > 1e-6 * std::max(1.0, std::fabs(expected))) ++wrong;
    }
    EXPECT_EQ(wrong, 0) << "channel " << c;
  }
}

TEST_F(EditUiTest, TheEditMenuFollowsTheHistoryTheSelectionThePlayheadAndTheMode) {
  // The entries in their order, with their keys; the Edit menu stands after File.
  QStringList menus;
  for (QAction* item : window->menuBar()->actions()) menus << item->text();
  ASSERT_GE(menus.size(), 2);
  EXPECT_EQ(menus[0], "&File");
  EXPECT_EQ(menus[1], "&Edit");
  QMenu* menu = editMenu();
  ASSERT_NE(menu, nullptr);
  ASSERT_EQ(menu->actions().size(), static_cast<qsizetype>(kEditMenu.size()));
  for (std::size_t i = 0; i < kEditMenu.size(); ++i) {
    QAction* item = menu->actions()[static_cast<qsizetype>(i)];
    SCOPED_TRACE(kEditMenu[i].title);
    if (std::string_view(kEditMenu[i].title) == "--") {
      EXPECT_TRUE(item->isSeparator());
      continue;
    }
    EXPECT_EQ(item->iconText(), QString::fromUtf8(kEditMenu[i].title));
    const CommandSpec* spec = window->commands().spec(item->objectName());
    ASSERT_NE(spec, nullptr);
    EXPECT_EQ(spec->shortcut.toString(QKeySequence::PortableText), QString::fromLatin1(kEditMenu[i].key));
    // No file: nothing to edit.
    EXPECT_FALSE(item->isEnabled());
  }

  load(test::sine(kRate, 2, 5.0, 440.0, 0.5));
  const FrameCount total = 5 * 48000;
  // A file, but not in edit mode: every entry is off and its key reaches nothing.
  select(1.0, 2.0);
  for (const MenuItem& item : kEditMenu) {
    if (std::string_view(item.title) != "--" && item.editModeOnly) {
      EXPECT_FALSE(enabled(item.title)) << item.title;
    }
  }
  EXPECT_FALSE(press(Qt::META | Qt::Key_Up));
  EXPECT_FALSE(press(QKeyCombination(Qt::Key_Backspace)));
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Edit mode, nothing selected, playhead at 0: only the entries that need neither.
  engine->transport().setSelection(std::nullopt);
  editMode();
  for (const char* off : {"Undo", "Redo", "Cut", "Silence Selection", "Trim to Selection", "Cut to Start (Playhead)",
                          "Fade In (Selection)", "Fade Out (Selection)", "Fade In to Playhead", "Gain +1 dB (Selection)",
                          "Gain \u22121 dB (Selection)"}) {
    EXPECT_FALSE(enabled(off)) << off;
  }
  EXPECT_TRUE(enabled("Cut to End (Playhead)"));
  EXPECT_TRUE(enabled("Fade Out from Playhead"));
  // A disabled entry's key is taken and does nothing.
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_Z));
  EXPECT_TRUE(press(Qt::META | Qt::Key_Up));
  EXPECT_EQ(engine->editEngine().undoDepth(), 0);
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // A selection turns the selection's entries on; Gain +1 dB by its key scales exactly it.
  select(1.0, 2.0);
  for (const char* on : {"Cut", "Silence Selection", "Trim to Selection", "Fade In (Selection)", "Fade Out (Selection)",
                         "Gain +1 dB (Selection)", "Gain \u22121 dB (Selection)"}) {
    EXPECT_TRUE(enabled(on)) << on;
  }
  EXPECT_TRUE(press(Qt::META | Qt::Key_Up));
  const ChannelData gained = liveSamples(*engine);
  expectScaled(gained, original, 48000, 96000, std::pow(10.0, 1.0 / 20.0));
  EXPECT_TRUE(enabled("Undo"));
  EXPECT_FALSE(enabled("Redo"));
  EXPECT_EQ(toolbar()->confirmationLabel()->text(), "Gain +1 dB");
  EXPECT_TRUE(toolbar()->confirmationLabel()->isVisibleTo(toolbar()));

  // Undo from the menu restores the file bit for bit; Redo by its key brings the edit back.
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  EXPECT_FALSE(enabled("Undo"));
  EXPECT_TRUE(enabled("Redo"));
  EXPECT_TRUE(press(Qt::SHIFT | Qt::CTRL | Qt::Key_Z));
  EXPECT_TRUE(sameBits(liveSamples(*engine), gained));
  EXPECT_TRUE(enabled("Undo"));
  EXPECT_FALSE(enabled("Redo"));

  // The playhead entries follow the playhead: at 2.5 s, Cut to Start keeps what follows it.
  engine->transport().placePlayhead(2.5);
  QCoreApplication::processEvents();
  EXPECT_TRUE(enabled("Cut to Start (Playhead)"));
  EXPECT_TRUE(enabled("Fade In to Playhead"));
  EXPECT_TRUE(press(Qt::CTRL | Qt::Key_Backspace));
  const ChannelData trimmed = liveSamples(*engine);
  ASSERT_EQ(trimmed[0].size(), static_cast<std::size_t>(total - 120000));
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(std::equal(trimmed[c].begin(), trimmed[c].end(), gained[c].begin() + 120000)) << c;
  }
  // Two edits deep: two undos from the menu give the file as it was loaded.
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), gained));
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Leaving edit mode turns the entries off again.
  editMode(false);
  EXPECT_FALSE(enabled("Redo"));
}

// Backspace cuts in edit mode, deletes a dialogue region in dialogue mode (a command of that
// mode, added as its subsystem will add it), and reaches nothing where no mode claims it.
TEST_F(EditUiTest, BackspaceGoesToTheCommandOfTheModeThatIsOn) {
  CommandTable& table = window->commands();
  table.declareMenu(QStringLiteral("Dialogue"), QStringLiteral("Dialogue"), {QStringLiteral("regions")});
  int regionDeletes = 0;
  table.add({.id = QStringLiteral("dialogue.deleteRegion"),
             .title = QStringLiteral("Delete Selected Region"),
             .shortcut = QKeySequence(Qt::Key_Backspace),
             .menu = QStringLiteral("Dialogue"),
             .group = QStringLiteral("regions"),
             .appliesNow = [this] { return engine->isModeOn(AudioEngine::Mode::dialogue); },
             .trigger = [&] { ++regionDeletes; }});
  load(test::sine(kRate, 2, 5.0, 440.0, 0.5));
  const QKeyCombination backspace(Qt::Key_Backspace);

  // Edit mode without a selection: the key is the editor's, and nothing is cut.
  editMode();
  EXPECT_EQ(table.resolve(backspace), QStringLiteral("edit.cut"));
  EXPECT_TRUE(press(backspace));
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  EXPECT_EQ(regionDeletes, 0);

  // While a text field has the keys, Backspace is typing.
  select(1.0, 2.0);
  EXPECT_FALSE(press(backspace, {.keyIsFree = false}));
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // With a selection it cuts one second out, joined by the menu's 10 ms crossfade: the audio
  // farther than a crossfade from the join is the file's own, shifted by the cut.
  EXPECT_TRUE(press(backspace));
  const ChannelData cut = liveSamples(*engine);
  ASSERT_EQ(cut[0].size(), original[0].size() - 48000);
  const std::size_t join = 48000;
  const std::size_t crossfade = 480;
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(std::equal(cut[c].begin(), cut[c].begin() + static_cast<long>(join - crossfade), original[c].begin())) << c;
    EXPECT_TRUE(std::equal(cut[c].begin() + static_cast<long>(join + crossfade), cut[c].end(),
                           original[c].begin() + static_cast<long>(join + crossfade + 48000)))
        << c;
  }
  EXPECT_EQ(toolbar()->confirmationLabel()->text(), "Cut 1.00s");
  EXPECT_EQ(regionDeletes, 0);

  // Dialogue mode: the same key deletes a region and leaves the audio alone.
  ASSERT_TRUE(engine->setMode(AudioEngine::Mode::dialogue, true));
  EXPECT_FALSE(engine->isModeOn(AudioEngine::Mode::edit));
  select(0.5, 1.5);
  EXPECT_EQ(table.resolve(backspace), QStringLiteral("dialogue.deleteRegion"));
  EXPECT_TRUE(press(backspace));
  EXPECT_EQ(regionDeletes, 1);
  EXPECT_TRUE(sameBits(liveSamples(*engine), cut));

  // No mode that gives it a meaning: the key goes on.
  ASSERT_TRUE(engine->setMode(AudioEngine::Mode::dialogue, false));
  EXPECT_TRUE(table.resolve(backspace).isEmpty());
  EXPECT_FALSE(press(backspace));
  EXPECT_EQ(regionDeletes, 1);
  EXPECT_TRUE(sameBits(liveSamples(*engine), cut));
}

TEST_F(EditUiTest, ToolbarButtonsCarryTheirToolTipsAndFollowTheFile) {
  // The left channel carries a tone, the right a quieter one an octave up, so a swap shows.
  test::Planar signal = test::sine(kRate, 2, 3.0, 440.0, 0.5, 0.0, {0});
  const test::Planar right = test::sine(kRate, 1, 3.0, 880.0, 0.25);
  signal.channels[1] = right.channels[0];
  load(signal);
  EditToolbar* bar = toolbar();
  ASSERT_NE(bar, nullptr);
  // Only edit mode shows the tools.
  EXPECT_FALSE(bar->isVisible());
  editMode();
  EXPECT_TRUE(bar->isVisible());

  const std::vector<std::pair<EditControl, const char*>> tips = {
      {EditControl::undo, "Undo last edit (Ctrl+Z)"},
      {EditControl::redo, "Redo last edit (Shift+Ctrl+Z)"},
      {EditControl::trim, "Trim to selection (keep the selection, discard the rest)"},
      {EditControl::cut, "Cut out the selection and join the surrounding audio, with a crossfade at the join"},
      {EditControl::changeLevel, "Change level (dB)"},
      {EditControl::addSilence, "Insert or replace with silence"},
      {EditControl::phase, "Invert phase (\u00D7\u22121)"},
      {EditControl::removeDC, "Remove DC offset"},
      {EditControl::fade, "Fade in/out on selection"},
      {EditControl::normalize, "Normalize the whole file or selection to a loudness (LUFS) or peak (dBFS) target. For "
                               "chapter-to-chapter consistency use Chapter mode's Level."},
      {EditControl::limitTP, "Apply true-peak limiter at a ceiling without changing loudness"},
      {EditControl::levelDialogue, "Duck room tone between phrases, optionally lifting dialogue to a target, without the "
                                   "noise floor riding up. For an overall loudness target use Normalize."},
      {EditControl::swap, "Swap left and right channels"},
      {EditControl::split, "Export each channel as mono WAV"},
  };
  for (const auto& [control, tip] : tips) {
    ASSERT_NE(bar->button(control), nullptr);
    EXPECT_EQ(bar->button(control)->toolTip(), QString::fromUtf8(tip));
  }

  // Undo and Redo follow the history; Trim, Cut and Fade a selection; Swap and Split a stereo file.
  EXPECT_FALSE(bar->button(EditControl::undo)->isEnabled());
  EXPECT_FALSE(bar->button(EditControl::redo)->isEnabled());
  for (const EditControl control : {EditControl::trim, EditControl::cut, EditControl::fade}) {
    EXPECT_FALSE(bar->button(control)->isEnabled());
  }
  for (const EditControl control : {EditControl::changeLevel, EditControl::addSilence, EditControl::phase,
                                    EditControl::removeDC, EditControl::normalize, EditControl::limitTP,
                                    EditControl::swap, EditControl::split}) {
    EXPECT_TRUE(bar->button(control)->isEnabled());
  }
  select(0.5, 1.0);
  for (const EditControl control : {EditControl::trim, EditControl::cut, EditControl::fade}) {
    EXPECT_TRUE(bar->button(control)->isEnabled());
  }
  // A disabled button does nothing when pressed.
  engine->transport().setSelection(std::nullopt);
  bar->button(EditControl::trim)->click();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Swap exchanges the channels exactly; the Undo button takes it back.
  bar->button(EditControl::swap)->click();
  const ChannelData swapped = liveSamples(*engine);
  EXPECT_TRUE(sameBits(swapped, ChannelData{original[1], original[0]}));
  ASSERT_TRUE(bar->button(EditControl::undo)->isEnabled());
  bar->button(EditControl::undo)->click();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  EXPECT_TRUE(bar->button(EditControl::redo)->isEnabled());

  // Phase on a selection negates exactly it.
  select(1.0, 2.0);
  bar->button(EditControl::phase)->click();
  expectScaled(liveSamples(*engine), original, 48000, 96000, -1.0);

  // Split writes one mono file per channel into the folder chosen, and leaves the session alone.
  const std::filesystem::path out = std::filesystem::path(folder.path()) / "mono";
  std::filesystem::create_directories(out);
  int asked = 0;
  bar->setFolderChooser([&]() -> std::optional<std::filesystem::path> {
    ++asked;
    return out;
  });
  const int depth = engine->editEngine().undoDepth();
  bar->button(EditControl::split)->click();
  EXPECT_EQ(asked, 1);
  std::size_t written = 0;
  for (const auto& entry : std::filesystem::directory_iterator(out)) {
    EXPECT_EQ(entry.path().extension(), ".wav");
    EXPECT_TRUE(entry.path().filename().string().starts_with("take_")) << entry.path();
    ++written;
  }
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(engine->editEngine().undoDepth(), depth);

  // A mono file can be neither swapped nor split.
  editMode(false);
  load(test::sine(kRate, 1, 1.0, 440.0, 0.5), "mono.wav");
  editMode();
  EXPECT_FALSE(bar->button(EditControl::swap)->isEnabled());
  EXPECT_FALSE(bar->button(EditControl::split)->isEnabled());
}

TEST_F(EditUiTest, PopoverQuickValuesFillTheFieldAndApplyEditsTheFile) {
  load(test::sine(kRate, 2, 4.0, 440.0, 0.4));
  editMode();
  EditToolbar* bar = toolbar();

  // Change Level on the whole file: the chip puts its text into the field, Apply scales every
  // sample by 10^(6/20).
  bar->button(EditControl::changeLevel)->click();
  ASSERT_NE(bar->popover(), nullptr);
  EXPECT_TRUE(bar->popover()->isVisible());
  EXPECT_NE(inPopover<QLabel>(QStringLiteral("editPopover.scope"), QStringLiteral("Applies to the whole file.")), nullptr);
  QStringList faces;
  for (QPushButton* button : bar->popover()->findChildren<QPushButton*>(QStringLiteral("editPopover.chip"))) {
    faces << button->text();
  }
  EXPECT_EQ(faces, (QStringList{"-6 dB", "-3 dB", "-1 dB", "+1 dB", "+3 dB", "+6 dB"}));
  ASSERT_NE(field(), nullptr);
  EXPECT_EQ(field()->text(), "0.0");
  ASSERT_NE(chip("+6 dB"), nullptr);
  chip("+6 dB")->click();
  EXPECT_EQ(field()->text(), "6.0");
  EXPECT_EQ(bar->state().gainDB, "6.0");
  // A chip fills the field only: nothing has changed yet.
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  apply();
  EXPECT_TRUE(waitUntil([&] { return bar->popover() == nullptr; }, 5.0));
  const ChannelData louder = liveSamples(*engine);
  expectScaled(louder, original, 0, 4 * 48000, std::pow(10.0, 6.0 / 20.0));

  // A value typed as 6.0206 dB doubles the samples (20·log10 2 = 6.0206).
  bar->button(EditControl::changeLevel)->click();
  EXPECT_EQ(field()->text(), "6.0");  // the field keeps what it held
  field()->setText(QStringLiteral("6.0206"));
  apply();
  expectScaled(liveSamples(*engine), louder, 0, 4 * 48000, std::pow(10.0, 6.0206 / 20.0));
  EXPECT_NEAR(std::pow(10.0, 6.0206 / 20.0), 2.0, 1e-4);

  // A text that is not a number cancels silently.
  const int depth = engine->editEngine().undoDepth();
  const ChannelData doubled = liveSamples(*engine);
  bar->button(EditControl::changeLevel)->click();
  field()->setText(QStringLiteral("6 dB"));
  apply();
  EXPECT_EQ(engine->editEngine().undoDepth(), depth);
  EXPECT_TRUE(sameBits(liveSamples(*engine), doubled));
  EXPECT_TRUE(user->seen.empty());

  // Undo from the Edit menu, twice: the file as loaded, bit for bit.
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), louder));
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Cut with the "0 ms" chip is a hard cut: the file's audio before and after, joined.
  select(1.0, 2.0);
  bar->button(EditControl::cut)->click();
  EXPECT_NE(inPopover<QLabel>(QStringLiteral("editPopover.title"), QStringLiteral("Cut Selection")), nullptr);
  chip("0 ms")->click();
  EXPECT_EQ(field()->text(), "0");
  apply();
  ChannelData joined = original;
  for (auto& channel : joined) channel.erase(channel.begin() + 48000, channel.begin() + 96000);
  EXPECT_TRUE(sameBits(liveSamples(*engine), joined));
  EXPECT_EQ(bar->confirmationLabel()->text(), "Cut 1.00s");
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Add Silence with a selection offers the selection's anchors and keeps the anchor it had,
  // "Insert at playhead" (the default), which stands with or without a selection; a duration
  // of 24000 samples placed after the selection lengthens the file.
  // (The undo of a cut changed the length back, which takes the selection away.)
  select(1.0, 2.0);
  bar->button(EditControl::addSilence)->click();
  auto* anchor = inPopover<QComboBox>(QStringLiteral("editPopover.anchor"));
  ASSERT_NE(anchor, nullptr);
  QStringList anchors;
  for (int i = 0; i < anchor->count(); ++i) anchors << anchor->itemText(i);
  EXPECT_EQ(anchors, (QStringList{"Replace selection", "Insert before selection", "Insert after selection",
                                  "Insert at playhead"}));
  EXPECT_EQ(anchor->currentText(), "Insert at playhead");
  anchor->setCurrentIndex(2);
  auto* unit = inPopover<QComboBox>(QStringLiteral("editPopover.unit"));
  ASSERT_NE(unit, nullptr);
  unit->setCurrentIndex(1);
  EXPECT_EQ(field()->placeholderText(), "48000");
  field()->setText(QStringLiteral("24000"));
  apply();
  ChannelData padded = original;
  for (auto& channel : padded) channel.insert(channel.begin() + 96000, 24000, 0.0f);
  EXPECT_TRUE(sameBits(liveSamples(*engine), padded));
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Fade with the popover's direction and curve: a linear fade out over the selection, so the
  // gain a tenth of the way in is 0.9 and half-way 0.5 (an equal-power curve would give 0.71
  // there, a fade in 0.1 and 0.5); outside the selection nothing changes.
  select(1.0, 2.0);
  bar->button(EditControl::fade)->click();
  auto* direction = inPopover<QComboBox>(QStringLiteral("editPopover.direction"));
  auto* curve = inPopover<QComboBox>(QStringLiteral("editPopover.curve"));
  ASSERT_TRUE(direction && curve);
  EXPECT_EQ(direction->currentText(), "Fade In");
  EXPECT_EQ(curve->currentText(), "Linear");
  direction->setCurrentText(QStringLiteral("Fade Out"));
  apply();
  const ChannelData faded = liveSamples(*engine);
  // The gain at a frame, read over the nearby samples where the tone is strong.
  const auto gainAt = [&](std::size_t frame) {
    double num = 0.0, den = 0.0;
    for (std::size_t i = frame - 50; i < frame + 50; ++i) {
      num += static_cast<double>(faded[0][i]) * original[0][i];
      den += static_cast<double>(original[0][i]) * original[0][i];
    }
    return num / den;
  };
  EXPECT_NEAR(gainAt(48000 + 4800), 0.9, 0.01);
  EXPECT_NEAR(gainAt(72000), 0.5, 0.01);
  EXPECT_LT(std::fabs(faded[0][95999]), 0.001);
  for (std::size_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(std::equal(faded[c].begin(), faded[c].begin() + 48000, original[c].begin())) << c;
    EXPECT_TRUE(std::equal(faded[c].begin() + 96000, faded[c].end(), original[c].begin() + 96000)) << c;
  }
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));

  // Normalize to a peak of −6 dBFS on the whole file: the chip values, then the typed target.
  engine->transport().setSelection(std::nullopt);
  bar->button(EditControl::normalize)->click();
  faces.clear();
  for (QPushButton* button : bar->popover()->findChild<QWidget*>(QStringLiteral("editPopover.peak"))
                                 ->findChildren<QPushButton*>(QStringLiteral("editPopover.chip"))) {
    faces << button->text();
  }
  EXPECT_EQ(faces, (QStringList{"-1 dBFS", "-0.5 dBFS", "-0.1 dBFS", "0 dBFS"}));
  QLineEdit* target = bar->popover()->findChild<QWidget*>(QStringLiteral("editPopover.peak"))
                          ->findChild<QLineEdit*>(QStringLiteral("editPopover.field"));
  ASSERT_NE(target, nullptr);
  target->setText(QStringLiteral("-6"));
  apply();
  float peak = 0.0f;
  for (const auto& channel : liveSamples(*engine)) {
    for (const float x : channel) peak = std::max(peak, std::fabs(x));
  }
  EXPECT_NEAR(20.0 * std::log10(peak), -6.0, 0.01);
}

// A target row asks for a true-peak limit: edit mode opens, and on the next turn the toolbar's
// form shows the request's ceiling; Apply limits the whole file under it.
TEST_F(EditUiTest, ATargetsLimitRequestOpensTheFormThatActsOnTheWholeFile) {
  load(test::sine(kRate, 2, 3.0, 997.0, 0.95));
  LoudnessTargets& targets = engine->analysis().targets();
  LoudnessTarget target;
  target.id = "test-ceiling";
  target.displayName = "Ceiling −3";
  target.truePeakCeilingDBTP = -3.0f;
  select(0.5, 1.0);  // the form ignores the selection
  targets.requestLimitTPToTarget(target);
  EXPECT_TRUE(engine->isModeOn(AudioEngine::Mode::edit));
  EditToolbar* bar = toolbar();
  ASSERT_TRUE(waitUntil([&] { return bar->popover() != nullptr; }, 5.0));
  EXPECT_FALSE(targets.pendingLimitTP().has_value());
  EXPECT_NE(inPopover<QLabel>(QStringLiteral("editPopover.title"), QStringLiteral("Limit True Peak")), nullptr);
  EXPECT_NE(inPopover<QLabel>(QStringLiteral("editPopover.text"),
                              QStringLiteral("Caps inter-sample peaks at the ceiling; loudness unchanged.")),
            nullptr);
  ASSERT_NE(field(), nullptr);
  EXPECT_EQ(field()->text(), "-3.0");
  apply();
  EXPECT_TRUE(waitUntil([&] { return bar->popover() == nullptr; }, 5.0));
  const ChannelData limited = liveSamples(*engine);
  ASSERT_EQ(limited[0].size(), original[0].size());
  for (std::size_t c = 0; c < limited.size(); ++c) {
    // The whole file, not only the selection: the true peak of each channel is at the ceiling
    // (within the 0.1 dB two meters may differ), and the tone is still there.
    EXPECT_LE(test::idealTruePeakDB(limited[c]), -3.0 + 0.1) << c;
    EXPECT_GT(test::idealTruePeakDB(limited[c]), -4.0) << c;
  }
  EXPECT_EQ(bar->confirmationLabel()->text(), "Limited true peak to -3.0 dBTP");
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
}

// A target row asks to normalise to −16 LUFS: the form reads the file's loudness now, the
// target, the gain between them and the basis, with the target's ceiling in the field; Apply
// lands the whole file on the target by libebur128, its true peak under the ceiling.
TEST_F(EditUiTest, ATargetsNormalizeRequestShowsItsReadingsAndLandsOnTheTarget) {
  test::Planar signal = test::programme(kRate, 2, 12.0, 11);
  load(signal);
  const double before = test::ebur128Measure(signal).integrated;
  LoudnessTargets& targets = engine->analysis().targets();
  targets.setLoudnessDisplayMode(LoudnessDisplayMode::offline);
  const double now = targets.displayIntegratedLUFS();
  ASSERT_TRUE(std::isfinite(now));
  EXPECT_NEAR(now, before, 0.1);
  ASSERT_GT(std::fabs(now + 16.0), 1.0);  // far enough from the target for the edit to show

  LoudnessTarget target;
  target.id = "test-podcast";
  target.displayName = "Podcast −16";
  target.source = LoudnessSource::integrated;
  target.referenceLevel = -16.0f;
  target.tolerance = 1.0f;
  target.truePeakCeilingDBTP = -1.5f;
  targets.requestNormalizeToTarget(target);
  ASSERT_TRUE(engine->isModeOn(AudioEngine::Mode::edit));
  EditToolbar* bar = toolbar();
  ASSERT_TRUE(waitUntil([&] { return bar->popover() != nullptr; }, 5.0));
  EXPECT_FALSE(targets.pendingNormalize().has_value());
  EXPECT_NE(inPopover<QLabel>(QStringLiteral("editPopover.title"), QStringLiteral("Normalize")), nullptr);
  const auto row = [&](const char* name) {
    auto* label = inPopover<QLabel>(QStringLiteral("editPopover.row.%1").arg(QLatin1String(name)));
    return label ? label->text() : QStringLiteral("(none)");
  };
  const double gain = -16.0 - now;
  EXPECT_EQ(row("Now"), QString::asprintf("%.1f LUFS", now));
  EXPECT_EQ(row("Target"), "-16.0 LUFS");
  EXPECT_EQ(row("Gain"), (gain >= 0 ? QStringLiteral("+") : QString()) + QString::asprintf("%.1f dB", gain));
  EXPECT_EQ(row("Basis"), "Integrated");
  ASSERT_NE(field(), nullptr);
  EXPECT_EQ(field()->text(), "-1.5");
  // Return in the field applies.
  QTest::keyClick(field(), Qt::Key_Return);
  EXPECT_TRUE(waitUntil([&] { return bar->popover() == nullptr; }, 5.0));

  test::Planar result(kRate, 2);
  result.channels = liveSamples(*engine);
  ASSERT_EQ(result.frames(), signal.frames());
  const test::OracleResult after = test::ebur128Measure(result);
  EXPECT_NEAR(after.integrated, -16.0, 0.1);
  for (const double peak : after.truePeakDB) EXPECT_LE(peak, -1.5 + 0.1);
  EXPECT_EQ(bar->confirmationLabel()->text(), "Normalized to -16.0 LUFS, peak-limited at -1.5 dBTP");
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
}

// Level Dialogue on real speech: without a dialogue reading the popover says the lift is
// unavailable and greys its switch; the "24 dB" chip ducks the room tone between phrases by
// 24 dB and leaves the phrases themselves alone (measured per 0.1 s block of the speech mask,
// away from the gate's attack and release).
TEST_F(EditUiTest, LevelDialogueDucksTheRoomToneByTheChipsDepth) {
  // Two takes of a phrase with room tone (quiet noise) before, between and after them.
  const std::string speech = folder.file("speech.wav");
  std::filesystem::copy_file(CORVANE_SOURCE_DIR "/tests/headless/speech/data/speech-16k.wav", speech);
  {
    test::LandingLog log(*engine);
    engine->loadFile(url(speech));
    ASSERT_TRUE(waitUntil([&] { return log.count(AudioEngine::Landing::metrics) == 1; }));
  }
  test::Planar phrase(16000.0, 1);
  phrase.channels = liveSamples(*engine);
  test::Planar take = test::bandLimitedNoise(16000.0, 1, 2.0, 4000.0, -55.0, 0.0, 3);
  take.append(phrase);
  take.append(test::bandLimitedNoise(16000.0, 1, 2.0, 4000.0, -55.0, 0.0, 4));
  take.append(phrase);
  take.append(test::bandLimitedNoise(16000.0, 1, 2.0, 4000.0, -55.0, 0.0, 5));
  load(take, "dialogue.wav");
  const SharedSpeechHistory history = engine->dialogue().fileSpeechHistory();
  if (!history || history->empty()) GTEST_SKIP() << "no speech model installed";
  editMode();
  EditToolbar* bar = toolbar();
  ASSERT_TRUE(bar->button(EditControl::levelDialogue)->isEnabled());

  // Live readings while stopped: no dialogue reading, so no lift.
  ASSERT_FALSE(std::isfinite(engine->analysis().targets().displayDialogGatedLUFS()));
  bar->button(EditControl::levelDialogue)->click();
  ASSERT_NE(bar->popover(), nullptr);
  auto* lift = inPopover<QCheckBox>(QStringLiteral("editPopover.lift"));
  ASSERT_NE(lift, nullptr);
  EXPECT_FALSE(lift->isEnabled());
  bool saysUnavailable = false;
  for (QLabel* text : bar->popover()->findChildren<QLabel*>(QStringLiteral("editPopover.text"))) {
    saysUnavailable |= text->text().contains(QStringLiteral("lifting to a target is unavailable"));
  }
  EXPECT_TRUE(saysUnavailable);
  EXPECT_EQ(field()->text(), "18");
  chip("24 dB")->click();
  EXPECT_EQ(field()->text(), "24");
  const ChannelData before = liveSamples(*engine);
  apply();
  EXPECT_EQ(bar->confirmationLabel()->text(), "Ducked room tone 24 dB between phrases");
  const ChannelData after = liveSamples(*engine);
  ASSERT_EQ(after[0].size(), before[0].size());

  // Blocks whose neighbours within half a second share their state.
  const double rate = engine->pcmBuffer()->sampleRate();
  const auto blockFrames = static_cast<std::size_t>(std::lround(rate * 0.1));
  const auto energy = [&](const ChannelData& data, std::size_t block) {
    double sum = 0.0;
    for (std::size_t i = block * blockFrames; i < std::min(data[0].size(), (block + 1) * blockFrames); ++i) {
      sum += static_cast<double>(data[0][i]) * data[0][i];
    }
    return sum;
  };
  int ducked = 0, kept = 0;
  for (std::size_t b = 5; b + 5 < history->size() && (b + 1) * blockFrames <= before[0].size(); ++b) {
    bool steady = true;
    for (std::size_t n = b - 5; n <= b + 5; ++n) steady &= (*history)[n] == (*history)[b];
    const double e = energy(before, b);
    if (!steady || e <= 1e-12) continue;
    const double changeDB = 10.0 * std::log10(energy(after, b) / e);
    if ((*history)[b]) {
      EXPECT_NEAR(changeDB, 0.0, 0.1) << "speech block " << b;
      ++kept;
    } else {
      EXPECT_NEAR(changeDB, -24.0, 0.5) << "room tone block " << b;
      ++ducked;
    }
  }
  EXPECT_GT(kept, 0);
  EXPECT_GT(ducked, 0);
  menuItem("Undo")->trigger();
  EXPECT_TRUE(sameBits(liveSamples(*engine), before));
}

// Real key presses through the application's key filter: Backspace and Ctrl+Backspace typed in
// a popover's field edit its text and leave the file alone; once the popover is gone, the same
// Backspace cuts the selection.
TEST_F(EditUiTest, KeysTypedInAPopoverEditItsFieldNotTheFile) {
  GlobalKeyFilter filter(window->commands(), bus, [] {});
  filter.setMainWindow(window.get());
  qApp->installEventFilter(&filter);
  load(test::sine(kRate, 2, 3.0, 440.0, 0.5));
  editMode();
  select(1.0, 2.0);
  // With the playhead inside the file, Ctrl+Backspace would be Cut to Start.
  engine->transport().placePlayhead(1.5);
  EditToolbar* bar = toolbar();

  bar->button(EditControl::cut)->click();
  ASSERT_NE(field(), nullptr);
  field()->setFocus();
  field()->setText(QStringLiteral("125"));
  field()->setCursorPosition(3);
  QTest::keyClick(field(), Qt::Key_Backspace);
  EXPECT_EQ(field()->text(), "12");
  QTest::keyClick(field(), Qt::Key_Backspace, Qt::ControlModifier);
  EXPECT_EQ(field()->text(), "");
  EXPECT_TRUE(sameBits(liveSamples(*engine), original));
  EXPECT_EQ(engine->editEngine().undoDepth(), 0);

  // Escape closes the popover; the text typed stays for the next time.
  QTest::keyClick(field(), Qt::Key_Escape);
  EXPECT_TRUE(waitUntil([&] { return bar->popover() == nullptr; }, 5.0));
  EXPECT_EQ(bar->state().cutCrossfadeMs, "");
  EXPECT_TRUE(engine->transport().selection().has_value());

  QTest::keyClick(window->content(), Qt::Key_Backspace);
  EXPECT_EQ(liveSamples(*engine)[0].size(), original[0].size() - 48000);
  EXPECT_EQ(engine->editEngine().undoDepth(), 1);
  qApp->removeEventFilter(&filter);
}

}  // namespace
}  // namespace corvane
