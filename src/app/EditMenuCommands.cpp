#include "app/EditMenuCommands.h"

#include <QKeySequence>
#include <memory>
#include <stdexcept>

#include "app/AppCommands.h"
#include "app/CommandTable.h"
#include "editing/EditEngine.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"

namespace corvane {

QString editCommandID(EditMenuCommand command) {
  switch (command) {
    case EditMenuCommand::cut: return QStringLiteral("edit.cut");
    case EditMenuCommand::silenceSelection: return QStringLiteral("edit.silenceSelection");
    case EditMenuCommand::trimToSelection: return QStringLiteral("edit.trimToSelection");
    case EditMenuCommand::cutToStart: return QStringLiteral("edit.cutToStart");
    case EditMenuCommand::cutToEnd: return QStringLiteral("edit.cutToEnd");
    case EditMenuCommand::fadeInSelection: return QStringLiteral("edit.fadeInSelection");
    case EditMenuCommand::fadeOutSelection: return QStringLiteral("edit.fadeOutSelection");
    case EditMenuCommand::fadeInToPlayhead: return QStringLiteral("edit.fadeInToPlayhead");
    case EditMenuCommand::fadeOutFromPlayhead: return QStringLiteral("edit.fadeOutFromPlayhead");
    case EditMenuCommand::gainUp: return QStringLiteral("edit.gainUp");
    case EditMenuCommand::gainDown: return QStringLiteral("edit.gainDown");
  }
  return {};
}

void registerEditCommands(CommandTable& commands, AudioEngine& engine, EditCommands& edits) {
  using app_menu::edit;
  AudioEngine* session = &engine;
  EditCommands* editor = &edits;
  EditEngine& history = engine.editEngine();
  const auto editing = [session] { return session->isModeOn(AudioEngine::Mode::edit); };

  commands.add({.id = edit_command::undo,
                .title = QStringLiteral("Undo"),
                .shortcut = QKeySequence(Qt::CTRL | Qt::Key_Z),
                .menu = edit,
                .group = app_menu::editGroups[0],
                .needsFile = true,
                .isEnabled = [editing, &history] { return editing() && history.undoDepth() > 0; },
                .appliesNow = editing,
                .trigger = [&history] { history.undoLastEdit(); }});
  commands.add({.id = edit_command::redo,
                .title = QStringLiteral("Redo"),
                .shortcut = QKeySequence(Qt::SHIFT | Qt::CTRL | Qt::Key_Z),
                .menu = edit,
                .group = app_menu::editGroups[0],
                .needsFile = true,
                .isEnabled = [editing, &history] { return editing() && history.redoDepth() > 0; },
                .appliesNow = editing,
                .trigger = [&history] { history.redoLastEdit(); }});

  // The entries start after "undo" and "save"; each divider of the model opens the next group.
  qsizetype group = 2;
  bool first = true;
  for (const EditMenuEntry& entry : editMenuEntries()) {
    if (entry.dividerBefore && !first) ++group;
    first = false;
    if (group >= app_menu::editGroups.size()) throw std::logic_error("the Edit menu has more dividers than groups");
    const EditMenuCommand command = entry.command;
    commands.add({.id = editCommandID(command),
                  .title = entry.title,
                  .shortcut = QKeySequence(entry.shortcut, QKeySequence::PortableText),
                  .menu = edit,
                  .group = app_menu::editGroups[group],
                  .needsFile = true,
                  .isEnabled = [editing, editor, command] { return editing() && editor->isEnabled(command); },
                  .appliesNow = editing,
                  .trigger = [editor, command] { editor->perform(command); }});
  }

  Transport& transport = engine.transport();
  commands.refreshWhen(&engine, &AudioEngine::isEditModeChanged);
  commands.refreshWhen(&engine, &AudioEngine::pcmBufferChanged);
  commands.refreshWhen(&history, &EditEngine::undoStackChanged);
  commands.refreshWhen(&history, &EditEngine::redoStackChanged);
  commands.refreshWhen(&transport, &Transport::durationChanged);
  // The playhead entries change state only when the playhead reaches or leaves either end;
  // the table is not re-read on every tick of a playing transport.
  auto ends = std::make_shared<std::pair<bool, bool>>(false, false);
  QObject::connect(&transport, &Transport::currentTimeChanged, &commands, [editor, ends, &commands] {
    const FrameCount playhead = editor->editPlayheadFrame();
    const std::pair<bool, bool> now{playhead > 0, playhead < editor->totalFrames()};
    if (now == *ends) return;
    *ends = now;
    commands.refresh();
  });
  commands.refresh();
}

}  // namespace corvane
