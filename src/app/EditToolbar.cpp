#include "app/EditToolbar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "app/CommandTable.h"
#include "app/EditMenuCommands.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditEngine.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"

namespace corvane {

namespace {

// What the buttons show where the model gives a control no title of its own.
QString buttonText(const EditControlInfo& info) {
  if (!info.title.isEmpty()) return info.title;
  switch (info.control) {
    case EditControl::trim: return QStringLiteral("Trim");
    case EditControl::cut: return QStringLiteral("Cut");
    case EditControl::changeLevel: return QStringLiteral("Level");
    case EditControl::addSilence: return QStringLiteral("Silence");
    case EditControl::removeDC: return QStringLiteral("DC");
    case EditControl::swap: return QStringLiteral("L\u21C4R");
    default: return {};
  }
}

QString unitOf(EditPopoverKind kind) {
  switch (kind) {
    case EditPopoverKind::changeLevel:
    case EditPopoverKind::levelDialogue: return QStringLiteral("dB");
    case EditPopoverKind::cut: return QStringLiteral("ms");
    case EditPopoverKind::normalizePeak: return QStringLiteral("dBFS");
    case EditPopoverKind::normalizeLUFS: return QStringLiteral("LUFS");
    case EditPopoverKind::limitTP: return QStringLiteral("dBTP");
  }
  return {};
}

// A chip's face: its value in the field's unit; a gain shows its sign either way.
QString chipLabel(EditPopoverKind kind, double value) {
  const char* pattern = kind == EditPopoverKind::changeLevel ? "%+g " : "%g ";
  return QString::asprintf(pattern, value) + unitOf(kind);
}

QLabel* wrappedLabel(const QString& text, QWidget* parent, const QString& name) {
  auto* label = new QLabel(text, parent);
  label->setObjectName(name);
  label->setWordWrap(true);
  label->setMaximumWidth(360);
  return label;
}

QLabel* titleLabel(const QString& text, QWidget* parent) {
  QLabel* title = wrappedLabel(text, parent, QStringLiteral("editPopover.title"));
  QFont bold = title->font();
  bold.setBold(true);
  title->setFont(bold);
  return title;
}

QVBoxLayout* layoutOf(QFrame* popover) { return static_cast<QVBoxLayout*>(popover->layout()); }

// A list of choices under the popover's last row, showing `current`; `chosen` gets the index
// the user picks (null: the caller connects it).
QComboBox* addChoice(QFrame* popover, const QString& name, const QStringList& items, int current,
                     const std::function<void(int)>& chosen) {
  auto* box = new QComboBox(popover);
  box->setObjectName(name);
  box->addItems(items);
  box->setCurrentIndex(current);
  if (chosen) QObject::connect(box, &QComboBox::currentIndexChanged, popover, chosen);
  layoutOf(popover)->addWidget(box);
  return box;
}

}  // namespace

EditToolbar::EditToolbar(AudioEngine& engine, EditCommands& edits, CommandTable& commands, QWidget* parent)
    : QWidget(parent), _engine(engine), _edits(edits), _commands(commands) {
  setObjectName(QStringLiteral("editToolbar"));
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(8, 2, 8, 2);
  layout->setSpacing(4);
  for (const EditControlInfo& info : editToolbarControls()) {
    auto* button = new QToolButton(this);
    button->setText(buttonText(info));
    button->setToolTip(info.toolTip);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    const EditControl control = info.control;
    connect(button, &QToolButton::clicked, this, [this, control] { activate(control); });
    _buttons[control] = button;
    layout->addWidget(button);
    if (control == EditControl::redo || control == EditControl::removeDC || control == EditControl::levelDialogue) {
      layout->addSpacing(10);
    }
  }
  _confirmation = new QLabel(this);
  _confirmation->setObjectName(QStringLiteral("editToolbar.confirmation"));
  _confirmation->hide();
  layout->addSpacing(10);
  layout->addWidget(_confirmation);
  layout->addStretch(1);

  // Undo and Redo are the table's commands: enabled where the menu's are.
  for (const auto& [control, id] :
       {std::pair{EditControl::undo, edit_command::undo}, std::pair{EditControl::redo, edit_command::redo}}) {
    QToolButton* button = _buttons.at(control);
    if (QAction* action = _commands.action(id)) {
      const auto follow = [button, action] { button->setEnabled(action->isEnabled()); };
      connect(action, &QAction::changed, button, follow);
      follow();
    }
  }

  _chooseFolder = [this]() -> std::optional<std::filesystem::path> {
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose folder for mono files"), QString(),
                                                             QFileDialog::ShowDirsOnly);
    if (folder.isEmpty()) return std::nullopt;
    return std::filesystem::path(folder.toStdString());
  };

  Transport& transport = _engine.transport();
  connect(&transport, &Transport::selectionChanged, this, &EditToolbar::refreshEnablement);
  connect(&_engine, &AudioEngine::pcmBufferChanged, this, &EditToolbar::refreshEnablement);
  connect(&_engine, &AudioEngine::loadedFileChanged, this, &EditToolbar::refreshEnablement);
  connect(&_engine.dialogue(), &DialogueModel::fileSpeechHistoryChanged, this, &EditToolbar::refreshEnablement);
  connect(&_engine.editEngine(), &EditEngine::editConfirmationChanged, this, &EditToolbar::refreshConfirmation);

  // A target row's request waits on the targets until edit mode is on; it is taken on the next
  // turn, once the mode change that came with it has settled.
  LoudnessTargets& targets = _engine.analysis().targets();
  const auto later = [this] { QMetaObject::invokeMethod(this, &EditToolbar::takeTargetRequest, Qt::QueuedConnection); };
  connect(&targets, &LoudnessTargets::pendingNormalizeChanged, this, later);
  connect(&targets, &LoudnessTargets::pendingLimitTPChanged, this, later);
  connect(&_engine, &AudioEngine::isEditModeChanged, this, later);
  connect(&_engine, &AudioEngine::isEditModeChanged, this, [this] {
    if (!_engine.isModeOn(AudioEngine::Mode::edit)) closePopover();
  });

  refreshEnablement();
  refreshConfirmation();
}

EditToolbar::~EditToolbar() = default;

QToolButton* EditToolbar::button(EditControl control) const {
  const auto found = _buttons.find(control);
  return found == _buttons.end() ? nullptr : found->second;
}

void EditToolbar::refreshEnablement() {
  for (const auto& [control, button] : _buttons) {
    if (control == EditControl::undo || control == EditControl::redo) continue;
    button->setEnabled(_engine.pcmBuffer() && _edits.isEnabled(control));
  }
}

void EditToolbar::refreshConfirmation() {
  const OptionalEditConfirmation& confirmation = _engine.editEngine().editConfirmation();
  _confirmation->setText(confirmation ? confirmation->text : QString());
  _confirmation->setVisible(confirmation.has_value());
}

void EditToolbar::activate(EditControl control) {
  QToolButton* pressed = button(control);
  if (!pressed || !pressed->isEnabled()) return;
  switch (control) {
    case EditControl::undo: _commands.trigger(edit_command::undo); break;
    case EditControl::redo: _commands.trigger(edit_command::redo); break;
    case EditControl::trim: {
      const FrameRange range = _edits.frameRange();
      _edits.applyTrim(range.first, range.second);
      break;
    }
    case EditControl::phase: _edits.performInvertPhase(); break;
    case EditControl::removeDC: _edits.performRemoveDC(); break;
    case EditControl::swap: _edits.applyChannelSwap(); break;
    case EditControl::split:
      if (const auto folder = _chooseFolder ? _chooseFolder() : std::nullopt) _edits.splitToMonoExport(*folder);
      break;
    default: openPopover(control); break;
  }
}

// ---- Popovers -----------------------------------------------------------------------------------

void EditToolbar::closePopover() {
  if (_popover) _popover->close();
}

QFrame* EditToolbar::newPopover(EditControl control) {
  closePopover();
  auto* popover = new QFrame(this, Qt::Popup);
  popover->setObjectName(QStringLiteral("editPopover"));
  popover->setAttribute(Qt::WA_DeleteOnClose);
  popover->setFrameShape(QFrame::StyledPanel);
  auto* layout = new QVBoxLayout(popover);
  layout->setContentsMargins(12, 10, 12, 10);
  layout->setSpacing(6);
  if (QToolButton* anchor = button(control)) popover->move(anchor->mapToGlobal(QPoint(0, anchor->height())));
  _popover = popover;
  return popover;
}

QLineEdit* EditToolbar::addField(QWidget* popover, QVBoxLayout* into, const QString& label,
                                 QString EditToolbarState::*value, const QString& unit,
                                 std::optional<EditPopoverKind> chips) {
  auto* row = new QHBoxLayout;
  row->addWidget(new QLabel(label, popover));
  auto* field = new QLineEdit(_state.*value, popover);
  field->setObjectName(QStringLiteral("editPopover.field"));
  field->setMaximumWidth(90);
  // The text is kept exactly as typed; it is read only when the user applies.
  connect(field, &QLineEdit::textChanged, this, [this, value](const QString& text) { _state.*value = text; });
  row->addWidget(field);
  if (!unit.isEmpty()) row->addWidget(new QLabel(unit, popover));
  row->addStretch(1);
  into->addLayout(row);
  if (chips) {
    auto* chipRow = new QHBoxLayout;
    for (const double chip : editPopover(*chips).chips) {
      auto* chipButton = new QPushButton(chipLabel(*chips, chip), popover);
      chipButton->setObjectName(QStringLiteral("editPopover.chip"));
      chipButton->setAutoDefault(false);
      const QString text = chipText(*chips, chip);
      connect(chipButton, &QPushButton::clicked, field, [field, text] { field->setText(text); });
      chipRow->addWidget(chipButton);
    }
    chipRow->addStretch(1);
    into->addLayout(chipRow);
  }
  return field;
}

void EditToolbar::addApply(QFrame* popover, std::function<void()> apply) {
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  auto* button = new QPushButton(QStringLiteral("Apply"), popover);
  button->setObjectName(QStringLiteral("editPopover.apply"));
  button->setDefault(true);
  connect(button, &QPushButton::clicked, this, [this, apply = std::move(apply)] {
    // The popover goes first: an edit may raise an alert, which must not sit under it.
    closePopover();
    apply();
  });
  row->addWidget(button);
  layoutOf(popover)->addLayout(row);
  // Return in any field applies, as in a dialog.
  for (QLineEdit* field : popover->findChildren<QLineEdit*>()) {
    connect(field, &QLineEdit::returnPressed, button, &QPushButton::click);
  }
}

void EditToolbar::openPopover(EditControl control) {
  QFrame* popover = newPopover(control);
  QVBoxLayout* layout = layoutOf(popover);
  const auto addTexts = [&](const EditPopover& data) {
    if (!data.title.isEmpty()) layout->addWidget(titleLabel(data.title, popover));
    for (const QString& text : data.texts) layout->addWidget(wrappedLabel(text, popover, QStringLiteral("editPopover.text")));
  };
  const auto addHint = [&] {
    QLabel* hint = wrappedLabel(_edits.scopeHint(), popover, QStringLiteral("editPopover.scope"));
    hint->setEnabled(false);
    layout->addWidget(hint);
  };

  switch (control) {
    case EditControl::changeLevel:
      addTexts(editPopover(EditPopoverKind::changeLevel));
      addField(popover, layout, QStringLiteral("Gain"), &EditToolbarState::gainDB, unitOf(EditPopoverKind::changeLevel),
               EditPopoverKind::changeLevel);
      addHint();
      addApply(popover, [this] { _edits.performGainChange(_state); });
      break;
    case EditControl::cut:
      addTexts(editPopover(EditPopoverKind::cut));
      addField(popover, layout, QStringLiteral("Crossfade"), &EditToolbarState::cutCrossfadeMs, unitOf(EditPopoverKind::cut),
               EditPopoverKind::cut);
      addApply(popover, [this] { _edits.performCut(_state); });
      break;
    case EditControl::addSilence: {
      const bool selected = _engine.transport().selection().has_value();
      _state.silenceAnchor = EditCommands::anchorOnOpening(_state.silenceAnchor, selected);
      auto* anchor = new QComboBox(popover);
      anchor->setObjectName(QStringLiteral("editPopover.anchor"));
      for (const SilenceAnchor choice : EditCommands::anchorChoices(selected)) {
        anchor->addItem(displayName(choice), static_cast<int>(choice));
        if (choice == _state.silenceAnchor) anchor->setCurrentIndex(anchor->count() - 1);
      }
      connect(anchor, &QComboBox::currentIndexChanged, this,
              [this, anchor] { _state.silenceAnchor = static_cast<SilenceAnchor>(anchor->currentData().toInt()); });
      layout->addWidget(anchor);
      QLineEdit* field = addField(popover, layout, QStringLiteral("Duration"), &EditToolbarState::silenceValue, {});
      auto* unit = new QComboBox(popover);
      unit->setObjectName(QStringLiteral("editPopover.unit"));
      unit->addItem(QStringLiteral("sec"), static_cast<int>(SilenceUnit::seconds));
      unit->addItem(QStringLiteral("smp"), static_cast<int>(SilenceUnit::samples));
      unit->setCurrentIndex(_state.silenceUnit == SilenceUnit::seconds ? 0 : 1);
      static_cast<QHBoxLayout*>(layout->itemAt(layout->count() - 1)->layout())->insertWidget(2, unit);
      const auto placeholder = [this, field] {
        field->setPlaceholderText(_state.silenceUnit == SilenceUnit::seconds ? QStringLiteral("1.0") : QStringLiteral("48000"));
      };
      connect(unit, &QComboBox::currentIndexChanged, this, [this, unit, placeholder] {
        _state.silenceUnit = static_cast<SilenceUnit>(unit->currentData().toInt());
        placeholder();
      });
      placeholder();
      addHint();
      addApply(popover, [this] { _edits.performAddSilence(_state); });
      break;
    }
    case EditControl::fade:
      addChoice(popover, QStringLiteral("editPopover.direction"), {QStringLiteral("Fade In"), QStringLiteral("Fade Out")},
                static_cast<int>(_state.fadeDirection),
                [this](int index) { _state.fadeDirection = static_cast<EditOperations::FadeDirection>(index); });
      addChoice(popover, QStringLiteral("editPopover.curve"),
                {QStringLiteral("Linear"), QStringLiteral("Log"), QStringLiteral("Equal Power")},
                static_cast<int>(_state.fadeCurve),
                [this](int index) { _state.fadeCurve = static_cast<EditOperations::FadeCurve>(index); });
      addHint();
      addApply(popover, [this] { _edits.performFade(_state); });
      break;
    case EditControl::normalize: {
      QComboBox* mode = addChoice(popover, QStringLiteral("editPopover.mode"),
                                  {QStringLiteral("Peak (dBFS)"), QStringLiteral("Loudness (LUFS)")},
                                  _state.normalizeMode == NormalizeMode::peak ? 0 : 1, {});
      // Both forms are built; the mode shows one of them.
      auto* peak = new QWidget(popover);
      auto* lufs = new QWidget(popover);
      peak->setObjectName(QStringLiteral("editPopover.peak"));
      lufs->setObjectName(QStringLiteral("editPopover.lufs"));
      auto* peakLayout = new QVBoxLayout(peak);
      auto* lufsLayout = new QVBoxLayout(lufs);
      for (QVBoxLayout* pageLayout : {peakLayout, lufsLayout}) pageLayout->setContentsMargins(0, 0, 0, 0);
      layout->addWidget(peak);
      layout->addWidget(lufs);
      addField(peak, peakLayout, QStringLiteral("Target"), &EditToolbarState::normalizeTargetDB,
               unitOf(EditPopoverKind::normalizePeak), EditPopoverKind::normalizePeak);
      addField(lufs, lufsLayout, QStringLiteral("Target"), &EditToolbarState::normalizeTargetLUFS,
               unitOf(EditPopoverKind::normalizeLUFS), EditPopoverKind::normalizeLUFS);
      addField(lufs, lufsLayout, QStringLiteral("Ceiling"), &EditToolbarState::normalizeCeilingDB, QStringLiteral("dBTP"));
      for (const QString& text : editPopover(EditPopoverKind::normalizeLUFS).texts) {
        lufsLayout->addWidget(wrappedLabel(text, lufs, QStringLiteral("editPopover.text")));
      }
      const auto show = [this, peak, lufs] {
        peak->setVisible(_state.normalizeMode == NormalizeMode::peak);
        lufs->setVisible(_state.normalizeMode == NormalizeMode::lufs);
      };
      connect(mode, &QComboBox::currentIndexChanged, this, [this, show, popover](int index) {
        _state.normalizeMode = index == 0 ? NormalizeMode::peak : NormalizeMode::lufs;
        show();
        popover->adjustSize();
      });
      show();
      addHint();
      addApply(popover, [this] { _edits.performNormalize(_state); });
      break;
    }
    case EditControl::limitTP:
      addField(popover, layout, QStringLiteral("Ceiling"), &EditToolbarState::limitTPCeilingDBTP, unitOf(EditPopoverKind::limitTP),
               EditPopoverKind::limitTP);
      addTexts(editPopover(EditPopoverKind::limitTP));
      addHint();
      addApply(popover, [this] { _edits.performLimitTP(_state); });
      break;
    case EditControl::levelDialogue: {
      const bool reading = std::isfinite(_edits.dialogGatedReading());
      addTexts(editPopover(EditPopoverKind::levelDialogue, reading));
      addField(popover, layout, QStringLiteral("Duck room tone by"), &EditToolbarState::dialogueReductionDB,
               unitOf(EditPopoverKind::levelDialogue), EditPopoverKind::levelDialogue);
      auto* lift = new QCheckBox(QStringLiteral("Lift dialogue to target"), popover);
      lift->setObjectName(QStringLiteral("editPopover.lift"));
      lift->setChecked(_state.dialogueLiftToTarget);
      lift->setEnabled(reading);
      connect(lift, &QCheckBox::toggled, this, [this](bool on) { _state.dialogueLiftToTarget = on; });
      layout->addWidget(lift);
      QLineEdit* target = addField(popover, layout, QStringLiteral("Target"), &EditToolbarState::dialogueTargetLKFS,
                                   QStringLiteral("LKFS"));
      QLineEdit* ceiling = addField(popover, layout, QStringLiteral("Ceiling"), &EditToolbarState::dialogueCeilingDBTP,
                                    QStringLiteral("dBTP"));
      const auto liftFields = [this, target, ceiling, reading] {
        target->setEnabled(reading && _state.dialogueLiftToTarget);
        ceiling->setEnabled(reading && _state.dialogueLiftToTarget);
      };
      connect(lift, &QCheckBox::toggled, this, liftFields);
      liftFields();
      addApply(popover, [this] { _edits.performDialogueLeveling(_state); });
      break;
    }
    default:
      delete popover;
      return;
  }
  popover->adjustSize();
  popover->show();
}

// ---- Requests of the loudness targets -------------------------------------------------------------

void EditToolbar::takeTargetRequest() {
  if (!_engine.isModeOn(AudioEngine::Mode::edit)) return;
  const std::optional<EditTargetForm> form = _edits.takeTargetRequest();
  if (!form) return;
  if (form->normalize) {
    _state.normalizeCeilingDB = form->ceilingText;
  } else {
    _state.limitTPCeilingDBTP = form->ceilingText;
  }
  openTargetForm(*form);
}

void EditToolbar::openTargetForm(const EditTargetForm& form) {
  QFrame* popover = newPopover(form.normalize ? EditControl::normalize : EditControl::limitTP);
  QVBoxLayout* layout = layoutOf(popover);
  layout->addWidget(titleLabel(form.title, popover));
  if (!form.rows.empty()) {
    auto* rows = new QFormLayout;
    for (const auto& [name, value] : form.rows) {
      auto* valueLabel = new QLabel(value, popover);
      valueLabel->setObjectName(QStringLiteral("editPopover.row.%1").arg(name));
      rows->addRow(name, valueLabel);
    }
    layout->addLayout(rows);
  }
  addField(popover, layout, QStringLiteral("Ceiling"),
           form.normalize ? &EditToolbarState::normalizeCeilingDB : &EditToolbarState::limitTPCeilingDBTP,
           QStringLiteral("dBTP"));
  layout->addWidget(wrappedLabel(form.note, popover, QStringLiteral("editPopover.text")));
  addApply(popover, [this, form] {
    _edits.applyTargetForm(form, form.normalize ? _state.normalizeCeilingDB : _state.limitTPCeilingDBTP);
  });
  popover->adjustSize();
  popover->show();
}

}  // namespace corvane
