// The waveform widget rendered offscreen and read pixel by pixel, driven by synthetic mouse
// and wheel events. Ten seconds in an 800-pixel view make 80 pixels a second at zoom 1, so
// pixel positions below are worked out by hand from the times.
#include <gtest/gtest.h>

#include <QDir>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include <cmath>
#include <memory>

#include "OffscreenApplication.h"
#include "displays/AudioFileWaveformSource.h"
#include "displays/ChannelColors.h"
#include "displays/TimeZoomState.h"
#include "displays/WaveformView.h"

namespace corvane {
namespace {

constexpr int kWidth = 800;
constexpr int kHeight = 420;

std::shared_ptr<const WaveformSource> sourceOf(SharedAudioBuffer buffer) {
  auto model = std::make_shared<AudioFileModel>(AudioFileModel::fromBuffer(std::move(buffer), AudioFileModel{}));
  model->waveformPyramid = buildWaveformPyramid(*model->pcmBuffer);
  return std::make_shared<AudioFileWaveformSource>(model, 1);
}

// Channel 1 a ±1 square wave of 100 frames a period, channel 2 silence: ten seconds.
std::shared_ptr<const WaveformSource> squareAndSilence() {
  auto buffer = AudioBuffer::createZeroed(2, 480000, 48000.0);
  for (FrameCount i = 0; i < 480000; ++i) buffer->channel(0)[i] = (i / 50) % 2 ? -1.0f : 1.0f;
  return sourceOf(buffer);
}

// Ten seconds of a quiet sine on both channels.
std::shared_ptr<const WaveformSource> quietSine(FrameCount frames = 480000) {
  auto buffer = AudioBuffer::create(2, frames, 48000.0);
  for (FrameCount i = 0; i < frames; ++i) {
    const float value = 0.4f * static_cast<float>(std::sin(2.0 * M_PI * 440.0 * static_cast<double>(i) / 48000.0));
    buffer->channel(0)[i] = value;
    buffer->channel(1)[i] = 0.5f * value;
  }
  return sourceOf(buffer);
}

// Kept for a look by eye: CI keeps the test-output folder as an artifact.
void keep(const QImage& image, const char* name) {
  const QString folder = QString::fromUtf8(CORVANE_TEST_OUTPUT_DIR) + "/displays";
  QDir().mkpath(folder);
  image.save(folder + "/" + name + ".png");
}

class WaveformViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::offscreenApplication();
    view = std::make_unique<WaveformView>(&zoom);
    view->resize(kWidth, kHeight);
  }

  QImage render() {
    // Away from the view: no hover line in the picture.
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view.get(), &leave);
    return view->grab().toImage().convertToFormat(QImage::Format_RGB32);
  }

  void show() {
    view->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
  }

  void wheel(QPoint position, QPoint angleDelta, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QWheelEvent event(position, view->mapToGlobal(position), QPoint(), angleDelta, Qt::NoButton, modifiers,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(view.get(), &event);
  }

  TimeZoomState zoom;
  std::unique_ptr<WaveformView> view;
};

TEST_F(WaveformViewTest, AFullScaleSquareWaveFillsItsLaneAndSilenceIsACentreLine) {
  view->setSource(squareAndSilence());
  const QImage image = render();
  keep(image, "waveform-square-and-silence");
  const auto lanes = view->lanes();
  ASSERT_EQ(lanes.size(), 2u);
  const QRgb square = channelQColor(ChannelColor::cyan).rgb();
  const QRgb silent = channelQColor(ChannelColor::green).rgb();
  const QRgb clip = DisplayPalette::clipMarker().rgb();
  const QRgb laneBackground = DisplayPalette::laneBackground().rgb();
  const QRgb background = DisplayPalette::background().rgb();
  const int firstColumn = std::max(view->laneLabelRect(0).right(), view->laneLabelRect(1).right()) + 2;
  // The middle row of lane 2 (of two middle rows, either).
  int centreRow = -1;
  for (int y = lanes[1].top; y <= lanes[1].bottom(); ++y) {
    if (image.pixel(firstColumn, y) == silent) {
      ASSERT_EQ(centreRow, -1) << "a second row drawn at " << y;
      centreRow = y;
    }
  }
  ASSERT_GE(2 * centreRow, 2 * lanes[1].top + lanes[1].height - 2);
  ASSERT_LE(2 * centreRow, 2 * lanes[1].top + lanes[1].height);

  for (int x = firstColumn; x < kWidth; ++x) {
    // Lane 1, top row to bottom row: the square wave, with the whole channel marked clipped
    // along both edges; nothing spills into the gap below.
    for (int y = lanes[0].top; y <= lanes[0].bottom(); ++y) {
      const bool edge = y < lanes[0].top + WaveformView::kClipMarkerRows || y > lanes[0].bottom() - WaveformView::kClipMarkerRows;
      ASSERT_EQ(image.pixel(x, y), edge ? clip : square) << x << "," << y;
    }
    ASSERT_EQ(image.pixel(x, lanes[0].bottom() + 1), background) << x;
    ASSERT_EQ(image.pixel(x, lanes[1].top - 1), background) << x;
    // Lane 2: one row of the channel's colour in the middle, the lane's background elsewhere.
    for (int y = lanes[1].top; y <= lanes[1].bottom(); ++y) {
      ASSERT_EQ(image.pixel(x, y), y == centreRow ? silent : laneBackground) << x << "," << y;
    }
  }
}

TEST_F(WaveformViewTest, MutingALaneDimsItAndOnlyIt) {
  view->setSource(quietSine());
  show();
  const QImage before = render();
  QSignalSpy muted(view.get(), &WaveformView::mutedChannelsChanged);
  QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, view->laneLabelRect(0).center());
  EXPECT_EQ(muted.count(), 1);
  EXPECT_EQ(view->mutedChannels(), (std::set<int>{0}));
  const QImage after = render();
  const auto lanes = view->lanes();
  const int firstColumn = view->laneLabelRect(0).right() + 2;
  const auto lightness = [&](const QImage& image, const LaneGeometry& lane) {
    double sum = 0;
    for (int y = lane.top; y <= lane.bottom(); ++y) {
      for (int x = firstColumn; x < kWidth; ++x) sum += qGray(image.pixel(x, y));
    }
    return sum;
  };
  EXPECT_LT(lightness(after, lanes[0]), 0.8 * lightness(before, lanes[0]));
  EXPECT_EQ(lightness(after, lanes[1]), lightness(before, lanes[1]));
  QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, view->laneLabelRect(0).center());
  EXPECT_TRUE(view->mutedChannels().empty());
  EXPECT_TRUE(render() == before);
}

TEST_F(WaveformViewTest, CtrlDragSelectsAndTheTintLiesExactlyOverTheSelectedTimes) {
  view->setSource(quietSine());
  show();
  QSignalSpy seeks(view.get(), &WaveformView::seekRequested);
  QTest::mousePress(view.get(), Qt::LeftButton, Qt::ControlModifier, QPoint(200, 150));
  QTest::mouseMove(view.get(), QPoint(340, 160));
  QTest::mouseMove(view.get(), QPoint(520, 170));
  QTest::mouseRelease(view.get(), Qt::LeftButton, Qt::ControlModifier, QPoint(520, 170));
  ASSERT_TRUE(view->selection());
  EXPECT_DOUBLE_EQ(view->selection()->lower, 2.5);  // 200 / 80
  EXPECT_DOUBLE_EQ(view->selection()->upper, 6.5);  // 520 / 80
  EXPECT_EQ(seeks.count(), 0);
  EXPECT_EQ(view->currentTime(), 0.0);

  const QImage tinted = render();
  keep(tinted, "waveform-selection");
  view->setSelection(std::nullopt);
  const QImage plain = render();
  const auto expectTint = [&](const QImage& withSelection, int first, int last) {
    for (int x = 0; x < kWidth; ++x) {
      const bool inside = x >= first && x <= last;
      for (int y = WaveformView::kRulerHeight; y < kHeight; ++y) {
        ASSERT_EQ(withSelection.pixel(x, y) != plain.pixel(x, y), inside) << x << "," << y;
      }
    }
  };
  // The columns whose centres lie in 200 ... 520: 200 to 519.
  expectTint(tinted, 200, 519);
  // Between pixels: 1.234 s and 3.456 s lie at x 98.72 and 276.48, so the centres 99.5 ...
  // 275.5 are inside.
  view->setSelection(SecondsRange{1.234, 3.456});
  expectTint(render(), 99, 275);
}

TEST_F(WaveformViewTest, DraggingWithoutCtrlScrubsAndAClickSeeks) {
  view->setSource(quietSine());
  show();
  QSignalSpy seeks(view.get(), &WaveformView::seekRequested);
  QTest::mousePress(view.get(), Qt::LeftButton, Qt::NoModifier, QPoint(100, 150));
  QTest::mouseMove(view.get(), QPoint(300, 150));
  QTest::mouseMove(view.get(), QPoint(400, 150));
  QTest::mouseRelease(view.get(), Qt::LeftButton, Qt::NoModifier, QPoint(400, 150));
  ASSERT_EQ(seeks.count(), 2);
  EXPECT_DOUBLE_EQ(seeks[0][0].toDouble(), 3.75);
  EXPECT_DOUBLE_EQ(seeks[1][0].toDouble(), 5.0);
  EXPECT_EQ(view->currentTime(), 5.0);
  EXPECT_FALSE(view->selection());

  QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, QPoint(160, 150));
  ASSERT_EQ(seeks.count(), 3);
  EXPECT_DOUBLE_EQ(seeks[2][0].toDouble(), 2.0);
}

TEST_F(WaveformViewTest, ThePlayheadSitsAtItsTimeAndATickKeepsThePicture) {
  view->setSource(quietSine());
  zoom.setZoomScroll({4.0, 500.0});
  view->setCurrentTime(3.7);
  ASSERT_DOUBLE_EQ(view->xForTime(3.7), 684.0);  // 3.7 / 10 · 3200 − 500
  QImage image = render();
  const QRgb playhead = DisplayPalette::playhead().rgb();
  const auto playheadColumn = [&](const QImage& picture) {
    int found = -1;
    for (int x = 0; x < kWidth; ++x) {
      bool whole = true;
      for (int y = WaveformView::kRulerHeight; y < kHeight && whole; ++y) whole = picture.pixel(x, y) == playhead;
      if (whole) {
        EXPECT_EQ(found, -1) << "a second playhead column at " << x;
        found = x;
      }
    }
    return found;
  };
  EXPECT_EQ(playheadColumn(image), 684);

  // Playhead ticks redraw the overlay only.
  const int builds = view->pictureBuilds();
  for (double t = 3.7; t < 4.7; t += 1.0 / 30.0) view->setCurrentTime(t);
  view->setCurrentTime(3.75);
  image = render();
  EXPECT_EQ(playheadColumn(image), 700);  // 3.75 / 10 · 3200 − 500
  EXPECT_EQ(view->pictureBuilds(), builds);

  // A playhead out of view draws nothing.
  view->setCurrentTime(9.9);
  EXPECT_EQ(playheadColumn(render()), -1);
  EXPECT_EQ(view->pictureBuilds(), builds);

  // A change of the viewport redraws the picture once.
  zoom.setScroll(600.0);
  render();
  render();
  EXPECT_EQ(view->pictureBuilds(), builds + 1);
}

TEST_F(WaveformViewTest, WheelZoomKeepsTheTimeUnderThePointer) {
  view->setSource(quietSine());
  WaveformView other(&zoom);  // another time panel on the same zoom
  other.resize(kWidth, 200);
  other.setSource(quietSine());

  double expectedZoom = 1.0;
  for (int x : {600, 123, 799, 0, 400, 777}) {
    const double before = view->timeForX(x);
    wheel(QPoint(x, 200), QPoint(0, 120));
    expectedZoom *= 1.1;
    EXPECT_NEAR(zoom.zoom(), expectedZoom, 1e-12 * expectedZoom);
    EXPECT_NEAR(view->timeForX(x), before, 1e-9) << x;
    EXPECT_NEAR(other.timeForX(x), before, 1e-9) << x;
  }
  // A notch towards the user zooms out around the pointer too.
  const double before = view->timeForX(250);
  wheel(QPoint(250, 200), QPoint(0, -120));
  EXPECT_NEAR(zoom.zoom(), expectedZoom * 0.9, 1e-12 * expectedZoom);
  EXPECT_NEAR(view->timeForX(250), before, 1e-9);

  // Shift pans by 40 pixels a notch; Alt (arriving on the horizontal axis, as under X11)
  // scales the amplitude and leaves the time alone.
  zoom.setZoomScroll({4.0, 1000.0});
  const double scroll = zoom.scroll();
  wheel(QPoint(250, 200), QPoint(0, -120), Qt::ShiftModifier);
  EXPECT_DOUBLE_EQ(zoom.scroll(), scroll + 40.0);
  QSignalSpy amplitude(view.get(), &WaveformView::amplitudeZoomChanged);
  wheel(QPoint(250, 200), QPoint(120, 0), Qt::AltModifier);
  EXPECT_DOUBLE_EQ(view->amplitudeZoom(), 1.16);
  EXPECT_EQ(amplitude.count(), 1);
  EXPECT_DOUBLE_EQ(zoom.scroll(), scroll + 40.0);
}

TEST_F(WaveformViewTest, PeaksComeFromTheSourceTheZoomCallsFor) {
  // Long enough for a pyramid (four frames per base bin).
  view->setSource(quietSine(4194304));
  view->resize(1000, kHeight);
  struct Step {
    double zoom;
    WaveformPeakSource expected;
  };
  // At zoom 2000 a column holds 2.1 frames: finer than the pyramid's four, coarser than a
  // frame; at 100000 fewer frames than columns are in view.
  for (const Step& step : {Step{1.0, WaveformPeakSource::basePeaks}, Step{100.0, WaveformPeakSource::pyramid},
                           Step{2000.0, WaveformPeakSource::samples}, Step{100000.0, WaveformPeakSource::samples}}) {
    zoom.setZoomScroll({step.zoom, 1000.0 * step.zoom / 3.0});
    const QImage image = render();
    EXPECT_EQ(view->lastPeakSource(), step.expected) << step.zoom;
    // Whatever the source, the sine shows in the lane: something is drawn off the centre row.
    const auto lane = view->lanes()[0];
    int drawnRows = 0;
    for (int y = lane.top; y <= lane.bottom(); ++y) {
      drawnRows += image.pixel(900, y) != DisplayPalette::laneBackground().rgb() ? 1 : 0;
    }
    EXPECT_GT(drawnRows, 1) << step.zoom;
  }
}

}  // namespace
}  // namespace corvane
