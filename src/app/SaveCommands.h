// SaveCommands: how the window saves edited audio, and the settings window that decides how.
//
// Edit menu, group "save": "Save" (Ctrl+S), "Save Edited Audio As…" (Shift+Ctrl+S), "Discard
// Edits…"; File menu, group "settings": "Settings…" (Ctrl+,). Save stands in the menu (and its
// key works) only while overwriting the original is allowed. Save and Discard Edits need
// unsaved edits; Save As needs a loaded file.
//
// The saving toolbar ("Saving"):
//   - the dirty badge "Unsaved edits", shown while the edit history says the audio is dirty,
//     with the tooltip that says what Save and Save As will do under the current setting;
//   - "Save", shown only while corvaneAllowSaveOverwrite is on, enabled only with unsaved
//     edits and nothing blocking an in-place save, its tooltip the blocker's text when there
//     is one;
//   - "Save As…" ("Save edited audio as new file (Shift+Ctrl+S)") and "Discard" ("Discard
//     unsaved edits and revert to the last saved version"), which run the menu's commands and
//     are enabled with them.
//
// The save panel (Qt's QFileDialog, so it is the same on every desktop) is installed on the
// edit history as its save location chooser: titled as the session asks ("Save Edited
// Audio"), in the loaded file's folder, with the proposed name and the one type offered.
// Questions go through the session's alert presenter.
//
// Quitting is the main window's close, which asks the session (confirmReplaceSession) first.
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <filesystem>
#include <optional>

#include "app/SettingsWindow.h"
#include "editing/EditEngine.h"

class QAction;
class QLabel;
class QToolBar;
class QToolButton;
class QWidget;

namespace corvane {

class AudioEngine;
class CommandTable;

namespace save_command {
inline const QString save = QStringLiteral("file.save");
inline const QString saveAs = QStringLiteral("file.saveAs");
inline const QString discard = QStringLiteral("file.discardEdits");
inline const QString settings = QStringLiteral("app.settings");
}  // namespace save_command

class SaveCommands : public QObject {
  Q_OBJECT

 public:
  static const QString kDirtyBadgeText;
  static const QString kDirtyTipOverwrite;
  static const QString kDirtyTipSaveAs;
  static const QString kSaveTip;
  static const QString kSaveAsTip;
  static const QString kDiscardTip;

  // Registers the commands in `commands` (before its menus are built; the File menu must be
  // declared) and installs the save panel on the session's edit history. `window` parents the
  // panels, the toolbar and the settings window.
  SaveCommands(CommandTable& commands, AudioEngine& engine, QWidget* window);
  ~SaveCommands() override;

  QToolBar* toolbar() const { return _toolbar; }
  QLabel* dirtyBadge() const { return _badge; }
  QToolButton* saveButton() const { return _saveButton; }

  // The settings window, made on first use, shown and raised.
  SettingsWindow* showSettings();
  SettingsWindow* settingsWindow() const { return _settingsWindow; }

  // The save panel; the chosen file, none when cancelled.
  static std::optional<std::filesystem::path> runSavePanel(QWidget* parent, const EditEngine::SaveRequest& request);

 private:
  void refresh();

  CommandTable& _commands;
  AudioEngine& _engine;
  QWidget* _window;
  QToolBar* _toolbar = nullptr;
  QLabel* _badge = nullptr;
  QAction* _badgeAction = nullptr;
  QToolButton* _saveButton = nullptr;
  QAction* _saveAction = nullptr;
  QPointer<SettingsWindow> _settingsWindow;
};

}  // namespace corvane
