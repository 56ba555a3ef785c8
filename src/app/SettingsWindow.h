// SettingsWindow: the window "Settings", a tab per area, each tab a form bound straight to the
// settings store. Only the Editing tab exists so far; the other areas add their tabs here.
//
// Editing, section "Saving":
//   "Allow Save to overwrite the original file"  (corvaneAllowSaveOverwrite, default off)
//   "Ask before overwriting"                     (corvaneConfirmSaveOverwrite, default on)
// The second is disabled while the first is off: it keeps its stored value but can't be
// changed then. Under them stands the explanation of what in-place saving does and doesn't do.
//
// A toggle writes its key the moment it changes, and the window says so (settingChanged) so
// that what depends on the key (the Save button, the leave-session questions) follows at once.
// The toggles re-read the store each time the window is shown: the save confirmation's "Don't
// ask again" writes the second key from elsewhere.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>

class QCheckBox;
class QTabWidget;

namespace corvane {

class SettingsStore;

class SettingsWindow : public QWidget {
  Q_OBJECT

 public:
  static constexpr const char* kEditingTabTitle = "Editing";
  static constexpr const char* kAllowOverwriteTitle = "Allow Save to overwrite the original file";
  static constexpr const char* kConfirmOverwriteTitle = "Ask before overwriting";
  static const QString kSavingExplanation;

  explicit SettingsWindow(SettingsStore& settings, QWidget* parent = nullptr);

  QTabWidget* tabs() const { return _tabs; }
  QCheckBox* allowOverwriteToggle() const { return _allowOverwrite; }
  QCheckBox* confirmOverwriteToggle() const { return _confirmOverwrite; }

  // The toggles as the store holds them now.
  void reload();

 signals:
  // A key was written from this window.
  void settingChanged(const QString& key);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QWidget* makeEditingTab();

  SettingsStore& _settings;
  QTabWidget* _tabs = nullptr;
  QCheckBox* _allowOverwrite = nullptr;
  QCheckBox* _confirmOverwrite = nullptr;
};

}  // namespace corvane
