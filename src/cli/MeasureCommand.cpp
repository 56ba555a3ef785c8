// corvane measure FILE [--json] [--speech] [--mode M]: the loudness, peak and dynamics figures
// of one file, from the same load stages the window runs when it opens the file; with --speech
// also the speech-gated figures, from the speech detector's history of the file; with --mode,
// the verdicts of that mode's loudness targets.
#include <algorithm>
#include <charconv>
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
#include "core/LoudnessMeasurement.h"
#include "core/LoudnessTarget.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/FileLoadPipeline.h"

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

// The window's load road, run here on the tool's thread: stage 1 (decode, peaks, clip
// regions), the pyramid, stage 2 (speech, only with --speech) and stage 3 (file metrics). The
// figures are the ones the window's info panel shows for the file.
class MeasureRun final : public FileLoadListener {
 public:
  void decodeFailed(std::exception_ptr error) override { failure = error; }
  void decoded(AudioFileModel loaded, SharedAudioBuffer samples) override {
    model = std::move(loaded);
    buffer = std::move(samples);
  }
  void speechDetected(SpeechStageResult result) override { speech = std::move(result); }
  void measured(SlotMetrics result) override { metrics = std::move(result); }

  std::exception_ptr failure;
  std::optional<AudioFileModel> model;
  SharedAudioBuffer buffer;
  SpeechStageResult speech;
  std::optional<SlotMetrics> metrics;
};

MeasureRun load(const std::string& path, bool withSpeech) {
  FileLoadRequest request;
  request.url = path;
  request.options.detectSpeech = withSpeech;
  request.options.vadTuning = SileroVADTuning{};
  request.options.computeSpectrogram = false;
  // The window builds the pyramid of a long file at load too; the tool does the same work, so
  // its timing stands for the window's.
  request.options.buildPyramid = true;
  MeasureRun run;
  runFileLoad(request, run);
  if (run.failure) {
    try {
      std::rethrow_exception(run.failure);
    } catch (const AudioDecodeError&) {
      throw NamedError("The file at " + path + " is not a recognised audio file.");
    }
  }
  if (!run.speech.failure.empty()) printError("[SpeechDetection] " + run.speech.failure);
  return run;
}

// The file metrics are 32-bit floats; JSON gets the shortest decimal that reads back to the
// same float ("-23.000124"), not the seventeen digits of its exact double value.
double decimalOf(float value) {
  if (!std::isfinite(value)) return value;
  char text[32];
  const auto written = std::to_chars(text, text + sizeof text, value);
  double decimal = value;
  std::from_chars(text, written.ptr, decimal);
  return decimal;
}

Measurements measure(const std::string& path, const MeasureRun& run) {
  Measurements m;
  m.fileName = std::filesystem::path(path).filename().string();
  m.sampleRate = run.model->sampleRate;
  m.channelCount = run.model->channelCount;
  m.durationSeconds = run.model->duration;
  if (!run.metrics) return m;  // no frames to measure
  const SlotMetrics& f = *run.metrics;
  m.integratedLUFS = decimalOf(f.integratedLUFS);
  m.loudnessRange = decimalOf(f.loudnessRange);
  m.truePeakDBTP = decimalOf(f.truePeakDB);
  m.samplePeakDBFS = decimalOf(f.samplePeakDB);
  m.maxMomentaryLUFS = decimalOf(f.maxMomentaryLUFS);
  m.maxShortTermLUFS = decimalOf(f.maxShortTermLUFS);
  m.dynamicRange = f.dynamicRange;
  if (f.speechHistory) {
    m.speechVADAvailable = true;
    m.speechGatedLUFS = decimalOf(f.speechGatedLUFS);
    m.speechPercentage = decimalOf(f.speechPercentage);
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
    const MeasureRun run = load(path, speech);
    const Measurements m = measure(path, run);
    std::optional<LoudnessMeasurement> judged;
    if (mode) judged = targetMeasurement(m, *run.buffer);
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
