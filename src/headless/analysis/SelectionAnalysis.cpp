#include "headless/analysis/SelectionAnalysis.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>

#include "core/ChannelStatistics.h"
#include "core/DRProcessor.h"
#include "core/FFTProcessor.h"
#include "core/LoudnessProcessor.h"
#include "headless/analysis/SpectrumPower.h"
#include "headless/speech/DialogueRegion.h"
#include "headless/speech/SileroVADAnalyser.h"
#include "headless/speech/SpeechRanges.h"

namespace corvane {

namespace {

constexpr FrameCount kMinimumHop = 64;
constexpr float kNoSpectrumDB = -100.0f;
// How often the long loops look at the stop request: a few milliseconds of work apart.
constexpr FrameCount kStopCheckChunks = 256;
constexpr FrameCount kStopCheckWindows = 64;

using Channels = std::span<const float* const>;

// ---- Statistics and DR ------------------------------------------------------------------

void measureStatistics(Channels channels, FrameCount frameCount, SelectionAnalysisResult& r) {
  for (const float* channel : channels) {
    const ChannelStatistics s = measureChannel(channel, frameCount);
    r.peakDB.push_back(s.peakDB());
    r.rmsDB.push_back(s.rmsDB());
    r.crestFactorDB.push_back(s.crestFactorDB());
    r.dcOffset.push_back(static_cast<float>(s.mean));
  }
  float samplePeak = SelectionAnalysisResult::kNoReading;
  for (float p : r.peakDB) {
    if (std::isfinite(p)) samplePeak = std::max(samplePeak, p);
  }
  r.samplePeakDB = samplePeak;
  r.headroomDB = std::isfinite(samplePeak) ? -samplePeak : 0.0f;
}

// DRProcessor::computeDR and computeDRPerChannel from one measurement per channel: the
// overall value is the rounded mean of the channels' unrounded values, a channel's value
// their own rounding, so measuring each channel once gives both (half the work of calling
// both on an hour of audio).
void measureDynamicRange(Channels channels, FrameCount frameCount, double sampleRate, SelectionAnalysisResult& r) {
  if (channels.empty() || frameCount < 1) return;
  double sum = 0.0;
  for (const float* channel : channels) {
    const double dr = DRProcessor::channelDRDecibels(channel, frameCount, sampleRate);
    r.channelDR.push_back(static_cast<int>(std::lround(dr)));
    sum += dr;
  }
  r.dynamicRange = static_cast<int>(std::lround(sum / static_cast<double>(channels.size())));
}

// ---- Speech and loudness ------------------------------------------------------------------

SharedSpeechHistory detectSpeech(Channels channels, FrameCount frameCount, double sampleRate,
                                 const SelectionAnalysisSettings& settings) {
  const SileroVADAnalyser& detector =
      settings.speechDetector != nullptr ? *settings.speechDetector : SileroVADAnalyser::shared();
  std::optional<SpeechHistory> history = detector.speechHistory(channels, frameCount, sampleRate, settings.vadTuning);
  if (!history) return nullptr;
  return std::make_shared<const SpeechHistory>(std::move(*history));
}

std::vector<LevelCurvePoint> curveOf(const std::vector<LoudnessBlock>& blocks, double lower,
                                     float LoudnessBlock::*field) {
  std::vector<LevelCurvePoint> curve;
  curve.reserve(blocks.size());
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    curve.push_back({lower + static_cast<double>(i + 1) * kLoudnessBlockSeconds, blocks[i].*field});
  }
  return curve;
}

float finiteOr(double value, float fallback) {
  return std::isfinite(value) ? static_cast<float>(value) : fallback;
}

// Steps 3 and 4. Returns false when stopped.
bool measureLoudness(Channels channels, FrameCount frameCount, double sampleRate, double lower,
                     const SelectionAnalysisSettings& settings, const std::stop_token& stop,
                     SelectionAnalysisResult& r, SharedSpeechHistory& historyUsed) {
  historyUsed = settings.speechHistory;
  if (!historyUsed && settings.detectSpeech) {
    historyUsed = detectSpeech(channels, frameCount, sampleRate, settings);
  }
  if (stop.stop_requested()) return false;

  std::unique_ptr<LoudnessProcessor> processor;
  try {
    processor = std::make_unique<LoudnessProcessor>(sampleRate, static_cast<int>(channels.size()), historyUsed,
                                                    settings.channelWeights);
  } catch (const std::invalid_argument&) {
    // A rate the meter does not cover: the pass goes on without loudness figures.
    r.truePeakDBByChannel.assign(channels.size(), SelectionAnalysisResult::kNoReading);
    if (historyUsed) r.speechRanges = computeSpeechRanges(*historyUsed, lower, kLoudnessBlockSeconds);
    return true;
  }
  processor->setOfflineFeed(true);
  const FrameCount chunk = processor->blockFrameCount();
  std::vector<const float*> at(channels.begin(), channels.end());
  FrameCount chunks = 0;
  for (FrameCount start = 0; start < frameCount; start += chunk) {
    if (++chunks % kStopCheckChunks == 0 && stop.stop_requested()) return false;
    const FrameCount n = std::min(chunk, frameCount - start);
    for (std::size_t c = 0; c < at.size(); ++c) at[c] = channels[c] + start;
    processor->updateTruePeak(at.data(), n);
    processor->process(at.data(), n);
  }
  processor->flushPartialBlock();

  for (double tp : processor->truePeakDBByChannel()) {
    r.truePeakDBByChannel.push_back(finiteOr(tp, SelectionAnalysisResult::kNoReading));
  }
  r.integratedLUFS = finiteOr(processor->integratedLUFS(), SelectionAnalysisResult::kNoReading);
  r.loudnessRange = finiteOr(processor->loudnessRange(), 0.0f);
  r.truePeakDB = finiteOr(processor->truePeakDB(), SelectionAnalysisResult::kNoReading);
  r.speechGatedLUFS = finiteOr(processor->speechGatedLUFS(), SelectionAnalysisResult::kNoReading);
  r.speechPercentage = finiteOr(processor->speechPercentage(), 0.0f);
  r.speechGatedNoiseFloorDBRMS = finiteOr(processor->speechGatedNoiseFloorDBRMS(), SelectionAnalysisResult::kNoReading);
  r.maxMomentaryLUFS = finiteOr(processor->maxMomentaryLUFS(), SelectionAnalysisResult::kNoReading);
  r.maxShortTermLUFS = finiteOr(processor->maxShortTermLUFS(), SelectionAnalysisResult::kNoReading);

  const std::vector<LoudnessBlock>& blocks = processor->blockHistory();
  r.momentaryCurve = curveOf(blocks, lower, &LoudnessBlock::momentaryLUFS);
  r.shortTermCurve = curveOf(blocks, lower, &LoudnessBlock::shortTermLUFS);
  r.integratedCurve = curveOf(blocks, lower, &LoudnessBlock::integratedLUFS);
  r.truePeakCurve = curveOf(blocks, lower, &LoudnessBlock::truePeakDB);

  if (const SharedSpeechHistory used = processor->speechHistory()) {
    r.speechRanges = computeSpeechRanges(*used, lower, kLoudnessBlockSeconds);
  }
  return true;
}

// ---- Window pass ----------------------------------------------------------------------------

std::unique_ptr<FFTProcessor> offlineFFT(int fftSize, double sampleRate) {
  auto fft = std::make_unique<FFTProcessor>(fftSize, sampleRate, FFTWindowType::Hann);
  fft->setLiveMode(false);
  return fft;
}

std::vector<float> averageInDecibels(const std::vector<double>& sum, std::int64_t count) {
  std::vector<float> db(sum.size());
  spectrum::meanPowerToDecibels(std::span<const double>(sum), 1.0 / static_cast<double>(count), std::span<float>(db));
  return db;
}

// Step 5. Returns false when stopped.
bool runWindowPass(Channels channels, FrameCount frameCount, double sampleRate, double lower,
                   const SelectionAnalysisSettings& settings, const std::stop_token& stop,
                   SelectionAnalysisResult& r, SpectrogramColumns& columns) {
  const int fftSize = settings.fftSize;
  const int channelCount = static_cast<int>(channels.size());
  const auto half = static_cast<std::size_t>(fftSize / 2);
  const WindowPassPlan plan = windowPassPlan(frameCount, fftSize, settings.overlapFactor, settings.fftExactAverage);
  const bool sameSize = settings.fftSize == settings.spectrogramFftSize;
  const std::optional<int> selected = settings.spectrogramChannelIndex;
  const bool mixing = !selected || *selected < 0 || *selected >= channelCount;
  const bool midSide = channelCount >= 2;

  std::vector<std::unique_ptr<FFTProcessor>> ffts;
  for (int c = 0; c < channelCount; ++c) ffts.push_back(offlineFFT(fftSize, sampleRate));
  std::unique_ptr<FFTProcessor> midFFT = midSide ? offlineFFT(fftSize, sampleRate) : nullptr;
  std::unique_ptr<FFTProcessor> sideFFT = midSide ? offlineFFT(fftSize, sampleRate) : nullptr;

  // Long averages (up to millions of windows with the exact average) are summed in double.
  std::vector<std::vector<double>> sums(static_cast<std::size_t>(channelCount), std::vector<double>(half, 0.0));
  std::vector<double> midSum(midSide ? half : 0, 0.0), sideSum(midSide ? half : 0, 0.0);
  std::vector<float> mix(half), midSamples(midSide ? static_cast<std::size_t>(fftSize) : 0),
      sideSamples(midSide ? static_cast<std::size_t>(fftSize) : 0);
  std::int64_t averaged = 0;
  if (sameSize && plan.windowSteps >= 0) columns.reserve(static_cast<std::size_t>(plan.windowSteps / plan.columnStride + 1));

  FrameCount window = 0, transformed = 0;
  for (FrameCount pos = 0; pos + fftSize <= frameCount; pos += plan.hop, ++window) {
    const bool averageDue = window % plan.averageStride == 0;
    const bool columnDue = sameSize && window % plan.columnStride == 0;
    if (!averageDue && !columnDue) continue;
    if (++transformed % kStopCheckWindows == 0 && stop.stop_requested()) return false;

    SpectrogramColumn column;
    if (columnDue) {
      column.time = lower + static_cast<double>(pos) / sampleRate;
      column.mags.resize(half);
      if (mixing) std::fill(mix.begin(), mix.end(), 0.0f);
    }
    for (int c = 0; c < channelCount; ++c) {
      const bool columnUsesChannel = columnDue && (mixing || c == *selected);
      if (!averageDue && !columnUsesChannel) continue;
      FFTProcessor& fft = *ffts[static_cast<std::size_t>(c)];
      const std::span<const float> power = fft.processPower(channels[static_cast<std::size_t>(c)] + pos, fftSize);
      if (averageDue) spectrum::addPower(power, std::span<double>(sums[static_cast<std::size_t>(c)]));
      if (columnUsesChannel) {
        if (mixing) {
          spectrum::addPower(power, std::span<float>(mix));
        } else {
          std::transform(power.begin(), power.end(), column.mags.begin(), [&fft](float p) { return fft.decibels(p); });
        }
      }
    }
    if (averageDue && midSide) {
      const float* left = channels[0] + pos;
      const float* right = channels[1] + pos;
      for (int i = 0; i < fftSize; ++i) {
        midSamples[static_cast<std::size_t>(i)] = (left[i] + right[i]) * 0.5f;
        sideSamples[static_cast<std::size_t>(i)] = (left[i] - right[i]) * 0.5f;
      }
      spectrum::addPower(midFFT->processPower(midSamples.data(), fftSize), std::span<double>(midSum));
      spectrum::addPower(sideFFT->processPower(sideSamples.data(), fftSize), std::span<double>(sideSum));
    }
    if (averageDue) ++averaged;
    if (columnDue) {
      if (mixing) {
        spectrum::meanPowerToDecibels(std::span<const float>(mix), 1.0f / static_cast<float>(channelCount),
                                      std::span<float>(column.mags));
      }
      columns.push_back(std::move(column));
    }
  }

  r.fftMagnitudes.assign(static_cast<std::size_t>(channelCount), std::vector<float>(half, kNoSpectrumDB));
  if (averaged > 0) {
    for (int c = 0; c < channelCount; ++c) {
      r.fftMagnitudes[static_cast<std::size_t>(c)] = averageInDecibels(sums[static_cast<std::size_t>(c)], averaged);
    }
    if (midSide) r.msFftMagnitudes = MidSideSpectra{averageInDecibels(midSum, averaged), averageInDecibels(sideSum, averaged)};
  }
  return true;
}

// Steps 2, 5 and 6: the dynamic range and the spectra. Returns false when stopped.
bool measureSpectralSide(Channels channels, const SelectionFrames& frames, const SelectionAnalysisSettings& settings,
                         const std::stop_token& stop, SelectionAnalysisResult& r, SpectrogramColumns& columns) {
  const FrameCount frameCount = frames.frameCount();
  const double rate = frames.sampleRate();
  const double lower = frames.timeRange().lower;
  measureDynamicRange(channels, frameCount, rate, r);
  if (stop.stop_requested()) return false;
  if (!runWindowPass(channels, frameCount, rate, lower, settings, stop, r, columns)) return false;
  if (settings.fftSize != settings.spectrogramFftSize) {
    std::optional<int> index = settings.spectrogramChannelIndex;
    if (index && (*index < 0 || *index >= frames.channelCount())) index.reset();
    columns = computeSpectrogramColumns(channels, frameCount, rate, settings.spectrogramFftSize,
                                        settings.overlapFactor, index, lower, stop);
  }
  return !stop.stop_requested();
}

// Steps 3, 4 and 1: speech, loudness and the channel statistics (which balance the two
// halves: the loudness feed alone is shorter than the window pass). Returns false when
// stopped.
bool measureLevelSide(Channels channels, const SelectionFrames& frames, const SelectionAnalysisSettings& settings,
                      const std::stop_token& stop, SelectionAnalysisResult& r, SharedSpeechHistory& historyUsed) {
  if (!measureLoudness(channels, frames.frameCount(), frames.sampleRate(), frames.timeRange().lower, settings, stop,
                       r, historyUsed)) {
    return false;
  }
  if (stop.stop_requested()) return false;
  measureStatistics(channels, frames.frameCount(), r);
  return true;
}

}  // namespace

WindowPassPlan windowPassPlan(FrameCount frameCount, int fftSize, int overlapFactor, bool fftExactAverage) {
  WindowPassPlan plan;
  plan.hop = std::max<FrameCount>(fftSize / std::max(overlapFactor, 1), kMinimumHop);
  // Division toward zero, as frame arithmetic does elsewhere: a selection up to one hop
  // shorter than the window gives 0 here, and the loop still runs no window.
  plan.windowSteps = (frameCount - fftSize) / plan.hop;
  const FrameCount n = plan.windowSteps;
  plan.columnStride = n < 0 ? 1 : (std::max<FrameCount>(n, 2047) + 1) >> 11;
  plan.averageStride = (n >= 65536 && !fftExactAverage) ? (n + 65536) >> 16 : 1;
  return plan;
}

SharedSpeechHistory speechHistoryForSelection(const FileSpeechState& speech, const SileroVADTuning& currentTuning,
                                              const SelectionFrames& frames) {
  if (!speech.fileSpeechHistory) return nullptr;
  if (!speech.regionsFromDetection) {
    return std::make_shared<const SpeechHistory>(DialogueRegion::sliceHistory(
        *speech.fileSpeechHistory, frames.startFrame(), frames.frameCount(), frames.sampleRate(), kLoudnessBlockSeconds));
  }
  if (frames.fullFile() && speech.fileSpeechHistoryTuning && *speech.fileSpeechHistoryTuning == currentTuning) {
    return speech.fileSpeechHistory;
  }
  return nullptr;
}

std::optional<SelectionAnalysisOutput> runSelectionAnalysis(const SelectionFrames& frames,
                                                            const SelectionAnalysisSettings& settings,
                                                            std::stop_token stop) {
  if (settings.fftSize < 2 || settings.fftSize % 2 != 0) {
    throw std::invalid_argument("The FFT size must be an even number of at least 2.");
  }
  SelectionAnalysisOutput out;
  SelectionAnalysisResult& r = out.result;
  r.timeRange = frames.timeRange();
  r.fftSize = settings.fftSize;
  r.sampleRate = frames.sampleRate();

  // The two halves write disjoint parts: the spectral side its own result, merged below.
  SelectionAnalysisResult spectral;
  const bool finished = frames.withPinnedChannelPointers([&](Channels channels) {
    bool spectralDone = false;
    bool levelDone = false;
    auto spectralSide = [&] { spectralDone = measureSpectralSide(channels, frames, settings, stop, spectral, out.spectrogramColumns); };
    auto levelSide = [&] { levelDone = measureLevelSide(channels, frames, settings, stop, r, out.speechHistory); };
    if (settings.threadCount >= 2) {
      std::exception_ptr spectralError;
      std::thread worker([&] {
        try {
          spectralSide();
        } catch (...) {
          spectralError = std::current_exception();
        }
      });
      try {
        levelSide();
      } catch (...) {
        worker.join();
        throw;
      }
      worker.join();
      if (spectralError) std::rethrow_exception(spectralError);
    } else {
      levelSide();
      if (levelDone) spectralSide();
    }
    return spectralDone && levelDone;
  });
  if (!finished || stop.stop_requested()) return std::nullopt;

  r.dynamicRange = spectral.dynamicRange;
  r.channelDR = std::move(spectral.channelDR);
  r.fftMagnitudes = std::move(spectral.fftMagnitudes);
  r.msFftMagnitudes = std::move(spectral.msFftMagnitudes);
  return out;
}

}  // namespace corvane
