// edit_roads_bench: the edit roads of the session end to end, against sox doing the same edit
// file to file in the same run. See bench/README.md.
//
// The session loads N minutes (default 60) of 48 kHz stereo float WAV. Each figure is the wall
// time of one command as the user gives it: the undo snapshot of the whole buffer written to
// disk, the edit, and the session brought up to date (peaks, clip regions, the render side).
//   1. a linear fade in over the whole file, in place;
//   2. a 10 s cut in its middle with a 10 ms crossfade, rebuilt in memory (undone after);
//   3. the same cut down the streaming road (forced by memory figures under which the rebuild
//      does not fit), read back into a new buffer.
// sox: `fade t <whole length>` and `trim 0 =A =B` (a hard cut) from the WAV to a float WAV.
#include <QCoreApplication>
#include <QUrl>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "editing/EditCommands.h"
#include "editing/EditEngine.h"
#include "headless/TemporaryFiles.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/PCMWriteSettings.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"

using namespace corvane;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

template <class F>
double timed(F&& f) {
  const auto start = Clock::now();
  f();
  return secondsSince(start);
}

void writeProgramme(const fs::path& to, FrameCount frames) {
  constexpr FrameCount kChunk = 1 << 20;
  PCMWriteSettings settings =
      PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat{48000.0, 2, {}}, PCMEncoding::float32);
  settings.expectedFrames = frames;
  auto writer = AudioFileWriter::create(to, settings);
  std::mt19937 random(99);
  std::normal_distribution<float> noise(0.0f, 0.05f);
  std::vector<float> left(kChunk), right(kChunk);
  float l = 0.0f, r = 0.0f;
  for (FrameCount done = 0; done < frames; done += kChunk) {
    const FrameCount n = std::min(kChunk, frames - done);
    for (FrameCount i = 0; i < n; ++i) {
      l = 0.95f * l + noise(random);
      r = 0.95f * r + noise(random);
      left[static_cast<std::size_t>(i)] = l;
      right[static_cast<std::size_t>(i)] = r;
    }
    const float* channels[] = {left.data(), right.data()};
    writer->write(channels, n);
  }
  writer->finish();
}

double soxSeconds(const std::string& arguments) {
  const auto start = Clock::now();
  const int status = std::system(("sox -V1 " + arguments + " 2>/dev/null").c_str());
  return status == 0 ? secondsSince(start) : -1.0;
}

}  // namespace

int main(int argc, char** argv) {
  double minutes = 60.0;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--minutes" && i + 1 < argc) minutes = std::atof(argv[++i]);
  }
  QCoreApplication app(argc, argv);
  const fs::path folder = privateTemporaryDirectory();
  const fs::path source = folder / "edit-roads-bench.wav";
  const fs::path soxOut = folder / "edit-roads-bench-sox.wav";
  const auto frames = static_cast<FrameCount>(minutes * 60.0 * 48000.0);
  writeProgramme(source, frames);
  std::printf("edit_roads_bench: %.0f min of 48 kHz stereo float (%.2f GB decoded), folder %s\n", minutes,
              static_cast<double>(frames) * 8.0 / 1e9, folder.c_str());

  AudioEngineOptions options;
  options.settings = std::make_shared<SettingsStore>(QString::fromStdString((folder / "bench.ini").string()));
  options.audioBackends = {AudioBackend::jack};
  options.rescanDevices = false;
  options.manualOutput = ManualOutput{48000.0, 2};
  options.registerWithBridge = false;
  AudioEngine engine(options);
  engine.loadFile(QUrl::fromLocalFile(QString::fromStdString(source.string())));
  while (!engine.loadedFile()) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  waitForBackgroundWork();
  QCoreApplication::processEvents();

  EditCommands commands(engine);
  EditEngine& edits = engine.editEngine();
  engine.setOnEditFailure([](const QString& text) { std::printf("  failure: %s\n", text.toUtf8().constData()); });
  const FrameCount middle = frames / 2;
  const FrameCount cutFrames = 10 * 48000;

  const double fade = timed([&] {
    commands.applyFade({0, frames}, EditOperations::FadeDirection::fadeIn, EditOperations::FadeCurve::linear,
                       std::nullopt);
  });
  const double cutInMemory = timed([&] { commands.applyCutRange(middle, middle + cutFrames, 480); });
  edits.undoLastEdit();
  const std::int64_t bytes = EditOperations::decodedBytes(frames, 2);
  AudioLoadLimits::setFiguresForTesting(MemoryFigures{bytes * 8, bytes * 2});
  const double cutStreamed = timed([&] { commands.applyCutRange(middle, middle + cutFrames, 480); });
  AudioLoadLimits::setFiguresForTesting(std::nullopt);
  const bool edited = edits.undoDepth() == 2 && engine.pcmBuffer()->frameLength() == frames - cutFrames;

  const std::string whole = std::to_string(frames) + "s";
  const double soxFade = soxSeconds(source.string() + " -e floating-point -b 32 " + soxOut.string() + " fade t " + whole);
  fs::remove(soxOut);
  const double soxCut = soxSeconds(source.string() + " -e floating-point -b 32 " + soxOut.string() + " trim 0 =" +
                                   std::to_string(middle) + "s =" + std::to_string(middle + cutFrames) + "s");
  fs::remove(soxOut);

  std::printf("  fade in over the whole file, in place, with its snapshot  %7.2f s   sox fade t  %7.2f s\n", fade,
              soxFade);
  std::printf("  10 s cut in the middle, rebuilt in memory, with snapshot   %7.2f s   sox trim    %7.2f s\n",
              cutInMemory, soxCut);
  std::printf("  10 s cut in the middle, streamed and read back, with snapshot %4.2f s\n", cutStreamed);
  if (!edited) std::printf("  the edits did not all land: the figures are not comparable\n");
  edits.reset();
  fs::remove(source);
  fs::remove(folder / "bench.ini");
  waitForBackgroundWork();
  return edited ? 0 : 1;
}
