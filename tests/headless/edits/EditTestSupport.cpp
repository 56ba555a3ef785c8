#include "EditTestSupport.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "core/LoudnessProcessor.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"

namespace corvane::test {

std::vector<float*> Audio::pointers() {
  std::vector<float*> result;
  for (auto& channel : channels) result.push_back(channel.data());
  return result;
}

void soxMake(const fs::path& out, const std::string& options, const std::string& effects) {
  runChecked("sox -V1 -R -D -n " + options + " " + shellQuote(out.string()) + " " + effects + " 2>&1");
}

Audio readAudio(const fs::path& file) {
  FileEditSource source(file);
  Audio audio;
  audio.rate = source.sampleRate();
  audio.positions = source.channelPositions();
  audio.channels.assign(static_cast<std::size_t>(source.channelCount()),
                        std::vector<float>(static_cast<std::size_t>(source.frameLength())));
  source.read(0, source.frameLength(), audio.pointers().data());
  return audio;
}

void writeFloatWav(const fs::path& file, const Audio& audio) {
  AudioStreamFormat format;
  format.sampleRate = audio.rate;
  format.channelCount = audio.channelCount();
  format.channelPositions = audio.positions;
  auto writer = AudioFileWriter::create(file, PCMWriteSettings::make(AudioContainer::wav, format, PCMEncoding::float32));
  std::vector<const float*> pointers;
  for (const auto& channel : audio.channels) pointers.push_back(channel.data());
  writer->write(pointers.data(), audio.frames());
  writer->finish();
}

ChannelData soxChannels(const fs::path& file, int channelCount) {
  return deinterleave(soxDecode(file), channelCount);
}

namespace {

// The first number after `label` on its line of sox's stats table.
double statsValue(const std::string& text, const std::string& label) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(label, 0) == 0) return std::stod(line.substr(label.size()));
  }
  throw std::runtime_error("sox stats gave no " + label + ":\n" + text);
}

SoxStats parseStats(const std::string& text) {
  return {statsValue(text, "RMS lev dB"), statsValue(text, "Pk lev dB"), statsValue(text, "DC offset")};
}

}  // namespace

SoxStats soxStats(const fs::path& file) {
  return parseStats(runChecked("sox -V1 " + shellQuote(file.string()) + " -n stats 2>&1"));
}

SoxStats soxStats(const fs::path& file, int channel) {
  return parseStats(
      runChecked("sox -V1 " + shellQuote(file.string()) + " -n remix " + std::to_string(channel) + " stats 2>&1"));
}

double astatsRMSDB(const fs::path& file, double startSec, double durationSec) {
  char filter[256];
  std::snprintf(filter, sizeof filter, "atrim=start=%.6f:end=%.6f,astats=measure_perchannel=none:measure_overall=RMS_level",
                startSec, startSec + durationSec);
  const std::string out = runChecked("ffmpeg -v info -nostats -i " + shellQuote(file.string()) + " -af " +
                                     shellQuote(filter) + " -f null - 2>&1");
  const std::string key = "RMS level dB: ";
  const auto at = out.rfind(key);
  if (at == std::string::npos) throw std::runtime_error("ffmpeg astats gave no RMS level:\n" + out);
  return std::stod(out.substr(at + key.size()));
}

Ebur128Result ebur128Measure(const Audio& audio, bool surround51) {
  const auto channels = static_cast<unsigned>(audio.channelCount());
  ebur128_state* state =
      ebur128_init(channels, static_cast<unsigned long>(audio.rate), EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
  if (surround51 && channels == 6) {
    const int map[6] = {EBUR128_LEFT, EBUR128_RIGHT, EBUR128_CENTER, EBUR128_UNUSED, EBUR128_LEFT_SURROUND,
                        EBUR128_RIGHT_SURROUND};
    for (unsigned c = 0; c < 6; ++c) ebur128_set_channel(state, c, map[c]);
  }
  const std::vector<float> interleaved = interleave(audio.channels);
  ebur128_add_frames_float(state, interleaved.data(), static_cast<std::size_t>(audio.frames()));
  Ebur128Result result;
  ebur128_loudness_global(state, &result.integratedLUFS);
  double peak = 0.0;
  for (unsigned c = 0; c < channels; ++c) {
    double channelPeak = 0.0;
    ebur128_true_peak(state, c, &channelPeak);
    peak = std::max(peak, channelPeak);
  }
  result.truePeakDB = 20.0 * std::log10(peak);
  ebur128_destroy(&state);
  return result;
}

double ourTruePeakDB(const Audio& audio) {
  LoudnessProcessor meter(audio.rate, audio.channelCount());
  std::vector<const float*> pointers;
  for (const auto& channel : audio.channels) pointers.push_back(channel.data());
  meter.updateTruePeak(pointers.data(), audio.frames());
  meter.flushPartialBlock();
  return meter.truePeakDB();
}

double maxDifference(const ChannelData& a, const ChannelData& b) {
  if (a.size() != b.size()) return std::numeric_limits<double>::infinity();
  double worst = 0.0;
  for (std::size_t c = 0; c < a.size(); ++c) {
    if (a[c].size() != b[c].size()) return std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < a[c].size(); ++i) {
      worst = std::max(worst, std::fabs(static_cast<double>(a[c][i]) - static_cast<double>(b[c][i])));
    }
  }
  return worst;
}

bool bitIdentical(const ChannelData& a, const ChannelData& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t c = 0; c < a.size(); ++c) {
    if (a[c].size() != b[c].size()) return false;
    if (std::memcmp(a[c].data(), b[c].data(), a[c].size() * sizeof(float)) != 0) return false;
  }
  return true;
}

std::vector<float> interleave(const ChannelData& channels) {
  if (channels.empty()) return {};
  const std::size_t count = channels.size();
  const std::size_t frames = channels.front().size();
  std::vector<float> out(frames * count);
  for (std::size_t c = 0; c < count; ++c) {
    for (std::size_t i = 0; i < frames; ++i) out[i * count + c] = channels[c][i];
  }
  return out;
}

ChannelData deinterleave(const std::vector<float>& interleaved, int channelCount) {
  const auto count = static_cast<std::size_t>(channelCount);
  const std::size_t frames = interleaved.size() / count;
  ChannelData out(count, std::vector<float>(frames));
  for (std::size_t i = 0; i < frames; ++i) {
    for (std::size_t c = 0; c < count; ++c) out[c][i] = interleaved[i * count + c];
  }
  return out;
}

}  // namespace corvane::test
