// GlobalKeyFilter: the application's key and mouse monitor, installed on the QApplication, so
// it sees every key press before any widget does.
//
// Keys, decided in this order; a key it consumes reaches nothing else:
//   1. Escape while the key is free: posts clearSelection.
//   2. Focus in a text field and an arrow key without Ctrl, or exactly Ctrl+A: the key goes to
//      the text field untouched, so the commands on arrows and Select All don't take them.
//   3. Space without modifiers, free, in the main window: play / pause.
//   4. 1 to 6 without modifiers, free: posts switchCompareSlot with the digit − 1.
//   5. D without modifiers, free: posts toggleDiffViewActiveSlot.
//   6. Everything else goes to the command table's dispatcher (CommandTable::dispatch), which
//      runs the command of the key and mode, and otherwise lets the key pass.
// "Free": no modal dialog is up and the focus is not in a text field, a text editor, a spin box
// or an editable combo box.
//
// Mouse: a press anywhere outside a text field takes the keyboard focus from the text field
// that has it, so that the keys above work again after a click on the waveform.
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

class QKeyEvent;
class QWidget;

namespace corvane {

class CommandTable;
class NotificationBus;

class GlobalKeyFilter : public QObject {
  Q_OBJECT

 public:
  // `playPause` runs step 3 (the session's togglePlayPause). `mainWindow` may be null until
  // the window exists.
  GlobalKeyFilter(CommandTable& commands, NotificationBus& bus, std::function<void()> playPause,
                  QObject* parent = nullptr);

  void setMainWindow(QWidget* window) { _mainWindow = window; }

  // Whether keys are free now (see above).
  static bool keyIsFree();
  // Whether `widget` takes typed text.
  static bool isTextInput(const QWidget* widget);

  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  bool handleKey(QObject* watched, QKeyEvent* event);

  CommandTable& _commands;
  NotificationBus& _bus;
  std::function<void()> _playPause;
  QPointer<QWidget> _mainWindow;
};

}  // namespace corvane
