// edit_bench: see bench/README.md.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "headless/TemporaryFiles.h"
#include "headless/edits/EditOperations.h"
#include "headless/edits/EditSource.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"

using namespace corvane;
namespace fs = std::filesystem;
using Ops = EditOperations;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class F>
double timed(F&& f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return secondsSince(start);
}

// Programme-like stereo: filtered noise with a slow level swell, both channels different.
SharedAudioBuffer makeProgramme(FrameCount frames, double rate) {
  auto buffer = AudioBuffer::create(2, frames, rate);
  buffer->setChannelPositions({ChannelPosition::FrontLeft, ChannelPosition::FrontRight});
  std::mt19937 random(4321);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  float left = 0.0f, right = 0.0f;
  for (FrameCount i = 0; i < frames; ++i) {
    const auto swell = static_cast<float>(0.6 + 0.4 * std::sin(static_cast<double>(i) / rate * 0.5));
    left = 0.95f * left + noise(random);
    right = 0.95f * right + noise(random);
    buffer->channel(0)[i] = swell * left * 0.5f;
    buffer->channel(1)[i] = swell * right * 0.5f;
  }
  return buffer;
}

// One float snapshot of the whole buffer, as the edit history writes one before every edit.
void writeSnapshot(const AudioBuffer& buffer, const fs::path& to) {
  PCMWriteSettings settings = PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat::of(buffer), PCMEncoding::float32);
  settings.expectedFrames = buffer.frameLength();
  auto writer = AudioFileWriter::create(to, settings);
  writer->write(buffer);
  writer->finish();
}

SharedAudioBuffer readBack(const fs::path& file) {
  FileEditSource source(file);
  auto buffer = AudioBuffer::create(source.channelCount(), source.frameLength(), source.sampleRate());
  source.read(0, source.frameLength(), buffer->channels());
  return buffer;
}

double soxSeconds(const std::string& arguments) {
  const std::string command = "sox -V1 " + arguments + " 2>/dev/null";
  double seconds = 0.0;
  seconds = timed([&] {
    if (std::system(command.c_str()) != 0) seconds = -1.0;
  });
  return seconds;
}

void removeQuietly(const fs::path& file) {
  std::error_code ignored;
  fs::remove(file, ignored);
}

}  // namespace

int main(int argc, char** argv) {
  double minutes = 60.0;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--minutes" && i + 1 < argc) minutes = std::atof(argv[++i]);
  }
  const double rate = 48000.0;
  const auto frames = static_cast<FrameCount>(minutes * 60.0 * rate);
  const FrameCount cutStart = frames / 2, cutEnd = frames / 2 + static_cast<FrameCount>(10 * rate);
  const FrameCount crossfade = static_cast<FrameCount>(rate * 0.01);
  const fs::path folder = privateTemporaryDirectory();
  const fs::path source = folder / "edit-bench-source.wav";
  const fs::path snapshot = Ops::temporaryResultPath("bench-snapshot");
  const fs::path soxOut = folder / "edit-bench-sox.wav";

  std::printf("edit_bench: %.0f min of 48 kHz stereo float (%.2f GB decoded), folder %s\n", minutes,
              static_cast<double>(Ops::decodedBytes(frames, 2)) / 1e9, folder.c_str());
  SharedAudioBuffer buffer = makeProgramme(frames, rate);

  // In memory first, before the file writes below fill the page cache: a rebuild's fresh
  // memory then costs what it costs in a session.
  const double fadeLinear = timed([&] {
    Ops::fadeInPlace(buffer->channels(), 2, frames, Ops::FadeDirection::fadeIn, Ops::FadeCurve::linear, 0, frames);
  });
  const double fadeEqualPower = timed([&] {
    Ops::fadeInPlace(buffer->channels(), 2, frames, Ops::FadeDirection::fadeIn, Ops::FadeCurve::equalPower, 0, frames);
  });
  // The rebuild road, twice: the first run pays for the process's first touch of that much
  // fresh memory, the second shows the edit itself.
  double extractSeconds[2] = {}, cutSeconds[2] = {}, buildSeconds[2] = {};
  for (int run = 0; run < 2; ++run) {
    SharedAudioBuffer cut;
    ChannelData data;
    extractSeconds[run] = timed([&] { data = Ops::extractChannelData(*buffer); });
    Ops::EditResult result;
    cutSeconds[run] = timed([&] { result = Ops::cutRange(data, cutStart, cutEnd, crossfade, rate); });
    data = ChannelData();
    buildSeconds[run] = timed([&] { cut = Ops::buildBuffer(std::move(result), buffer->channelPositions()); });
  }

  const double snapshotSeconds = timed([&] { writeSnapshot(*buffer, snapshot); });
  removeQuietly(snapshot);
  writeSnapshot(*buffer, source);

  const fs::path streamed = Ops::temporaryResultPath(Ops::kCutTag);
  BufferEditSource from(*buffer);
  const double streamWrite =
      timed([&] { Ops::writeCutWAV(from, cutStart, cutEnd, crossfade, streamed, Ops::kStreamingChunkFrames); });
  SharedAudioBuffer readBuffer;
  const double streamRead = timed([&] { readBuffer = readBack(streamed); });
  readBuffer.reset();
  removeQuietly(streamed);

  const double soxFade = soxSeconds(source.string() + " -e floating-point -b 32 " + soxOut.string() + " fade q " +
                                    std::to_string(frames) + "s");
  removeQuietly(soxOut);
  const double soxCut = soxSeconds(source.string() + " -e floating-point -b 32 " + soxOut.string() + " trim 0 =" +
                                   std::to_string(cutStart) + "s =" + std::to_string(cutEnd) + "s");
  removeQuietly(soxOut);

  std::printf("  one float snapshot of the buffer (our writer)     %7.2f s\n", snapshotSeconds);
  std::printf("fade in over the whole file\n");
  std::printf("  in place, linear                                  %7.2f s\n", fadeLinear);
  std::printf("  in place, equal power                             %7.2f s\n", fadeEqualPower);
  std::printf("  in place, equal power + snapshot                  %7.2f s\n", fadeEqualPower + snapshotSeconds);
  std::printf("  sox fade q, file to file                          %7.2f s\n", soxFade);
  std::printf("cut of 10 s in the middle, 10 ms crossfade\n");
  for (int run = 0; run < 2; ++run) {
    const double total = extractSeconds[run] + cutSeconds[run] + buildSeconds[run];
    std::printf("  in memory, %s: copy out %.2f + cut %.2f + new buffer %.2f = %5.2f s (+ snapshot %5.2f s)\n",
                run == 0 ? "first " : "second", extractSeconds[run], cutSeconds[run], buildSeconds[run], total,
                total + snapshotSeconds);
  }
  std::printf("  streaming: write %.2f + read back %.2f = %5.2f s (+ snapshot %5.2f s)\n", streamWrite, streamRead,
              streamWrite + streamRead, streamWrite + streamRead + snapshotSeconds);
  std::printf("  sox trim (hard cut), file to file                 %7.2f s\n", soxCut);
  removeQuietly(source);
  return 0;
}
