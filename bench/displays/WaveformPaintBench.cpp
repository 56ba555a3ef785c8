// The waveform of a ten-hour stereo file on screen: the first draw of its picture at each
// zoom (and so from each peak source), and the repaint at a 30 Hz playhead tick, against the
// floor of any cached display (one blit of a picture of the same size) and against the same
// view with its picture redrawn on every tick.
//
// Ten hours at 48 kHz is 13.8 GB of float samples, more than a bench machine should hold, so
// the file is procedural: noise under a stepped envelope, with a loud block every ten minutes
// that clips. Its base peaks, pyramid and clip regions are computed by the real functions,
// streaming over the generated samples; one minute in the middle is held as a real buffer, and
// the close zooms are measured there, so that their sample reads touch memory as a loaded file's
// would.
//
// build/bench/displays/waveform_paint_bench [--ticks N]
#include <QApplication>
#include <QPainter>
#include <QRegion>
#include <QWidget>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "displays/TimeZoomState.h"
#include "displays/WaveformSource.h"
#include "displays/WaveformView.h"

namespace corvane {
namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

constexpr double kRate = 48000.0;
constexpr FrameCount kFrames = 10LL * 3600 * 48000;
constexpr int kChannels = 2;
constexpr FrameCount kBlock = 4800;  // envelope steps every 0.1 s
constexpr FrameCount kWindowStart = 5LL * 3600 * 48000;
constexpr FrameCount kWindowFrames = 60 * 48000;

class ProceduralTenHours final : public WaveformSource {
 public:
  ProceduralTenHours() {
    const FrameCount blocks = (kFrames + kBlock - 1) / kBlock;
    _envelope.resize(static_cast<std::size_t>(blocks));
    for (FrameCount b = 0; b < blocks; ++b) {
      const double t = static_cast<double>(b) * 0.1;
      double level = 0.04 + 0.5 * (0.5 + 0.5 * std::sin(t / 7.3)) * (0.6 + 0.4 * std::sin(t / 311.0));
      if (b % 6000 == 3000) level = 1.6;  // one loud, clipping block every ten minutes
      _envelope[static_cast<std::size_t>(b)] = static_cast<float>(level);
    }
    buildPeaks();
    _window = AudioBuffer::create(kChannels, kWindowFrames, kRate);
    for (int c = 0; c < kChannels; ++c) generate(c, kWindowStart, kWindowFrames, _window->channel(c));
  }

  FrameCount frameCount() const override { return kFrames; }
  double sampleRate() const override { return kRate; }
  int channelCount() const override { return kChannels; }
  std::string channelLabel(int channel) const override { return channel == 0 ? "L" : "R"; }
  ChannelColor channelColor(int channel) const override { return ChannelLayout(kChannels).color(channel); }
  const ChannelPeaks& basePeaks(int channel) const override { return _base[static_cast<std::size_t>(channel)]; }
  bool pyramidPeaks(int channel, FrameCount start, FrameCount end, int bins, ChannelPeaks& out) const override {
    return pyramidPeaksInto(_pyramid, channel, start, end, bins, out);
  }
  void samplePeaks(int channel, FrameCount start, FrameCount end, int bins, ChannelPeaks& out) const override {
    start = std::max<FrameCount>(start, 0);
    end = std::min(end, kFrames);
    if (start >= kWindowStart && end <= kWindowStart + kWindowFrames) {
      computePeaksInto(*_window, channel, start - kWindowStart, end - kWindowStart, bins, out);
      return;
    }
    // Outside the held minute (the hover read-out, a view that strays): generated on demand.
    const FrameCount count = std::max<FrameCount>(end - start, 1);
    if (!_scratch || _scratch->frameCapacity() < count) _scratch = AudioBuffer::create(1, count, kRate);
    _scratch->setFrameLength(count);
    generate(channel, start, count, _scratch->channel(0));
    computePeaksInto(*_scratch, 0, 0, count, bins, out);
  }
  const ChannelClipRegions& clipRegions(int channel) const override { return _clips[static_cast<std::size_t>(channel)]; }
  std::uint64_t revision() const override { return 1; }

  std::size_t pyramidLevels() const { return _pyramid.size(); }
  std::size_t clipRunCount() const { return _clips[0].size() + _clips[1].size(); }

 private:
  void generate(int channel, FrameCount start, FrameCount count, float* out) const {
    for (FrameCount i = 0; i < count; ++i) {
      const FrameCount frame = start + i;
      std::uint64_t x = static_cast<std::uint64_t>(frame) * 0x9E3779B97F4A7C15ull + static_cast<std::uint64_t>(channel) * 0xD1B54A32D192ED03ull;
      x ^= x >> 31;
      x *= 0xBF58476D1CE4E5B9ull;
      x ^= x >> 29;
      const float unit = static_cast<float>(x >> 40) / static_cast<float>(1u << 24) * 2.0f - 1.0f;
      out[i] = std::clamp(unit * _envelope[static_cast<std::size_t>(frame / kBlock)], -1.0f, 1.0f);
    }
  }

  // Whole bins of `framesPerBin` frames as the samples stream past; the frames of a bin cut by
  // a chunk's end wait in the staging buffer for the next chunk.
  struct StreamingBins {
    FrameCount framesPerBin;
    SharedAudioBuffer staging;
    FrameCount pending = 0;
    std::vector<ChannelPeaks> bins = std::vector<ChannelPeaks>(kChannels);
    ChannelPeaks scratch;

    StreamingBins(FrameCount perBin, FrameCount chunk)
        : framesPerBin(perBin), staging(AudioBuffer::create(kChannels, chunk + perBin, kRate)) {}

    void push(const SharedAudioBuffer& chunk, FrameCount count) {
      for (int c = 0; c < kChannels; ++c) std::memcpy(staging->channel(c) + pending, chunk->channel(c), sizeof(float) * static_cast<std::size_t>(count));
      const FrameCount total = pending + count;
      const FrameCount whole = total / framesPerBin;
      if (whole > 0) {
        for (int c = 0; c < kChannels; ++c) {
          computePeaksInto(*staging, c, 0, whole * framesPerBin, static_cast<int>(whole), scratch);
          bins[static_cast<std::size_t>(c)].insert(bins[static_cast<std::size_t>(c)].end(), scratch.begin(), scratch.end());
          std::memmove(staging->channel(c), staging->channel(c) + whole * framesPerBin,
                       sizeof(float) * static_cast<std::size_t>(total - whole * framesPerBin));
        }
      }
      pending = total - whole * framesPerBin;
    }

    void finish() {
      if (pending == 0) return;
      for (int c = 0; c < kChannels; ++c) {
        computePeaksInto(*staging, c, 0, pending, 1, scratch);
        bins[static_cast<std::size_t>(c)].push_back(scratch.front());
      }
      pending = 0;
    }
  };

  void buildPeaks() {
    const FrameCount chunk = 1 << 22;
    StreamingBins base(std::max<FrameCount>(kFrames / kWaveformPeakResolution, 1), chunk);
    StreamingBins pyramidBase((kFrames + kWaveformPyramidBaseBins - 1) / kWaveformPyramidBaseBins, chunk);
    auto samples = AudioBuffer::create(kChannels, chunk, kRate);
    _clips.assign(kChannels, {});
    for (FrameCount start = 0; start < kFrames; start += chunk) {
      const FrameCount count = std::min(chunk, kFrames - start);
      for (int c = 0; c < kChannels; ++c) {
        generate(c, start, count, samples->channel(c));
        auto& clips = _clips[static_cast<std::size_t>(c)];
        for (const ClipRegion& run : scanClipRegions(samples->channel(c), 0, count, kClipThreshold)) {
          const ClipRegion shifted{run.first + start, run.last + start};
          if (!clips.empty() && clips.back().last + 1 == shifted.first) clips.back().last = shifted.last;  // across chunks
          else clips.push_back(shifted);
        }
      }
      base.push(samples, count);
      pyramidBase.push(samples, count);
    }
    base.finish();
    pyramidBase.finish();
    _base = std::move(base.bins);
    _pyramid.push_back({pyramidBase.framesPerBin, std::move(pyramidBase.bins)});
    while (static_cast<FrameCount>(_pyramid.back().peaks[0].size()) >= kWaveformPyramidSplitBins) {
      _pyramid.push_back(downsampleLevel(_pyramid.back(), kFrames, kWaveformPyramidRatio));
    }
  }

  std::vector<float> _envelope;
  std::vector<ChannelPeaks> _base;
  std::vector<WaveformPyramidLevel> _pyramid;
  std::vector<ChannelClipRegions> _clips;
  SharedAudioBuffer _window;
  mutable SharedAudioBuffer _scratch;
};

// The floor: a widget that only blits a picture of its own size.
class BlitOnly : public QWidget {
 public:
  explicit BlitOnly(const QImage& picture) : _picture(picture) { setAttribute(Qt::WA_OpaquePaintEvent); }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.drawImage(0, 0, _picture);
  }

 private:
  QImage _picture;
};

struct Figures {
  double mean = 0, p99 = 0, worst = 0;
};

Figures summarise(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  Figures f;
  for (double t : times) f.mean += t;
  f.mean /= static_cast<double>(times.size());
  f.p99 = times[std::min(times.size() - 1, static_cast<std::size_t>(std::ceil(0.99 * static_cast<double>(times.size()))) - 1)];
  f.worst = times.back();
  return f;
}

void print(const char* what, const Figures& f) {
  std::printf("  %-58s mean %7.3f ms   p99 %7.3f ms   worst %7.3f ms\n", what, f.mean, f.p99, f.worst);
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  using namespace corvane;
  int ticks = 300;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) == "--ticks") ticks = std::max(10, std::atoi(argv[i + 1]));
  }
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);

  std::printf("Waveform paint, ten hours of 48 kHz stereo (%lld frames), 1280 x 420 view, platform %s\n",
              static_cast<long long>(kFrames), qPrintable(QApplication::platformName()));
  auto start = Clock::now();
  auto source = std::make_shared<ProceduralTenHours>();
  std::printf("  setup: peaks, %zu pyramid levels and %zu clipped runs streamed in %.1f s (not a figure of merit)\n",
              source->pyramidLevels(), source->clipRunCount(), millisecondsSince(start) / 1000.0);

  TimeZoomState zoom;
  WaveformView view(&zoom);
  view.resize(1280, 420);
  view.show();
  QApplication::processEvents();

  start = Clock::now();
  view.setSource(source);
  view.repaint();
  std::printf("  first draw after the file arrives (zoom 1, base peaks): %.3f ms\n", millisecondsSince(start));

  // The first draw of the picture at each zoom, middle of the file (the held minute for the
  // close zooms); 20 draws each, each at a slightly different scroll so the picture is new.
  struct Zoom {
    const char* name;
    double zoom;
  };
  const Zoom zooms[] = {{"zoom 1 (whole file, base peaks)", 1.0},
                        {"zoom 64 (9.4 min, pyramid)", 64.0},
                        {"zoom 2000 (18 s, samples: 675 frames a column)", 2000.0},
                        {"zoom 100000 (0.36 s, samples)", 100000.0},
                        {"zoom 2000000 (18 ms, sample line)", 2000000.0}};
  std::printf("First draw of the picture (ruler, lanes, peaks, clip marks) and blit:\n");
  for (const Zoom& z : zooms) {
    std::vector<double> times;
    const double middle = static_cast<double>(kWindowStart + kWindowFrames / 2) / static_cast<double>(kFrames);
    for (int i = 0; i < 20; ++i) {
      const double scroll = middle * 1280.0 * z.zoom - 640.0 + i;
      zoom.setZoomScroll({z.zoom, std::max(0.0, z.zoom > 1.0 ? scroll : 0.0)});
      if (z.zoom == 1.0) view.setAmplitudeScale(1.0 + 1e-6 * (i + 1));  // a new picture without moving
      const int builds = view.pictureBuilds();
      start = Clock::now();
      view.repaint();
      times.push_back(millisecondsSince(start));
      if (view.pictureBuilds() != builds + 1) std::printf("  (picture not redrawn at %s)\n", z.name);
    }
    print(z.name, summarise(times));
    static const char* sourceNames[] = {"base peaks", "pyramid", "samples"};
    std::printf("  %-58s drawn from: %s\n", "", sourceNames[static_cast<int>(view.lastPeakSource())]);
  }

  // The 30 Hz tick: the playhead moves a thirtieth of a second, the picture stands.
  std::printf("Playhead tick at 30 Hz, %d ticks, zoom 1 over ten hours and zoom 64 over 9.4 minutes:\n", ticks);
  for (double z : {1.0, 64.0}) {
    const double middle = static_cast<double>(kWindowStart) / static_cast<double>(kFrames);
    zoom.setZoomScroll({z, z > 1.0 ? middle * 1280.0 * z - 640.0 : 0.0});
    view.setAmplitudeScale(1.0);
    view.repaint();
    double t = static_cast<double>(kWindowStart) / kRate - 30.0;
    std::vector<double> full, partial, uncached;
    const int builds = view.pictureBuilds();
    for (int i = 0; i < ticks; ++i) {
      t += 1.0 / 30.0;
      start = Clock::now();
      view.setCurrentTime(t);
      view.repaint();
      full.push_back(millisecondsSince(start));
    }
    for (int i = 0; i < ticks; ++i) {
      t += 1.0 / 30.0;
      // As the display timer's tick does it: only the columns the playhead left and entered
      // (painted here at once rather than when the window system next asks).
      start = Clock::now();
      const double before = view.xForTime(view.currentTime());
      view.setCurrentTime(t);
      const double after = view.xForTime(t);
      QRegion columns(QRect(static_cast<int>(std::floor(before)) - 5, 0, 11, view.height()));
      columns += QRect(static_cast<int>(std::floor(after)) - 5, 0, 11, view.height());
      view.repaint(columns);
      partial.push_back(millisecondsSince(start));
    }
    const int rebuilt = view.pictureBuilds() - builds;
    for (int i = 0; i < std::min(ticks, 60); ++i) {
      t += 1.0 / 30.0;
      start = Clock::now();
      view.setAmplitudeScale(i % 2 ? 1.0 : 1.000001);  // defeats the picture: everything redrawn
      view.setCurrentTime(t);
      view.repaint();
      uncached.push_back(millisecondsSince(start));
    }
    view.setAmplitudeScale(1.0);
    std::printf(" zoom %g (pictures redrawn during the cached ticks: %d)\n", z, rebuilt);
    print("whole view repainted (picture kept)", summarise(full));
    print("as the timer does it (the playhead's columns only)", summarise(partial));
    print("reference: same view, picture redrawn every tick", summarise(uncached));
  }

  // The floor of any cached display: one blit of a full picture of the same size.
  BlitOnly blit(view.grab().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied));
  blit.resize(1280, 420);
  blit.show();
  QApplication::processEvents();
  std::vector<double> blits;
  for (int i = 0; i < ticks; ++i) {
    start = Clock::now();
    blit.repaint();
    blits.push_back(millisecondsSince(start));
  }
  print("reference: a bare widget blitting one 1280 x 420 picture", summarise(blits));
  std::printf("Aim: a tick under 5 ms on a ten-hour file.\n");
  return 0;
}
