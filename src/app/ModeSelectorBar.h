// ModeSelectorBar: the segments that turn the six modes on and off.
//
// A segment per mode whose subsystem is there (a subsystem adds its segment when it joins the
// window: addSegment), with a stable key, a label, and the rules of when it is active, disabled
// and takes file drops:
//   edit, chapter, dialogue  disabled with no file, or with two or more compare slots unless
//                            active;
//   compare                  disabled with no file; takes file drops while active (each file is
//                            added as a compare slot);
//   spectral                 as edit, and also while the file isn't mono or stereo;
//   record                   disabled with two or more compare slots unless active (no file
//                            needed).
// The tool tip reads "Enter <label> mode (<key>)" or "Exit <label> mode (<key>)"; the spectral
// segment of a file with more than two channels says "Spectral editing supports mono and stereo
// files." instead. The selector only flips flags: the session's mode rules decide.
//
// Thread class: main thread (a widget); modeSegmentState is pure.
#pragma once

#include <QList>
#include <QString>
#include <QUrl>
#include <QWidget>
#include <functional>
#include <vector>

#include "session/AudioEngine.h"

class QHBoxLayout;
class QToolButton;

namespace corvane {

struct ModeSegment {
  QString key;           // "edit", "compare", ...
  QString label;         // "Edit"
  QString compactLabel;  // shown with compact labels on (the first letter by default)
  AudioEngine::Mode mode;
  QString shortcutText;  // "Ctrl+1"
  bool takesDrops = false;
};

// The six segments in their order, with their keys and labels.
std::vector<ModeSegment> standardModeSegments();

struct ModeFlags {
  bool active = false;
  bool fileLoaded = false;
  int compareSlotCount = 0;
  bool spectralAvailable = true;
};

struct ModeSegmentState {
  bool active = false;
  bool disabled = false;
  bool acceptsDrops = false;  // now (only while active)
  QString toolTip;
};

ModeSegmentState modeSegmentState(const ModeSegment& segment, const ModeFlags& flags);

class ModeSelectorBar : public QWidget {
  Q_OBJECT

 public:
  explicit ModeSelectorBar(AudioEngine& engine, QWidget* parent = nullptr);

  // A mode's segment; segments stand in the order added.
  void addSegment(const ModeSegment& segment);
  void setCompactLabels(bool compact);
  // The leave road of a mode ("Exit Edit Mode" asks about unsaved work); without one, the
  // segment turns the flag off itself.
  void setExitHandler(AudioEngine::Mode mode, std::function<void()> exit);
  // Files dropped on the compare segment while compare mode is on.
  void setAddCompareFiles(std::function<void(const QList<QUrl>&)> add) { _addCompareFiles = std::move(add); }

  QToolButton* segmentButton(const QString& key) const;
  ModeSegmentState stateOf(const QString& key) const;
  // What a drop of `urls` on the segment does; false when the segment doesn't take it (the
  // main view's drop rule then applies).
  bool dropOnSegment(const QString& key, const QList<QUrl>& urls);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void refresh();
  void clicked(const ModeSegment& segment);

  AudioEngine& _engine;
  QHBoxLayout* _row;
  std::vector<ModeSegment> _segments;
  std::vector<QToolButton*> _buttons;
  std::map<AudioEngine::Mode, std::function<void()>> _exitHandlers;
  std::function<void(const QList<QUrl>&)> _addCompareFiles;
  bool _compact = false;
};

}  // namespace corvane
