#include "app/SaveCommands.h"

#include <QAction>
#include <QLabel>
#include <QToolBar>
#include <QToolButton>
#include <tuple>

#include "app/AppCommands.h"
#include "app/CommandTable.h"
#include "app/SavePanel.h"
#include "app/SettingsWindow.h"
#include "session/AudioEngine.h"
#include "session/SettingsStore.h"

namespace corvane {

const QString SaveCommands::kDirtyBadgeText = QStringLiteral("Unsaved edits");
const QString SaveCommands::kDirtyTipOverwrite =
    QStringLiteral("Unsaved edits to the audio. Save writes over the file; Save As writes a new one.");
const QString SaveCommands::kDirtyTipSaveAs = QStringLiteral("Unsaved edits to the audio. Save As to write a new file.");
const QString SaveCommands::kSaveTip = QStringLiteral("Save the edited audio over the loaded file (Ctrl+S)");
const QString SaveCommands::kSaveAsTip = QStringLiteral("Save edited audio as new file (Shift+Ctrl+S)");
const QString SaveCommands::kDiscardTip = QStringLiteral("Discard unsaved edits and revert to the last saved version");

SaveCommands::SaveCommands(CommandTable& commands, AudioEngine& engine, QWidget* window)
    : QObject(window), _commands(commands), _engine(engine), _window(window) {
  using app_menu::edit;
  using app_menu::file;
  commands.declareGroups(file, {QStringLiteral("settings")}, QStringLiteral("raw"));
  EditEngine& edits = engine.editEngine();
  AudioEngine* session = &engine;
  const auto dirty = [&edits] { return edits.isDirty(); };

  commands.add({.id = save_command::save,
                .title = QStringLiteral("Save"),
                .shortcut = QKeySequence(Qt::CTRL | Qt::Key_S),
                .menu = edit,
                .group = QStringLiteral("save"),
                .needsFile = true,
                .isEnabled = dirty,
                .isShown = [session] { return session->settings().corvaneAllowSaveOverwrite(); },
                .trigger = [&edits] { edits.saveEditedBufferInPlace(); }});
  commands.add({.id = save_command::saveAs,
                .title = QStringLiteral("Save Edited Audio As\u2026"),
                .shortcut = QKeySequence(Qt::SHIFT | Qt::CTRL | Qt::Key_S),
                .menu = edit,
                .group = QStringLiteral("save"),
                .needsFile = true,
                .isEnabled = [session] { return session->pcmBuffer() != nullptr && !session->isLoading(); },
                .trigger = [&edits] { edits.exportEditedBuffer(); }});
  commands.add({.id = save_command::discard,
                .title = QStringLiteral("Discard Edits\u2026"),
                .menu = edit,
                .group = QStringLiteral("save"),
                .needsFile = true,
                .isEnabled = dirty,
                .trigger = [&edits] { edits.discardSessionEdits(); }});
  commands.add({.id = save_command::settings,
                .title = QStringLiteral("Settings\u2026"),
                .shortcut = QKeySequence(Qt::CTRL | Qt::Key_Comma),
                .menu = file,
                .group = QStringLiteral("settings"),
                .trigger = [this] { showSettings(); }});

  edits.setSaveLocationChooser([this](const EditEngine::SaveRequest& request) { return runSavePanel(_window, request); });

  _toolbar = new QToolBar(QStringLiteral("Saving"), window);
  _toolbar->setObjectName(QStringLiteral("CorvaneSavingToolbar"));
  _toolbar->setMovable(false);
  _badge = new QLabel(kDirtyBadgeText, _toolbar);
  _badge->setObjectName(QStringLiteral("dirtyBadge"));
  _badge->setStyleSheet(QStringLiteral("QLabel { color: #1d1d1d; background: #f0b429; border-radius: 4px; padding: 1px 6px; }"));
  // A toolbar's widgets are shown, hidden, enabled and disabled through the actions that hold
  // them: the toolbar copies the action's state onto the widget whenever the action changes.
  _badgeAction = _toolbar->addWidget(_badge);
  _saveButton = new QToolButton(_toolbar);
  _saveButton->setObjectName(QStringLiteral("saveButton"));
  _saveButton->setText(QStringLiteral("Save"));
  connect(_saveButton, &QToolButton::clicked, this, [&edits] { edits.saveEditedBufferInPlace(); });
  _saveAction = _toolbar->addWidget(_saveButton);
  // Save As and Discard run the menu's commands and follow their enabled state, with the
  // toolbar's own tooltips (a shared action would show the menu's generated ones).
  for (const auto& [id, title, tip] : {std::tuple{save_command::saveAs, QStringLiteral("Save As\u2026"), kSaveAsTip},
                                       std::tuple{save_command::discard, QStringLiteral("Discard"), kDiscardTip}}) {
    auto* button = new QToolButton(_toolbar);
    button->setObjectName(QStringLiteral("button.%1").arg(id));
    button->setText(title);
    button->setToolTip(tip);
    connect(button, &QToolButton::clicked, this, [this, id = id] { _commands.trigger(id); });
    QAction* command = commands.action(id);
    QAction* holder = _toolbar->addWidget(button);
    connect(command, &QAction::changed, holder, [holder, command] { holder->setEnabled(command->isEnabled()); });
    holder->setEnabled(command->isEnabled());
  }

  commands.refreshWhen(&edits, &EditEngine::isDirtyChanged);
  commands.refreshWhen(&engine, &AudioEngine::pcmBufferChanged);
  connect(&edits, &EditEngine::isDirtyChanged, this, &SaveCommands::refresh);
  connect(&engine, &AudioEngine::loadedFileChanged, this, &SaveCommands::refresh);
  commands.refresh();
  refresh();
}

SaveCommands::~SaveCommands() {
  // The chooser points at this object; the session outlives it.
  _engine.editEngine().setSaveLocationChooser({});
  delete _settingsWindow.data();
}

void SaveCommands::refresh() {
  const EditEngine& edits = _engine.editEngine();
  const bool dirty = edits.isDirty();
  const bool overwrite = _engine.settings().corvaneAllowSaveOverwrite();
  _badge->setToolTip(overwrite ? kDirtyTipOverwrite : kDirtyTipSaveAs);
  const auto blocker = edits.inPlaceSaveBlocker();
  _saveButton->setToolTip(blocker ? *blocker : kSaveTip);
  _saveAction->setEnabled(dirty && !blocker);
  _saveAction->setVisible(overwrite);
  _badgeAction->setVisible(dirty);
}

SettingsWindow* SaveCommands::showSettings() {
  if (!_settingsWindow) {
    _settingsWindow = new SettingsWindow(_engine.settings(), _window);
    // What hangs on the saving keys follows at once.
    connect(_settingsWindow, &SettingsWindow::settingChanged, this, [this] {
      refresh();
      _commands.refresh();
    });
  }
  _settingsWindow->show();
  _settingsWindow->raise();
  _settingsWindow->activateWindow();
  return _settingsWindow;
}

std::optional<std::filesystem::path> SaveCommands::runSavePanel(QWidget* parent, const EditEngine::SaveRequest& request) {
  return runSaveFilePanel(parent, request.title, QString::fromStdString(request.proposedName),
                          QString::fromStdString(request.extension), request.directory);
}

}  // namespace corvane
