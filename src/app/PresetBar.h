// PresetBar: the routing presets above the matrix.
//
//   Built-in:  a button per RoutingPreset::available for the file and the routing's outputs
//              (tool tip: the preset's description); a click applies it.
//   Saved:     a capsule per user preset saved for exactly these counts, or "none for this
//              file/device"; a click applies it, the right-click menu renames, exports or
//              deletes it.
//   Actions:   save the routing as a preset (disabled without a file), import presets from a
//              JSON file, export all of them (only while there are any).
//
// The dialogs go through a UserPresetUI, so the bar runs and is tested without modal windows;
// the window installs QtUserPresetUI.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <memory>
#include <optional>

#include "playback/RoutingPresets.h"

class QHBoxLayout;
class QLabel;
class QToolButton;

namespace corvane {

// The questions the bar asks the user.
class UserPresetUI {
 public:
  virtual ~UserPresetUI() = default;
  // The save dialog; none when cancelled.
  virtual std::optional<QString> promptForName(const QString& suggestion) = 0;
  virtual std::optional<QString> promptForRename(const QString& currentName) = 0;
  // Where to write an export (none when cancelled), and which file to import.
  virtual std::optional<QString> runExportPanel(const QString& defaultName) = 0;
  virtual std::optional<QString> runImportPanel() = 0;
  // "Could not complete the operation" with the error's words.
  virtual void showError(const QString& description) = 0;
  // A notice with an OK button ("No new presets imported …").
  virtual void showNotice(const QString& text) = 0;
};

// The dialogs as QDialogs and file dialogs over `parent`.
class QtUserPresetUI : public UserPresetUI {
 public:
  explicit QtUserPresetUI(QWidget* parent) : _parent(parent) {}
  std::optional<QString> promptForName(const QString& suggestion) override;
  std::optional<QString> promptForRename(const QString& currentName) override;
  std::optional<QString> runExportPanel(const QString& defaultName) override;
  std::optional<QString> runImportPanel() override;
  void showError(const QString& description) override;
  void showNotice(const QString& text) override;

 private:
  QWidget* _parent;
};

class PresetBar : public QWidget {
  Q_OBJECT

 public:
  PresetBar(UserPresetStore& store, std::shared_ptr<UserPresetUI> ui, QWidget* parent = nullptr);

  // The file's channel count (0: no file), whether its 8 channels are in 7.1 order, and the
  // routing the presets act on.
  void setContext(int fileChannels, bool fileIs8chCanonical, const ChannelRoutings& routings);

  // What the user can do, as the buttons do it.
  void applyBuiltIn(const std::string& id);
  void applyUser(const QUuid& id);
  void saveCurrent();
  void renamePreset(const QUuid& id);
  void exportPreset(const QUuid& id);
  void deletePreset(const QUuid& id);
  void exportAll();
  void importPresets();

  // The buttons as they stand (tests read their texts and tool tips).
  QList<QToolButton*> builtInButtons() const;
  QList<QToolButton*> savedButtons() const;
  QToolButton* saveButton() const { return _save; }
  QToolButton* importButton() const { return _import; }
  QToolButton* exportButton() const { return _export; }
  QLabel* noneSavedLabel() const { return _noneSaved; }

 signals:
  void routingsEdited(const corvane::ChannelRoutings& routings);

 private:
  void rebuild();
  void writeFile(const QString& path, const QByteArray& bytes);

  UserPresetStore& _store;
  std::shared_ptr<UserPresetUI> _ui;
  int _fileChannels = 0;
  bool _fileIs8chCanonical = false;
  ChannelRoutings _routings;
  QHBoxLayout* _builtInRow;
  QHBoxLayout* _savedRow;
  QLabel* _noneSaved;
  QToolButton* _save;
  QToolButton* _import;
  QToolButton* _export;
};

}  // namespace corvane
