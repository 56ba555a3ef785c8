// TransportBar: the transport controls of the main window: skip back, play / pause, stop, skip
// forward (the command table's actions, so keys, menus and buttons agree), the playhead and
// length as a time code, the speed menu (0.25× … 2×), and the three switches whose tool tips
// state what they do now: hold play-start, loop, pitch preservation.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;
class QToolButton;

namespace corvane {

class CommandTable;
class Transport;

class TransportBar : public QWidget {
  Q_OBJECT

 public:
  TransportBar(Transport& transport, CommandTable& commands, QWidget* parent = nullptr);

  QLabel* timeCode() const { return _time; }
  QToolButton* rateButton() const { return _rate; }
  QToolButton* holdButton() const { return _hold; }
  QToolButton* loopButton() const { return _loop; }
  QToolButton* pitchButton() const { return _pitch; }
  // Where more controls join the bar (the Analyse and Generate buttons, a mode's tools).
  void addTrailingWidget(QWidget* widget);

 private:
  void refreshTime();
  void refreshSwitches();

  Transport& _transport;
  QLabel* _time;
  QToolButton* _rate;
  QToolButton* _hold;
  QToolButton* _loop;
  QToolButton* _pitch;
  QHBoxLayout* _trailing;
};

}  // namespace corvane
