#include "headless/pipelines/SlotMetrics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "core/ChannelOrder.h"
#include "core/DRProcessor.h"
#include "core/LoudnessProcessor.h"
#include "core/ChannelStatistics.h"

namespace corvane {

namespace {

constexpr float kNoReading = -std::numeric_limits<float>::infinity();

float finiteOr(double value, float fallback) { return std::isfinite(value) ? static_cast<float>(value) : fallback; }

// What the loudness feed gives.
struct LoudnessFigures {
  float integratedLUFS = kNoReading;
  float truePeakDB = kNoReading;
  float loudnessRange = 0.0f;
  float speechGatedLUFS = kNoReading;
  float speechPercentage = 0.0f;
  float speechGatedNoiseFloorDBRMS = kNoReading;
  float maxMomentaryLUFS = kNoReading;
  float maxShortTermLUFS = kNoReading;
  std::vector<float> channelTruePeakDB;
  std::vector<LoudnessCurvePoint> curve;
  SharedSpeechHistory speechHistory;
};

LoudnessFigures measureLoudness(const AudioBuffer& buffer, const SharedSpeechHistory& history) {
  LoudnessFigures f;
  f.speechHistory = history;
  f.channelTruePeakDB.assign(static_cast<std::size_t>(buffer.channelCount()), kNoReading);
  std::unique_ptr<LoudnessProcessor> processor;
  try {
    processor = std::make_unique<LoudnessProcessor>(buffer.sampleRate(), buffer.channelCount(), history,
                                                    ChannelOrder::bs1770Weights(buffer));
  } catch (const std::invalid_argument&) {
    return f;  // a rate BS.1770 has no filter for: no loudness figures
  }
  processor->setOfflineFeed(true);
  const FrameCount frames = buffer.frameLength();
  const FrameCount chunk = std::max<FrameCount>(1, std::llround(buffer.sampleRate() * kLoudnessBlockSeconds));
  std::vector<const float*> pointers(static_cast<std::size_t>(buffer.channelCount()));
  for (FrameCount start = 0; start < frames; start += chunk) {
    const FrameCount n = std::min(chunk, frames - start);
    for (int c = 0; c < buffer.channelCount(); ++c) pointers[static_cast<std::size_t>(c)] = buffer.channel(c) + start;
    processor->updateTruePeak(pointers.data(), n);
    processor->process(pointers.data(), n);
  }
  processor->flushPartialBlock();

  f.integratedLUFS = finiteOr(processor->integratedLUFS(), kNoReading);
  f.truePeakDB = finiteOr(processor->truePeakDB(), kNoReading);
  f.loudnessRange = finiteOr(processor->loudnessRange(), 0.0f);
  f.speechGatedLUFS = finiteOr(processor->speechGatedLUFS(), kNoReading);
  f.speechPercentage = finiteOr(processor->speechPercentage(), 0.0f);
  f.speechGatedNoiseFloorDBRMS = finiteOr(processor->speechGatedNoiseFloorDBRMS(), kNoReading);
  f.maxMomentaryLUFS = finiteOr(processor->maxMomentaryLUFS(), kNoReading);
  f.maxShortTermLUFS = finiteOr(processor->maxShortTermLUFS(), kNoReading);
  const std::vector<double> channelPeaks = processor->truePeakDBByChannel();
  for (std::size_t c = 0; c < channelPeaks.size() && c < f.channelTruePeakDB.size(); ++c) {
    f.channelTruePeakDB[c] = finiteOr(channelPeaks[c], kNoReading);
  }
  const auto& blocks = processor->blockHistory();
  f.curve.reserve(blocks.size());
  for (std::size_t k = 0; k < blocks.size(); ++k) {
    f.curve.push_back({static_cast<double>(k + 1) * kLoudnessBlockSeconds, blocks[k].momentaryLUFS,
                       blocks[k].shortTermLUFS, blocks[k].integratedLUFS});
  }
  f.speechHistory = processor->speechHistory();
  return f;
}

// The figures that need no loudness processor.
struct ChannelFigures {
  std::vector<float> peakDB, rmsDB, crestFactorDB, dcOffset;
  float samplePeak = 0.0f;  // linear
  int dynamicRange = -1;
  std::vector<int> channelDR;
  std::vector<StereoWidthCurvePoint> stereoWidthCurve;
};

ChannelFigures measureChannels(const AudioBuffer& buffer) {
  ChannelFigures f;
  const FrameCount frames = buffer.frameLength();
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const ChannelStatistics s = measureChannel(buffer.channel(c), frames);
    f.peakDB.push_back(s.peakDB());
    f.rmsDB.push_back(s.rmsDB());
    f.crestFactorDB.push_back(s.crestFactorDB());
    f.dcOffset.push_back(static_cast<float>(s.mean));
    f.samplePeak = std::max(f.samplePeak, s.peak);
  }
  // The overall DR is the rounded mean of the channels' unrounded values, the per-channel DR
  // each one rounded (DRProcessor's two functions): one pass per channel gives both, where
  // calling both would read an hour of audio twice.
  if (buffer.channelCount() >= 1 && frames >= 1) {
    double sum = 0.0;
    for (int c = 0; c < buffer.channelCount(); ++c) {
      const double dr = DRProcessor::channelDRDecibels(buffer.channel(c), frames, buffer.sampleRate());
      f.channelDR.push_back(static_cast<int>(std::lround(dr)));
      sum += dr;
    }
    f.dynamicRange = static_cast<int>(std::lround(sum / buffer.channelCount()));
  }
  if (buffer.channelCount() >= 2) {
    f.stereoWidthCurve = computeStereoWidthCurve(buffer.channel(0), buffer.channel(1), frames, buffer.sampleRate());
  }
  return f;
}

}  // namespace

SlotMetrics computeSlotMetrics(const AudioBuffer& buffer, double duration, SharedSpeechHistory speechHistory,
                               int threads) {
  ChannelFigures channels;
  LoudnessFigures loudness;
  std::thread beside;
  if (threads >= 2) {
    try {
      beside = std::thread([&] { channels = measureChannels(buffer); });
    } catch (const std::system_error&) {
      // No thread to spare: everything runs here, in turn.
    }
  }
  loudness = measureLoudness(buffer, speechHistory);
  if (beside.joinable()) {
    beside.join();
  } else {
    channels = measureChannels(buffer);
  }

  SlotMetrics m;
  m.integratedLUFS = loudness.integratedLUFS;
  m.truePeakDB = loudness.truePeakDB;
  m.samplePeakDB = channels.samplePeak > 0.0f ? static_cast<float>(20.0 * std::log10(static_cast<double>(channels.samplePeak)))
                                               : kNoReading;
  m.loudnessRange = loudness.loudnessRange;
  m.dynamicRange = channels.dynamicRange;
  m.speechGatedLUFS = loudness.speechGatedLUFS;
  m.speechPercentage = loudness.speechPercentage;
  m.speechGatedNoiseFloorDBRMS = loudness.speechGatedNoiseFloorDBRMS;
  m.headroomDB = std::isfinite(m.samplePeakDB) ? -m.samplePeakDB : 0.0f;
  m.maxMomentaryLUFS = loudness.maxMomentaryLUFS;
  m.maxShortTermLUFS = loudness.maxShortTermLUFS;
  m.duration = duration;
  m.channelPeakDB = std::move(channels.peakDB);
  m.channelTruePeakDB = std::move(loudness.channelTruePeakDB);
  m.channelRMSDB = std::move(channels.rmsDB);
  m.channelCrestFactorDB = std::move(channels.crestFactorDB);
  m.channelDCOffset = std::move(channels.dcOffset);
  m.channelDR = std::move(channels.channelDR);
  m.fileLoudnessCurve = std::move(loudness.curve);
  m.speechRanges = loudness.speechHistory
                       ? computeSpeechRanges(*loudness.speechHistory, 0.0, kLoudnessBlockSeconds)
                       : std::vector<SpeechRange>{};
  m.stereoWidthCurve = std::move(channels.stereoWidthCurve);
  m.speechHistory = std::move(speechHistory);
  return m;
}

}  // namespace corvane
