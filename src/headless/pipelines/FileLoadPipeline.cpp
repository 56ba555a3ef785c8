#include "headless/pipelines/FileLoadPipeline.h"

#include <utility>

#include "headless/speech/SileroVADAnalyser.h"

namespace corvane {

const char* fileLoadStageName(FileLoadStage stage) {
  switch (stage) {
    case FileLoadStage::decode: return "decode";
    case FileLoadStage::pyramid: return "pyramid";
    case FileLoadStage::speech: return "speech";
    case FileLoadStage::metrics: return "metrics";
    case FileLoadStage::spectrogram: return "spectrogram";
  }
  return "";
}

bool hasSpeechInput(const AudioBuffer& buffer) { return buffer.channelCount() >= 1 && buffer.frameLength() >= 1; }

SpeechStageResult detectFileSpeech(const AudioBuffer& buffer, const FileLoadOptions& options) {
  SpeechStageResult result;
  if (!options.detectSpeech || !hasSpeechInput(buffer)) return result;
  const SileroVADAnalyser& detector = options.speechDetector ? *options.speechDetector : SileroVADAnalyser::shared();
  if (!detector.isAvailable()) {
    result.failure = detector.errorText();
    return result;
  }
  try {
    result.history = std::make_shared<const SpeechHistory>(detector.detectSpeech(buffer, options.vadTuning));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    // Speech figures are a part of the picture, not a reason to lose the rest of it.
    result.failure = e.what();
  }
  return result;
}

bool canMeasure(const AudioBuffer& buffer) {
  return static_cast<FrameCount>(buffer.sampleRate() * kLoudnessBlockSeconds) >= 1;
}

bool spectrogramStageRuns(const AudioBuffer& buffer, const FileLoadOptions& options) {
  return options.computeSpectrogram && options.spectrogramFftSize >= 1 &&
         buffer.frameLength() >= options.spectrogramFftSize;
}

SpectrogramColumns computeFileSpectrogram(const AudioBuffer& buffer, const FileLoadOptions& options) {
  return computeLoadTimeSpectrogram(&buffer, buffer.frameLength(), buffer.channelCount(), buffer.sampleRate(),
                                    options.spectrogramFftSize, options.spectrogramOverlapFactor,
                                    options.spectrogramChannelIndex);
}

void runFileLoad(const FileLoadRequest& request, FileLoadListener& listener) {
  const FileLoadOptions& options = request.options;
  const auto finished = [&options](FileLoadStage stage) {
    if (options.afterStage) options.afterStage(stage);
  };

  AudioFileModel::Loaded loaded;
  try {
    loaded = AudioFileModel::load(request.url, request.rawFormat);
  } catch (...) {
    finished(FileLoadStage::decode);
    listener.decodeFailed(std::current_exception());
    return;
  }
  finished(FileLoadStage::decode);
  // The stages below read the buffer; the listener's copy of the model holds it too.
  const SharedAudioBuffer buffer = loaded.buffer;
  const double duration = loaded.model.duration;
  listener.decoded(std::move(loaded.model), buffer);

  if (options.buildPyramid) {
    if (!listener.wantsMore()) return;
    auto levels = buildWaveformPyramid(*buffer);
    finished(FileLoadStage::pyramid);
    listener.pyramidBuilt(std::move(levels));
  }

  if (!hasSpeechInput(*buffer) || !listener.wantsMore()) return;
  SpeechStageResult speech = detectFileSpeech(*buffer, options);
  const SharedSpeechHistory history = speech.history;
  finished(FileLoadStage::speech);
  listener.speechDetected(std::move(speech));

  if (options.measure) {
    if (!canMeasure(*buffer) || !listener.wantsMore()) return;
    SlotMetrics metrics = computeSlotMetrics(*buffer, duration, history, options.measureThreads);
    finished(FileLoadStage::metrics);
    listener.measured(std::move(metrics));
  }

  if (!spectrogramStageRuns(*buffer, options) || !listener.wantsMore()) return;
  SpectrogramColumns columns = computeFileSpectrogram(*buffer, options);
  finished(FileLoadStage::spectrogram);
  listener.spectrogramComputed(std::move(columns));
}

}  // namespace corvane
