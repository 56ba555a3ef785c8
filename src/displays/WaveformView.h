// WaveformView: the loaded file's channels as stacked lanes under a time ruler, with the
// selection, chapter boundaries, dialogue regions, the hover line and the playhead over them;
// mouse gestures become seeks, selections and zoom (WaveformGestures tells which).
//
// Drawing is in two layers. The picture (ruler, lanes, peaks, clip markers, labels) depends
// only on the source's data and the viewport, and is kept as an image until one of them
// changes; the overlays are drawn over it on every paint. A playhead tick therefore costs one
// blit of the picture and a few lines, whatever the file's length, and repaints only the
// columns the playhead left and entered.
//
// Peaks come from the source by the rule of WaveformSource (base peaks, pyramid, samples),
// one bin per pixel column. Where fewer frames than columns are in view the samples are drawn
// as a line through each frame's value, with a dot on each frame once they stand 6 pixels
// apart.
//
// Zoom and scroll live in a TimeZoomState shared with the other time panels; the amplitude
// zoom (Alt-wheel), the muted lanes, the selection and the playhead are this view's own
// state, set by its owner and reported back by signals.
//
// Thread class: main thread (a widget).
#pragma once

#include <QColor>
#include <QImage>
#include <QWidget>

#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "core/LevelViolations.h"
#include "displays/TimeAxis.h"
#include "displays/TimeFormat.h"
#include "displays/WaveformGestures.h"
#include "displays/WaveformLanes.h"
#include "displays/WaveformSource.h"

namespace corvane {

class TimeZoomState;

class WaveformView : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kRulerHeight = 20;       // pixels
  static constexpr int kClipMarkerRows = 3;     // rows at a lane's top and bottom edge
  static constexpr int kDragSlop = 2;           // pixels a press may move and still be a tap

  // `timeZoom` is shared with the other time panels and must outlive the view.
  explicit WaveformView(TimeZoomState* timeZoom, QWidget* parent = nullptr);
  ~WaveformView() override;

  // What to draw; none shows the empty lanes' background. A source with a different
  // revision() than the last one drawn redraws the picture.
  void setSource(std::shared_ptr<const WaveformSource> source);
  const WaveformSource* source() const { return _source.get(); }

  // The playhead, in seconds.
  double currentTime() const { return _currentTime; }
  void setCurrentTime(double seconds);

  std::optional<SecondsRange> selection() const { return _selection; }
  void setSelection(std::optional<SecondsRange> selection);

  // Channel indices drawn dimmed (and, through the owner, not heard).
  const std::set<int>& mutedChannels() const { return _mutedChannels; }
  void setMutedChannels(std::set<int> channels);

  // The vertical scale of every lane is amplitudeZoom × amplitudeScale.
  double amplitudeZoom() const { return _amplitudeZoom; }
  void setAmplitudeZoom(double zoom);  // held to 0.1 ... 1000
  double amplitudeScale() const { return _amplitudeScale; }
  void setAmplitudeScale(double scale);

  RulerMode rulerMode() const { return _rulerMode; }
  void setRulerMode(RulerMode mode);

  // Chapter boundaries in seconds; with `draggable` they can be grabbed and dragged.
  void setChapterBoundaries(std::vector<double> times, bool draggable);
  // Dialogue regions; they are drawn and take gestures only while `dialogueModeActive`.
  void setDialogueRegions(std::vector<DialogueRegion> regions, bool dialogueModeActive);
  // Stretches of detected speech, tinted over the lanes in `colour` while `visible`.
  void setSpeechRanges(std::vector<SecondsRange> ranges, QColor colour, bool visible);
  // Where the loudness breaks its thresholds: marks along the top of the lanes.
  void setViolationRanges(std::vector<SecondsRange> momentary, std::vector<SecondsRange> shortTerm,
                          std::vector<SecondsRange> truePeak);

  // The mapping of this view now (its width, the shared zoom and scroll, the source's length).
  TimeAxis timeAxis() const;
  double xForTime(double seconds) const { return timeAxis().xForTime(seconds); }
  double timeForX(double x) const { return timeAxis().timeForX(x); }
  // The lanes in widget rows, one per channel of the source.
  std::vector<LaneGeometry> lanes() const;
  // Where a lane's label chip stands; a click on it mutes or unmutes the channel.
  QRect laneLabelRect(int channel) const;

  // How often the picture has been drawn anew, and from which source the last lane of that
  // drawing took its peaks: what tests and benchmarks look at.
  int pictureBuilds() const { return _pictureBuilds; }
  WaveformPeakSource lastPeakSource() const { return _lastPeakSource; }

 signals:
  // The user moved the playhead (a click or a scrub step): the transport should seek there.
  void seekRequested(double seconds);
  void currentTimeChanged(double seconds);
  void selectionChanged();
  void mutedChannelsChanged();
  void amplitudeZoomChanged(double zoom);
  void chapterBoundaryDragged(int index, double seconds);
  void chapterBoundaryTapped(int index);
  void dialogueRegionDragBegan(const QString& id);
  void dialogueRegionDragged(const QString& id, double start, double end);
  void dialogueRegionClicked(const QString& id);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void leaveEvent(QEvent* event) override;

 private:
  struct PictureKey {
    const WaveformSource* source = nullptr;
    std::uint64_t revision = 0;
    QSize size;
    qreal devicePixelRatio = 1.0;
    double zoom = 1.0;
    double scroll = 0.0;
    double verticalScale = 1.0;
    std::set<int> muted;
    RulerMode rulerMode = RulerMode::time;
    bool operator==(const PictureKey&) const = default;
  };

  PictureKey pictureKey() const;
  void ensurePicture();
  void drawPicture(QImage& image, const TimeAxis& axis, qreal ratio);
  void drawRuler(QPainter& painter, const TimeAxis& axis);
  void drawLane(QImage& image, int channel, const LaneGeometry& lane, const TimeAxis& axis, qreal ratio);
  void drawLaneSamples(QPainter& painter, int channel, const LaneGeometry& lane, const TimeAxis& axis,
                       FrameCount firstFrame, FrameCount lastFrame, qreal ratio);
  void drawClipMarkers(QImage& image, int channel, const LaneGeometry& lane, const TimeAxis& axis, qreal ratio);
  void drawOverlays(QPainter& painter, const TimeAxis& axis);

  WaveformGestureScene gestureScene() const;
  void applyEffect(const WaveformGestureEffect& effect);
  void updateColumn(double x);
  void updateHover(const QPoint& position);
  double verticalScale() const { return _amplitudeZoom * _amplitudeScale; }

  TimeZoomState* _timeZoom;
  std::shared_ptr<const WaveformSource> _source;
  double _currentTime = 0.0;
  std::optional<SecondsRange> _selection;
  std::set<int> _mutedChannels;
  double _amplitudeZoom = 1.0;
  double _amplitudeScale = 1.0;
  RulerMode _rulerMode = RulerMode::time;
  std::vector<double> _chapterBoundaryTimes;
  bool _chapterBoundaryDraggable = false;
  std::vector<DialogueRegion> _dialogueRegions;
  bool _isDialogueModeActive = false;
  std::vector<SecondsRange> _speechRanges;
  QColor _speechRangeColour;
  bool _showSpeechRanges = false;
  std::vector<SecondsRange> _violations[3];

  WaveformGestures _gestures;
  bool _pressed = false;
  bool _pressMoved = false;
  QPoint _pressPosition;
  std::optional<double> _hoveredTime;

  QImage _picture;
  std::optional<PictureKey> _pictureKey;
  ChannelPeaks _peakScratch;  // reused between drawings: no allocation once the width is known
  int _pictureBuilds = 0;
  WaveformPeakSource _lastPeakSource = WaveformPeakSource::basePeaks;
};

}  // namespace corvane
