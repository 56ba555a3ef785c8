#include "app/ModeSelectorBar.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QMimeData>
#include <QToolButton>

#include "compare/CompareModel.h"

namespace corvane {

std::vector<ModeSegment> standardModeSegments() {
  return {
      {QStringLiteral("edit"), QStringLiteral("Edit"), QStringLiteral("E"), AudioEngine::Mode::edit, QStringLiteral("Ctrl+1"), false},
      {QStringLiteral("compare"), QStringLiteral("Compare"), QStringLiteral("C"), AudioEngine::Mode::compare, QStringLiteral("Ctrl+2"), true},
      {QStringLiteral("chapter"), QStringLiteral("Chapter"), QStringLiteral("Ch"), AudioEngine::Mode::chapter, QStringLiteral("Ctrl+3"), false},
      {QStringLiteral("dialogue"), QStringLiteral("Dialogue"), QStringLiteral("D"), AudioEngine::Mode::dialogue, QStringLiteral("Ctrl+4"), false},
      {QStringLiteral("spectral"), QStringLiteral("Spectral"), QStringLiteral("S"), AudioEngine::Mode::spectral, QStringLiteral("Ctrl+5"), false},
      {QStringLiteral("record"), QStringLiteral("Record"), QStringLiteral("R"), AudioEngine::Mode::record, QStringLiteral("Ctrl+6"), false},
  };
}

ModeSegmentState modeSegmentState(const ModeSegment& segment, const ModeFlags& flags) {
  ModeSegmentState state;
  state.active = flags.active;
  const bool crowded = flags.compareSlotCount >= 2 && !flags.active;
  switch (segment.mode) {
    case AudioEngine::Mode::edit:
    case AudioEngine::Mode::chapter:
    case AudioEngine::Mode::dialogue: state.disabled = !flags.fileLoaded || crowded; break;
    case AudioEngine::Mode::compare: state.disabled = !flags.fileLoaded; break;
    case AudioEngine::Mode::spectral: state.disabled = !flags.fileLoaded || crowded || !flags.spectralAvailable; break;
    case AudioEngine::Mode::record: state.disabled = crowded; break;
  }
  state.acceptsDrops = segment.takesDrops && flags.active;
  if (segment.mode == AudioEngine::Mode::spectral && !flags.spectralAvailable) {
    state.toolTip = QStringLiteral("Spectral editing supports mono and stereo files.");
  } else {
    state.toolTip = QStringLiteral("%1%2 mode (%3)")
                        .arg(flags.active ? QStringLiteral("Exit ") : QStringLiteral("Enter "), segment.label, segment.shortcutText);
  }
  return state;
}

ModeSelectorBar::ModeSelectorBar(AudioEngine& engine, QWidget* parent) : QWidget(parent), _engine(engine) {
  setObjectName(QStringLiteral("modeSelector"));
  _row = new QHBoxLayout(this);
  _row->setContentsMargins(0, 0, 0, 0);
  _row->setSpacing(0);
  for (auto signal : {&AudioEngine::isEditModeChanged, &AudioEngine::isCompareModeChanged, &AudioEngine::isChapterModeChanged,
                      &AudioEngine::isDialogueModeChanged, &AudioEngine::isSpectralModeChanged, &AudioEngine::isRecordModeChanged,
                      &AudioEngine::loadedFileChanged}) {
    connect(&_engine, signal, this, &ModeSelectorBar::refresh);
  }
  connect(&_engine.compare(), &CompareModel::compareSlotsChanged, this, &ModeSelectorBar::refresh);
  hide();
}

void ModeSelectorBar::addSegment(const ModeSegment& segment) {
  auto* button = new QToolButton(this);
  button->setObjectName(QStringLiteral("mode.%1").arg(segment.key));
  button->setCheckable(true);
  button->setAcceptDrops(segment.takesDrops);
  button->installEventFilter(this);
  const std::size_t index = _segments.size();
  connect(button, &QToolButton::clicked, this, [this, index] { clicked(_segments[index]); });
  _segments.push_back(segment);
  _buttons.push_back(button);
  _row->addWidget(button);
  show();
  refresh();
}

void ModeSelectorBar::setCompactLabels(bool compact) {
  _compact = compact;
  refresh();
}

void ModeSelectorBar::setExitHandler(AudioEngine::Mode mode, std::function<void()> exit) { _exitHandlers[mode] = std::move(exit); }

QToolButton* ModeSelectorBar::segmentButton(const QString& key) const {
  for (std::size_t i = 0; i < _segments.size(); ++i) {
    if (_segments[i].key == key) return _buttons[i];
  }
  return nullptr;
}

ModeSegmentState ModeSelectorBar::stateOf(const QString& key) const {
  for (const ModeSegment& segment : _segments) {
    if (segment.key != key) continue;
    ModeFlags flags;
    flags.active = _engine.isModeOn(segment.mode);
    flags.fileLoaded = _engine.loadedFile().has_value();
    flags.compareSlotCount = _engine.compare().slotCount();
    flags.spectralAvailable = !_engine.loadedFile() || _engine.loadedFile()->channelCount <= 2;
    return modeSegmentState(segment, flags);
  }
  return {};
}

void ModeSelectorBar::refresh() {
  for (std::size_t i = 0; i < _segments.size(); ++i) {
    const ModeSegmentState state = stateOf(_segments[i].key);
    QToolButton* button = _buttons[i];
    button->setText(_compact ? _segments[i].compactLabel : _segments[i].label);
    button->setChecked(state.active);
    button->setEnabled(!state.disabled);
    button->setToolTip(state.toolTip);
  }
}

void ModeSelectorBar::clicked(const ModeSegment& segment) {
  const bool on = _engine.isModeOn(segment.mode);
  if (on) {
    if (auto exit = _exitHandlers.find(segment.mode); exit != _exitHandlers.end() && exit->second) {
      exit->second();
    } else {
      _engine.setMode(segment.mode, false);
    }
  } else {
    _engine.setMode(segment.mode, true);
  }
  refresh();
}

bool ModeSelectorBar::dropOnSegment(const QString& key, const QList<QUrl>& urls) {
  if (!stateOf(key).acceptsDrops || !_addCompareFiles) return false;
  QList<QUrl> files;
  for (const QUrl& url : urls) {
    if (url.isLocalFile()) files << url;
  }
  if (files.isEmpty()) return false;
  _addCompareFiles(files);
  return true;
}

bool ModeSelectorBar::eventFilter(QObject* watched, QEvent* event) {
  auto* button = qobject_cast<QToolButton*>(watched);
  if (!button || (event->type() != QEvent::DragEnter && event->type() != QEvent::Drop)) return QWidget::eventFilter(watched, event);
  const QString key = button->objectName().mid(5);
  auto* drop = static_cast<QDropEvent*>(event);
  if (!stateOf(key).acceptsDrops || !drop->mimeData()->hasUrls()) {
    // Not taken here: the main view's drop rule gets it.
    drop->ignore();
    return false;
  }
  if (event->type() == QEvent::DragEnter) {
    drop->acceptProposedAction();
    return true;
  }
  if (dropOnSegment(key, drop->mimeData()->urls())) drop->acceptProposedAction();
  return true;
}

}  // namespace corvane
