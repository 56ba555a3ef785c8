// Decoding one hour of 48 kHz stereo 24-bit audio (WAV and FLAC) into Corvane's planar float
// buffer, against ffmpeg and sox decoding the same files in the same run, and against two
// physical anchors: a plain memcpy of the WAV's bytes into fresh memory (what any reader must
// at least pay: reading the bytes and touching new pages) and libFLAC decoding the FLAC into
// nothing (the FLAC decoder's own speed).
//
// usage: file_decode_bench [FOLDER] [--runs N]
// The files are made once with sox in FOLDER (default: $TMPDIR/corvane-bench) and reused.
// Figures are wall-clock seconds, best of N runs (3 by default), with the page cache warm.
#include <FLAC/stream_decoder.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "HourFile.h"
#include "headless/files/AudioFileModel.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using corvane::bench::runShell;

double timeBest(int runs, const std::function<void()>& work) {
  double best = 1e30;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    work();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

std::vector<char> readWhole(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> bytes(fs::file_size(file));
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

// Corvane's decode: the load's decoding half (one read of the whole file into a fresh planar
// float buffer, canonical order), without peaks and clip regions.
void decodeWithCorvane(const fs::path& file) {
  const auto buffer = corvane::AudioFileModel::decode(file);
  if (buffer->frameLength() != 3600ll * 48000) {
    std::fprintf(stderr, "short decode of %s\n", file.c_str());
    std::exit(1);
  }
}

FLAC__StreamDecoderWriteStatus discardFrame(const FLAC__StreamDecoder*, const FLAC__Frame*, const FLAC__int32* const[],
                                            void*) {
  return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}
void ignoreError(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void*) {}

void decodeWithLibFlac(const fs::path& file) {
  FLAC__StreamDecoder* decoder = FLAC__stream_decoder_new();
  FLAC__stream_decoder_init_file(decoder, file.c_str(), discardFrame, nullptr, ignoreError, nullptr);
  FLAC__stream_decoder_process_until_end_of_stream(decoder);
  FLAC__stream_decoder_delete(decoder);
}

void report(const char* name, double seconds, double fileBytes, double anchor, const char* anchorName) {
  std::printf("  %-44s %7.3f s  %6.2f GB/s of file  %5.2fx %s\n", name, seconds, fileBytes / seconds / 1e9,
              seconds / anchor, anchorName);
}

}  // namespace

int main(int argc, char** argv) {
  const auto [folder, runs] = corvane::bench::parseBenchArguments(argc, argv, 3);
  const fs::path wav = corvane::bench::ensureHourWav(folder);
  const fs::path flac = folder / "hour-48k-24bit.flac";
  if (!fs::exists(flac)) {
    std::printf("making %s...\n", flac.c_str());
    runShell("sox -V1 '" + wav.string() + "' '" + flac.string() + "'");
  }
  // Warm the page cache: every reader below finds the bytes in memory.
  runShell("cat '" + wav.string() + "' '" + flac.string() + "' > /dev/null");

  const double wavSize = static_cast<double>(fs::file_size(wav));
  const double flacSize = static_cast<double>(fs::file_size(flac));
  std::printf("\nWAV: %.2f GB, FLAC: %.2f GB; best of %d runs\n\n", wavSize / 1e9, flacSize / 1e9, runs);

  const auto bytes = readWhole(wav);
  const double memcpyFresh = timeBest(runs, [&] {
    std::unique_ptr<char[]> copy(new char[bytes.size()]);
    std::memcpy(copy.get(), bytes.data(), bytes.size());
    asm volatile("" ::"r"(copy.get()) : "memory");
  });
  std::unique_ptr<char[]> warm(new char[bytes.size()]);
  std::memset(warm.get(), 0, bytes.size());
  const double memcpyWarm = timeBest(runs, [&] {
    std::memcpy(warm.get(), bytes.data(), bytes.size());
    asm volatile("" ::"r"(warm.get()) : "memory");
  });

  std::printf("WAV (1 h, 48 kHz, stereo, 24-bit):\n");
  report("memcpy of the file into fresh memory", memcpyFresh, wavSize, memcpyFresh, "memcpy");
  report("memcpy of the file into touched memory", memcpyWarm, wavSize, memcpyFresh, "memcpy");
  report("Corvane decode to planar float", timeBest(runs, [&] { decodeWithCorvane(wav); }), wavSize, memcpyFresh,
         "memcpy");
  report("Corvane load (decode, order, peaks, clips)",
         timeBest(runs, [&] { corvane::AudioFileModel::load(wav); }), wavSize, memcpyFresh, "memcpy");
  report("ffmpeg -c:a pcm_f32le -f null", timeBest(runs, [&] {
           runShell("ffmpeg -v error -threads 1 -i '" + wav.string() + "' -c:a pcm_f32le -f null -");
         }), wavSize, memcpyFresh, "memcpy");
  report("sox ... -n", timeBest(runs, [&] { runShell("sox -V1 '" + wav.string() + "' -n"); }), wavSize,
         memcpyFresh, "memcpy");

  const double libflac = timeBest(runs, [&] { decodeWithLibFlac(flac); });
  std::printf("\nFLAC (the same audio):\n");
  report("libFLAC decoding into nothing", libflac, flacSize, libflac, "libFLAC");
  report("Corvane decode to planar float", timeBest(runs, [&] { decodeWithCorvane(flac); }), flacSize, libflac,
         "libFLAC");
  report("ffmpeg -c:a pcm_f32le -f null", timeBest(runs, [&] {
           runShell("ffmpeg -v error -threads 1 -i '" + flac.string() + "' -c:a pcm_f32le -f null -");
         }), flacSize, libflac, "libFLAC");
  report("sox ... -n", timeBest(runs, [&] { runShell("sox -V1 '" + flac.string() + "' -n"); }), flacSize, libflac,
         "libFLAC");
  return 0;
}
