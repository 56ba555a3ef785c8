#include "FileTestSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>

namespace corvane::test {

TemporaryFolder::TemporaryFolder() {
  std::random_device seed;
  std::mt19937_64 random(seed());
  _path = fs::temp_directory_path() / ("corvane-files-test-" + std::to_string(::getpid()) + "-" + std::to_string(random()));
  fs::create_directories(_path);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  // Tests may leave read-only folders behind; give them back before removing.
  for (auto it = fs::recursive_directory_iterator(_path, error); it != fs::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_directory(error)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, error);
  }
  fs::remove_all(_path, error);
}

std::string shellQuote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') quoted += "'\\''";
    else quoted += c;
  }
  return quoted + "'";
}

CommandResult runCommand(const std::string& commandLine) {
  CommandResult result;
  FILE* pipe = ::popen(commandLine.c_str(), "r");
  if (!pipe) return result;
  char chunk[65536];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) result.output.append(chunk, n);
  const int status = ::pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string runChecked(const std::string& commandLine) {
  auto result = runCommand(commandLine);
  if (result.exitCode != 0) {
    ADD_FAILURE() << "command failed (" << result.exitCode << "): " << commandLine;
    throw std::runtime_error("command failed: " + commandLine);
  }
  return result.output;
}

std::vector<unsigned char> readBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const fs::path& file, const std::vector<unsigned char>& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

namespace {

std::vector<float> floatsOf(const std::string& bytes) {
  std::vector<float> samples(bytes.size() / 4);
  std::memcpy(samples.data(), bytes.data(), samples.size() * 4);
  return samples;
}

std::string field(const std::string& text, const std::string& key) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(key + "=", 0) == 0) return line.substr(key.size() + 1);
  }
  return {};
}

}  // namespace

std::vector<float> soxDecode(const fs::path& file) {
  return floatsOf(runChecked("sox -V1 " + shellQuote(file.string()) + " -t raw -e floating-point -b 32 -L - 2>/dev/null"));
}

std::vector<float> ffmpegDecode(const fs::path& file) {
  return floatsOf(runChecked("ffmpeg -v error -i " + shellQuote(file.string()) + " -map 0:a:0 -f f32le -c:a pcm_f32le -"));
}

ProbeInfo ffprobe(const fs::path& file) {
  const std::string out = runChecked(
      "ffprobe -v error -select_streams a:0 -show_entries "
      "stream=codec_name,sample_rate,channels,channel_layout,duration_ts,time_base:format=format_name "
      "-of default=nw=1 " + shellQuote(file.string()));
  ProbeInfo info;
  info.formatName = field(out, "format_name");
  info.codecName = field(out, "codec_name");
  info.sampleRate = std::atoi(field(out, "sample_rate").c_str());
  info.channels = std::atoi(field(out, "channels").c_str());
  info.channelLayout = field(out, "channel_layout");
  const std::string duration = field(out, "duration_ts");
  const std::string timeBase = field(out, "time_base");
  if (!duration.empty() && duration != "N/A" && timeBase.find('/') != std::string::npos) {
    const double numerator = std::atof(timeBase.substr(0, timeBase.find('/')).c_str());
    const double denominator = std::atof(timeBase.substr(timeBase.find('/') + 1).c_str());
    info.durationFrames = std::llround(std::atof(duration.c_str()) * numerator / denominator * info.sampleRate);
  }
  return info;
}

std::string sndfileInfo(const fs::path& file) { return runCommand("sndfile-info " + shellQuote(file.string()) + " 2>&1").output; }

std::vector<float> interleave(const AudioBuffer& buffer) {
  const auto frames = static_cast<std::size_t>(buffer.frameLength());
  const auto channels = static_cast<std::size_t>(buffer.channelCount());
  std::vector<float> out(frames * channels);
  for (std::size_t c = 0; c < channels; ++c) {
    const float* data = buffer.channel(static_cast<int>(c));
    for (std::size_t i = 0; i < frames; ++i) out[i * channels + c] = data[i];
  }
  return out;
}

double toneMagnitude(const float* samples, FrameCount count, double sampleRate, double frequency) {
  const double coefficient = 2.0 * std::cos(2.0 * M_PI * frequency / sampleRate);
  double s1 = 0.0, s2 = 0.0;
  for (FrameCount i = 0; i < count; ++i) {
    const double s0 = samples[i] + coefficient * s1 - s2;
    s2 = s1;
    s1 = s0;
  }
  const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
  return std::sqrt(std::max(power, 0.0)) / static_cast<double>(std::max<FrameCount>(count, 1));
}

const std::vector<Fixture>& fixtureMatrix() {
  static const std::string soxStereo = "sox -R -V1 -n -r 48000 -c 2 ";
  static const std::string tones51 =
      "ffmpeg -v error -f lavfi -i \"aevalsrc=0.25*sin(2*PI*330*t)|0.25*sin(2*PI*470*t)|0.25*sin(2*PI*610*t)|"
      "0.25*sin(2*PI*70*t)|0.25*sin(2*PI*890*t)|0.25*sin(2*PI*1030*t):s=48000:d=1:c=5.1\" ";
  static const std::string tones71 =
      "ffmpeg -v error -f lavfi -i \"aevalsrc=0.25*sin(2*PI*330*t)|0.25*sin(2*PI*470*t)|0.25*sin(2*PI*610*t)|"
      "0.25*sin(2*PI*70*t)|0.25*sin(2*PI*890*t)|0.25*sin(2*PI*1030*t)|0.25*sin(2*PI*1170*t)|"
      "0.25*sin(2*PI*1310*t):s=48000:d=1:c=7.1\" ";
  static const std::string fromS24 = "ffmpeg -v error -i {dir}/wav-s24.wav ";
  static const std::vector<Fixture> matrix{
      {"wav-s16.wav", "sox -R -V1 -n -r 44100 -c 2 -b 16 {out} synth 1.25 square 441 whitenoise", true, false, "sox", "WAV", "16-bit integer", true},
      {"wav-s24.wav", soxStereo + "-b 24 {out} synth 1.25 sine 997 whitenoise vol 0.9", true, false, "sox", "WAV", "24-bit integer", true},
      {"wav-s32.wav", soxStereo + "-b 32 -e signed-integer {out} synth 1.25 sine 997 whitenoise vol 0.9", true, true, "sox", "WAV", "32-bit integer", true},
      {"wav-f32.wav", soxStereo + "-b 32 -e floating-point {out} synth 1.25 sine 997 whitenoise vol 0.9", true, false, "sox", "WAV", "32-bit float", true},
      {"wav-f64.wav", soxStereo + "-b 64 -e floating-point {out} synth 1.25 sine 997 whitenoise vol 0.9", true, true, "sox", "WAV", "64-bit float", true},
      {"wav-u8.wav", "sox -R -V1 -n -r 22050 -c 1 -b 8 -e unsigned-integer {out} synth 0.5 sine 300 vol 0.8", true, false, "sox", "WAV", "8-bit unsigned integer", true},
      {"wavex-51.wav", tones51 + "-c:a pcm_s24le {out}", true, false, "ffmpeg", "WAV", "24-bit integer", true},
      {"wavex-71.wav", tones71 + "-c:a pcm_s16le {out}", true, false, "ffmpeg", "WAV", "16-bit integer", true},
      {"rf64.wav", fromS24 + "-c:a pcm_s24le -rf64 always -f wav {out}", true, false, "ffmpeg", "RF64", "24-bit integer", true},
      {"wave64.w64", fromS24 + "-c:a pcm_s24le -f w64 {out}", true, false, "ffmpeg", "Wave64", "24-bit integer", true},
      {"aiff-s16.aiff", "sox -R -V1 -n -r 44100 -c 2 -b 16 {out} synth 1.25 sine 440 whitenoise vol 0.7", true, false, "sox", "AIFF", "16-bit integer", true},
      {"aifc-s24.aifc", soxStereo + "-b 24 -t aifc {out} synth 1.25 sine 997 whitenoise vol 0.9", true, false, "sox", "AIFF-C", "24-bit integer", true},
      {"aifc-sowt.aiff", fromS24 + "-c:a pcm_s16le -f aiff {out}", true, false, "ffmpeg", "AIFF-C", "16-bit integer", true},
      {"caf-s24.caf", fromS24 + "-c:a pcm_s24le -f caf {out}", true, false, "ffmpeg", "CAF", "24-bit integer", true},
      {"flac-16.flac", "sox -R -V1 -n -r 44100 -c 2 -b 16 {out} synth 1.25 sine 440 whitenoise vol 0.7", true, false, "sox", "FLAC", "FLAC (16-bit)", false},
      {"flac-24.flac", soxStereo + "-b 24 {out} synth 1.25 sine 997 whitenoise vol 0.9", true, false, "sox", "FLAC", "FLAC (24-bit)", false},
      {"alac.m4a", fromS24 + "-c:a alac {out}", true, false, "ffmpeg", "MPEG-4", "ALAC (24-bit)", false},
      {"mp3.mp3", fromS24 + "-c:a libmp3lame -b:a 192k {out}", false, false, "ffmpeg", "MP3", "MP3", false},
      {"aac.m4a", fromS24 + "-c:a aac -b:a 192k {out}", false, false, "ffmpeg", "MPEG-4", "AAC", false},
      {"adts.aac", fromS24 + "-c:a aac -b:a 192k -f adts {out}", false, false, "ffmpeg", "AAC (ADTS)", "AAC", false},
      {"vorbis.ogg", fromS24 + "-c:a libvorbis -q:a 6 {out}", false, false, "ffmpeg", "Ogg Vorbis", "Vorbis", false},
      {"opus.opus", fromS24 + "-c:a libopus -b:a 160k {out}", false, false, "ffmpeg", "Opus", "Opus", false},
      {"flac-51.flac", "ffmpeg -v error -i {dir}/wavex-51.wav -c:a flac {out}", true, false, "ffmpeg", "FLAC", "FLAC (24-bit)", false},
      {"flac-71.flac", "ffmpeg -v error -i {dir}/wavex-71.wav -c:a flac {out}", true, false, "ffmpeg", "FLAC", "FLAC (16-bit)", false},
      {"aac-51.m4a", "ffmpeg -v error -i {dir}/wavex-51.wav -c:a aac -b:a 384k {out}", false, false, "ffmpeg", "MPEG-4", "AAC", false},
      {"aac-71.m4a", "ffmpeg -v error -i {dir}/wavex-71.wav -c:a aac -b:a 512k {out}", false, false, "ffmpeg", "MPEG-4", "AAC", false},
      {"vorbis-51.ogg", "ffmpeg -v error -i {dir}/wavex-51.wav -c:a libvorbis -q:a 6 {out}", false, false, "ffmpeg", "Ogg Vorbis", "Vorbis", false},
      {"vorbis-71.ogg", "ffmpeg -v error -i {dir}/wavex-71.wav -c:a libvorbis -q:a 6 {out}", false, false, "ffmpeg", "Ogg Vorbis", "Vorbis", false},
      {"caf-51.caf", "ffmpeg -v error -i {dir}/wavex-51.wav -c:a pcm_s24le {out}", true, false, "ffmpeg", "CAF", "24-bit integer", true},
  };
  return matrix;
}

const fs::path& fixtureFolder() {
  static fs::path folder;
  static std::once_flag once;
  std::call_once(once, [] {
    std::string all;
    for (const auto& fixture : fixtureMatrix()) all += fixture.name + '\n' + fixture.command + '\n';
    std::ostringstream hash;
    hash << std::hex << std::hash<std::string>{}(all);
    const char* outputEnv = std::getenv("CORVANE_TEST_OUTPUT_DIR");
    const fs::path base = fs::path(outputEnv && *outputEnv ? outputEnv : CORVANE_TEST_OUTPUT_DIR) / "headless-files-fixtures";
    folder = base / hash.str();
    if (fs::exists(folder / "complete")) return;
    const fs::path building = base / (hash.str() + ".building-" + std::to_string(::getpid()));
    fs::remove_all(building);
    fs::create_directories(building);
    for (const auto& fixture : fixtureMatrix()) {
      std::string command = fixture.command;
      for (auto at = command.find("{out}"); at != std::string::npos; at = command.find("{out}")) {
        command.replace(at, 5, shellQuote((building / fixture.name).string()));
      }
      for (auto at = command.find("{dir}"); at != std::string::npos; at = command.find("{dir}")) {
        command.replace(at, 5, shellQuote(building.string()));
      }
      runChecked(command + " < /dev/null");
    }
    std::ofstream(building / "complete") << "made by the file-layer tests\n";
    std::error_code error;
    fs::rename(building, folder, error);
    if (error) fs::remove_all(building, error);  // another process made it first
  });
  return folder;
}

}  // namespace corvane::test
