// corvane measure FILE [--json] [--speech] [--mode M]: the loudness, peak and dynamics figures
// of one file, as the window's offline pass computes them; with --speech also the speech-gated
// figures, from the speech detector's history of the file; with --mode, the verdicts of that
// mode's loudness targets.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"
#include "cli/TargetVerdicts.h"
#include "core/AudioBuffer.h"
#include "core/ChannelOrder.h"
#include "core/DRProcessor.h"
#include "core/Decibels.h"
#include "core/LoudnessMeasurement.h"
#include "core/LoudnessProcessor.h"
#include "core/LoudnessTarget.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"
#include "headless/speech/SileroVADAnalyser.h"

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

// The speech history of the whole file with the default tuning, or null when the detector is
// unavailable or fails; the reason goes to standard error and the other figures stand.
SharedSpeechHistory detectSpeech(const AudioBuffer& buffer) {
  const SileroVADAnalyser& detector = SileroVADAnalyser::shared();
  if (!detector.isAvailable()) {
    printError("[SpeechDetection] " + detector.errorText());
    return nullptr;
  }
  try {
    return std::make_shared<const SpeechHistory>(detector.detectSpeech(buffer, SileroVADTuning{}));
  } catch (const std::exception& e) {
    printError(std::string("[SpeechDetection] ") + e.what());
    return nullptr;
  }
}

Measurements measure(const std::string& path, const AudioBuffer& buffer, bool withSpeech) {
  Measurements m;
  m.fileName = std::filesystem::path(path).filename().string();
  m.sampleRate = buffer.sampleRate();
  m.channelCount = buffer.channelCount();
  const FrameCount frames = buffer.frameLength();
  m.durationSeconds = static_cast<double>(frames) / buffer.sampleRate();

  const SharedSpeechHistory speech = withSpeech ? detectSpeech(buffer) : nullptr;
  LoudnessProcessor loudness(buffer.sampleRate(), buffer.channelCount(), speech,
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
  if (speech) {
    m.speechVADAvailable = true;
    m.speechGatedLUFS = finiteOr(loudness.speechGatedLUFS(), kNegativeInfinity);
    m.speechPercentage = finiteOr(loudness.speechPercentage(), 0.0);
  }
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
    std::snprintf(line, sizeof line, "Speech:          %.1f %%\n", m.speechPercentage);
    std::cout << line;
  } else {
    std::cout << "Speech-gated:    - (no speech detection)\n";
  }
}

// What the loudness targets judge: the figures above plus the programme RMS for the RMS
// targets. Without speech detection there is no speech share, gated loudness or noise floor.
LoudnessMeasurement targetMeasurement(const Measurements& m, const AudioBuffer& buffer) {
  LoudnessMeasurement t;
  t.integratedLUFS = static_cast<float>(m.integratedLUFS);
  t.truePeakDBTP = static_cast<float>(m.truePeakDBTP);
  t.maxShortTermLUFS = static_cast<float>(m.maxShortTermLUFS);
  if (m.speechVADAvailable) {
    t.dialogGatedLUFS = static_cast<float>(m.speechGatedLUFS);
    t.speechPercentage = static_cast<float>(m.speechPercentage);
  }
  t.rmsDBFS = LoudnessMeasurement::programRMSDBFS(channelRMSDBFS(buffer));
  return t;
}

// `extraMembers`: further members of the object, already indented, without a trailing comma.
void printJson(const Measurements& m, const std::string& extraMembers) {
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
            << "  \"speechVADAvailable\": " << (m.speechVADAvailable ? "true" : "false")
            << (extraMembers.empty() ? "\n" : ",\n" + extraMembers + "\n") << "}\n";
}

}  // namespace

int runMeasureCommand(const std::vector<std::string>& args) {
  constexpr const char* kUsage =
      "usage: corvane measure FILE [--json] [--speech] [--mode music|podcast|vod|broadcast]";
  std::string path;
  bool json = false;
  bool speech = false;
  std::optional<LoudnessTargetMode> mode;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--json") {
      json = true;
    } else if (arg == "--speech") {
      speech = true;
    } else if (arg == "--mode" && i + 1 < args.size() && !mode) {
      mode = parseLoudnessTargetMode(args[++i]);
      if (!mode) {
        printError("corvane measure: unknown mode '" + args[i] +
                   "'; choose music, podcast, vod or broadcast.");
        return kExitUsage;
      }
    } else if (path.empty() && (arg.empty() || arg[0] != '-')) {
      path = arg;
    } else {
      printError(kUsage);
      return kExitUsage;
    }
  }
  if (path.empty()) {
    printError(kUsage);
    return kExitUsage;
  }
  try {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
      throw NamedError("Could not find a file at " + path + ".");
    }
    const SharedAudioBuffer buffer = readAudioFile(path);
    const Measurements m = measure(path, *buffer, speech);
    std::optional<LoudnessMeasurement> judged;
    if (mode) judged = targetMeasurement(m, *buffer);
    if (json) {
      printJson(m, judged ? targetVerdictsJsonMembers(*mode, *judged) : std::string());
    } else {
      printText(m);
      if (judged) {
        std::cout << '\n';
        printTargetVerdicts(std::cout, *mode, *judged);
      }
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
