#include "headless/analysis/OfflineAnalysisPipeline.h"

#include <stdexcept>

#include "core/ChannelOrder.h"
#include "headless/speech/SileroVADAnalyser.h"

namespace corvane {

OfflineAnalysisPipeline::Result OfflineAnalysisPipeline::analyzeFile(const std::filesystem::path& at,
                                                                     const Options& options) {
  AudioFileModel::Loaded loaded = AudioFileModel::load(at);
  const SharedAudioBuffer buffer = loaded.buffer;
  if (buffer->frameLength() < 1 || buffer->channelCount() < 1) throw std::runtime_error("The file holds no audio.");

  SelectionAnalysisSettings settings;
  settings.fftSize = options.fftSize;
  settings.spectrogramFftSize = options.spectrogramFftSize;
  settings.overlapFactor = options.overlapFactor;
  settings.spectrogramChannelIndex = options.spectrogramChannelIndex;
  settings.fftExactAverage = options.fftExactAverage;
  settings.channelWeights = ChannelOrder::bs1770Weights(*buffer);
  settings.detectSpeech = options.detectSpeech;
  settings.threadCount = options.threadCount;

  const double duration = static_cast<double>(buffer->frameLength()) / buffer->sampleRate();
  const SelectionFrames frames = SelectionFrames::sharing(buffer, {0.0, duration}, 0, buffer->frameLength());
  // Nothing can ask this pass to stop, so it always finishes.
  SelectionAnalysisOutput pass = *runSelectionAnalysis(frames, settings);

  Result result;
  result.analysis = std::move(pass.result);
  result.spectrogramColumns = std::move(pass.spectrogramColumns);
  result.speechHistory = std::move(pass.speechHistory);
  if (options.detectSpeech && !result.speechHistory) {
    const SileroVADAnalyser& detector = SileroVADAnalyser::shared();
    result.speechDetectionError =
        detector.isAvailable() ? "Speech detection failed on this file." : detector.errorText();
  }
  if (options.stereoCorrelation && buffer->channelCount() >= 2) {
    result.stereoWidthCurve =
        computeStereoWidthCurve(buffer->channel(0), buffer->channel(1), buffer->frameLength(), buffer->sampleRate());
  }

  result.file = std::move(loaded.model);
  auto positionsOnly = AudioBuffer::create(buffer->channelCount(), 0, buffer->sampleRate());
  positionsOnly->setChannelPositions(buffer->channelPositions());
  result.file.pcmBuffer = std::move(positionsOnly);
  return result;
}

OfflineAnalysisPipeline::Result OfflineAnalysisPipeline::analyzeFile(const std::filesystem::path& at) {
  return analyzeFile(at, Options{});
}

}  // namespace corvane
