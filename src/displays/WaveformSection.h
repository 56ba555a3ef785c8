// WaveformSection: the waveform panel of the main window: a control strip (channel chips, the
// speech toggle, the ruler toggle, time and amplitude zoom, the gesture legend), the
// WaveformView, and the selection bar (IN, OUT, LEN, Analyse) under it.
//
// The view keeps its own state (selection, muted lanes, amplitude zoom); the strip and the bar
// read and write it, so every change, whether by gesture or by control, comes out of the view's
// signals for the owner to hand to the session.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

#include "displays/SelectionFields.h"
#include "displays/WaveformView.h"

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QToolButton;

namespace corvane {

class TimeZoomState;

class WaveformSection : public QWidget {
  Q_OBJECT

 public:
  explicit WaveformSection(TimeZoomState* timeZoom, QWidget* parent = nullptr);

  WaveformView* view() const { return _view; }
  void setSource(std::shared_ptr<const WaveformSource> source);
  // The speech toggle stands only while there are speech ranges; `forceShow` keeps them on.
  void setSpeechRanges(std::vector<SecondsRange> ranges, bool forceShow = false);
  bool showsSpeechRanges() const { return _showSpeechRanges; }
  // The Analyse button of the selection bar; hidden without an action.
  void setAnalyseAction(std::function<void()> action);
  void setAnalysing(bool analysing);

  // The controls, for tests and the key filter's focus rules.
  QLabel* zoomLabel() const { return _zoomLabel; }
  QLabel* amplitudeLabel() const { return _amplitudeLabel; }
  QToolButton* zoomOutButton() const { return _zoomOut; }
  QToolButton* zoomInButton() const { return _zoomIn; }
  QToolButton* amplitudeDownButton() const { return _ampDown; }
  QToolButton* amplitudeUpButton() const { return _ampUp; }
  QToolButton* rulerToggle() const { return _rulerToggle; }
  QToolButton* legendButton() const { return _legend; }
  QLineEdit* field(SelectionField field) const;
  std::vector<QToolButton*> channelChips() const { return _chips; }

 private:
  void rebuildChips();
  void refreshControls();
  void refreshFields();
  void commit(SelectionField which);
  void applySpeechRanges();

  TimeZoomState* _timeZoom;
  WaveformView* _view;
  QHBoxLayout* _chipRow;
  std::vector<QToolButton*> _chips;
  QToolButton* _speechToggle;
  QToolButton* _rulerToggle;
  QToolButton* _zoomOut;
  QLabel* _zoomLabel;
  QToolButton* _zoomIn;
  QToolButton* _ampDown;
  QLabel* _amplitudeLabel;
  QToolButton* _ampUp;
  QToolButton* _legend;
  QLineEdit* _in;
  QLineEdit* _out;
  QLineEdit* _length;
  QToolButton* _analyse;
  std::function<void()> _analyseAction;
  std::vector<SecondsRange> _speechRanges;
  bool _showSpeechRanges = true;
  bool _forceShowSpeechRanges = false;
};

}  // namespace corvane
