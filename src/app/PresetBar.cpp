#include "app/PresetBar.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSaveFile>
#include <QStandardPaths>
#include <QToolButton>
#include <QVBoxLayout>

namespace corvane {

namespace {

QString text(std::string_view utf8) { return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())); }

// The save and rename dialogs: a message, an explanation, a name field, two buttons.
std::optional<QString> askForName(QWidget* parent, const QString& message, const QString& informative,
                                  const QString& value, const QString& acceptTitle) {
  QDialog dialog(parent);
  dialog.setWindowTitle(QStringLiteral("Corvane"));
  auto* layout = new QVBoxLayout(&dialog);
  auto* title = new QLabel(message, &dialog);
  QFont bold = title->font();
  bold.setBold(true);
  title->setFont(bold);
  layout->addWidget(title);
  if (!informative.isEmpty()) {
    auto* info = new QLabel(informative, &dialog);
    info->setWordWrap(true);
    layout->addWidget(info);
  }
  auto* field = new QLineEdit(value, &dialog);
  field->setPlaceholderText(text(routing_preset_text::kNamePlaceholder));
  field->selectAll();
  layout->addWidget(field);
  auto* buttons = new QDialogButtonBox(&dialog);
  buttons->addButton(acceptTitle, QDialogButtonBox::AcceptRole);
  buttons->addButton(text(routing_preset_text::kCancelButton), QDialogButtonBox::RejectRole);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  layout->addWidget(buttons);
  dialog.resize(420, dialog.sizeHint().height());
  if (dialog.exec() != QDialog::Accepted) return std::nullopt;
  return field->text().trimmed();
}

QString documentsFolder() {
  const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
  return folder.isEmpty() ? QDir::homePath() : folder;
}

}  // namespace

// ---- The dialogs ------------------------------------------------------------------------------

std::optional<QString> QtUserPresetUI::promptForName(const QString& suggestion) {
  return askForName(_parent, text(routing_preset_text::kSaveMessage), text(routing_preset_text::kSaveInformative),
                    suggestion, text(routing_preset_text::kSaveButton));
}

std::optional<QString> QtUserPresetUI::promptForRename(const QString& currentName) {
  return askForName(_parent, QStringLiteral("Rename routing preset"), QString(), currentName, QStringLiteral("Rename"));
}

std::optional<QString> QtUserPresetUI::runExportPanel(const QString& defaultName) {
  const QString path = QFileDialog::getSaveFileName(_parent, QStringLiteral("Export Routing Presets"),
                                                    QDir(documentsFolder()).filePath(defaultName),
                                                    QStringLiteral("JSON (*.json)"));
  if (path.isEmpty()) return std::nullopt;
  return path;
}

std::optional<QString> QtUserPresetUI::runImportPanel() {
  const QString path = QFileDialog::getOpenFileName(_parent, QStringLiteral("Import Routing Presets"), documentsFolder(),
                                                    QStringLiteral("JSON (*.json);;All files (*)"));
  if (path.isEmpty()) return std::nullopt;
  return path;
}

void QtUserPresetUI::showError(const QString& description) {
  QMessageBox box(QMessageBox::Warning, QStringLiteral("Corvane"), text(routing_preset_text::kFailureMessage),
                  QMessageBox::NoButton, _parent);
  box.setInformativeText(description);
  box.addButton(text(routing_preset_text::kOK), QMessageBox::AcceptRole);
  box.exec();
}

void QtUserPresetUI::showNotice(const QString& message) {
  QMessageBox box(QMessageBox::Information, QStringLiteral("Corvane"), message, QMessageBox::NoButton, _parent);
  box.addButton(text(routing_preset_text::kOK), QMessageBox::AcceptRole);
  box.exec();
}

// ---- The bar ----------------------------------------------------------------------------------

PresetBar::PresetBar(UserPresetStore& store, std::shared_ptr<UserPresetUI> ui, QWidget* parent)
    : QWidget(parent), _store(store), _ui(std::move(ui)) {
  setObjectName(QStringLiteral("presetBar"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(4);
  auto* builtIn = new QHBoxLayout;
  builtIn->addWidget(new QLabel(text(routing_preset_text::kBuiltInRow), this));
  _builtInRow = new QHBoxLayout;
  _builtInRow->setSpacing(3);
  builtIn->addLayout(_builtInRow);
  builtIn->addStretch(1);
  layout->addLayout(builtIn);
  auto* saved = new QHBoxLayout;
  saved->addWidget(new QLabel(text(routing_preset_text::kSavedRow), this));
  _savedRow = new QHBoxLayout;
  _savedRow->setSpacing(3);
  saved->addLayout(_savedRow);
  _noneSaved = new QLabel(text(routing_preset_text::kNoneSaved), this);
  _noneSaved->setObjectName(QStringLiteral("presets.none"));
  _noneSaved->setStyleSheet(QStringLiteral("color: palette(mid);"));
  saved->addWidget(_noneSaved);
  saved->addStretch(1);
  _save = new QToolButton(this);
  _save->setObjectName(QStringLiteral("presets.save"));
  _save->setText(QStringLiteral("Save\u2026"));
  _import = new QToolButton(this);
  _import->setObjectName(QStringLiteral("presets.import"));
  _import->setText(QStringLiteral("Import"));
  _import->setToolTip(text(routing_preset_text::kImportTip));
  _export = new QToolButton(this);
  _export->setObjectName(QStringLiteral("presets.export"));
  _export->setText(QStringLiteral("Export"));
  _export->setToolTip(text(routing_preset_text::kExportTip));
  saved->addWidget(_save);
  saved->addWidget(_import);
  saved->addWidget(_export);
  layout->addLayout(saved);
  connect(_save, &QToolButton::clicked, this, &PresetBar::saveCurrent);
  connect(_import, &QToolButton::clicked, this, &PresetBar::importPresets);
  connect(_export, &QToolButton::clicked, this, &PresetBar::exportAll);
  // Queued: a capsule's own menu may be what changed the store, and the capsule is rebuilt.
  connect(&_store, &UserPresetStore::presetsChanged, this, &PresetBar::rebuild, Qt::QueuedConnection);
  rebuild();
}

void PresetBar::setContext(int fileChannels, bool fileIs8chCanonical, const ChannelRoutings& routings) {
  const bool countsChanged = fileChannels != _fileChannels || fileIs8chCanonical != _fileIs8chCanonical ||
                             routings.size() != _routings.size();
  _fileChannels = fileChannels;
  _fileIs8chCanonical = fileIs8chCanonical;
  _routings = routings;
  if (countsChanged) rebuild();
}

QList<QToolButton*> PresetBar::builtInButtons() const {
  QList<QToolButton*> list;
  for (int i = 0; i < _builtInRow->count(); ++i) {
    if (auto* b = qobject_cast<QToolButton*>(_builtInRow->itemAt(i)->widget())) list << b;
  }
  return list;
}

QList<QToolButton*> PresetBar::savedButtons() const {
  QList<QToolButton*> list;
  for (int i = 0; i < _savedRow->count(); ++i) {
    if (auto* b = qobject_cast<QToolButton*>(_savedRow->itemAt(i)->widget())) list << b;
  }
  return list;
}

void PresetBar::rebuild() {
  for (QHBoxLayout* row : {_builtInRow, _savedRow}) {
    while (QLayoutItem* item = row->takeAt(0)) {
      delete item->widget();
      delete item;
    }
  }
  const int deviceChannels = static_cast<int>(_routings.size());
  const bool hasFile = _fileChannels > 0;
  if (hasFile) {
    for (const RoutingPreset& preset : RoutingPreset::available(_fileChannels, deviceChannels, _fileIs8chCanonical)) {
      auto* button = new QToolButton(this);
      button->setObjectName(QStringLiteral("preset.%1").arg(QString::fromStdString(preset.id)));
      button->setText(QString::fromStdString(preset.name));
      button->setToolTip(QString::fromStdString(preset.description));
      connect(button, &QToolButton::clicked, this, [this, id = preset.id] { applyBuiltIn(id); });
      _builtInRow->addWidget(button);
    }
  }
  const auto applicable = hasFile ? _store.applicable(_fileChannels, deviceChannels) : std::vector<UserPreset>{};
  for (const UserPreset& preset : applicable) {
    auto* capsule = new QToolButton(this);
    capsule->setObjectName(QStringLiteral("userPreset"));
    capsule->setText(preset.name);
    capsule->setToolTip(userPresetToolTip(preset));
    capsule->setContextMenuPolicy(Qt::CustomContextMenu);
    const QUuid id = preset.id;
    connect(capsule, &QToolButton::clicked, this, [this, id] { applyUser(id); });
    connect(capsule, &QToolButton::customContextMenuRequested, this, [this, capsule, id](const QPoint& at) {
      QMenu menu(this);
      connect(menu.addAction(text(routing_preset_text::kRename)), &QAction::triggered, this, [this, id] { renamePreset(id); });
      connect(menu.addAction(text(routing_preset_text::kExport)), &QAction::triggered, this, [this, id] { exportPreset(id); });
      connect(menu.addAction(text(routing_preset_text::kDelete)), &QAction::triggered, this, [this, id] { deletePreset(id); });
      menu.exec(capsule->mapToGlobal(at));
    });
    _savedRow->addWidget(capsule);
  }
  _noneSaved->setVisible(applicable.empty());
  _save->setEnabled(hasFile);
  _save->setToolTip(text(hasFile ? routing_preset_text::kSaveTip : routing_preset_text::kSaveDisabledTip));
  _export->setVisible(!_store.presets().empty());
}

void PresetBar::applyBuiltIn(const std::string& id) {
  const auto preset = RoutingPreset::byID(id);
  if (!preset) return;
  ChannelRoutings routings = _routings;
  preset->apply(routings, _fileChannels);
  _routings = routings;
  emit routingsEdited(routings);
}

void PresetBar::applyUser(const QUuid& id) {
  const UserPreset* preset = _store.preset(id);
  if (!preset) return;
  ChannelRoutings routings = _routings;
  preset->apply(routings, _fileChannels);
  _routings = routings;
  emit routingsEdited(routings);
}

void PresetBar::saveCurrent() {
  if (_fileChannels <= 0) return;
  const auto name = _ui->promptForName(userPresetNameSuggestion(_fileChannels, static_cast<int>(_routings.size())));
  if (!name) return;
  _store.save(*name, _routings, _fileChannels);
}

void PresetBar::renamePreset(const QUuid& id) {
  const UserPreset* preset = _store.preset(id);
  if (!preset) return;
  if (const auto name = _ui->promptForRename(preset->name)) _store.rename(id, *name);
}

void PresetBar::deletePreset(const QUuid& id) { _store.remove(id); }

void PresetBar::writeFile(const QString& path, const QByteArray& bytes) {
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
    _ui->showError(QStringLiteral("The file \u201C%1\u201D could not be written: %2").arg(path, file.errorString()));
  }
}

void PresetBar::exportPreset(const QUuid& id) {
  const UserPreset* preset = _store.preset(id);
  if (!preset) return;
  const UserPreset copy = *preset;
  if (const auto path = _ui->runExportPanel(userPresetExportFileName(copy))) writeFile(*path, UserPresetStore::encode({copy}));
}

void PresetBar::exportAll() {
  if (_store.presets().empty()) return;
  if (const auto path = _ui->runExportPanel(text(routing_preset_text::kExportAllFileName))) {
    writeFile(*path, UserPresetStore::encode(_store.presets()));
  }
}

void PresetBar::importPresets() {
  const auto path = _ui->runImportPanel();
  if (!path) return;
  QFile file(*path);
  if (!file.open(QIODevice::ReadOnly)) {
    _ui->showError(QStringLiteral("The file \u201C%1\u201D could not be read: %2").arg(*path, file.errorString()));
    return;
  }
  try {
    if (_store.importJSON(file.readAll()) == 0) _ui->showNotice(text(routing_preset_text::kNothingImported));
  } catch (const RoutingPresetsFileError& error) {
    _ui->showError(QString::fromUtf8(error.what()));
  }
}

}  // namespace corvane
