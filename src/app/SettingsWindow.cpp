#include "app/SettingsWindow.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QSignalBlocker>
#include <QTabWidget>
#include <QVBoxLayout>

#include "session/SettingsStore.h"

namespace corvane {

const QString SettingsWindow::kSavingExplanation = QStringLiteral(
    "Off (the default), Save As (Shift+Ctrl+S) always writes a new file and refuses the loaded file's path. On, a Save "
    "command (Ctrl+S) appears in the Edit menu and the mode toolbars that replaces the loaded WAV, AIFF, or CAF with "
    "the edited audio, keeping its bit depth, sample rate, and channel layout. The new data is written to a temporary "
    "file first and swapped in, so a failed save leaves the original untouched. Compressed files (MP3, AAC, FLAC) and "
    "raw PCM still save as a new file. Only the audio is rewritten: BWF, iXML, cue, and marker chunks aren't carried "
    "over. Once written, the original can't be recovered: Undo and Discard Edits only reach back to that save.");

SettingsWindow::SettingsWindow(SettingsStore& settings, QWidget* parent) : QWidget(parent, Qt::Window), _settings(settings) {
  setObjectName(QStringLiteral("CorvaneSettings"));
  setWindowTitle(QStringLiteral("Settings"));
  auto* layout = new QVBoxLayout(this);
  _tabs = new QTabWidget(this);
  layout->addWidget(_tabs);
  _tabs->addTab(makeEditingTab(), QString::fromLatin1(kEditingTabTitle));
  reload();
  resize(560, 320);
}

QWidget* SettingsWindow::makeEditingTab() {
  auto* tab = new QWidget(_tabs);
  auto* layout = new QVBoxLayout(tab);
  auto* saving = new QGroupBox(QStringLiteral("Saving"), tab);
  auto* form = new QVBoxLayout(saving);
  _allowOverwrite = new QCheckBox(QString::fromLatin1(kAllowOverwriteTitle), saving);
  _confirmOverwrite = new QCheckBox(QString::fromLatin1(kConfirmOverwriteTitle), saving);
  // Indented under the toggle it depends on.
  _confirmOverwrite->setContentsMargins(20, 0, 0, 0);
  auto* note = new QLabel(kSavingExplanation, saving);
  note->setWordWrap(true);
  note->setForegroundRole(QPalette::PlaceholderText);
  form->addWidget(_allowOverwrite);
  form->addWidget(_confirmOverwrite);
  form->addWidget(note);
  layout->addWidget(saving);
  layout->addStretch(1);

  connect(_allowOverwrite, &QCheckBox::toggled, this, [this](bool on) {
    _settings.setCorvaneAllowSaveOverwrite(on);
    _confirmOverwrite->setEnabled(on);
    emit settingChanged(QString::fromLatin1(SettingsKey::corvaneAllowSaveOverwrite));
  });
  connect(_confirmOverwrite, &QCheckBox::toggled, this, [this](bool on) {
    _settings.setCorvaneConfirmSaveOverwrite(on);
    emit settingChanged(QString::fromLatin1(SettingsKey::corvaneConfirmSaveOverwrite));
  });
  return tab;
}

void SettingsWindow::reload() {
  // Reading is not a change: nothing is written back.
  const QSignalBlocker allowBlocker(_allowOverwrite);
  const QSignalBlocker confirmBlocker(_confirmOverwrite);
  const bool allow = _settings.corvaneAllowSaveOverwrite();
  _allowOverwrite->setChecked(allow);
  _confirmOverwrite->setChecked(_settings.corvaneConfirmSaveOverwrite());
  _confirmOverwrite->setEnabled(allow);
}

void SettingsWindow::showEvent(QShowEvent* event) {
  reload();
  QWidget::showEvent(event);
}

}  // namespace corvane
