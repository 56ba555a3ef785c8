#include "SpeechTestSupport.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>

namespace corvane::test {

std::shared_ptr<const SileroVADModel> installedModel() {
  static std::shared_ptr<const SileroVADModel> model = [] {
    try {
      return SileroVADModel::loadInstalled();
    } catch (const SpeechModelError& error) {
      ADD_FAILURE() << error.what();
      return std::shared_ptr<const SileroVADModel>();
    }
  }();
  return model;
}

WavFile readWav(const std::filesystem::path& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) throw std::runtime_error("cannot open " + path.string() + ": " + sf_strerror(nullptr));
  WavFile wav;
  wav.sampleRate = info.samplerate;
  wav.channels = info.channels;
  wav.interleaved.resize(static_cast<std::size_t>(info.frames) * static_cast<std::size_t>(info.channels));
  const sf_count_t got = sf_readf_float(file, wav.interleaved.data(), info.frames);
  sf_close(file);
  wav.interleaved.resize(static_cast<std::size_t>(got) * static_cast<std::size_t>(info.channels));
  return wav;
}

void writeWav(const std::filesystem::path& path, const SharedAudioBuffer& buffer) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(buffer->sampleRate());
  info.channels = buffer->channelCount();
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (!file) throw std::runtime_error("cannot write " + path.string());
  std::vector<float> interleaved(static_cast<std::size_t>(buffer->frameLength()) * info.channels);
  for (FrameCount i = 0; i < buffer->frameLength(); ++i) {
    for (int c = 0; c < info.channels; ++c) interleaved[static_cast<std::size_t>(i) * info.channels + c] = buffer->channel(c)[i];
  }
  sf_writef_float(file, interleaved.data(), buffer->frameLength());
  sf_close(file);
}

SharedAudioBuffer toBuffer(const WavFile& wav) {
  auto buffer = AudioBuffer::create(wav.channels, wav.frames(), wav.sampleRate);
  for (std::int64_t i = 0; i < wav.frames(); ++i) {
    for (int c = 0; c < wav.channels; ++c) buffer->channel(c)[i] = wav.interleaved[static_cast<std::size_t>(i) * wav.channels + c];
  }
  return buffer;
}

void run(const std::string& commandLine) {
  const std::string full = commandLine + " 2>&1";
  FILE* pipe = popen(full.c_str(), "r");
  if (!pipe) throw std::runtime_error("cannot run: " + commandLine);
  std::string output;
  std::array<char, 512> chunk{};
  while (fgets(chunk.data(), static_cast<int>(chunk.size()), pipe)) output += chunk.data();
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + commandLine + "\n" + output);
}

std::string quoted(const std::filesystem::path& path) {
  std::string out = "'";
  for (const char c : path.string()) out += (c == '\'') ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

TemporaryFolder::TemporaryFolder() {
  std::random_device device;
  for (;;) {
    _path = std::filesystem::temp_directory_path() / ("corvane-speech-test-" + std::to_string(device()));
    if (std::filesystem::create_directory(_path)) break;
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

}  // namespace corvane::test
