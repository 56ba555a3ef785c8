#include "displays/WaveformView.h"

#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

#include "core/NumberFormat.h"
#include "displays/ChannelColors.h"
#include "displays/TimeRuler.h"
#include "displays/TimeZoomState.h"

namespace corvane {

namespace {

QColor blend(const QColor& a, const QColor& b, double towardsB) {
  const double k = std::clamp(towardsB, 0.0, 1.0);
  return QColor::fromRgbF(static_cast<float>(a.redF() + (b.redF() - a.redF()) * k),
                          static_cast<float>(a.greenF() + (b.greenF() - a.greenF()) * k),
                          static_cast<float>(a.blueF() + (b.blueF() - a.blueF()) * k));
}

// Fills rows top ... bottom (inclusive, clipped to the image) of one column. The picture is
// opaque, so a colour is written as it stands.
void fillColumn(QImage& image, int column, int top, int bottom, QRgb colour) {
  top = std::max(top, 0);
  bottom = std::min(bottom, image.height() - 1);
  if (column < 0 || column >= image.width()) return;
  const qsizetype stride = image.bytesPerLine() / static_cast<qsizetype>(sizeof(QRgb));
  QRgb* pixel = reinterpret_cast<QRgb*>(image.scanLine(std::max(top, 0))) + column;
  for (int y = top; y <= bottom; ++y, pixel += stride) *pixel = colour;
}

GestureModifiers gestureModifiers(Qt::KeyboardModifiers modifiers) {
  return {modifiers.testFlag(Qt::ControlModifier), modifiers.testFlag(Qt::AltModifier),
          modifiers.testFlag(Qt::ShiftModifier)};
}

Qt::CursorShape cursorShape(WaveformCursor cursor) {
  switch (cursor) {
    case WaveformCursor::resizeHorizontal: return Qt::SizeHorCursor;
    case WaveformCursor::move: return Qt::OpenHandCursor;
    case WaveformCursor::splitHorizontal: return Qt::SplitHCursor;
    case WaveformCursor::arrow: break;
  }
  return Qt::ArrowCursor;
}

// The frames behind a view of `width` device columns: [first, end) with every frame that any
// column touches.
std::pair<FrameCount, FrameCount> visibleFrames(const TimeAxis& axis, FrameCount frames) {
  const double content = axis.width * axis.zoom;
  if (frames <= 0 || !(content > 0.0)) return {0, 0};
  const double perPixel = static_cast<double>(frames) / content;
  const auto first = static_cast<FrameCount>(std::floor(axis.scroll * perPixel));
  const auto end = static_cast<FrameCount>(std::ceil((axis.scroll + axis.width) * perPixel));
  return {std::clamp<FrameCount>(first, 0, frames), std::clamp<FrameCount>(end, 0, frames)};
}

}  // namespace

WaveformView::WaveformView(TimeZoomState* timeZoom, QWidget* parent) : QWidget(parent), _timeZoom(timeZoom) {
  setMouseTracking(true);
  setAttribute(Qt::WA_OpaquePaintEvent);
  setMinimumHeight(kRulerHeight + 24);
  connect(_timeZoom, &TimeZoomState::changed, this, qOverload<>(&QWidget::update));
}

WaveformView::~WaveformView() = default;

void WaveformView::setSource(std::shared_ptr<const WaveformSource> source) {
  _source = std::move(source);
  // A new source may sit where a freed one sat, with the same revision: never trust the key.
  _pictureKey.reset();
  update();
}

void WaveformView::setCurrentTime(double seconds) {
  if (!std::isfinite(seconds) || seconds == _currentTime) return;
  updateColumn(xForTime(_currentTime));
  _currentTime = seconds;
  updateColumn(xForTime(_currentTime));
  emit currentTimeChanged(_currentTime);
}

void WaveformView::setSelection(std::optional<SecondsRange> selection) {
  if (selection && selection->upper < selection->lower) std::swap(selection->lower, selection->upper);
  if (selection == _selection) return;
  _selection = selection;
  update();
  emit selectionChanged();
}

void WaveformView::setMutedChannels(std::set<int> channels) {
  if (channels == _mutedChannels) return;
  _mutedChannels = std::move(channels);
  update();
  emit mutedChannelsChanged();
}

void WaveformView::setAmplitudeZoom(double zoom) {
  zoom = std::isfinite(zoom) ? std::clamp(zoom, kMinAmplitudeZoom, kMaxAmplitudeZoom) : 1.0;
  if (zoom == _amplitudeZoom) return;
  _amplitudeZoom = zoom;
  update();
  emit amplitudeZoomChanged(_amplitudeZoom);
}

void WaveformView::setAmplitudeScale(double scale) {
  if (!std::isfinite(scale) || scale <= 0.0) scale = 1.0;
  if (scale == _amplitudeScale) return;
  _amplitudeScale = scale;
  update();
}

void WaveformView::setRulerMode(RulerMode mode) {
  if (mode == _rulerMode) return;
  _rulerMode = mode;
  update();
}

void WaveformView::setChapterBoundaries(std::vector<double> times, bool draggable) {
  _chapterBoundaryTimes = std::move(times);
  _chapterBoundaryDraggable = draggable;
  update();
}

void WaveformView::setDialogueRegions(std::vector<DialogueRegion> regions, bool dialogueModeActive) {
  _dialogueRegions = std::move(regions);
  _isDialogueModeActive = dialogueModeActive;
  update();
}

void WaveformView::setSpeechRanges(std::vector<SecondsRange> ranges, QColor colour, bool visible) {
  if (ranges == _speechRanges && colour == _speechRangeColour && visible == _showSpeechRanges) return;
  _speechRanges = std::move(ranges);
  _speechRangeColour = colour;
  _showSpeechRanges = visible;
  update();
}

void WaveformView::setViolationRanges(std::vector<SecondsRange> momentary, std::vector<SecondsRange> shortTerm,
                                      std::vector<SecondsRange> truePeak) {
  _violations[0] = std::move(momentary);
  _violations[1] = std::move(shortTerm);
  _violations[2] = std::move(truePeak);
  update();
}

TimeAxis WaveformView::timeAxis() const {
  TimeAxis axis;
  axis.duration = _source ? _source->duration() : 0.0;
  axis.width = width();
  axis.zoom = _timeZoom->zoom();
  axis.scroll = axis.clampScroll(_timeZoom->scroll());
  return axis;
}

std::vector<LaneGeometry> WaveformView::lanes() const {
  const int channels = _source ? std::max(_source->channelCount(), 1) : 1;
  return laneGeometry(channels, kRulerHeight, height() - kRulerHeight);
}

QRect WaveformView::laneLabelRect(int channel) const {
  const auto all = lanes();
  if (!_source || channel < 0 || channel >= static_cast<int>(all.size())) return {};
  const QString label = QString::fromStdString(_source->channelLabel(channel));
  const int textWidth = fontMetrics().horizontalAdvance(label);
  return QRect(4, all[static_cast<std::size_t>(channel)].top + 3, textWidth + 12, fontMetrics().height() + 2);
}

// ---- the picture

WaveformView::PictureKey WaveformView::pictureKey() const {
  const TimeAxis axis = timeAxis();
  return PictureKey{_source.get(), _source ? _source->revision() : 0, size(), devicePixelRatioF(), axis.zoom,
                    axis.scroll, verticalScale(), _mutedChannels, _rulerMode};
}

void WaveformView::ensurePicture() {
  PictureKey key = pictureKey();
  if (_pictureKey && *_pictureKey == key && !_picture.isNull()) return;
  const qreal ratio = key.devicePixelRatio;
  const QSize deviceSize(std::max(1, static_cast<int>(std::lround(width() * ratio))),
                         std::max(1, static_cast<int>(std::lround(height() * ratio))));
  if (_picture.size() != deviceSize || _picture.format() != QImage::Format_ARGB32_Premultiplied) {
    _picture = QImage(deviceSize, QImage::Format_ARGB32_Premultiplied);
  }
  _picture.setDevicePixelRatio(1.0);
  drawPicture(_picture, timeAxis(), ratio);
  _picture.setDevicePixelRatio(ratio);
  _pictureKey = std::move(key);
  ++_pictureBuilds;
}

void WaveformView::drawPicture(QImage& image, const TimeAxis& axis, qreal ratio) {
  image.fill(DisplayPalette::background());
  {
    QPainter painter(&image);
    painter.scale(ratio, ratio);
    drawRuler(painter, axis);
  }
  if (!_source) return;
  const int channels = _source->channelCount();
  const auto deviceLanes =
      laneGeometry(std::max(channels, 1), static_cast<int>(std::lround(kRulerHeight * ratio)),
                   image.height() - static_cast<int>(std::lround(kRulerHeight * ratio)),
                   static_cast<int>(std::lround(kWaveformChannelSpacing * ratio)));
  TimeAxis deviceAxis = axis;
  deviceAxis.width = image.width();
  deviceAxis.scroll = deviceAxis.clampScroll(axis.scroll * ratio);
  for (int c = 0; c < channels; ++c) {
    drawLane(image, c, deviceLanes[static_cast<std::size_t>(c)], deviceAxis, ratio);
    drawClipMarkers(image, c, deviceLanes[static_cast<std::size_t>(c)], deviceAxis, ratio);
  }
  // Label chips, in widget coordinates.
  QPainter painter(&image);
  painter.scale(ratio, ratio);
  painter.setRenderHint(QPainter::Antialiasing);
  for (int c = 0; c < channels; ++c) {
    const QRect chip = laneLabelRect(c);
    const bool muted = _mutedChannels.count(c) > 0;
    const QColor colour = channelQColor(_source->channelColor(c));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 0x90));
    painter.drawRoundedRect(chip, 4, 4);
    painter.setPen(muted ? blend(colour, DisplayPalette::laneBackground(), 0.6) : colour);
    QFont font = painter.font();
    font.setStrikeOut(muted);
    painter.setFont(font);
    painter.drawText(chip, Qt::AlignCenter, QString::fromStdString(_source->channelLabel(c)));
  }
}

void WaveformView::drawRuler(QPainter& painter, const TimeAxis& axis) {
  painter.fillRect(QRect(0, 0, width(), kRulerHeight), DisplayPalette::rulerBackground());
  painter.fillRect(QRect(0, kRulerHeight - 1, width(), 1), DisplayPalette::rulerTick());
  if (!_source || !(axis.duration > 0.0)) return;
  QFont font = painter.font();
  font.setPixelSize(10);
  painter.setFont(font);
  const auto tick = [&](double x, const std::string& label) {
    painter.fillRect(QRectF(std::floor(x), kRulerHeight - 6, 1, 5), DisplayPalette::rulerTick());
    painter.setPen(DisplayPalette::rulerText());
    painter.drawText(QPointF(std::floor(x) + 3, kRulerHeight - 8), QString::fromStdString(label));
  };
  if (_rulerMode == RulerMode::time) {
    const double interval = niceTickInterval(axis.secondsVisible());
    for (double t : rulerTicks(axis.visibleStart(), axis.visibleEnd(), interval)) tick(axis.xForTime(t), formatTime(t, interval));
  } else {
    const double rate = _source->sampleRate();
    const FrameCount interval = sampleTickInterval(static_cast<double>(_source->frameCount()) / axis.zoom);
    for (FrameCount frame : rulerSampleTicks(axis.visibleStart() * rate, axis.visibleEnd() * rate, interval)) {
      tick(axis.xForTime(static_cast<double>(frame) / rate), std::to_string(frame));
    }
  }
}

void WaveformView::drawLane(QImage& image, int channel, const LaneGeometry& lane, const TimeAxis& axis, qreal ratio) {
  const bool muted = _mutedChannels.count(channel) > 0;
  const QColor laneBackground = DisplayPalette::laneBackground();
  QColor colour = channelQColor(_source->channelColor(channel));
  if (muted) colour = blend(colour, laneBackground, 0.65);
  const QRgb rmsColour = colour.rgb();
  const QRgb peakColour = blend(colour, laneBackground, 0.45).rgb();
  const QRgb background = laneBackground.rgb();
  const QRgb centre = DisplayPalette::laneCentreLine().rgb();
  const int columns = image.width();
  const int centreRow = static_cast<int>(std::lround(lane.centreY()));
  for (int y = lane.top; y <= lane.bottom() && y < image.height(); ++y) {
    QRgb* row = reinterpret_cast<QRgb*>(image.scanLine(y));
    std::fill(row, row + columns, y == centreRow ? centre : background);
  }

  const FrameCount frames = _source->frameCount();
  const auto [firstFrame, endFrame] = visibleFrames(axis, frames);
  if (endFrame <= firstFrame) return;
  if (endFrame - firstFrame < columns) {
    // Closer than one frame per column: the samples themselves.
    QPainter painter(&image);
    drawLaneSamples(painter, channel, lane, axis, firstFrame, endFrame, ratio);
    return;
  }
  _lastPeakSource = visiblePeaks(*_source, channel, firstFrame, endFrame, columns, _peakScratch);
  if (static_cast<int>(_peakScratch.size()) != columns) return;
  const double scale = verticalScale();
  for (int x = 0; x < columns; ++x) {
    const WaveformPeak& peak = _peakScratch[static_cast<std::size_t>(x)];
    int top = static_cast<int>(std::lround(laneYForValue(lane, peak.max, scale)));
    int bottom = static_cast<int>(std::lround(laneYForValue(lane, peak.min, scale)));
    if (top > bottom) std::swap(top, bottom);
    fillColumn(image, x, top, bottom, peakColour);
    const int rmsTop = std::max(top, static_cast<int>(std::lround(laneYForValue(lane, peak.rms, scale))));
    const int rmsBottom = std::min(bottom, static_cast<int>(std::lround(laneYForValue(lane, -peak.rms, scale))));
    fillColumn(image, x, rmsTop, rmsBottom, rmsColour);
  }
}

void WaveformView::drawLaneSamples(QPainter& painter, int channel, const LaneGeometry& lane, const TimeAxis& axis,
                                   FrameCount firstFrame, FrameCount endFrame, qreal ratio) {
  _lastPeakSource = WaveformPeakSource::samples;
  const FrameCount frames = _source->frameCount();
  // One frame either side, so the line runs on to the edges of the view.
  const FrameCount from = std::max<FrameCount>(firstFrame - 1, 0);
  const FrameCount to = std::min(endFrame + 1, frames);
  const int count = static_cast<int>(to - from);
  _source->samplePeaks(channel, from, to, count, _peakScratch);
  if (static_cast<int>(_peakScratch.size()) != count) return;
  const double rate = _source->sampleRate();
  const double scale = verticalScale();
  const bool muted = _mutedChannels.count(channel) > 0;
  QColor colour = channelQColor(_source->channelColor(channel));
  if (muted) colour = blend(colour, DisplayPalette::laneBackground(), 0.65);

  QPolygonF line;
  line.reserve(count);
  for (int i = 0; i < count; ++i) {
    line << QPointF(axis.xForTime(static_cast<double>(from + i) / rate),
                    laneYForValue(lane, _peakScratch[static_cast<std::size_t>(i)].max, scale));
  }
  painter.setClipRect(QRect(0, lane.top, static_cast<int>(axis.width), lane.height));
  painter.setRenderHint(QPainter::Antialiasing);
  // A cosmetic pen of one pixel takes the rasteriser's fast line path; a wider one is stroked as
  // a polygon, which on noise (every segment crossing the lane) costs a hundred times more.
  QPen pen(colour, ratio);
  pen.setCosmetic(true);
  painter.setPen(pen);
  painter.drawPolyline(line);
  const double spacing = count > 1 ? line[1].x() - line[0].x() : 0.0;
  if (spacing >= 6.0 * ratio) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    for (const QPointF& point : line) painter.drawEllipse(point, 2.0 * ratio, 2.0 * ratio);
  }
}

void WaveformView::drawClipMarkers(QImage& image, int channel, const LaneGeometry& lane, const TimeAxis& axis,
                                   qreal ratio) {
  const ChannelClipRegions& regions = _source->clipRegions(channel);
  if (regions.empty()) return;
  const FrameCount frames = _source->frameCount();
  const auto [firstFrame, endFrame] = visibleFrames(axis, frames);
  const double rate = _source->sampleRate();
  const int rows = std::min(static_cast<int>(std::lround(kClipMarkerRows * ratio)), lane.height / 2);
  const QRgb colour = DisplayPalette::clipMarker().rgb();
  auto region = std::lower_bound(regions.begin(), regions.end(), firstFrame,
                                 [](const ClipRegion& r, FrameCount frame) { return r.last < frame; });
  int lastColumn = -1;
  for (; region != regions.end() && region->first < endFrame; ++region) {
    const auto span = columnsCovering(axis.xForTime(static_cast<double>(region->first) / rate),
                                      axis.xForTime(static_cast<double>(region->last + 1) / rate),
                                      image.width());
    // On a zoomed-out long file thousands of runs share a column: each column is marked once.
    if (!span || span->last <= lastColumn) continue;
    for (int x = std::max(span->first, lastColumn + 1); x <= span->last; ++x) {
      fillColumn(image, x, lane.top, lane.top + rows - 1, colour);
      fillColumn(image, x, lane.bottom() - rows + 1, lane.bottom(), colour);
    }
    lastColumn = span->last;
  }
}

// ---- overlays and painting

void WaveformView::drawOverlays(QPainter& painter, const TimeAxis& axis) {
  const int lanesTop = kRulerHeight;
  const int lanesHeight = height() - kRulerHeight;
  const int columns = width();
  if (_showSpeechRanges) {
    for (const SecondsRange& range : _speechRanges) {
      if (const auto span = columnsCovering(axis.xForTime(range.lower), axis.xForTime(range.upper), columns)) {
        painter.fillRect(QRect(span->first, lanesTop, span->last - span->first + 1, lanesHeight), _speechRangeColour);
      }
    }
  }
  // Momentary, short-term and true-peak breaks, one row of marks each along the top of the lanes.
  for (int kind = 0; kind < 3; ++kind) {
    for (const SecondsRange& range : _violations[kind]) {
      if (const auto span = columnsCovering(axis.xForTime(range.lower), axis.xForTime(range.upper), columns)) {
        painter.fillRect(QRect(span->first, lanesTop + 3 * kind, span->last - span->first + 1, 3),
                         DisplayPalette::violation(kind));
      }
    }
  }
  if (_isDialogueModeActive) {
    for (const DialogueRegion& region : _dialogueRegions) {
      if (const auto span = columnsCovering(axis.xForTime(region.start), axis.xForTime(region.end), columns)) {
        painter.fillRect(QRect(span->first, lanesTop, span->last - span->first + 1, lanesHeight),
                         DisplayPalette::dialogueRegion());
      }
    }
  }
  for (double t : _chapterBoundaryTimes) {
    if (const auto column = columnAt(axis.xForTime(t), columns)) {
      painter.fillRect(QRect(column->first, 0, 1, height()), DisplayPalette::chapterBoundary());
    }
  }
  if (_selection) {
    if (const auto span = columnsCovering(axis.xForTime(_selection->lower), axis.xForTime(_selection->upper), columns)) {
      const int spanWidth = span->last - span->first + 1;
      painter.fillRect(QRect(span->first, lanesTop, spanWidth, lanesHeight), DisplayPalette::selectionTint());
      painter.fillRect(QRect(span->first, lanesTop, 1, lanesHeight), DisplayPalette::selectionEdge());
      painter.fillRect(QRect(span->last, lanesTop, 1, lanesHeight), DisplayPalette::selectionEdge());
      painter.fillRect(QRect(span->first, kRulerHeight - 3, spanWidth, 3), DisplayPalette::selectionEdge());
    }
  }
  if (_hoveredTime && !_pressed) {
    if (const auto column = columnAt(axis.xForTime(*_hoveredTime), columns)) {
      painter.fillRect(QRect(column->first, lanesTop, 1, lanesHeight), DisplayPalette::hoverLine());
    }
  }
  if (const auto column = columnAt(axis.xForTime(_currentTime), columns)) {
    const QColor colour = DisplayPalette::playhead();
    painter.fillRect(QRect(column->first, 0, 1, height()), colour);
    // A small head in the ruler, so the playhead can be found at a glance.
    QPainterPath head;
    head.moveTo(column->first - 4, 0);
    head.lineTo(column->first + 5, 0);
    head.lineTo(column->first + 0.5, 6);
    head.closeSubpath();
    painter.fillPath(head, colour);
  }
}

void WaveformView::paintEvent(QPaintEvent* event) {
  ensurePicture();
  QPainter painter(this);
  const qreal ratio = _picture.devicePixelRatio();
  for (const QRect& rect : event->region()) {
    const QRect source(QPoint(static_cast<int>(std::floor(rect.x() * ratio)), static_cast<int>(std::floor(rect.y() * ratio))),
                       QSize(static_cast<int>(std::ceil(rect.width() * ratio)), static_cast<int>(std::ceil(rect.height() * ratio))));
    painter.drawImage(QRectF(rect), _picture, QRectF(source));
  }
  drawOverlays(painter, timeAxis());
}

void WaveformView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  update();
}

void WaveformView::updateColumn(double x) {
  if (!std::isfinite(x)) return;
  update(QRect(static_cast<int>(std::floor(x)) - 5, 0, 11, height()));
}

// ---- gestures

WaveformGestureScene WaveformView::gestureScene() const {
  WaveformGestureScene scene;
  scene.axis = timeAxis();
  scene.selection = _selection;
  scene.chapterBoundaryTimes = _chapterBoundaryTimes;
  scene.chapterBoundaryDraggable = _chapterBoundaryDraggable;
  scene.dialogueRegions = _dialogueRegions;
  scene.isDialogueModeActive = _isDialogueModeActive;
  return scene;
}

void WaveformView::applyEffect(const WaveformGestureEffect& effect) {
  if (effect.setsSelection) setSelection(effect.selection);
  if (effect.seek) {
    setCurrentTime(*effect.seek);
    emit seekRequested(*effect.seek);
  }
  if (effect.chapterBoundaryDrag) emit chapterBoundaryDragged(effect.chapterBoundaryDrag->index, effect.chapterBoundaryDrag->time);
  if (effect.chapterBoundaryTap) emit chapterBoundaryTapped(*effect.chapterBoundaryTap);
  if (effect.dialogueRegionDragBegin) emit dialogueRegionDragBegan(QString::fromStdString(*effect.dialogueRegionDragBegin));
  if (effect.dialogueRegionDrag) {
    emit dialogueRegionDragged(QString::fromStdString(effect.dialogueRegionDrag->id), effect.dialogueRegionDrag->start,
                               effect.dialogueRegionDrag->end);
  }
  if (effect.dialogueRegionClick) emit dialogueRegionClicked(QString::fromStdString(*effect.dialogueRegionClick));
}

void WaveformView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !_source) {
    QWidget::mousePressEvent(event);
    return;
  }
  for (int c = 0; c < _source->channelCount(); ++c) {
    if (laneLabelRect(c).contains(event->position().toPoint())) {
      std::set<int> muted = _mutedChannels;
      if (!muted.erase(c)) muted.insert(c);
      setMutedChannels(std::move(muted));
      return;
    }
  }
  _pressed = true;
  _pressMoved = false;
  _pressPosition = event->position().toPoint();
  applyEffect(_gestures.mouseDown(event->position().x(), gestureModifiers(event->modifiers()), gestureScene()));
  update();
}

void WaveformView::mouseMoveEvent(QMouseEvent* event) {
  if (!_pressed) {
    updateHover(event->position().toPoint());
    return;
  }
  if (!_pressMoved && (event->position().toPoint() - _pressPosition).manhattanLength() <= kDragSlop) return;
  _pressMoved = true;
  applyEffect(_gestures.drag(event->position().x(), gestureModifiers(event->modifiers()), gestureScene()));
}

void WaveformView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !_pressed) {
    QWidget::mouseReleaseEvent(event);
    return;
  }
  const WaveformGestureEffect effect = _gestures.release(event->position().x(), _pressMoved, gestureScene());
  _pressed = false;
  applyEffect(effect);
  update();
}

void WaveformView::wheelEvent(QWheelEvent* event) {
  if (!_source) {
    event->ignore();
    return;
  }
  const GestureModifiers modifiers = gestureModifiers(event->modifiers());
  const WheelDelta delta = normaliseWheel(event->angleDelta().x(), event->angleDelta().y(), event->pixelDelta().x(),
                                          event->pixelDelta().y(), modifiers.option);
  const WaveformWheelOutcome outcome =
      handleScrollWheel(delta, modifiers, event->position().x(), timeAxis(), _source->frameCount(), _amplitudeZoom);
  _timeZoom->setZoomScroll(outcome.zoomScroll);
  setAmplitudeZoom(outcome.amplitudeZoom);
  event->accept();
}

void WaveformView::leaveEvent(QEvent* event) {
  if (_hoveredTime) {
    updateColumn(xForTime(*_hoveredTime));
    _hoveredTime.reset();
  }
  QToolTip::hideText();
  QWidget::leaveEvent(event);
}

void WaveformView::updateHover(const QPoint& position) {
  const WaveformGestureScene scene = gestureScene();
  setCursor(cursorShape(WaveformGestures::cursorHint(position.x(), scene)));
  if (_hoveredTime) updateColumn(xForTime(*_hoveredTime));
  if (!_source || position.y() < kRulerHeight) {
    _hoveredTime.reset();
    QToolTip::hideText();
    return;
  }
  _hoveredTime = timeForX(position.x());
  updateColumn(position.x());
  // Each channel's sample under the pointer, read from the buffer.
  const auto frame = std::clamp<FrameCount>(static_cast<FrameCount>(std::floor(*_hoveredTime * _source->sampleRate())),
                                            0, std::max<FrameCount>(_source->frameCount() - 1, 0));
  QString text;
  ChannelPeaks sample;
  for (int c = 0; c < _source->channelCount(); ++c) {
    _source->samplePeaks(c, frame, frame + 1, 1, sample);
    if (sample.empty()) continue;
    const QString level = QString::fromStdString(formatFixed(sampleLevelDBFS(sample.front().max), 1));
    if (!text.isEmpty()) text += "<br>";
    text += QStringLiteral("<span style=\"color:%1\">%2</span> %3 dBFS")
                .arg(channelQColor(_source->channelColor(c)).name(),
                     QString::fromStdString(_source->channelLabel(c)).toHtmlEscaped(), level);
  }
  if (!text.isEmpty()) QToolTip::showText(mapToGlobal(position), text, this);
}

}  // namespace corvane
