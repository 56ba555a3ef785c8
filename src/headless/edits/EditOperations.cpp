#include "headless/edits/EditOperations.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "core/ChannelOrder.h"
#include "core/Decibels.h"
#include "headless/TemporaryFiles.h"
#include "headless/edits/EditKernels.h"
#include "headless/edits/EditStreams.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/PCMWriteSettings.h"

namespace corvane {

using namespace editstreams;
using EditResult = EditOperations::EditResult;

namespace {

// Chunk of the in-memory members. Any size gives the same samples; this one keeps the
// scratch small and the loops long.
constexpr FrameCount kMemoryChunkFrames = 65536;

FrameCount clampFrame(FrameCount frame, FrameCount total) { return std::clamp<FrameCount>(frame, 0, total); }

// The offline limiter holds true peaks this far under the requested ceiling by Corvane's
// meter. Other 4x meters interpolate differently: after limiting dense high-frequency material
// at 44.1 kHz, libebur128 read up to 0.14 dB above ours. With the margin a limited file meets
// its ceiling by any of them.
constexpr double kOfflineLimiterMarginDB = 0.1;

void checkChunkFrames(FrameCount chunkFrames) {
  if (chunkFrames < 1) throw std::invalid_argument("A streamed edit needs a chunk of at least one frame.");
}

// x · gain for every sample of a chunk, into `out`.
void scaleChunk(const float* const* in, ChunkBuffer& out, FrameCount frames, double gain) {
  for (int c = 0; c < out.channelCount(); ++c) {
    const float* x = in[c];
    float* y = out.channel(c);
    for (FrameCount i = 0; i < frames; ++i) y[i] = static_cast<float>(static_cast<double>(x[i]) * gain);
  }
}

// ---- Where the output goes -----------------------------------------------------------------
// A store hands out one sink per pass. reopen() gives a source over what the last pass wrote,
// so that a further pass can read it while writing the next version.

class MemoryStore {
 public:
  MemoryStore(int channelCount, double sampleRate) : _channelCount(channelCount), _sampleRate(sampleRate) {}

  FrameCount chunkFrames() const { return kMemoryChunkFrames; }

  FrameSink& begin(FrameCount totalFrames) {
    _pending = std::make_unique<ChannelDataSink>(_channelCount, totalFrames);
    return *_pending;
  }
  void commit() {
    _result = _pending->take();
    _pending.reset();
  }
  std::unique_ptr<EditSource> reopen() {
    _previous = std::move(_result);
    return std::make_unique<ChannelDataEditSource>(_previous, _sampleRate);
  }
  EditResult take() { return EditResult{std::move(_result), _sampleRate, false}; }

 private:
  int _channelCount;
  double _sampleRate;
  std::unique_ptr<ChannelDataSink> _pending;
  ChannelData _result;
  ChannelData _previous;
};

class FileStore {
 public:
  FileStore(const EditSource& source, std::filesystem::path to, FrameCount chunkFrames)
      : _channelCount(source.channelCount()),
        _sampleRate(source.sampleRate()),
        _positions(source.channelPositions()),
        _to(std::move(to)),
        _chunkFrames(chunkFrames) {
    checkChunkFrames(chunkFrames);
  }
  ~FileStore() { removeAside(); }
  FileStore(const FileStore&) = delete;
  FileStore& operator=(const FileStore&) = delete;

  FrameCount chunkFrames() const { return _chunkFrames; }

  FrameSink& begin(FrameCount totalFrames) {
    _pending = std::make_unique<WAVFileSink>(_to, _sampleRate, _channelCount, _positions, totalFrames);
    return *_pending;
  }
  void commit() {
    _pending->finish();
    _pending.reset();
    removeAside();
  }
  // Moves the last pass's file aside (same folder, so a rename) and reads it from there.
  std::unique_ptr<EditSource> reopen() {
    removeAside();
    std::string asideName = _to.filename().string();
    asideName.insert(0, 1, '.');
    asideName += ".corvane-pass-";
    asideName += makeUUIDString();
    _aside = _to.parent_path() / asideName;
    std::error_code error;
    std::filesystem::rename(_to, _aside, error);
    if (error) {
      _aside.clear();
      throw AudioWriteError("Couldn't write " + _to.filename().string() + ": " + error.message() + ".");
    }
    return std::make_unique<FileEditSource>(_aside);
  }

 private:
  void removeAside() {
    if (_aside.empty()) return;
    std::error_code ignored;
    std::filesystem::remove(_aside, ignored);
    _aside.clear();
  }

  int _channelCount;
  double _sampleRate;
  std::vector<ChannelPosition> _positions;
  std::filesystem::path _to;
  FrameCount _chunkFrames;
  std::unique_ptr<WAVFileSink> _pending;
  std::filesystem::path _aside;
};

// Runs `run(source, store)` with the result in memory; its false means nothing to do.
template <class Run>
EditResult inMemory(EditSource& source, Run&& run) {
  MemoryStore store(source.channelCount(), source.sampleRate());
  if (!run(source, store)) return EditResult::nothing(source.sampleRate());
  return store.take();
}

template <class Run>
bool streamed(EditSource& source, const std::filesystem::path& to, FrameCount chunkFrames, Run&& run) {
  FileStore store(source, to, chunkFrames);
  return run(source, store);
}

// ---- The operations, once for both roads ---------------------------------------------------

template <class Store>
bool runTrim(EditSource& source, Store& store, FrameCount startFrame, FrameCount endFrame) {
  const FrameCount total = source.frameLength();
  const FrameCount start = clampFrame(startFrame, total);
  const FrameCount end = clampFrame(endFrame, total);
  if (start >= end) return false;
  ChunkBuffer scratch(source.channelCount(), store.chunkFrames());
  FrameSink& sink = store.begin(end - start);
  copyRange(source, sink, start, end, store.chunkFrames(), scratch);
  store.commit();
  return true;
}

template <class Store>
bool runCut(EditSource& source, Store& store, FrameCount startFrame, FrameCount endFrame, FrameCount crossfadeFrames) {
  const FrameCount total = source.frameLength();
  const FrameCount start = clampFrame(startFrame, total);
  const FrameCount end = clampFrame(endFrame, total);
  if (start >= end || (start == 0 && end == total)) return false;
  // The crossfade straddles the join: `before` frames of kept audio ahead of the cut and
  // `after` frames behind it, so it needs that much audio on each side.
  const FrameCount keptSide = std::min(start, total - end);
  const FrameCount crossfade = std::clamp<FrameCount>(crossfadeFrames, 0, 2 * keptSide);
  const FrameCount before = crossfade / 2;
  const FrameCount after = crossfade - before;
  const int channels = source.channelCount();
  const FrameCount chunk = store.chunkFrames();
  ChunkBuffer scratch(channels, chunk);
  FrameSink& sink = store.begin(total - (end - start));
  copyRange(source, sink, 0, start - before, chunk, scratch);
  if (crossfade > 0) {
    ChunkBuffer outgoing(channels, std::min(chunk, crossfade));
    ChunkBuffer incoming(channels, std::min(chunk, crossfade));
    const auto length = static_cast<double>(crossfade);
    for (FrameCount done = 0; done < crossfade;) {
      const FrameCount n = std::min(outgoing.capacity(), crossfade - done);
      source.read(start - before + done, n, outgoing.pointers());
      source.read(end - before + done, n, incoming.pointers());
      for (FrameCount i = 0; i < n; ++i) {
        const auto position = static_cast<double>(done + i);
        const double fadeOut = EditOperations::fadeGain(EditOperations::FadeCurve::equalPower, (length - position) / length);
        const double fadeIn = EditOperations::fadeGain(EditOperations::FadeCurve::equalPower, position / length);
        for (int c = 0; c < channels; ++c) {
          float& x = outgoing.channel(c)[i];
          x = static_cast<float>(static_cast<double>(x) * fadeOut + static_cast<double>(incoming.channel(c)[i]) * fadeIn);
        }
      }
      sink.write(outgoing.constPointers(), n);
      done += n;
    }
  }
  copyRange(source, sink, end + after, total, chunk, scratch);
  store.commit();
  return true;
}

template <class Store>
bool runSilence(EditSource& source, Store& store, FrameCount startFrame, FrameCount endFrame,
                EditOperations::SilenceMode mode, FrameCount durationFrames) {
  const FrameCount total = source.frameLength();
  const FrameCount start = clampFrame(startFrame, total);
  const FrameCount end = std::max(start, clampFrame(endFrame, total));
  const FrameCount chunk = store.chunkFrames();
  ChunkBuffer scratch(source.channelCount(), chunk);
  FrameCount at = 0;
  FrameCount silence = 0;
  FrameCount resume = 0;
  switch (mode) {
    case EditOperations::SilenceMode::before:
    case EditOperations::SilenceMode::after:
      if (durationFrames <= 0) return false;
      at = mode == EditOperations::SilenceMode::before ? start : end;
      silence = durationFrames;
      resume = at;
      break;
    case EditOperations::SilenceMode::replace:
      if (start >= end) return false;
      at = start;
      silence = end - start;
      resume = end;
      break;
    default: throw std::invalid_argument("Unknown silence mode.");
  }
  FrameSink& sink = store.begin(at + silence + (total - resume));
  copyRange(source, sink, 0, at, chunk, scratch);
  writeSilence(sink, silence, scratch);
  copyRange(source, sink, resume, total, chunk, scratch);
  store.commit();
  return true;
}

template <class Store>
bool runSwap(EditSource& source, Store& store) {
  if (source.channelCount() != 2) return false;
  const FrameCount total = source.frameLength();
  ChunkBuffer scratch(2, store.chunkFrames());
  FrameSink& sink = store.begin(total);
  forEachChunk(source, 0, total, store.chunkFrames(), scratch, [&](const float* const* pointers, FrameCount, FrameCount n) {
    const float* swapped[2] = {pointers[1], pointers[0]};
    sink.write(swapped, n);
  });
  store.commit();
  return true;
}

// Source × gain into a fresh pass of the store.
template <class Store>
void runGainPass(EditSource& source, Store& store, double gain) {
  const FrameCount total = source.frameLength();
  ChunkBuffer scratch(source.channelCount(), store.chunkFrames());
  ChunkBuffer scaled(source.channelCount(), store.chunkFrames());
  FrameSink& sink = store.begin(total);
  forEachChunk(source, 0, total, store.chunkFrames(), scratch, [&](const float* const* pointers, FrameCount, FrameCount n) {
    scaleChunk(pointers, scaled, n, gain);
    sink.write(scaled.constPointers(), n);
  });
  store.commit();
}

// What a limiter pass measured on its output.
struct PassReading {
  double truePeakDB;
  double integratedLUFS;  // negative infinity unless asked for
};

// Source × gain through the limiter into a fresh pass of the store.
template <class Store>
PassReading runLimiterPass(EditSource& source, Store& store, double gain, double ceilingDB,
                           const std::vector<double>* loudnessWeights = nullptr) {
  const FrameCount total = source.frameLength();
  const int channels = source.channelCount();
  ChunkBuffer scratch(channels, store.chunkFrames());
  ChunkBuffer scaled(channels, store.chunkFrames());
  FrameSink& sink = store.begin(total);
  MeasuringSink measured(sink, source.sampleRate(), channels, loudnessWeights);
  LimiterStage limiter(source.sampleRate(), channels, ceilingDB, total, measured);
  forEachChunk(source, 0, total, store.chunkFrames(), scratch, [&](const float* const* pointers, FrameCount, FrameCount n) {
    scaleChunk(pointers, scaled, n, gain);
    limiter.push(scaled.constPointers(), n);
  });
  limiter.finish();
  const PassReading reading{measured.finishTruePeakDB(), measured.finishIntegratedLUFS()};
  store.commit();
  return reading;
}

// A loudness the limited result should keep: the limiter's loss is made up by more gain.
struct LoudnessTarget {
  double lufs;
  std::vector<double> weights;
};

// Limiter passes that make up for the limiter's loss of loudness; the result lands within
// this of its target unless the limiter takes so much that the passes run out.
constexpr double kLoudnessToleranceLU = 0.02;
constexpr int kMaxLoudnessPasses = 4;
constexpr double kMaxMakeupStepDB = 6.0;

// The gain, then the true-peak limiter where the scaled signal passes the ceiling.
template <class Store>
bool runGainThenLimit(EditSource& source, Store& store, double gain, double requestedCeilingDB,
                      const LoudnessTarget* target = nullptr) {
  const double ceilingDB = requestedCeilingDB - kOfflineLimiterMarginDB;
  const FrameCount total = source.frameLength();
  const int channels = source.channelCount();
  // First pass: the true peak the signal would have at its new gain.
  {
    ChunkBuffer scratch(channels, store.chunkFrames());
    ChunkBuffer scaled(channels, store.chunkFrames());
    TruePeakMeter meter(source.sampleRate(), channels);
    forEachChunk(source, 0, total, store.chunkFrames(), scratch, [&](const float* const* pointers, FrameCount, FrameCount n) {
      scaleChunk(pointers, scaled, n, gain);
      meter.push(scaled.constPointers(), n);
    });
    if (!(meter.finishDB() > ceilingDB)) {
      if (gain == 1.0) return false;
      runGainPass(source, store, gain);
      return true;
    }
  }
  // Second pass: the limiter. Limiting lowers the loudness a little; a loudness target raises
  // the gain by what was lost and limits again.
  double gainDB = linearToDB(gain);
  PassReading reading = runLimiterPass(source, store, gain, ceilingDB, target ? &target->weights : nullptr);
  // Each extra dB of gain gains less than a dB of loudness once the limiter works; the slope
  // between the last two passes (a secant step, kept between 0.1 and 1) says how much.
  double slope = 1.0;
  for (int pass = 1; target && pass < kMaxLoudnessPasses; ++pass) {
    const double shortfallLU = target->lufs - reading.integratedLUFS;
    if (!(shortfallLU > kLoudnessToleranceLU)) break;
    const double stepDB = std::min(shortfallLU / slope, kMaxMakeupStepDB);
    const double previousLUFS = reading.integratedLUFS;
    gainDB += stepDB;
    reading = runLimiterPass(source, store, dbToLinear(gainDB), ceilingDB, &target->weights);
    slope = std::clamp((reading.integratedLUFS - previousLUFS) / stepDB, 0.1, 1.0);
  }
  double peakDB = reading.truePeakDB;
  if (peakDB > ceilingDB) {
    auto again = store.reopen();
    peakDB = runLimiterPass(*again, store, 1.0, ceilingDB).truePeakDB;
  }
  if (peakDB > ceilingDB) {
    auto again = store.reopen();
    runGainPass(*again, store, dbToLinear(ceilingDB - peakDB) * (1.0 - 1e-4));
  }
  return true;
}

template <class Store>
bool runNormalizeLUFS(EditSource& source, Store& store, double targetLUFS, double ceilingDB,
                      const std::vector<double>& channelWeights) {
  ChunkBuffer scratch(source.channelCount(), store.chunkFrames());
  LoudnessMeter meter(source.sampleRate(), source.channelCount(), channelWeights);
  forEachChunk(source, 0, source.frameLength(), store.chunkFrames(), scratch,
               [&](const float* const* pointers, FrameCount, FrameCount n) { meter.push(pointers, n); });
  const double integrated = meter.finishIntegratedLUFS();
  if (!std::isfinite(integrated)) return false;
  const LoudnessTarget target{targetLUFS, channelWeights};
  return runGainThenLimit(source, store, dbToLinear(targetLUFS - integrated), ceilingDB, &target);
}

template <class Store>
bool runNormalizePeak(EditSource& source, Store& store, double targetDB) {
  ChunkBuffer scratch(source.channelCount(), store.chunkFrames());
  float peak = 0.0f;
  forEachChunk(source, 0, source.frameLength(), store.chunkFrames(), scratch,
               [&](const float* const* pointers, FrameCount, FrameCount n) {
                 for (int c = 0; c < source.channelCount(); ++c) {
                   for (FrameCount i = 0; i < n; ++i) {
                     const float magnitude = std::fabs(pointers[c][i]);
                     if (std::isfinite(magnitude)) peak = std::max(peak, magnitude);
                   }
                 }
               });
  if (!(peak > 0.0f)) return false;
  const double gain = dbToLinear(targetDB) / static_cast<double>(peak);
  if (gain == 1.0) return false;
  runGainPass(source, store, gain);
  return true;
}

// The range of an in-place edit clamped into the arrays, as a window over all of them; none
// when there is nothing to edit.
struct InPlaceRange {
  EditKernels::Window window;
  FrameCount start;
  FrameCount end;
};

std::optional<InPlaceRange> inPlaceRange(float* const* channelData, int channelCount, FrameCount totalFrames,
                                         FrameCount startFrame, FrameCount endFrame) {
  if (channelCount > 0 && channelData == nullptr) throw std::invalid_argument("An in-place edit needs its channels.");
  const FrameCount start = clampFrame(startFrame, totalFrames);
  const FrameCount end = clampFrame(endFrame, totalFrames);
  if (start >= end || channelCount < 1) return std::nullopt;
  return InPlaceRange{{channelData, channelCount, 0, totalFrames}, start, end};
}

}  // namespace

// ---- Names and shapes ----------------------------------------------------------------------

std::string_view EditOperations::displayName(FadeCurve curve) {
  switch (curve) {
    case FadeCurve::linear: return "Linear";
    case FadeCurve::log: return "Log";
    case FadeCurve::equalPower: return "Equal Power";
  }
  return "Linear";
}

std::string_view EditOperations::displayName(FadeDirection direction) {
  return direction == FadeDirection::fadeIn ? "Fade In" : "Fade Out";
}

double EditOperations::fadeGain(FadeCurve curve, double x) {
  x = std::clamp(x, 0.0, 1.0);
  switch (curve) {
    case FadeCurve::linear: return x;
    case FadeCurve::log: return std::pow(0.1, (1.0 - x) * 5.0);
    case FadeCurve::equalPower: return std::sin(x * std::numbers::pi / 2.0);
  }
  return x;
}

// ---- Conversions ---------------------------------------------------------------------------

ChannelData EditOperations::extractChannelData(const AudioBuffer& from) {
  ChannelData data(static_cast<std::size_t>(from.channelCount()));
  const FrameCount frames = from.frameLength();
  for (int c = 0; c < from.channelCount(); ++c) {
    data[static_cast<std::size_t>(c)].assign(from.channel(c), from.channel(c) + frames);
  }
  return data;
}

SharedAudioBuffer EditOperations::buildBuffer(EditResult&& from, const std::vector<ChannelPosition>& channelLayout) {
  if (from.nothingToDo || from.channelData.empty()) return nullptr;
  const int channels = from.channelCount();
  const FrameCount frames = from.frameLength();
  for (const auto& channel : from.channelData) {
    if (static_cast<FrameCount>(channel.size()) != frames) {
      throw std::invalid_argument("The channels of an edit must all have the same length.");
    }
  }
  // The result's arrays become the buffer's: no second copy of the audio.
  SharedAudioBuffer buffer;
  try {
    buffer = AudioBuffer::adopt(std::move(from.channelData), from.sampleRate);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (static_cast<int>(channelLayout.size()) == channels) buffer->setChannelPositions(channelLayout);
  return buffer;
}

SharedAudioBuffer EditOperations::buildBuffer(const EditResult& from, const std::vector<ChannelPosition>& channelLayout) {
  if (from.nothingToDo || from.channelData.empty()) return nullptr;
  EditResult copy;
  try {
    copy = from;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return buildBuffer(std::move(copy), channelLayout);
}

// ---- Rebuilding members --------------------------------------------------------------------

EditResult EditOperations::trim(EditSource& source, FrameCount startFrame, FrameCount endFrame) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) { return runTrim(from, store, startFrame, endFrame); });
}

EditResult EditOperations::cutRange(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                                    FrameCount crossfadeFrames) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) {
    return runCut(from, store, startFrame, endFrame, crossfadeFrames);
  });
}

EditResult EditOperations::addSilence(EditSource& source, FrameCount startFrame, FrameCount endFrame, SilenceMode mode,
                                      FrameCount durationFrames) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) {
    return runSilence(from, store, startFrame, endFrame, mode, durationFrames);
  });
}

EditResult EditOperations::normalizeLUFS(EditSource& source, double targetLUFS, double ceilingDB,
                                         const std::vector<double>& channelWeights) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) {
    return runNormalizeLUFS(from, store, targetLUFS, ceilingDB, channelWeights);
  });
}

EditResult EditOperations::normalizePeak(EditSource& source, double targetDB) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) { return runNormalizePeak(from, store, targetDB); });
}

EditResult EditOperations::limitTruePeak(EditSource& source, double ceilingDBTP) {
  return inMemory(source,
                  [&](EditSource& from, MemoryStore& store) { return runGainThenLimit(from, store, 1.0, ceilingDBTP); });
}

EditResult EditOperations::normalizeByGain(EditSource& source, double gainDB, double ceilingDB) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) {
    return runGainThenLimit(from, store, dbToLinear(gainDB), ceilingDB);
  });
}

EditResult EditOperations::swapChannels(EditSource& source) {
  return inMemory(source, [&](EditSource& from, MemoryStore& store) { return runSwap(from, store); });
}

// The channel-array forms read their arrays through a source.

EditResult EditOperations::trim(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                                double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return trim(source, startFrame, endFrame);
}

EditResult EditOperations::cutRange(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                                    FrameCount crossfadeFrames, double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return cutRange(source, startFrame, endFrame, crossfadeFrames);
}

EditResult EditOperations::addSilence(const ChannelData& channelData, FrameCount startFrame, FrameCount endFrame,
                                      SilenceMode mode, FrameCount durationFrames, double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return addSilence(source, startFrame, endFrame, mode, durationFrames);
}

EditResult EditOperations::normalizeLUFS(const ChannelData& channelData, double targetLUFS, double ceilingDB,
                                         double sampleRate, const std::vector<double>& channelWeights) {
  ChannelDataEditSource source(channelData, sampleRate);
  return normalizeLUFS(source, targetLUFS, ceilingDB, channelWeights);
}

EditResult EditOperations::normalizePeak(const ChannelData& channelData, double targetDB, double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return normalizePeak(source, targetDB);
}

EditResult EditOperations::limitTruePeak(const ChannelData& channelData, double ceilingDBTP, double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return limitTruePeak(source, ceilingDBTP);
}

EditResult EditOperations::normalizeByGain(const ChannelData& channelData, double gainDB, double ceilingDB,
                                           double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return normalizeByGain(source, gainDB, ceilingDB);
}

EditResult EditOperations::swapChannels(const ChannelData& channelData, double sampleRate) {
  ChannelDataEditSource source(channelData, sampleRate);
  return swapChannels(source);
}

EditResult EditOperations::expandNonSpeech(const ChannelData& channelData, const SpeechHistory& speechMask,
                                           FrameCount blockFrames, double reductionDB, double makeupDB,
                                           double attackMs, double releaseMs, double sampleRate) {
  const ChannelDataEditSource shape(channelData, sampleRate);  // validates the arrays and the rate
  const EditKernels::NonSpeechGain gate(speechMask, blockFrames, reductionDB, makeupDB, attackMs, releaseMs, sampleRate);
  if (gate.isIdentity() || channelData.empty()) return EditResult::nothing(sampleRate);
  EditResult result{channelData, sampleRate, false};
  std::vector<float*> pointers;
  for (auto& channel : result.channelData) pointers.push_back(channel.data());
  gate.apply({pointers.data(), result.channelCount(), 0, result.frameLength()});
  return result;
}

// ---- In-place members ----------------------------------------------------------------------

bool EditOperations::changeLevelInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                        double gainDB, FrameCount startFrame, FrameCount endFrame) {
  const auto range = inPlaceRange(channelData, channelCount, totalFrames, startFrame, endFrame);
  if (!range) return false;
  EditKernels::applyGain(range->window, range->start, range->end, dbToLinear(gainDB));
  return true;
}

bool EditOperations::fadeInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                 FadeDirection direction, FadeCurve curve, FrameCount startFrame, FrameCount endFrame) {
  const auto range = inPlaceRange(channelData, channelCount, totalFrames, startFrame, endFrame);
  if (!range) return false;
  EditKernels::applyFade(range->window, range->start, range->end, direction, curve);
  return true;
}

bool EditOperations::invertPhaseInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                        FrameCount startFrame, FrameCount endFrame) {
  const auto range = inPlaceRange(channelData, channelCount, totalFrames, startFrame, endFrame);
  if (!range) return false;
  EditKernels::applyInvert(range->window, range->start, range->end);
  return true;
}

bool EditOperations::removeDCOffsetInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                           FrameCount startFrame, FrameCount endFrame) {
  const auto range = inPlaceRange(channelData, channelCount, totalFrames, startFrame, endFrame);
  if (!range) return false;
  for (int c = 0; c < channelCount; ++c) {
    float* x = channelData[c];
    double sum = 0.0;
    for (FrameCount i = range->start; i < range->end; ++i) sum += static_cast<double>(x[i]);
    const double mean = sum / static_cast<double>(range->end - range->start);
    for (FrameCount i = range->start; i < range->end; ++i) x[i] = static_cast<float>(static_cast<double>(x[i]) - mean);
  }
  return true;
}

bool EditOperations::expandNonSpeechInPlace(float* const* channelData, int channelCount, FrameCount totalFrames,
                                            const SpeechHistory& speechMask, FrameCount blockFrames,
                                            double reductionDB, double makeupDB, double attackMs, double releaseMs,
                                            double sampleRate) {
  if (!inPlaceRange(channelData, channelCount, totalFrames, 0, totalFrames)) return false;
  const EditKernels::NonSpeechGain gate(speechMask, blockFrames, reductionDB, makeupDB, attackMs, releaseMs, sampleRate);
  if (gate.isIdentity()) return false;
  gate.apply({channelData, channelCount, 0, totalFrames});
  return true;
}

// ---- Streaming twins -----------------------------------------------------------------------

bool EditOperations::writeTrimmedWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                                     const std::filesystem::path& to, FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames,
                  [&](EditSource& s, FileStore& store) { return runTrim(s, store, startFrame, endFrame); });
}

bool EditOperations::writeCutWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame,
                                 FrameCount crossfadeFrames, const std::filesystem::path& to, FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames, [&](EditSource& s, FileStore& store) {
    return runCut(s, store, startFrame, endFrame, crossfadeFrames);
  });
}

bool EditOperations::writeSilenceWAV(EditSource& source, FrameCount startFrame, FrameCount endFrame, SilenceMode mode,
                                     FrameCount durationFrames, const std::filesystem::path& to,
                                     FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames, [&](EditSource& s, FileStore& store) {
    return runSilence(s, store, startFrame, endFrame, mode, durationFrames);
  });
}

bool EditOperations::writeNormalizedWAV(EditSource& source, double targetLUFS, double ceilingDB,
                                        const std::filesystem::path& to, FrameCount chunkFrames) {
  const auto positions = source.channelPositions();
  const auto weights = ChannelOrder::bs1770Weights(positions, source.channelCount());
  return streamed(source, to, chunkFrames, [&](EditSource& s, FileStore& store) {
    return runNormalizeLUFS(s, store, targetLUFS, ceilingDB, weights);
  });
}

bool EditOperations::writePeakNormalizedWAV(EditSource& source, double targetDB, const std::filesystem::path& to,
                                            FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames,
                  [&](EditSource& s, FileStore& store) { return runNormalizePeak(s, store, targetDB); });
}

bool EditOperations::writeLimitedWAV(EditSource& source, double ceilingDBTP, const std::filesystem::path& to,
                                     FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames,
                  [&](EditSource& s, FileStore& store) { return runGainThenLimit(s, store, 1.0, ceilingDBTP); });
}

bool EditOperations::writeGainLimitedWAV(EditSource& source, double gainDB, double ceilingDB,
                                         const std::filesystem::path& to, FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames, [&](EditSource& s, FileStore& store) {
    return runGainThenLimit(s, store, dbToLinear(gainDB), ceilingDB);
  });
}

bool EditOperations::writeChannelSwappedWAV(EditSource& source, const std::filesystem::path& to,
                                            FrameCount chunkFrames) {
  return streamed(source, to, chunkFrames, [&](EditSource& s, FileStore& store) { return runSwap(s, store); });
}

void EditOperations::writeMonoChannelWAV(EditSource& source, int channel, const std::filesystem::path& to,
                                         FrameCount chunkFrames, PCMEncoding encoding) {
  checkChunkFrames(chunkFrames);
  if (channel < 0 || channel >= source.channelCount()) throw std::invalid_argument("No such channel to split.");
  const FrameCount total = source.frameLength();
  ChunkBuffer scratch(source.channelCount(), chunkFrames);
  WAVFileSink sink(to, source.sampleRate(), 1, {}, total, encoding);
  forEachChunk(source, 0, total, chunkFrames, scratch, [&](const float* const* pointers, FrameCount, FrameCount n) {
    const float* mono[1] = {pointers[channel]};
    sink.write(mono, n);
  });
  sink.finish();
}

void EditOperations::writeChunkEditedWAV(EditSource& source, const ChunkEditor& edit, const std::filesystem::path& to,
                                         FrameCount chunkFrames) {
  checkChunkFrames(chunkFrames);
  const FrameCount total = source.frameLength();
  const int channels = source.channelCount();
  ChunkBuffer chunk(channels, std::min(chunkFrames, std::max<FrameCount>(total, 1)));
  WAVFileSink sink(to, source.sampleRate(), channels, source.channelPositions(), total);
  for (FrameCount first = 0; first < total;) {
    const FrameCount n = std::min(chunk.capacity(), total - first);
    source.read(first, n, chunk.pointers());
    if (edit) edit(chunk.pointers(), channels, first, n);
    sink.write(chunk.constPointers(), n);
    first += n;
  }
  sink.finish();
}

// ---- Temporary results and memory ----------------------------------------------------------

std::filesystem::path EditOperations::temporaryResultPath(std::string_view tag) {
  return makeTemporaryFilePath(tag, "wav");
}

std::int64_t EditOperations::decodedBytes(FrameCount frames, int channelCount) {
  if (frames <= 0 || channelCount <= 0) return 0;
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  if (frames > kMax / 4 / channelCount) return kMax;
  return frames * channelCount * 4;
}

bool EditOperations::passesFactorTest(std::int64_t decodedBytes, int factor) {
  if (decodedBytes < 1) return true;
  return static_cast<double>(AudioLoadLimits::availableBytes()) * 0.75 >=
         static_cast<double>(factor) * static_cast<double>(decodedBytes);
}

}  // namespace corvane
