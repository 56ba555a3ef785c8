// InfoPanel: the sidebar that reports the loaded file: its facts, its channels with their live
// levels, the loudness readouts (live or offline) and, under them, the delivery targets.
//
// It shows what it is given (InfoPanelReadings, worded by InfoPanelContent) and measures
// nothing. Its two switches (PRE / POST, Live / Offline) and the statistics button are reported
// by signals; the owner writes the choice into the session and hands the new readings back.
//
// Every text label carries an object name, so tests and accessibility tools can find it:
//   file.<Row>                       "file.Name", "file.Sample Rate", ...
//   channels.title, channel.<i>.label, channel.<i>.value
//   loudness.<label>.<sublabel>      the value of a loudness row, e.g. "loudness.True Peak.dBTP"
//   loudness.note, extra.<label>
//
// With rolling digits on, a finite level that changes to another finite level counts through
// the values between over 150 ms; otherwise it changes at once.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <map>
#include <vector>

#include "displays/InfoPanelContent.h"

class QGridLayout;
class QLabel;
class QToolButton;
class QVariantAnimation;
class QVBoxLayout;

namespace corvane {

class LoudnessTargetsView;
class SegmentedControl;

class InfoPanel : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kRollMs = 150;

  explicit InfoPanel(QWidget* parent = nullptr);

  void setReadings(const InfoPanelReadings& readings);
  const InfoPanelReadings& readings() const { return _readings; }

  void setRollAnimated(bool animated) { _rollAnimated = animated; }
  // Scales the panel's text: 1.0, 1.15 or 1.3 for the three text sizes.
  void setTextScale(CorvaneTextScale scale);

  LoudnessTargetsView* targetsView() const { return _targets; }

 signals:
  void monitorModeChosen(corvane::MonitorMode mode);
  void loudnessDisplayModeChosen(corvane::LoudnessDisplayMode mode);
  // The statistics button: show the per-channel statistics window.
  void channelStatsRequested();

 private:
  struct RollingLabel {
    QLabel* label = nullptr;
    float shown = InfoPanelReadings::kNone;
    QVariantAnimation* animation = nullptr;
  };

  void rebuildFileSection();
  void rebuildChannelSection();
  void rebuildLoudnessSection();
  void showLevel(RollingLabel& rolling, float level, const QString& text);

  InfoPanelReadings _readings;
  bool _rollAnimated = false;

  QWidget* _empty;
  QWidget* _content;
  QGridLayout* _fileGrid;
  QLabel* _channelsTitle;
  SegmentedControl* _monitorSwitch;
  QToolButton* _statsButton;
  QGridLayout* _channelGrid;
  SegmentedControl* _displaySwitch;
  QLabel* _note;
  QGridLayout* _loudnessGrid;
  QGridLayout* _extrasGrid;
  LoudnessTargetsView* _targets;

  QStringList _fileSignature;
  QStringList _channelSignature;
  QStringList _loudnessSignature;
  QStringList _extrasSignature;
  std::map<QString, RollingLabel> _levelLabels;
};

}  // namespace corvane
