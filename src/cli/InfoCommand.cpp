// corvane info FILE [--json]: what a file is: the format its bytes say (whatever its name
// says), encoding, rate, channels and their labels, length, and the warning the window shows
// for a misnamed file. The file goes through the first stage of the window's load, so the
// length is what the window finds (a stream without a frame count in its header is read to its
// end), not a header's estimate.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/FileLoadPipeline.h"

namespace corvane::cli {
namespace {

std::string joined(const std::vector<std::string>& labels) {
  std::string text;
  for (const auto& label : labels) text += (text.empty() ? "" : " ") + label;
  return text;
}

void printText(const AudioFileModel& model) {
  char line[256];
  const bool misnamed = model.identity && model.identity->isMisnamed;
  std::cout << "File:            " << model.url.filename().string() << '\n';
  std::cout << "Format:          " << model.fileFormat << '\n';
  std::cout << "Encoding:        " << model.encodingLabel() << '\n';
  std::cout << "Sample rate:     " << model.sampleRateFormatted() << '\n';
  std::cout << "Channels:        " << model.channelCount << " (" << joined(model.channelLabels()) << ")\n";
  std::cout << "Bit depth:       " << model.bitDepth << '\n';
  std::cout << "Frames:          " << model.totalFrames << '\n';
  std::snprintf(line, sizeof line, "Duration:        %.3f s\n", model.duration);
  std::cout << line;
  std::cout << "Size:            " << model.fileSizeFormatted() << '\n';
  std::cout << "Misnamed:        " << (misnamed ? "yes" : "no") << '\n';
  if (const auto help = model.formatHelp()) std::cout << *help << '\n';
}

void printJson(const AudioFileModel& model) {
  std::string labels = "[";
  for (const auto& label : model.channelLabels()) labels += (labels.size() > 1 ? ", " : "") + jsonString(label);
  labels += "]";
  const auto help = model.formatHelp();
  std::cout << "{\n"
            << "  \"fileName\": " << jsonString(model.url.filename().string()) << ",\n"
            << "  \"fileFormat\": " << jsonString(model.fileFormat) << ",\n"
            << "  \"encodingLabel\": " << jsonString(model.encodingLabel()) << ",\n"
            << "  \"sampleRate\": " << jsonNumber(model.sampleRate) << ",\n"
            << "  \"channelCount\": " << model.channelCount << ",\n"
            << "  \"channelLabels\": " << labels << ",\n"
            << "  \"bitDepth\": " << model.bitDepth << ",\n"
            << "  \"totalFrames\": " << model.totalFrames << ",\n"
            << "  \"durationSeconds\": " << jsonNumber(model.duration) << ",\n"
            << "  \"fileSize\": " << model.fileSize << ",\n"
            << "  \"isMisnamed\": " << (model.identity && model.identity->isMisnamed ? "true" : "false") << ",\n"
            << "  \"isRewritableInPlace\": "
            << (model.identity && model.identity->isRewritableInPlace ? "true" : "false") << ",\n"
            << "  \"formatHelp\": " << (help ? jsonString(*help) : "null") << "\n"
            << "}\n";
}

// The first stage of the window's load, and nothing after it.
class DecodeOnly final : public FileLoadListener {
 public:
  bool wantsMore() override { return false; }
  void decodeFailed(std::exception_ptr error) override { failure = error; }
  void decoded(AudioFileModel loaded, SharedAudioBuffer) override { model = std::move(loaded); }

  std::exception_ptr failure;
  std::optional<AudioFileModel> model;
};

AudioFileModel describe(const std::string& path) {
  FileLoadRequest request;
  request.url = path;
  DecodeOnly run;
  runFileLoad(request, run);
  if (run.failure) std::rethrow_exception(run.failure);
  return std::move(*run.model);
}

}  // namespace

int runInfoCommand(const std::vector<std::string>& args) {
  std::string path;
  bool json = false;
  for (const std::string& arg : args) {
    if (arg == "--json") {
      json = true;
    } else if (path.empty() && (arg.empty() || arg[0] != '-')) {
      path = arg;
    } else {
      printError("usage: corvane info FILE [--json]");
      return kExitUsage;
    }
  }
  if (path.empty()) {
    printError("usage: corvane info FILE [--json]");
    return kExitUsage;
  }
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    printError("Could not find a file at " + path + ".");
    return kExitNamedError;
  }
  try {
    const AudioFileModel model = describe(path);
    if (json) {
      printJson(model);
    } else {
      printText(model);
    }
    return kExitSuccess;
  } catch (const AudioDecodeError&) {
    printError("The file at " + path + " is not a recognised audio file.");
  } catch (const std::exception& e) {
    printError(e.what());
  }
  return kExitNamedError;
}

}  // namespace corvane::cli
