// EditToolbar: the tools of edit mode, shown under the transport bar while edit mode is on.
//
// One button per control of the model (editToolbarControls: Undo, Redo, Trim, Cut, Change
// Level, Add Silence, Phase, Remove DC, Fade, Normalize, Limit TP, Level Dialogue, Swap,
// Split), each with the model's tool tip and enabled as the model says. Undo and Redo run the
// command table's commands, so the menu, the keys and the buttons agree. Trim, Phase, Remove
// DC and Swap act at once; Split asks for a folder ("Choose folder for mono files") and writes
// one mono WAV per channel there. The others open a popover under their button: the model's
// title and explanations, the scope ("Applies to the selection." / "… whole file."), the
// fields with their quick values (a click puts the value's text into the field, it does not
// apply), and "Apply", which parses the fields through EditCommands and runs the command, then
// closes the popover. A value that does not parse cancels silently, as the model decides;
// failures of the roads reach the session's alert (the model reports them there).
//
// The fields keep their text exactly as typed for as long as the toolbar lives
// (EditToolbarState), whichever popover shows them.
//
// A loudness target row's Normalize or Limit request (pending on the session's targets) is
// taken once edit mode is on, on the next turn of the event loop: the popover then opens as
// the target's form (title, Now, Target, Gain, Basis, the ceiling field filled from the
// request, the note) and acts on the whole file.
//
// The edit's confirmation ("Cut 1.00s", "Faded in", ...) shows beside the tools while the
// history holds it up.
//
// Thread class: main thread (a widget).
#pragma once

#include <QFrame>
#include <QPointer>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include "editing/EditCommands.h"

class QLabel;
class QLineEdit;
class QToolButton;
class QVBoxLayout;

namespace corvane {

class AudioEngine;
class CommandTable;

class EditToolbar : public QWidget {
  Q_OBJECT

 public:
  // Where Split writes; none when the user cancelled.
  using FolderChooser = std::function<std::optional<std::filesystem::path>()>;

  EditToolbar(AudioEngine& engine, EditCommands& edits, CommandTable& commands, QWidget* parent = nullptr);
  ~EditToolbar() override;

  const EditToolbarState& state() const { return _state; }
  QToolButton* button(EditControl control) const;
  // The popover that is open; null when none is.
  QFrame* popover() const { return _popover; }
  // The confirmation of the last edit; hidden while there is none.
  QLabel* confirmationLabel() const { return _confirmation; }
  // Replaces the folder panel of Split.
  void setFolderChooser(FolderChooser chooser) { _chooseFolder = std::move(chooser); }

  // What a click on the control's button does (nothing while it is disabled).
  void activate(EditControl control);

 private:
  void refreshEnablement();
  void refreshConfirmation();
  void takeTargetRequest();
  void openPopover(EditControl control);
  void openTargetForm(const EditTargetForm& form);
  void closePopover();
  // A popover under `control`'s button, made empty.
  QFrame* newPopover(EditControl control);
  // A labelled field bound to `value`, with its quick values when `chips` names them.
  QLineEdit* addField(QWidget* popover, QVBoxLayout* into, const QString& label, QString EditToolbarState::*value,
                      const QString& unit, std::optional<EditPopoverKind> chips = std::nullopt);
  void addApply(QFrame* popover, std::function<void()> apply);

  AudioEngine& _engine;
  EditCommands& _edits;
  CommandTable& _commands;
  EditToolbarState _state;
  std::map<EditControl, QToolButton*> _buttons;
  QLabel* _confirmation;
  QPointer<QFrame> _popover;
  FolderChooser _chooseFolder;
};

}  // namespace corvane
