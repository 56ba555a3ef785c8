// SessionWorkGuard: what the session asks, before it is replaced, of the subsystems that can
// hold work the user would lose: a take still recording, edits not saved, a take that lives
// only in the takes folder.
//
// The recording engine and the edit history answer these when they exist; the base class
// answers "nothing at stake" for each, and gives the takes folder where a take is kept
// until it is saved ($XDG_DATA_HOME/Corvane/Recordings). The session installs one guard
// (AudioEngine::setWorkGuard) and asks it from confirmReplaceSession and
// confirmLeaveSessionForCompare.
//
// Thread class: main thread.
#pragma once

#include <QString>
#include <optional>

namespace corvane {

class SessionWorkGuard {
 public:
  virtual ~SessionWorkGuard() = default;

  // ---- Recording ----
  virtual bool isRecording() const { return false; }
  // Stops the take; the take stays on disk.
  virtual void stopRecording() {}
  // The folder of recorded takes (it may not exist yet).
  virtual QString takesDirectory() const;

  // ---- Edits ----
  virtual bool hasUnsavedEdits() const { return false; }
  // Why Save can't overwrite the loaded file; none when it can.
  virtual std::optional<QString> inPlaceSaveBlocker() const { return std::nullopt; }
  // The save button of the leave-session questions: "Save" when a press finishes the save
  // without another dialog, else "Save…".
  virtual QString sessionPromptSaveTitle() const { return QStringLiteral("Save…"); }
  // Saves over the loaded file; the edits are still unsaved afterwards if it didn't happen.
  virtual void saveEditedBufferInPlace() {}
  // Saves to a file the user chooses; likewise.
  virtual void exportEditedBuffer() {}
};

}  // namespace corvane
