// Opening one hour of 48 kHz stereo WAV.
//
//   1. `corvane measure --json` on the file: the window's load road without speech detection
//      (decode, peaks, clip regions, pyramid, then loudness with true peak, loudness range,
//      momentary and short-term maxima, per-channel statistics, DR and the stereo width curve),
//      against `ffmpeg -i f.wav -af ebur128=peak=true -f null -` on the same file in the same
//      run (integrated loudness, LRA and true peak only). Aim: at least 3× faster than ffmpeg.
//   2. The session: AudioEngine::loadFile to the first landing, the moment the file could be
//      played (decoded, model with peaks and clip regions, routing, live meters, graph). Aim:
//      under 1.5 s. Also printed: the metrics landing and the pyramid landing. Speech detection
//      is left out (it has a benchmark of its own, speech_detection_bench).
//   The anchor of both: the first touch of the 1.38 GB of fresh memory that the decoded hour
//   occupies (an AudioBuffer of its shape, written once), which every whole-file load pays.
//
// usage: session_load_bench [FOLDER] [--runs N]
// The file is made once with sox in FOLDER (default: $TMPDIR/corvane-bench, shared with
// file_decode_bench) and reused. Wall-clock seconds, best of N runs (2 by default), page cache
// warm.
#include <QCoreApplication>
#include <QUrl>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "HourFile.h"
#include "core/AudioBuffer.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SettingsStore.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using corvane::bench::runShell;

double seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

double timeBest(int runs, const std::function<void()>& work) {
  double best = 1e30;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    work();
    best = std::min(best, seconds(start));
  }
  return best;
}

struct SessionTimes {
  double firstLanding = 0.0, metrics = 0.0, pyramid = 0.0;
};

// One load in a fresh session, timed from loadFile to each landing.
SessionTimes loadInSession(const fs::path& file, const fs::path& folder) {
  corvane::AudioEngineOptions options;
  options.settings = std::make_shared<corvane::SettingsStore>(QString::fromStdString((folder / "bench.ini").string()));
  options.audioBackends = {corvane::AudioBackend::jack};
  options.rescanDevices = false;
  options.manualOutput = corvane::ManualOutput{48000.0, 2};
  options.registerWithBridge = false;
  corvane::AudioEngine engine(options);
  SessionTimes times;
  std::optional<Clock::time_point> start;
  QObject::connect(&engine, &corvane::AudioEngine::landed, &engine, [&](corvane::AudioEngine::Landing landing) {
    if (landing == corvane::AudioEngine::Landing::decoded) times.firstLanding = seconds(*start);
    if (landing == corvane::AudioEngine::Landing::metrics) times.metrics = seconds(*start);
    if (landing == corvane::AudioEngine::Landing::pyramid) times.pyramid = seconds(*start);
  });
  start = Clock::now();
  engine.loadFile(QUrl::fromLocalFile(QString::fromStdString(file.string())));
  while (times.metrics == 0.0 || times.pyramid == 0.0) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
  }
  corvane::waitForBackgroundWork();
  return times;
}

}  // namespace

int main(int argc, char** argv) {
  // The session's speech stage finds no model and lands at once (see the header).
  ::setenv("CORVANE_SILERO_VAD_MODEL", "/nonexistent/silero_vad.onnx", 1);
  QCoreApplication app(argc, argv);
  const auto [folder, runs] = corvane::bench::parseBenchArguments(argc, argv, 2);
  const fs::path wav = corvane::bench::ensureHourWav(folder);
  runShell("cat '" + wav.string() + "' > /dev/null");
  std::printf("\n%s: %.2f GB, 1 h of 48 kHz stereo 24-bit; best of %d runs\n\n", wav.filename().c_str(),
              static_cast<double>(fs::file_size(wav)) / 1e9, runs);

  const double touch = timeBest(runs, [] {
    const auto buffer = corvane::AudioBuffer::create(2, 3600ll * 48000, 48000.0);
    for (int c = 0; c < 2; ++c) std::memset(buffer->channel(c), 0, 3600ull * 48000 * sizeof(float));
    asm volatile("" ::"r"(buffer->channel(1)) : "memory");
  });
  std::printf("anchor: first touch of the decoded hour's 1.38 GB                %7.2f s\n\n", touch);

  const std::string quoted = "'" + wav.string() + "'";
  const double measure = timeBest(runs, [&] {
    runShell(std::string("'") + CORVANE_CLI_PATH + "' measure " + quoted + " --json > /dev/null");
  });
  const double ffmpeg = timeBest(runs, [&] {
    runShell("ffmpeg -v error -nostats -i " + quoted + " -af ebur128=peak=true -f null - 2> /dev/null");
  });
  std::printf("corvane measure --json (decode, peaks, pyramid, full metrics)  %7.2f s\n", measure);
  std::printf("ffmpeg -af ebur128=peak=true -f null -                         %7.2f s\n", ffmpeg);
  std::printf("  corvane is %.2fx faster (aim: at least 3x)\n\n", ffmpeg / measure);

  SessionTimes best{1e30, 1e30, 1e30};
  for (int i = 0; i < runs; ++i) {
    const SessionTimes t = loadInSession(wav, folder);
    best.firstLanding = std::min(best.firstLanding, t.firstLanding);
    best.metrics = std::min(best.metrics, t.metrics);
    best.pyramid = std::min(best.pyramid, t.pyramid);
  }
  std::printf("session: loadFile to the first landing (playable)              %7.2f s (aim: under 1.5 s)\n",
              best.firstLanding);
  std::printf("session: loadFile to the pyramid landing                       %7.2f s\n", best.pyramid);
  std::printf("session: loadFile to the metrics landing                       %7.2f s\n", best.metrics);
  return 0;
}
