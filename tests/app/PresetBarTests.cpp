// The preset bar over the output matrix: the built-in presets a file and device are offered,
// with their names and descriptions; a user preset saved, exported, imported again without a
// duplicate; the bar's texts and tool tips. The user's dialogs are scripted (UserPresetUI); the
// store, the settings and the files are real.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QLabel>
#include <QSignalSpy>
#include <QToolButton>
#include <deque>

#include "TestSignals.h"
#include "app/PresetBar.h"
#include "playback/ChannelRouting.h"
#include "playback/RoutingPresets.h"
#include "session/SettingsStore.h"

namespace corvane {
namespace {

class ScriptedPresetUI : public UserPresetUI {
 public:
  std::optional<QString> promptForName(const QString& suggestion) override {
    suggestions << suggestion;
    return take(names);
  }
  std::optional<QString> promptForRename(const QString&) override { return take(names); }
  std::optional<QString> runExportPanel(const QString& defaultName) override {
    exportNames << defaultName;
    return take(paths);
  }
  std::optional<QString> runImportPanel() override { return take(paths); }
  void showError(const QString& description) override { errors << description; }
  void showNotice(const QString& text) override { notices << text; }

  std::deque<std::optional<QString>> names, paths;
  QStringList suggestions, exportNames, errors, notices;

 private:
  static std::optional<QString> take(std::deque<std::optional<QString>>& queue) {
    if (queue.empty()) return std::nullopt;
    auto value = queue.front();
    queue.pop_front();
    return value;
  }
};

QStringList texts(const QList<QToolButton*>& buttons) {
  QStringList list;
  for (QToolButton* b : buttons) list << b->text();
  return list;
}

class PresetBarTest : public ::testing::Test {
 protected:
  ChannelRoutings routings(int fileChannels, int deviceChannels) const {
    return defaultRoutings(fileChannels, deviceChannels, std::span<const std::string>{});
  }

  test::TemporaryDirectory folder;
  SettingsStore settings{QString::fromStdString(folder.file("settings.ini"))};
  UserPresetStore store{settings};
  std::shared_ptr<ScriptedPresetUI> ui = std::make_shared<ScriptedPresetUI>();
  PresetBar bar{store, ui};
};

TEST_F(PresetBarTest, OffersTheBuiltInsOfTheChannelCountsWithTheirWords) {
  bar.setContext(2, false, routings(2, 2));
  EXPECT_EQ(texts(bar.builtInButtons()),
            (QStringList{"Default", "L/R", "Mono L", QStringLiteral("L+R \u2192 Both"), "Swap L/R"}));
  const QList<QToolButton*> stereo = bar.builtInButtons();
  EXPECT_EQ(stereo[3]->toolTip(), QStringLiteral("Sum L and R at -3 dB each, send the result to both outputs."));
  EXPECT_EQ(stereo[4]->toolTip(), QStringLiteral("R on Out 1, L on Out 2."));

  // 5.1 on a stereo device: the downmixes and the solo tests; 7.1 to 5.1 needs six outputs.
  bar.setContext(6, false, routings(6, 2));
  QStringList surround = texts(bar.builtInButtons());
  EXPECT_TRUE(surround.contains(QStringLiteral("5.1 \u2192 Lo/Ro")));
  EXPECT_TRUE(surround.contains(QStringLiteral("Ls/Rs solo")));
  EXPECT_TRUE(surround.contains(QStringLiteral("C/LFE solo")));
  EXPECT_FALSE(surround.contains(QStringLiteral("7.1 \u2192 5.1")));
  for (QToolButton* b : bar.builtInButtons()) {
    if (b->text() == QStringLiteral("5.1 \u2192 Lo/Ro")) {
      EXPECT_EQ(b->toolTip(), QStringLiteral("ITU-R BS.775 stereo downmix. Lo = L + (-3 dB)\u00B7C + (-3 dB)\u00B7Ls. "
                                             "Ro = R + (-3 dB)\u00B7C + (-3 dB)\u00B7Rs. LFE is dropped."));
    }
  }
  bar.setContext(8, true, routings(8, 6));
  EXPECT_TRUE(texts(bar.builtInButtons()).contains(QStringLiteral("7.1 \u2192 5.1")));

  // A click applies the preset to the whole routing: Swap puts R on output 1 and L on output 2.
  bar.setContext(2, false, routings(2, 2));
  QSignalSpy edited(&bar, &PresetBar::routingsEdited);
  bar.builtInButtons()[4]->click();
  ASSERT_EQ(edited.count(), 1);
  const auto swapped = edited.takeFirst().at(0).value<ChannelRoutings>();
  EXPECT_TRUE(routingGainFor(swapped, 0, 1).has_value());
  EXPECT_FALSE(routingGainFor(swapped, 0, 0).has_value());
  EXPECT_TRUE(routingGainFor(swapped, 1, 0).has_value());
}

TEST_F(PresetBarTest, TheRowsAndButtonsSayWhatTheyDo) {
  bar.setContext(0, false, routings(0, 2));
  EXPECT_FALSE(bar.saveButton()->isEnabled());
  EXPECT_EQ(bar.saveButton()->toolTip(), QStringLiteral("Load an audio file before saving"));
  EXPECT_EQ(bar.importButton()->toolTip(), QStringLiteral("Import presets from a JSON file"));
  EXPECT_TRUE(bar.exportButton()->isHidden());  // nothing saved yet
  EXPECT_FALSE(bar.noneSavedLabel()->isHidden());
  EXPECT_EQ(bar.noneSavedLabel()->text(), QStringLiteral("none for this file/device"));
  QStringList rowTitles;
  for (QLabel* label : bar.findChildren<QLabel*>()) rowTitles << label->text();
  EXPECT_TRUE(rowTitles.contains(QStringLiteral("Built-in:")));
  EXPECT_TRUE(rowTitles.contains(QStringLiteral("Saved:")));

  bar.setContext(2, false, routings(2, 2));
  EXPECT_TRUE(bar.saveButton()->isEnabled());
  EXPECT_EQ(bar.saveButton()->toolTip(), QStringLiteral("Save the current routing as a preset"));
}

TEST_F(PresetBarTest, ASavedPresetIsExportedAndImportedAgainWithoutADuplicate) {
  bar.setContext(2, false, routings(2, 2));
  // The save dialog suggests the two layouts; a cancelled dialog saves nothing.
  bar.saveCurrent();
  EXPECT_EQ(ui->suggestions, QStringList{QStringLiteral("Stereo to Stereo")});
  EXPECT_TRUE(store.presets().empty());
  ui->names.push_back(QStringLiteral("  Desk check  "));
  bar.saveCurrent();
  QCoreApplication::processEvents();  // the bar rebuilds after the store's change
  ASSERT_EQ(store.presets().size(), 1u);
  ASSERT_EQ(bar.savedButtons().size(), 1);
  EXPECT_EQ(bar.savedButtons()[0]->text(), QStringLiteral("Desk check"));
  EXPECT_EQ(bar.savedButtons()[0]->toolTip(),
            QStringLiteral("Desk check: saved for 2 ch source to 2 ch output. Click to apply. Right-click for rename / delete / "
                           "export."));
  EXPECT_TRUE(bar.noneSavedLabel()->isHidden());
  EXPECT_FALSE(bar.exportButton()->isHidden());
  EXPECT_EQ(bar.exportButton()->toolTip(), QStringLiteral("Export all saved presets to a JSON file"));
  // Another file layout: the preset isn't offered.
  bar.setContext(1, false, routings(1, 2));
  EXPECT_TRUE(bar.savedButtons().isEmpty());
  bar.setContext(2, false, routings(2, 2));

  const QString path = QString::fromStdString(folder.file("exported.json"));
  ui->paths.push_back(path);
  bar.exportAll();
  EXPECT_EQ(ui->exportNames, QStringList{QStringLiteral("Corvane Routing Presets.json")});
  ASSERT_TRUE(QFile::exists(path));

  // The same file again: nothing new, and the user is told so.
  ui->paths.push_back(path);
  bar.importPresets();
  EXPECT_EQ(store.presets().size(), 1u);
  EXPECT_EQ(ui->notices,
            QStringList{QStringLiteral("No new presets imported (every preset in the file is already in your library).")});

  // Deleted, then imported from the export: back once.
  bar.deletePreset(store.presets()[0].id);
  QCoreApplication::processEvents();
  EXPECT_TRUE(store.presets().empty());
  EXPECT_TRUE(bar.savedButtons().isEmpty());
  EXPECT_TRUE(bar.exportButton()->isHidden());
  ui->paths.push_back(path);
  bar.importPresets();
  QCoreApplication::processEvents();
  ASSERT_EQ(store.presets().size(), 1u);
  EXPECT_EQ(store.presets()[0].name, QStringLiteral("Desk check"));
  EXPECT_EQ(texts(bar.savedButtons()), QStringList{QStringLiteral("Desk check")});
  EXPECT_EQ(ui->notices.size(), 1);

  // A file that isn't presets: an error in the reader's words, nothing added.
  const QString junk = QString::fromStdString(folder.file("junk.json"));
  QFile file(junk);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("not json at all");
  file.close();
  ui->paths.push_back(junk);
  bar.importPresets();
  EXPECT_EQ(ui->errors.size(), 1);
  EXPECT_FALSE(ui->errors.value(0).isEmpty());
  EXPECT_EQ(store.presets().size(), 1u);
  // A folder that doesn't exist to export into: the write's error.
  ui->paths.push_back(QString::fromStdString(folder.file("missing/folder/out.json")));
  bar.exportAll();
  EXPECT_EQ(ui->errors.size(), 2);
}

}  // namespace
}  // namespace corvane
