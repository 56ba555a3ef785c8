// offline_analysis_bench: see bench/README.md.
//
// A whole-file "Analyse" of one hour of 48 kHz stereo — channel statistics, DR, the loudness
// feed with true peak and its curves, the averaged spectra (channels, mid, side) and the
// spectrogram columns, at the session's default settings (fftSize 4096, overlap 4, thinned
// average) — against `ffmpeg -af ebur128=peak=true,astats -f null -` on the same file, in the
// same run. Speech detection is not part of the compared pass (ffmpeg has none); the pass with
// detection is timed on its own line.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "core/ChannelOrder.h"
#include "core/ProgrammeSignal.h"
#include "headless/TemporaryFiles.h"
#include "headless/analysis/OfflineAnalysisPipeline.h"
#include "headless/analysis/SelectionAnalysis.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"

using namespace corvane;
namespace fs = std::filesystem;

namespace {

template <class F>
double timed(F&& f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A 60 s programme-like clip (music, speech-like syllables, fade), played over and over.
SharedAudioBuffer makeProgramme(int minutes) {
  const SharedAudioBuffer clip = synthesiseProgramme({48000.0, 2, 60.0, 42});
  const FrameCount clipFrames = clip->frameLength();
  auto buffer = AudioBuffer::create(2, clipFrames * minutes, 48000.0);
  buffer->setChannelPositions({ChannelPosition::FrontLeft, ChannelPosition::FrontRight});
  for (int c = 0; c < 2; ++c) {
    for (int m = 0; m < minutes; ++m) std::memcpy(buffer->channel(c) + m * clipFrames, clip->channel(c), sizeof(float) * clipFrames);
  }
  return buffer;
}

void writeFloatWav(const AudioBuffer& buffer, const fs::path& to) {
  PCMWriteSettings settings = PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat::of(buffer), PCMEncoding::float32);
  settings.expectedFrames = buffer.frameLength();
  auto writer = AudioFileWriter::create(to, settings);
  writer->write(buffer);
  writer->finish();
}

SelectionAnalysisOutput analyseWhole(const SharedAudioBuffer& buffer, int threads, bool detectSpeech) {
  SelectionAnalysisSettings settings;
  settings.channelWeights = ChannelOrder::bs1770Weights(*buffer);
  settings.detectSpeech = detectSpeech;
  settings.threadCount = threads;
  const auto frames = SelectionFrames::capture(buffer, 0.0, static_cast<double>(buffer->frameLength()) / buffer->sampleRate());
  return *runSelectionAnalysis(*frames, settings);
}

}  // namespace

int main(int argc, char** argv) {
  int minutes = 60;
  int rounds = 3;
  bool withSpeech = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no-speech") == 0) withSpeech = false;
    else if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) rounds = std::max(1, std::atoi(argv[++i]));
    else minutes = std::max(1, std::atoi(argv[i]));
  }
  std::printf("Offline analysis of %d min of 48 kHz stereo (programme-like): statistics, DR, loudness\n"
              "with true peak and curves, averaged spectra with mid/side, spectrogram columns.\n"
              "fftSize 4096, overlap 4, thinned average. Speech detection: not in the compared pass.\n"
              "Best of %d rounds.\n\n",
              minutes, rounds);

  const SharedAudioBuffer buffer = makeProgramme(minutes);
  const fs::path file = makeTemporaryFilePath("analysis-bench", "wav");
  writeFloatWav(*buffer, file);
  const std::string command = "ffmpeg -nostdin -hide_banner -nostats -loglevel error -i '" + file.string() +
                              "' -af ebur128=peak=true,astats -f null - 2>/dev/null";
  OfflineAnalysisPipeline::Options options;
  options.detectSpeech = false;

  SelectionAnalysisOutput out;
  double oneThread = 1e30, twoThreads = 1e30, pipeline = 1e30, ffmpeg = 1e30;
  int ffmpegStatus = 0;
  for (int round = 0; round < rounds; ++round) {
    oneThread = std::min(oneThread, timed([&] { out = analyseWhole(buffer, 1, false); }));
    twoThreads = std::min(twoThreads, timed([&] { out = analyseWhole(buffer, 2, false); }));
    pipeline = std::min(pipeline, timed([&] { OfflineAnalysisPipeline::analyzeFile(file, options); }));
    ffmpeg = std::min(ffmpeg, timed([&] { ffmpegStatus = std::system(command.c_str()); }));
    std::printf("round %d: pass %.2f s (1 thread), %.2f s (2 threads), load + pass %.2f s, ffmpeg %.2f s\n", round + 1,
                oneThread, twoThreads, pipeline, ffmpeg);
  }

  const SelectionAnalysisResult& r = out.result;
  std::printf("\nCorvane pass, 1 thread:            %7.2f s   (%.0fx realtime)\n", oneThread, 60.0 * minutes / oneThread);
  std::printf("Corvane pass, 2 threads:           %7.2f s   (%.0fx realtime)\n", twoThreads, 60.0 * minutes / twoThreads);
  std::printf("Corvane file pipeline (load+pass): %7.2f s\n", pipeline);
  if (ffmpegStatus == 0) {
    std::printf("ffmpeg ebur128=peak=true,astats:   %7.2f s\n", ffmpeg);
    std::printf("ratio: the pass is %.1fx (1 thread) / %.1fx (2 threads) as fast as ffmpeg; "
                "load + pass %.1fx\n",
                ffmpeg / oneThread, ffmpeg / twoThreads, ffmpeg / pipeline);
  } else {
    std::printf("ffmpeg failed (status %d): no reference\n", ffmpegStatus);
  }
  std::printf("  I %.2f LUFS  LRA %.2f LU  TP %.2f dBTP  DR%d  %zu columns  %zu blocks\n", r.integratedLUFS,
              r.loudnessRange, r.truePeakDB, r.dynamicRange, out.spectrogramColumns.size(), r.momentaryCurve.size());

  if (withSpeech) {
    const double speech = timed([&] { out = analyseWhole(buffer, 2, true); });
    std::printf("Corvane pass with speech detection (2 threads + the detector's own): %.2f s, speech %.1f %%%s\n",
                speech, out.result.speechPercentage, out.speechHistory ? "" : " (detector unavailable)");
  }
  std::error_code ignored;
  fs::remove(file, ignored);
  return 0;
}
