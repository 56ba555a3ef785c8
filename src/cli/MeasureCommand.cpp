// corvane measure FILE [--json]: the loudness, peak and dynamics figures of one file, as the
// window's offline pass computes them.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"
#include "core/AudioBuffer.h"
#include "core/ChannelOrder.h"
#include "core/DRProcessor.h"
#include "core/Decibels.h"
#include "core/LoudnessProcessor.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"

namespace corvane::cli {
namespace {

constexpr double kNegativeInfinity = -std::numeric_limits<double>::infinity();

// Property names and meaning follow the measurements the automation actions return.
struct Measurements {
  std::string fileName;
  double durationSeconds = 0.0;
  double sampleRate = 0.0;
  int channelCount = 0;
  double integratedLUFS = kNegativeInfinity;
  double loudnessRange = 0.0;
  double truePeakDBTP = kNegativeInfinity;
  double samplePeakDBFS = kNegativeInfinity;
  double maxMomentaryLUFS = kNegativeInfinity;
  double maxShortTermLUFS = kNegativeInfinity;
  int dynamicRange = -1;
  double speechGatedLUFS = kNegativeInfinity;
  double speechPercentage = 0.0;
  bool speechVADAvailable = false;
};

class NamedError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The whole file as the window loads it: decoded by the file layer, channels in canonical
// order (so the BS.1770 weights meet the right speakers).
SharedAudioBuffer readAudioFile(const std::string& path) {
  try {
    return AudioFileModel::decode(path);
  } catch (const AudioDecodeError&) {
    throw NamedError("The file at " + path + " is not a recognised audio file.");
  }
}

Measurements measure(const std::string& path, const AudioBuffer& buffer) {
  Measurements m;
  m.fileName = std::filesystem::path(path).filename().string();
  m.sampleRate = buffer.sampleRate();
  m.channelCount = buffer.channelCount();
  const FrameCount frames = buffer.frameLength();
  m.durationSeconds = static_cast<double>(frames) / buffer.sampleRate();

  LoudnessProcessor loudness(buffer.sampleRate(), buffer.channelCount(), nullptr,
                             ChannelOrder::bs1770Weights(buffer));
  loudness.setOfflineFeed(true);
  const FrameCount chunk = std::max<FrameCount>(1, std::llround(buffer.sampleRate() * 0.1));
  std::vector<const float*> pointers(static_cast<std::size_t>(buffer.channelCount()));
  for (FrameCount start = 0; start < frames; start += chunk) {
    const FrameCount n = std::min(chunk, frames - start);
    for (int c = 0; c < buffer.channelCount(); ++c) pointers[static_cast<std::size_t>(c)] = buffer.channel(c) + start;
    loudness.updateTruePeak(pointers.data(), n);
    loudness.process(pointers.data(), n);
  }
  loudness.flushPartialBlock();

  const auto finiteOr = [](double v, double fallback) { return std::isfinite(v) ? v : fallback; };
  m.integratedLUFS = finiteOr(loudness.integratedLUFS(), kNegativeInfinity);
  m.loudnessRange = finiteOr(loudness.loudnessRange(), 0.0);
  m.truePeakDBTP = finiteOr(loudness.truePeakDB(), kNegativeInfinity);
  m.maxMomentaryLUFS = finiteOr(loudness.maxMomentaryLUFS(), kNegativeInfinity);
  double maxShortTerm = kNegativeInfinity;
  for (const LoudnessBlock& block : loudness.blockHistory()) {
    if (std::isfinite(block.shortTermLUFS)) maxShortTerm = std::max(maxShortTerm, double{block.shortTermLUFS});
  }
  m.maxShortTermLUFS = maxShortTerm;

  float peak = 0.0f;
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* x = buffer.channel(c);
    for (FrameCount i = 0; i < frames; ++i) {
      if (std::isfinite(x[i])) peak = std::max(peak, std::fabs(x[i]));
    }
  }
  m.samplePeakDBFS = finiteOr(linearToDB(static_cast<double>(peak)), kNegativeInfinity);
  m.dynamicRange = DRProcessor::computeDR(buffer.channels(), buffer.channelCount(), frames,
                                          buffer.sampleRate());
  // No speech detection yet: speech-gated figures stay empty.
  return m;
}

std::string level(double value, const char* unit) {
  if (!std::isfinite(value)) return std::string("-inf ") + unit;
  char text[64];
  std::snprintf(text, sizeof text, "%.1f %s", value, unit);
  return text;
}

void printText(const Measurements& m) {
  char line[256];
  std::cout << "File:            " << m.fileName << '\n';
  std::snprintf(line, sizeof line, "Duration:        %.3f s\n", m.durationSeconds);
  std::cout << line;
  std::snprintf(line, sizeof line, "Sample rate:     %.0f Hz\n", m.sampleRate);
  std::cout << line;
  std::cout << "Channels:        " << m.channelCount << '\n';
  std::cout << "Integrated:      " << level(m.integratedLUFS, "LUFS") << '\n';
  std::snprintf(line, sizeof line, "Loudness range:  %.1f LU\n", m.loudnessRange);
  std::cout << line;
  std::cout << "True peak:       " << level(m.truePeakDBTP, "dBTP") << '\n';
  std::cout << "Sample peak:     " << level(m.samplePeakDBFS, "dBFS") << '\n';
  std::cout << "Max momentary:   " << level(m.maxMomentaryLUFS, "LUFS") << '\n';
  std::cout << "Max short-term:  " << level(m.maxShortTermLUFS, "LUFS") << '\n';
  if (m.dynamicRange >= 0) {
    std::cout << "Dynamic range:   DR" << m.dynamicRange << '\n';
  } else {
    std::cout << "Dynamic range:   -\n";
  }
  if (m.speechVADAvailable) {
    std::cout << "Speech-gated:    " << level(m.speechGatedLUFS, "LUFS") << '\n';
  } else {
    std::cout << "Speech-gated:    - (no speech detection)\n";
  }
}

void printJson(const Measurements& m) {
  std::cout << "{\n"
            << "  \"fileName\": " << jsonString(m.fileName) << ",\n"
            << "  \"durationSeconds\": " << jsonNumber(m.durationSeconds) << ",\n"
            << "  \"sampleRate\": " << jsonNumber(m.sampleRate) << ",\n"
            << "  \"channelCount\": " << m.channelCount << ",\n"
            << "  \"integratedLUFS\": " << jsonNumber(m.integratedLUFS) << ",\n"
            << "  \"loudnessRange\": " << jsonNumber(m.loudnessRange) << ",\n"
            << "  \"truePeakDBTP\": " << jsonNumber(m.truePeakDBTP) << ",\n"
            << "  \"samplePeakDBFS\": " << jsonNumber(m.samplePeakDBFS) << ",\n"
            << "  \"maxMomentaryLUFS\": " << jsonNumber(m.maxMomentaryLUFS) << ",\n"
            << "  \"maxShortTermLUFS\": " << jsonNumber(m.maxShortTermLUFS) << ",\n"
            << "  \"dynamicRange\": " << m.dynamicRange << ",\n"
            << "  \"speechGatedLUFS\": " << jsonNumber(m.speechGatedLUFS) << ",\n"
            << "  \"speechPercentage\": " << jsonNumber(m.speechPercentage) << ",\n"
            << "  \"speechVADAvailable\": " << (m.speechVADAvailable ? "true" : "false") << "\n"
            << "}\n";
}

}  // namespace

int runMeasureCommand(const std::vector<std::string>& args) {
  std::string path;
  bool json = false;
  for (const std::string& arg : args) {
    if (arg == "--json") {
      json = true;
    } else if (path.empty() && (arg.empty() || arg[0] != '-')) {
      path = arg;
    } else {
      printError("usage: corvane measure FILE [--json]");
      return kExitUsage;
    }
  }
  if (path.empty()) {
    printError("usage: corvane measure FILE [--json]");
    return kExitUsage;
  }
  try {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
      throw NamedError("Could not find a file at " + path + ".");
    }
    const SharedAudioBuffer buffer = readAudioFile(path);
    const Measurements m = measure(path, *buffer);
    if (json) {
      printJson(m);
    } else {
      printText(m);
    }
    return kExitSuccess;
  } catch (const NamedError& e) {
    printError(e.what());
    return kExitNamedError;
  } catch (const std::bad_alloc&) {
    printError("There is not enough memory to measure " + path + ".");
    return kExitNamedError;
  } catch (const std::exception& e) {
    printError(e.what());
    return kExitNamedError;
  }
}

}  // namespace corvane::cli
