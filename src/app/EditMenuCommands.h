// EditMenuCommands: the Edit menu in the command table.
//
// "Undo" (Ctrl+Z) and "Redo" (Shift+Ctrl+Z) on the edit history, then the editor's entries as
// EditCommands lists them (titles, keys, dividers): "Cut" (Backspace), "Silence Selection",
// "Trim to Selection", the playhead cuts, the fades and the ±1 dB gains. The save entries of
// the menu's "save" group belong to saving.
//
// Every entry acts in edit mode only, where the edit toolbar is: the history and the edits
// belong to an edit session, and a stray key in another mode must not change the file. Inside
// edit mode an entry is enabled as the model says (EditCommands::isEnabled; Undo and Redo by
// the depth of their stacks). The entries claim their keys in edit mode only, so the keys
// other modes give a meaning of their own (Backspace deletes a dialogue region or a chapter
// boundary) reach those modes' commands through the table's dispatcher, and outside every
// such mode a key of the editor reaches nothing.
//
// Thread class: main thread.
#pragma once

#include <QString>

#include "editing/EditCommands.h"

namespace corvane {

class AudioEngine;
class CommandTable;

namespace edit_command {
inline const QString undo = QStringLiteral("edit.undo");
inline const QString redo = QStringLiteral("edit.redo");
}  // namespace edit_command

// The id of an Edit menu entry: "edit.cut", "edit.silenceSelection", ... "edit.gainDown".
QString editCommandID(EditMenuCommand command);

// Adds the commands to the Edit menu (declared by registerAppCommands). `edits` must outlive
// the table's use of them.
void registerEditCommands(CommandTable& commands, AudioEngine& engine, EditCommands& edits);

}  // namespace corvane
