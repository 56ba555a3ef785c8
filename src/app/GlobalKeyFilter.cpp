#include "app/GlobalKeyFilter.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QTextEdit>

#include "app/CommandTable.h"
#include "app/NotificationBus.h"

namespace corvane {

namespace {

bool isArrow(int key) { return key == Qt::Key_Left || key == Qt::Key_Right || key == Qt::Key_Up || key == Qt::Key_Down; }

// Keys that may repeat while held: the skips and the speed steps. A held Space or L would
// otherwise flip playback or the loop on every repeat.
bool repeats(int key) { return isArrow(key) || key == Qt::Key_BracketLeft || key == Qt::Key_BracketRight; }

}  // namespace

GlobalKeyFilter::GlobalKeyFilter(CommandTable& commands, NotificationBus& bus, std::function<void()> playPause,
                                 QObject* parent)
    : QObject(parent), _commands(commands), _bus(bus), _playPause(std::move(playPause)) {}

bool GlobalKeyFilter::isTextInput(const QWidget* widget) {
  if (!widget) return false;
  if (const auto* edit = qobject_cast<const QLineEdit*>(widget)) return !edit->isReadOnly() || edit->hasFocus();
  if (qobject_cast<const QAbstractSpinBox*>(widget)) return true;
  if (const auto* text = qobject_cast<const QTextEdit*>(widget)) return !text->isReadOnly();
  if (const auto* plain = qobject_cast<const QPlainTextEdit*>(widget)) return !plain->isReadOnly();
  if (const auto* combo = qobject_cast<const QComboBox*>(widget)) return combo->isEditable();
  return false;
}

bool GlobalKeyFilter::keyIsFree() {
  if (QApplication::activeModalWidget()) return false;
  return !isTextInput(QApplication::focusWidget());
}

bool GlobalKeyFilter::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::KeyPress:
      return handleKey(watched, static_cast<QKeyEvent*>(event));
    case QEvent::MouseButtonPress: {
      QWidget* focus = QApplication::focusWidget();
      auto* clicked = qobject_cast<QWidget*>(watched);
      if (!focus || !clicked || !isTextInput(focus) || clicked->window() != focus->window()) break;
      for (QWidget* w = clicked; w; w = w->parentWidget()) {
        if (isTextInput(w)) return false;
      }
      focus->clearFocus();
      break;
    }
    default:
      break;
  }
  return QObject::eventFilter(watched, event);
}

bool GlobalKeyFilter::handleKey(QObject* watched, QKeyEvent* event) {
  // An open menu handles its own keys.
  if (QApplication::activePopupWidget()) return false;
  const QKeyCombination key = CommandTable::keyOf(*event);
  const int code = key.key();
  const Qt::KeyboardModifiers modifiers = key.keyboardModifiers();
  const bool free = keyIsFree();
  const bool plain = modifiers == Qt::NoModifier;
  // A held key repeats only where repeating means something; typing repeats as ever.
  if (event->isAutoRepeat() && !repeats(code)) return free;

  // 1. Escape clears the selection.
  if (code == Qt::Key_Escape && free) {
    _bus.post(notification::clearSelection);
    return true;
  }
  // 2. Arrows and Select All belong to the text field that has the focus.
  if (isTextInput(QApplication::focusWidget()) && !QApplication::activeModalWidget()) {
    if ((isArrow(code) && !(modifiers & Qt::ControlModifier)) ||
        (modifiers == Qt::ControlModifier && code == Qt::Key_A)) {
      return false;
    }
  }
  // 3. Space plays or pauses in the main window.
  if (plain && free && code == Qt::Key_Space) {
    auto* widget = qobject_cast<QWidget*>(watched);
    if (_mainWindow && widget && widget->window() == _mainWindow) {
      if (_playPause) _playPause();
      return true;
    }
  }
  // 4. Digits 1 to 6 switch the compare slot.
  if (plain && free && code >= Qt::Key_1 && code <= Qt::Key_6) {
    _bus.post(notification::switchCompareSlot, code - Qt::Key_1);
    return true;
  }
  // 5. D switches between the active slot's difference and its source.
  if (plain && free && code == Qt::Key_D) {
    _bus.post(notification::toggleDiffViewActiveSlot);
    return true;
  }
  // 6. The commands of the key.
  CommandTable::KeyState state;
  state.keyIsFree = free;
  state.modalUp = QApplication::activeModalWidget() != nullptr;
  return _commands.dispatch(key, state);
}

}  // namespace corvane
